// Several processes with one file, as far as scripts do not see them.
#include <sys/wait.h>

#include <csignal>
#include <functional>

#include "tests/support/data_source.h"

namespace testing_support {
namespace {

using namespace embedded;

class ProcessesTest : public DataSourceTest {
  protected:
    ProcessesTest() { EXPECT_EQ(0U, DataSource::created(file()).put(QAR_D_LIVETIME, 1.0)); }

    // A forked process that ends with the success of its work.
    static pid_t started(const std::function<bool()>& work) {
        EXPECT_EQ(0, fflush(nullptr));
        const pid_t process = fork();
        if (process == 0) {
            std::exit(work() ? 0 : 1);
        }
        return process;
    }
    static int statusOf(pid_t process) {
        int status = -1;
        EXPECT_EQ(process, waitpid(process, &status, WUNTRACED));
        return status;
    }
};

TEST_F(ProcessesTest, OpeningBesideAWriterIsRemarkedOrRefused) {
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

TEST_F(ProcessesTest, AProcessThatReadFirstWritesWhatTheOthersLeft) {
    const auto reader = DataSource::opened(file(), reading);
    ASSERT_EQ(0, statusOf(started([this] {
                  const auto source = DataSource::opened(file(), writing);
                  return source.put(QAR_D_REALTIME, 2.0) == 0 && source.close() == 0;
              })));
    { ASSERT_EQ(0U, DataSource::opened(file(), writing).put(QAR_D_LIVETIME, 3.0)); }
    EXPECT_EQ(2.0, reader.get<double>(QAR_D_REALTIME));
    EXPECT_EQ(3.0, DataSource::opened(file(), reading).get<double>(QAR_D_LIVETIME));
}

TEST_F(ProcessesTest, AForkedProcessReadsButDoesNotWriteTheParentsSource) {
    const auto source = DataSource::opened(file(), writing);
    ASSERT_EQ(0U, source.put(QAR_D_LIVETIME, 2.0));
    ASSERT_EQ(0, statusOf(started([&] {
                  return source.put(QAR_D_LIVETIME, 9.0) == codes::inUse &&
                         SOrvFlush(source.context()) == codes::inUse &&
                         DataSource().open(file(), writing) == codes::inUse &&
                         source.get<double>(QAR_D_LIVETIME) == 2.0;
              })));
    ASSERT_EQ(0U, source.put(QAR_D_REALTIME, 2.0));
    ASSERT_EQ(0U, source.close());
    EXPECT_EQ(2.0, DataSource::opened(file(), writing).get<double>(QAR_D_LIVETIME));
}

}  // namespace
}  // namespace testing_support
