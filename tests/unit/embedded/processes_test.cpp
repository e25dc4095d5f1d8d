// Several processes with one file, and processes that end.
#include <sys/wait.h>

#include <array>
#include <csignal>
#include <functional>

#include "tests/unit/embedded/data_source.h"

namespace testing_support {
namespace {

using namespace embedded;

// A forked process that runs work, tells by a byte how far it is, and waits for one to go on.
class OtherProcess {
  public:
    // work returns the process's exit code.
    explicit OtherProcess(const std::function<int(OtherProcess&)>& work) {
        std::array<int, 2> down{};
        std::array<int, 2> up{};
        EXPECT_EQ(0, pipe(down.data()));
        EXPECT_EQ(0, pipe(up.data()));
        EXPECT_EQ(0, fflush(nullptr));
        number_ = fork();
        const bool isChild = number_ == 0;
        reading_ = isChild ? down[0] : up[0];
        writing_ = isChild ? up[1] : down[1];
        ::close(isChild ? down[1] : down[0]);
        ::close(isChild ? up[0] : up[1]);
        if (isChild) {
            _exit(work(*this));
        }
    }
    ~OtherProcess() {
        ::close(writing_);
        ::close(reading_);
        if (number_ > 0) {
            waitpid(number_, nullptr, 0);
        }
    }
    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;
    OtherProcess(OtherProcess&&) = delete;
    OtherProcess& operator=(OtherProcess&&) = delete;

    void tell() const { EXPECT_EQ(1, write(writing_, "x", 1)); }
    // False when the other side has ended.
    [[nodiscard]] bool hear() const {
        char byte = 0;
        return read(reading_, &byte, 1) == 1;
    }
    void kill() const { EXPECT_EQ(0, ::kill(number_, SIGKILL)); }
    // The exit code, or -1 when a signal ended the process.
    int wait() {
        int status = 0;
        const pid_t number = std::exchange(number_, -1);
        EXPECT_EQ(number, waitpid(number, &status, 0));
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

  private:
    pid_t number_ = -1;
    int reading_ = -1;
    int writing_ = -1;
};

class ProcessesTest : public testing::Test {
  protected:
    TemporaryFolder folder_;
    std::string path_ = folder_.file("shared.qar");
};

TEST_F(ProcessesTest, OneProcessWritesAndTheOthersRead) {
    { ASSERT_EQ(0U, DataSource::created(path_).put(QAR_D_LIVETIME, 1.0)); }
    OtherProcess writer([this](const OtherProcess& parent) {
        const auto source = DataSource::opened(path_, Writing);
        parent.tell();
        bool done = parent.hear() && source.put(QAR_D_LIVETIME, 2.0) == 0;
        done = done && SOrvFlush(source.context()) == 0;
        parent.tell();
        return done && parent.hear() && source.close() == 0 ? 0 : 1;
    });
    ASSERT_TRUE(writer.hear());
    const DataSource source;
    EXPECT_EQ(codes::inUse, source.open(path_, Writing));
    EXPECT_EQ(codes::openedWithRemark, source.open(path_, Reading));
    EXPECT_EQ(0x100U, source.openingState());
    EXPECT_EQ(1.0, source.get<double>(QAR_D_LIVETIME));
    const DataSource second;
    EXPECT_EQ(0, OrvDataSourceOpening(second.context(), path_.c_str(), 1, 0x80, 0, nullptr));
    EXPECT_EQ(codes::inUse, DataSource().open(path_, Writing));

    writer.tell();
    ASSERT_TRUE(writer.hear());
    EXPECT_EQ(1.0, source.get<double>(QAR_D_LIVETIME));
    EXPECT_EQ(0U, SOrvReVerify(source.context()));
    EXPECT_EQ(2.0, source.get<double>(QAR_D_LIVETIME));

    writer.tell();
    ASSERT_EQ(0, writer.wait());
    EXPECT_EQ(0U, DataSource().open(path_, Writing));
}

TEST_F(ProcessesTest, AProcessThatReadFirstWritesWhatTheOthersLeft) {
    { ASSERT_EQ(0U, DataSource::created(path_).put(QAR_D_LIVETIME, 1.0)); }
    const auto reader = DataSource::opened(path_, Reading);
    OtherProcess writer([this](const OtherProcess&) {
        const auto source = DataSource::opened(path_, Writing);
        return source.put(QAR_D_REALTIME, 2.0) == 0 && source.close() == 0 ? 0 : 1;
    });
    ASSERT_EQ(0, writer.wait());
    { ASSERT_EQ(0U, DataSource::opened(path_, Writing).put(QAR_D_LIVETIME, 3.0)); }
    EXPECT_EQ(2.0, reader.get<double>(QAR_D_REALTIME));
    EXPECT_EQ(3.0, DataSource::opened(path_, Reading).get<double>(QAR_D_LIVETIME));
}

TEST_F(ProcessesTest, AForkedProcessReadsButDoesNotWriteTheParentsSource) {
    const auto source = DataSource::created(path_);
    ASSERT_EQ(0U, source.put(QAR_D_LIVETIME, 1.0));
    OtherProcess child([&](const OtherProcess&) {
        const bool refused = source.put(QAR_D_LIVETIME, 9.0) == codes::inUse &&
                             SOrvFlush(source.context()) == codes::inUse &&
                             DataSource().open(path_, Writing) == codes::inUse;
        return refused && source.get<double>(QAR_D_LIVETIME) == 1.0 && source.close() == 0 ? 0 : 1;
    });
    ASSERT_EQ(0, child.wait());
    ASSERT_EQ(0U, source.put(QAR_D_REALTIME, 2.0));
    ASSERT_EQ(0U, source.close());
    EXPECT_EQ(1.0, DataSource::opened(path_, Writing).get<double>(QAR_D_LIVETIME));
}

TEST_F(ProcessesTest, TheEndOfAProcessSavesWhatItLeftOpen) {
    const std::string untouched = folder_.file("untouched.qar");
    const auto ofParent = DataSource::created(untouched);
    ASSERT_EQ(0U, ofParent.put(QAR_D_LIVETIME, 1.0));
    OtherProcess child([this](const OtherProcess&) -> int {
        OrvContext context = 0;
        const double value = 5.0;
        SOrvCreateDSC2(nullptr, &context, 0, 0);
        SOrvCreateFile(context, path_.c_str(), 1, 65535, 1, 32768);
        SOrvPutParam(context, QAR_D_LIVETIME, 1, 0, &value, sizeof value);
        std::exit(0);
    });
    ASSERT_EQ(0, child.wait());
    EXPECT_EQ(5.0, DataSource::opened(path_, Reading).get<double>(QAR_D_LIVETIME));
}

// Each round writes its number to two classes and flushes.
TEST_F(ProcessesTest, AKilledWriterLeavesTheLastFlushAndNothingInPart) {
    DataSource::created(path_);
    for (int repetition = 0; repetition < 5; ++repetition) {
        OtherProcess writer([this](const OtherProcess& parent) {
            const auto source = DataSource::opened(path_, Writing);
            for (std::int32_t round = 1;; ++round) {
                if (source.put(QAR_L_LOWERDISC, round) != 0 ||
                    source.putSpectrum(std::vector<std::int32_t>(8192, round)) != 0 ||
                    SOrvFlush(source.context()) != 0) {
                    return 1;
                }
                parent.tell();
            }
        });
        std::int32_t flushed = 0;
        while (flushed < 3 + repetition && writer.hear()) {
            ++flushed;
        }
        usleep(static_cast<useconds_t>(repetition) * 700);
        writer.kill();
        while (writer.hear()) {
            ++flushed;
        }
        ASSERT_EQ(-1, writer.wait());
        const auto source = DataSource::opened(path_, Writing);
        const auto round = source.get<std::int32_t>(QAR_L_LOWERDISC);
        EXPECT_GE(round, flushed);
        EXPECT_THAT(source.getSpectrum(), testing::Each(round));
    }
}

}  // namespace
}  // namespace testing_support
