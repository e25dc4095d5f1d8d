// The file on the disk: its names, its size, and what happens where it cannot be written.
#include <sys/resource.h>

#include <csignal>
#include <functional>

#include "tests/support/data_source.h"

namespace testing_support {
namespace {

using namespace embedded;

class StorageTest : public DataSourceTest {
  protected:
    std::string path_ = file();
    std::vector<std::int32_t> spectrum_ = std::vector<std::int32_t>(32768, 7);
};

TEST_F(StorageTest, ChangesAreSeenThroughEveryContextAndEveryNameOfTheFile) {
    const auto writer = DataSource::created(path_);
    const std::string link = file("link.qar");
    std::filesystem::create_symlink(path_, link);
    const auto reader = DataSource::opened(link, reading);
    ASSERT_EQ(0U, writer.put(QAR_D_LIVETIME, 100.0));
    EXPECT_EQ(100.0, reader.get<double>(QAR_D_LIVETIME));
    EXPECT_EQ(codes::readOnly, reader.put(QAR_D_LIVETIME, 1.0));
    EXPECT_EQ(0x7U, reader.sourceState());
    ASSERT_EQ(0U, SOrvFlush(reader.context()));
    EXPECT_EQ(0x1U, writer.sourceState());
}

// Does the work while every file of this process ends at 8 KiB, as on a full disk.
void onFullDisk(const std::function<void()>& work) {
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit limit{8192, before.rlim_max};
    const sighandler_t handler = std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &limit);
    work();
    setrlimit(RLIMIT_FSIZE, &before);
    static_cast<void>(std::signal(SIGXFSZ, handler));
}

TEST_F(StorageTest, AFullDiskLosesNothing) {
    auto source = DataSource::created(path_);
    ASSERT_EQ(0U, source.put(QAR_D_LIVETIME, 1.0));
    ASSERT_EQ(0U, SOrvFlush(source.context()));
    ASSERT_EQ(0U, source.putSpectrum(spectrum_));
    onFullDisk([&] {
        EXPECT_EQ(codes::storageFailed, SOrvFlush(source.context()));
        EXPECT_EQ(codes::storageFailed, source.failure(OrvDataSourceClosing(source.context())));
        EXPECT_EQ(0x3U, source.sourceState());
        EXPECT_EQ(codes::storageFailed, SOrvDeleteDSC(source.context()));
    });
    // The context is gone; the next one that opens the file finds the changes and saves them.
    EXPECT_EQ(0U, DataSource::opened(path_, writing).close());
    EXPECT_EQ(spectrum_, DataSource::opened(path_, reading).getSpectrum());
}

TEST_F(StorageTest, ACreationThatFailsLeavesNoFile) {
    const DataSource source;
    onFullDisk([&] { EXPECT_EQ(codes::storageFailed, source.create(path_)); });
    EXPECT_EQ(codes::fileNotFound, source.create(file("missing/measurement.qar")));
    EXPECT_EQ(codes::nameRefused, source.create(file(std::string(300, 'n'))));
    EXPECT_EQ(0, fileCount());
    EXPECT_EQ(0U, source.create(path_));
}

TEST_F(StorageTest, AFileThatWasReplacedIsNotOverwritten) {
    const auto source = DataSource::created(path_);
    ASSERT_EQ(0U, source.put(QAR_D_LIVETIME, 7.0));
    const std::string moved = file("moved.qar");
    std::filesystem::rename(path_, moved);
    { ASSERT_EQ(0U, DataSource::created(path_).put(QAR_D_LIVETIME, 8.0)); }
    EXPECT_EQ(codes::fileMoved, SOrvFlush(source.context()));
    EXPECT_EQ(8.0, DataSource::opened(path_, reading).get<double>(QAR_D_LIVETIME));
    std::filesystem::rename(moved, path_);
    EXPECT_EQ(0U, source.close());
    EXPECT_EQ(7.0, DataSource::opened(path_, reading).get<double>(QAR_D_LIVETIME));
}

TEST_F(StorageTest, CompactingMakesTheFileSmallerAndKeepsItsContent) {
    const auto source = DataSource::created(path_);
    ASSERT_EQ(0U, source.putSpectrum(spectrum_));
    ASSERT_EQ(0U, source.put(QAR_D_LIVETIME, 7.0));
    ASSERT_EQ(0U, SOrvFlush(source.context()));
    const auto before = std::filesystem::file_size(path_);
    ASSERT_EQ(0U, SOrvDeleteOne(source.context(), QAR_CLS_SPECTRUM, 1, 0));
    EXPECT_EQ(0U, SOrvControlDSC(source.context(), 2, 0));
    EXPECT_LT(std::filesystem::file_size(path_), before / 2);
    EXPECT_EQ(0U, source.close());
    EXPECT_EQ(7.0, DataSource::opened(path_, reading).get<double>(QAR_D_LIVETIME));
}

}  // namespace
}  // namespace testing_support
