// What is written comes back, at once through every context and after the file was closed.
#include <sys/resource.h>

#include <bit>
#include <csignal>
#include <numeric>
#include <thread>

#include "tests/unit/embedded/data_source.h"

namespace testing_support {
namespace {

using namespace embedded;

class StorageTest : public testing::Test {
  protected:
    TemporaryFolder folder_;
    std::string path_ = folder_.file("measurement.qar");
};

std::vector<std::int32_t> ramp(std::size_t channels) {
    std::vector<std::int32_t> contents(channels);
    std::iota(contents.begin(), contents.end(), -3);
    contents.back() = std::numeric_limits<std::int32_t>::min();
    return contents;
}

TEST_F(StorageTest, ValuesOfEveryTypeSurviveClosing) {
    const auto notANumber = std::bit_cast<double>(std::uint64_t{0x7FF8000000001234});
    {
        const auto source = DataSource::created(path_);
        EXPECT_EQ(0U, source.put(QAR_B_ACQACTIVE, std::uint8_t{255}));
        EXPECT_EQ(0U, source.put(QAR_B_PILEUPREJ, std::uint8_t{1}));
        EXPECT_EQ(0U, source.put(QAR_S_INPUTNUM, std::uint16_t{65535}));
        EXPECT_EQ(0U, source.put(QAR_S_ADCBITS, std::uint16_t{13}));
        EXPECT_EQ(0U, source.put(QAR_L_LOWERDISC, std::int32_t{-7}));
        EXPECT_EQ(0U, source.put(QAR_Q_TOTALCOUNT, std::int64_t{-0x123456789ABC}));
        EXPECT_EQ(0U, source.put(QAR_F_DEADTIME, 0.1F));
        EXPECT_EQ(0U, source.putText(QAR_C_COMMENT, std::string(255, '\xE4')));
        EXPECT_EQ(0U, source.putText(QAR_C_DETECTOR, ""));
        EXPECT_EQ(0U, source.put(QAR_D_REALTIME, -0.0));
        EXPECT_EQ(0U, source.put(QAR_D_LIVETIME, notANumber));
        EXPECT_EQ(0U, source.put(QAR_D_DISTANCE, 1e-300));
        EXPECT_EQ(0U, source.put(QAR_T_ACQSTART, 5212846932.25));
        EXPECT_EQ(0U, source.close());
    }
    const auto source = DataSource::opened(path_, Reading);
    EXPECT_EQ(255, source.get<std::uint8_t>(QAR_B_ACQACTIVE));
    EXPECT_EQ(1, source.get<std::uint8_t>(QAR_B_PILEUPREJ));
    EXPECT_EQ(65535, source.get<std::uint16_t>(QAR_S_INPUTNUM));
    EXPECT_EQ(13, source.get<std::uint16_t>(QAR_S_ADCBITS));
    EXPECT_EQ(-7, source.get<std::int32_t>(QAR_L_LOWERDISC));
    EXPECT_EQ(-0x123456789ABC, source.get<std::int64_t>(QAR_Q_TOTALCOUNT));
    EXPECT_EQ(0.1F, source.get<float>(QAR_F_DEADTIME));
    EXPECT_EQ(std::string(255, '\xE4'), source.getText(QAR_C_COMMENT));
    EXPECT_EQ("", source.getText(QAR_C_DETECTOR));
    EXPECT_TRUE(std::signbit(source.get<double>(QAR_D_REALTIME)));
    EXPECT_EQ(std::bit_cast<std::uint64_t>(notANumber), source.get<std::uint64_t>(QAR_D_LIVETIME));
    EXPECT_EQ(1e-300, source.get<double>(QAR_D_DISTANCE));
    EXPECT_EQ(5212846932.25, source.get<double>(QAR_T_ACQSTART));
    EXPECT_EQ(codes::notSet, source.readStatus(QAR_T_ACQSTOP));
}

class SpectrumSize : public StorageTest, public testing::WithParamInterface<std::size_t> {};

TEST_P(SpectrumSize, SurvivesClosing) {
    const auto contents = ramp(GetParam());
    {
        const auto source = DataSource::created(path_);
        ASSERT_EQ(0U, source.put(QAR_L_CHANNELS, static_cast<std::int32_t>(GetParam())));
        ASSERT_EQ(0U, source.putSpectrum(contents));
        ASSERT_EQ(0U, source.close());
    }
    EXPECT_EQ(contents, DataSource::opened(path_, Reading).getSpectrum());
}

INSTANTIATE_TEST_SUITE_P(Storage, SpectrumSize, testing::Values(1, 255, 256, 257, 4096, 32768));

TEST_F(StorageTest, ChangesAreSeenThroughEveryContextAndEveryNameOfTheFile) {
    const auto writer = DataSource::created(path_);
    const std::string link = folder_.file("link.qar");
    std::filesystem::create_symlink(path_, link);
    const auto reader = DataSource::opened(link, Reading);
    ASSERT_EQ(0U, writer.put(QAR_D_LIVETIME, 100.0));
    EXPECT_EQ(100.0, reader.get<double>(QAR_D_LIVETIME));
    EXPECT_EQ(codes::readOnly, reader.put(QAR_D_LIVETIME, 1.0));
    EXPECT_EQ(0x7U, reader.sourceState());
    ASSERT_EQ(0U, SOrvFlush(reader.context()));
    EXPECT_EQ(0x1U, writer.sourceState());
}

TEST_F(StorageTest, DeletingAContextSavesWhatItHadOpen) {
    { ASSERT_EQ(0U, DataSource::created(path_).put(QAR_D_LIVETIME, 7.0)); }
    EXPECT_EQ(7.0, DataSource::opened(path_, Reading).get<double>(QAR_D_LIVETIME));
}

// Makes every file of this process end at 8 KiB, as a full disk would.
class FullDisk {
  public:
    FullDisk() : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{8192, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FullDisk() {
        setrlimit(RLIMIT_FSIZE, &before_);
        static_cast<void>(std::signal(SIGXFSZ, handler_));
    }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;
    FullDisk(FullDisk&&) = delete;
    FullDisk& operator=(FullDisk&&) = delete;

  private:
    rlimit before_{};
    sighandler_t handler_;
};

TEST_F(StorageTest, AFullDiskLosesNothing) {
    const auto contents = ramp(32768);
    auto source = DataSource::created(path_);
    ASSERT_EQ(0U, source.put(QAR_D_LIVETIME, 1.0));
    ASSERT_EQ(0U, SOrvFlush(source.context()));
    ASSERT_EQ(0U, source.putSpectrum(contents));
    {
        const FullDisk full;
        EXPECT_EQ(codes::storageFailed, SOrvFlush(source.context()));
        EXPECT_EQ(-1, OrvDataSourceClosing(source.context()));
        EXPECT_EQ(codes::storageFailed, source.lastFailure());
        EXPECT_EQ(0x3U, source.sourceState());
        EXPECT_EQ(codes::storageFailed, SOrvDeleteDSC(source.context()));
    }
    // The context is gone; the next one that opens the file finds the changes and saves them.
    EXPECT_EQ(0U, DataSource::opened(path_, Writing).close());
    EXPECT_EQ(contents, DataSource::opened(path_, Reading).getSpectrum());
}

TEST_F(StorageTest, ACreationThatFailsLeavesNoFile) {
    const DataSource source;
    {
        const FullDisk full;
        EXPECT_EQ(codes::storageFailed, source.create(path_));
    }
    EXPECT_EQ(codes::fileNotFound, source.create(folder_.file("missing/measurement.qar")));
    EXPECT_EQ(codes::nameRefused, source.create(folder_.file(std::string(300, 'n'))));
    EXPECT_EQ(0U, folder_.fileCount());
    EXPECT_EQ(0U, source.create(path_));
}

TEST_F(StorageTest, CreatingOverAFileIsRefusedAndKeepsIt) {
    { ASSERT_EQ(0U, DataSource::created(path_).put(QAR_D_LIVETIME, 7.0)); }
    EXPECT_EQ(codes::fileExists, DataSource().create(path_));
    EXPECT_EQ(7.0, DataSource::opened(path_, Reading).get<double>(QAR_D_LIVETIME));
    EXPECT_EQ(1U, folder_.fileCount());
}

TEST_F(StorageTest, AFileThatWasReplacedIsNotOverwritten) {
    const auto source = DataSource::created(path_);
    ASSERT_EQ(0U, source.put(QAR_D_LIVETIME, 7.0));
    const std::string moved = folder_.file("moved.qar");
    std::filesystem::rename(path_, moved);
    { ASSERT_EQ(0U, DataSource::created(path_).put(QAR_D_LIVETIME, 8.0)); }
    EXPECT_EQ(codes::fileMoved, SOrvFlush(source.context()));
    EXPECT_EQ(8.0, DataSource::opened(path_, Reading).get<double>(QAR_D_LIVETIME));
    std::filesystem::rename(moved, path_);
    EXPECT_EQ(0U, source.close());
    EXPECT_EQ(7.0, DataSource::opened(path_, Reading).get<double>(QAR_D_LIVETIME));
}

TEST_F(StorageTest, CompactingMakesTheFileSmallerAndKeepsItsContent) {
    const auto source = DataSource::created(path_);
    ASSERT_EQ(0U, source.putSpectrum(ramp(32768)));
    ASSERT_EQ(0U, source.put(QAR_D_LIVETIME, 7.0));
    ASSERT_EQ(0U, SOrvFlush(source.context()));
    const auto before = std::filesystem::file_size(path_);
    ASSERT_EQ(0U, SOrvDeleteOne(source.context(), QAR_CLS_SPECTRUM, 1, 0));
    EXPECT_EQ(0U, SOrvControlDSC(source.context(), 2, 0));
    EXPECT_LT(std::filesystem::file_size(path_), before / 2);
    EXPECT_EQ(0U, SOrvControlDSC(source.context(), 3, 0));
    EXPECT_EQ(0U, source.close());
    EXPECT_EQ(7.0, DataSource::opened(path_, Reading).get<double>(QAR_D_LIVETIME));
}

}  // namespace
}  // namespace testing_support
