// Threads that share one file or use files of their own.
#include <functional>
#include <thread>

#include "tests/support/data_source.h"

namespace testing_support {
namespace {

using namespace embedded;

constexpr int threadCount = 4;

class ThreadsTest : public DataSourceTest {};

void inThreads(const std::function<void(int)>& work) {
    std::vector<std::jthread> threads;
    threads.reserve(threadCount);
    for (int number = 0; number < threadCount; ++number) {
        threads.emplace_back(work, number);
    }
}

TEST_F(ThreadsTest, ConcurrentCallsOnOneFileAreAtomic) {
    {
        const auto source = DataSource::created(file());
        ASSERT_EQ(0, OrvCreateBlock(source.context(), QAR_CLS_SPECTRUM, 256, 0));
        ASSERT_EQ(0U, source.put(QAR_D_LINEENERGY, 661.5));
    }
    const auto shared = DataSource::opened(file(), writing);  // no class is loaded yet
    inThreads([&](int number) {
        const auto own = DataSource::opened(file(), writing);
        const DataSource& used = number % 2 == 0 ? own : shared;
        for (int round = 0; round < 50; ++round) {
            EXPECT_EQ(0U, used.putSpectrum(std::vector<std::int32_t>(256, number * 1000 + round)));
            const auto seen = used.getSpectrum();
            EXPECT_THAT(seen, testing::Each(seen.front()));
            EXPECT_EQ(0U, SOrvInsertOne(used.context(), QAR_CLS_PEAK, 1, 0));
            if (round % 10 == 0) {
                EXPECT_EQ(0U, SOrvFlush(used.context()));
                const auto reader = DataSource::opened(file(), reading);
                EXPECT_EQ(661.5, reader.get<double>(QAR_D_LINEENERGY));
                EXPECT_EQ(0U, SOrvReVerify(reader.context()));
            }
        }
    });
    EXPECT_EQ(threadCount * 50, shared.recordCount(QAR_CLS_PEAK));
    EXPECT_EQ(0U, shared.close());
    EXPECT_EQ(threadCount * 50, DataSource::opened(file(), reading).recordCount(QAR_CLS_PEAK));
}

TEST_F(ThreadsTest, ConcurrentCopiesInBothDirectionsDoNotDeadlock) {
    const auto path = [&](int number) {
        return file(std::to_string(number % threadCount) + ".qar");
    };
    for (int number = 0; number < threadCount; ++number) {
        EXPECT_EQ(0U, DataSource::created(path(number)).put(QAR_C_NUCLNAME, "Co-60"));
    }
    inThreads([&](int number) {
        for (int round = 0; round < 10; ++round) {
            const auto own = DataSource::opened(path(number), writing);
            const auto next = DataSource::opened(path(number + 1), writing);
            EXPECT_EQ(0U, SOrvSaveAs(own.context(), next.context()));
            EXPECT_EQ(0U, SOrvClassCopy(next.context(), own.context(), QAR_CLS_NUCLIDE));
        }
    });
    for (int number = 0; number < threadCount; ++number) {
        EXPECT_EQ(1, DataSource::opened(path(number), reading).recordCount(QAR_CLS_NUCLIDE));
    }
}

TEST_F(ThreadsTest, ContextCanBeDeletedDuringCallsOfOtherThreads) {
    const auto source = DataSource::created(file());
    inThreads([&](int number) {
        for (int round = 0; round < 100; ++round) {
            if (number == 0 && round == 50) {
                EXPECT_EQ(0U, SOrvDeleteDSC(source.context()));
            }
            EXPECT_THAT(source.put(QAR_L_CHANNELS, std::int32_t{1}),
                        testing::AnyOf(0U, codes::unknownContext, codes::noSourceOpen));
        }
    });
    EXPECT_EQ(1, DataSource::opened(file(), reading).get<std::int32_t>(QAR_L_CHANNELS));
}

}  // namespace
}  // namespace testing_support
