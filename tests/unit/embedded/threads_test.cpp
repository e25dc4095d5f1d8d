// Threads on one file and on files of their own.
#include <thread>

#include "tests/unit/embedded/data_source.h"

namespace testing_support {
namespace {

using namespace embedded;

constexpr int threadCount = 4;

template <typename Work>
void inThreads(Work work) {
    std::vector<std::thread> threads;
    threads.reserve(threadCount);
    for (int number = 0; number < threadCount; ++number) {
        threads.emplace_back(work, number);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

// A spectrum chunk is one call: nobody ever sees half of one.
TEST(ThreadsTest, CallsOnOneFileAreNotSeenInPart) {
    const TemporaryFolder folder;
    const std::string path = folder.file("shared.qar");
    const auto shared = DataSource::created(path);
    ASSERT_EQ(0, OrvCreateBlock(shared.context(), QAR_CLS_SPECTRUM, 256, 0));
    inThreads([&](int number) {
        const auto own = DataSource::opened(path, Writing);
        const DataSource& used = number % 2 == 0 ? own : shared;
        for (int round = 0; round < 50; ++round) {
            EXPECT_EQ(0U, used.putSpectrum(std::vector<std::int32_t>(256, number * 1000 + round)));
            const auto seen = used.getSpectrum();
            EXPECT_THAT(seen, testing::Each(seen.front()));
            EXPECT_EQ(0U, SOrvInsertOne(used.context(), QAR_CLS_PEAK, 1, 0));
            if (round % 10 == 0) {
                EXPECT_EQ(0U, SOrvFlush(used.context()));
            }
        }
    });
    EXPECT_EQ(threadCount * 50, shared.recordCount(QAR_CLS_PEAK));
    EXPECT_EQ(0U, shared.close());
    EXPECT_EQ(threadCount * 50, DataSource::opened(path, Reading).recordCount(QAR_CLS_PEAK));
}

TEST(ThreadsTest, FilesCanBeOpenedAndCopiedBothWaysAtOnce) {
    const TemporaryFolder folder;
    const auto path = [&](int number) {
        return folder.file(std::to_string(number % threadCount) + ".qar");
    };
    for (int number = 0; number < threadCount; ++number) {
        DataSource::created(path(number)).putNuclide(1, "Co-60", {1173.2, 1332.5});
    }
    inThreads([&](int number) {
        for (int round = 0; round < 10; ++round) {
            const auto own = DataSource::opened(path(number), Writing);
            const auto next = DataSource::opened(path(number + 1), Writing);
            EXPECT_EQ(0U, SOrvSaveAs(own.context(), next.context()));
            EXPECT_EQ(0U, SOrvClassCopy(next.context(), own.context(), QAR_CLS_NUCLIDE));
        }
    });
    for (int number = 0; number < threadCount; ++number) {
        EXPECT_EQ(2, DataSource::opened(path(number), Reading).entryCount(QAR_CLS_NUCLIDE, 1));
    }
}

TEST(ThreadsTest, AContextCanBeDeletedWhileItIsUsed) {
    const TemporaryFolder folder;
    OrvContext context = 0;
    ASSERT_EQ(0U, SOrvCreateDSC2(nullptr, &context, 0, 0));
    ASSERT_EQ(0U, SOrvCreateFile(context, folder.file("deleted.qar").c_str(), 1, 65535, 1, 32768));
    inThreads([context](int number) {
        const std::int32_t channels = 1;
        for (int round = 0; round < 100; ++round) {
            if (number == 0 && round == 50) {
                EXPECT_EQ(0U, SOrvDeleteDSC(context));
            }
            const OrvStatus status =
                SOrvPutParam(context, QAR_L_CHANNELS, 1, 1, &channels, sizeof channels);
            EXPECT_THAT(status, testing::AnyOf(0U, codes::unknownContext, codes::noSourceOpen));
        }
    });
    EXPECT_EQ(
        1,
        DataSource::opened(folder.file("deleted.qar"), Reading).get<std::int32_t>(QAR_L_CHANNELS));
}

}  // namespace
}  // namespace testing_support
