// Several processes that use one file; cases that tests of the Python module do not cover.
#include <atomic>
#include <thread>

#include "tests/support/data_source.h"

namespace testing_support {
namespace {

using namespace embedded;

class ProcessesTest : public DataSourceTest {
  protected:
    ProcessesTest() {
        const auto source = DataSource::created(file());
        EXPECT_EQ(0U, source.put(QAR_D_LIVETIME, 1.0));
        EXPECT_EQ(0U, source.putSpectrum({1}));
    }

    // Expects this status if another process opens the file for writing; that process closes it.
    void expectElsewhere(OrvStatus status) {
        runElsewhere([&] { return DataSource().open(file(), writing) == status; });
    }
    void saveElsewhere(double liveTime, std::int32_t channel) {
        runElsewhere([&] {
            const auto source = DataSource::opened(file(), writing);
            return source.put(QAR_D_LIVETIME, liveTime) == 0 && source.putSpectrum({channel}) == 0;
        });
    }
};

TEST_F(ProcessesTest, OpeningBesideWriterIsReadOnlyOrRefused) {
    const pid_t writer = started([this] {
        const auto source = DataSource::opened(file(), writing);
        return raise(SIGSTOP) == 0;
    });
    ASSERT_TRUE(WIFSTOPPED(statusOf(writer)));
    const DataSource source;
    EXPECT_EQ(codes::inUse, source.open(file(), writing));
    EXPECT_EQ(codes::openedWithRemark, source.open(file(), reading));
    EXPECT_EQ(0x100U, source.openingState());
    EXPECT_EQ(codes::inUse, DataSource().open(file(), writing));
    EXPECT_EQ(0, kill(writer, SIGKILL));
    EXPECT_TRUE(WIFSIGNALED(statusOf(writer)));
    EXPECT_EQ(0U, DataSource().open(file(), writing));
}

TEST_F(ProcessesTest, OpeningShowsSavesOfOtherProcessesInEveryContext) {
    const auto reader = DataSource::opened(file(), reading);
    EXPECT_EQ(1.0, reader.get<double>(QAR_D_LIVETIME));
    saveElsewhere(2.0, 2);
    EXPECT_EQ(1.0, reader.get<double>(QAR_D_LIVETIME));
    EXPECT_EQ(2.0, DataSource::opened(file(), reading).get<double>(QAR_D_LIVETIME));
    EXPECT_EQ(2.0, reader.get<double>(QAR_D_LIVETIME));
    saveElsewhere(3.0, 3);
    { ASSERT_EQ(0U, DataSource::opened(file(), writing).put(QAR_D_REALTIME, 4.0)); }
    EXPECT_EQ(3.0, DataSource::opened(file(), reading).get<double>(QAR_D_LIVETIME));
    // No lock of the writer remains with the reader.
    expectElsewhere(0);
}

TEST_F(ProcessesTest, AllClassesShowSameSavedState) {
    const auto reader = DataSource::opened(file(), reading);
    EXPECT_EQ(1.0, reader.get<double>(QAR_D_LIVETIME));
    runElsewhere(
        [this] { return DataSource::opened(file(), writing).put(QAR_D_LINEENERGY, 661.657) == 0; });
    EXPECT_EQ(1, reader.recordCount(QAR_CLS_NUCLIDE)) << "created after the first read";
    saveElsewhere(2.0, 2);
    std::int32_t channel = 0;
    EXPECT_EQ(0U, SOrvGetSpectrum(reader.context(), 1, 1, 0, &channel));
    EXPECT_EQ(2, channel);
    EXPECT_EQ(2.0, reader.get<double>(QAR_D_LIVETIME));
    EXPECT_EQ(661.657, reader.get<double>(QAR_D_LINEENERGY));
}

TEST_F(ProcessesTest, ForkedProcessCanReadButNotWriteSourceOfParent) {
    const auto source = DataSource::opened(file(), writing);
    ASSERT_EQ(0U, source.put(QAR_D_LIVETIME, 2.0));
    runElsewhere([&] {
        std::int32_t channel = 0;
        return source.put(QAR_D_LIVETIME, 9.0) == codes::inUse &&
               SOrvFlush(source.context()) == codes::inUse &&
               DataSource().open(file(), writing) == codes::inUse &&
               source.get<double>(QAR_D_LIVETIME) == 2.0 &&
               // The spectrum is not loaded, and the parent has unsaved changes.
               SOrvGetSpectrum(source.context(), 1, 1, 0, &channel) == codes::inUse &&
               SOrvDeleteDSC(source.context()) == 0;
    });
    expectElsewhere(codes::inUse);
    ASSERT_EQ(0U, SOrvFlush(source.context()));
    runElsewhere([&] {
        std::int32_t channel = 0;
        return SOrvGetSpectrum(source.context(), 1, 1, 0, &channel) == 0 && channel == 1 &&
               source.get<double>(QAR_D_LIVETIME) == 2.0;
    });
    ASSERT_EQ(0U, source.put(QAR_D_REALTIME, 2.0));
    ASSERT_EQ(0U, source.close());
    EXPECT_EQ(2.0, DataSource::opened(file(), writing).get<double>(QAR_D_REALTIME));
}

TEST_F(ProcessesTest, LockEndsWithWriterAndNotWithItsForkedProcess) {
    int ends[2] = {};
    ASSERT_EQ(0, pipe(ends));
    const pid_t writer = started([&] {
        const auto source = DataSource::opened(file(), writing);
        started([&] {
            const pid_t self = getpid();
            return ::write(ends[1], &self, sizeof self) == sizeof self && pause() == 0;
        });
        return raise(SIGSTOP) == 0;
    });
    pid_t child = 0;
    ASSERT_EQ(ssize_t{sizeof child}, read(ends[0], &child, sizeof child));
    ASSERT_TRUE(WIFSTOPPED(statusOf(writer)));
    expectElsewhere(codes::inUse);
    EXPECT_EQ(0, kill(writer, SIGKILL));
    EXPECT_TRUE(WIFSIGNALED(statusOf(writer)));
    expectElsewhere(0);
    EXPECT_EQ(0, kill(child, SIGKILL));
    close(ends[0]);
    close(ends[1]);
}

TEST_F(ProcessesTest, ForkDuringCallsInOtherThreadsLeavesLibraryUsable) {
    const auto source = DataSource::opened(file(), writing);
    std::atomic<bool> ended = false;
    std::vector<std::jthread> threads;
    threads.reserve(2);
    for (int number = 0; number < 2; ++number) {
        threads.emplace_back([&] {
            while (!ended) {
                const auto own = DataSource::opened(file(), writing);
                EXPECT_EQ(0U, own.put(QAR_D_LIVETIME, 1.0));
                EXPECT_EQ(0U, SOrvFlush(source.context()));
                EXPECT_EQ(1, own.recordCount(QAR_CLS_SPECTRUM));
            }
        });
    }
    for (int turn = 0; turn < 20; ++turn) {
        runElsewhere([this] {
            const DataSource own;
            const bool good = own.open(file(), reading) == codes::openedWithRemark &&
                              own.get<double>(QAR_D_LIVETIME) == 1.0;
            _exit(good ? 0 : 1);  // skips the leak check: the threads' memory is never freed here
            return good;
        });
    }
    ended = true;
}

}  // namespace
}  // namespace testing_support
