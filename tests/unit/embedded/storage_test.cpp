// The file on the disk: its names, its size, and failures to write it.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <map>
#include <string_view>

#include "tests/support/data_source.h"

namespace {

// Features of the file system, which network shares may lack, and of a chroot.
bool filesWithoutName = true;
bool renamingWithoutReplacing = true;
bool namingOfOpenFiles = true;

}  // namespace

// Replace the functions of the C library in the whole process.
extern "C" [[gnu::visibility("default")]] int open(const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const bool isWithoutName = (flags & O_TMPFILE) == O_TMPFILE;
    const mode_t mode = isWithoutName || (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    if (isWithoutName && !filesWithoutName) {
        errno = EOPNOTSUPP;
        return -1;
    }
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}
extern "C" [[gnu::visibility("default")]] int access(const char* path, int mode) noexcept {
    if (!namingOfOpenFiles && std::string_view(path) == "/proc/self/fd") {
        errno = ENOENT;
        return -1;
    }
    return static_cast<int>(syscall(SYS_faccessat, AT_FDCWD, path, mode));
}
extern "C" [[gnu::visibility("default")]] int linkat(int oldFolder, const char* oldName,
                                                     int newFolder, const char* newName,
                                                     int flags) noexcept {
    if (!namingOfOpenFiles && (flags & AT_SYMLINK_FOLLOW) != 0) {
        errno = ENOENT;
        return -1;
    }
    return static_cast<int>(syscall(SYS_linkat, oldFolder, oldName, newFolder, newName, flags));
}
extern "C" [[gnu::visibility("default")]] int renameat2(int oldFolder, const char* oldName,
                                                        int newFolder, const char* newName,
                                                        unsigned int flags) noexcept {
    if (!renamingWithoutReplacing && flags != 0) {
        errno = EINVAL;
        return -1;
    }
    return static_cast<int>(syscall(SYS_renameat2, oldFolder, oldName, newFolder, newName, flags));
}

namespace testing_support {
namespace {

using namespace embedded;

class StorageTest : public DataSourceTest {
  protected:
    std::string path_ = file();
    std::vector<std::int32_t> spectrum_ = std::vector<std::int32_t>(32768, 7);
};

TEST_F(StorageTest, ChangesAreSeenInEveryContextAndByEveryNameOfFile) {
    const auto writer = DataSource::created(path_);
    const std::string link = file("link.qar");
    std::filesystem::create_symlink(path_, link);
    const auto reader = DataSource::opened(link, reading);
    ASSERT_EQ(0U, writer.put(QAR_D_LIVETIME, 100.0));
    EXPECT_EQ(100.0, reader.get<double>(QAR_D_LIVETIME));
    EXPECT_EQ(codes::readOnly, reader.put(QAR_D_LIVETIME, 1.0));
    EXPECT_EQ(0U, SOrvControlDSC(reader.context(), 3, 0));
    EXPECT_EQ(0x7U, reader.sourceState());
    EXPECT_EQ(0U, SOrvControlDSC(reader.context(), 1, 0));
    EXPECT_EQ(0x1U, writer.sourceState());
}

TEST_F(StorageTest, FullDiskLosesNoChange) {
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
    // The context is deleted; the next one that opens the file finds the changes and saves them.
    EXPECT_EQ(0U, DataSource::opened(path_, writing).close());
    EXPECT_EQ(spectrum_, DataSource::opened(path_, reading).getSpectrum());
    // The lock of the deleted context is released: another process may write.
    runElsewhere([this] { return DataSource().open(path_, writing) == 0; });
}

TEST_F(StorageTest, FailedCreationLeavesNoFile) {
    const DataSource source;
    onFullDisk([&] { EXPECT_EQ(codes::storageFailed, source.create(path_)); });
    EXPECT_EQ(codes::fileNotFound, source.create(file("missing/measurement.qar")));
    EXPECT_EQ(0, fileCount());
    EXPECT_EQ(0U, source.close());
    EXPECT_EQ(codes::noSourceOpen, source.close());
    EXPECT_EQ(0U, source.create(path_));
}

TEST_F(StorageTest, FileIsCreatedIfOpenFilesCannotBeNamed) {
    namingOfOpenFiles = false;
    EXPECT_EQ(0U, DataSource::created(path_).put(QAR_D_LIVETIME, 1.0));
    EXPECT_EQ(1, fileCount());
    namingOfOpenFiles = true;
}

TEST_F(StorageTest, CreationWithoutUnnamedFilesIsSafe) {
    filesWithoutName = false;
    for (const bool renaming : {true, false}) {
        renamingWithoutReplacing = renaming;
        const std::string path = file(renaming ? "renamed.qar" : "linked.qar");
        EXPECT_EQ(0U, DataSource::created(path).put(QAR_D_LIVETIME, 1.0));
        EXPECT_EQ(codes::fileExists, DataSource().create(path));
        EXPECT_EQ(1.0, DataSource::opened(path, reading).get<double>(QAR_D_LIVETIME));
        onFullDisk([&] { EXPECT_EQ(codes::storageFailed, DataSource().create(path_)); });
    }
    EXPECT_EQ(2, fileCount());
    filesWithoutName = renamingWithoutReplacing = true;
}

TEST_F(StorageTest, FileWithoutPossibleJournalIsNotCreatedOrOpenedForWriting) {
    const auto maxLength = file(std::string(NAME_MAX - 8, 'n'));  // leaves room for "-journal"
    const auto tooLong = file(std::string(NAME_MAX - 7, 'n'));
    EXPECT_EQ(codes::nameRefused, DataSource().create(tooLong));
    EXPECT_EQ(0U, DataSource::created(maxLength).put(QAR_D_LIVETIME, 1.0));
    std::filesystem::rename(maxLength, tooLong);
    EXPECT_EQ(codes::nameRefused, DataSource().open(tooLong, writing));
    EXPECT_EQ(1.0, DataSource::opened(tooLong, reading).get<double>(QAR_D_LIVETIME));
    const std::string deep = file(std::string(200, 'd') + "/" + std::string(200, 'd'));
    std::filesystem::create_directories(deep);
    for (const auto& [length, status] :
         std::map<std::size_t, OrvStatus>{{504, 0U}, {505, codes::nameRefused}}) {
        const std::string path = deep + "/" + std::string(length - deep.size() - 1, 'n');
        EXPECT_EQ(status, DataSource().create(path)) << length;
    }
    // A directory that is not writable; root may write to it and switches to another user.
    std::filesystem::rename(tooLong, path_);
    std::filesystem::permissions(path_, std::filesystem::perms::all);
    std::filesystem::permissions(std::filesystem::path(path_).parent_path(),
                                 std::filesystem::perms(0555));
    runElsewhere([this] {
        const uid_t user = geteuid();
        return (user != 0 || seteuid(65534) == 0) &&
               DataSource().open(path_, writing) == codes::accessDenied &&
               DataSource().create(file("new.qar")) == codes::accessDenied &&
               DataSource::opened(path_, reading).get<double>(QAR_D_LIVETIME) == 1.0 &&
               seteuid(user) == 0;
    });
    std::filesystem::permissions(std::filesystem::path(path_).parent_path(),
                                 std::filesystem::perms::owner_all);
}

TEST_F(StorageTest, FileOpenForWritingIsSavedWithoutFreeDescriptor) {
    for (int number = 0; number < 20; ++number) {
        ASSERT_EQ(0U, DataSource::created(file(std::to_string(number))).close());
    }
    runElsewhere([this] {
        const rlimit few{50, 50};
        bool good = setrlimit(RLIMIT_NOFILE, &few) == 0;
        std::vector<DataSource> sources;
        OrvStatus status = 0;
        for (int number = 0; status == 0 && number < 20; ++number) {
            DataSource source;
            status = source.open(file(std::to_string(number)), writing);
            if (status == 0) {
                sources.push_back(std::move(source));
            }
        }
        for (const DataSource& source : sources) {
            for (const double value : {1.0, 2.0}) {
                while (dup(0) >= 0) {
                }
                good = good && source.put(QAR_D_LIVETIME, value) == 0 &&
                       SOrvFlush(source.context()) == 0;
            }
        }
        return good && status == codes::tooManyOpen && sources.size() > 5;
    });
    EXPECT_EQ(2.0, DataSource::opened(file("5"), reading).get<double>(QAR_D_LIVETIME));
}

TEST_F(StorageTest, DescriptorsAreClosedInStartedPrograms) {
    ASSERT_EQ(0U, DataSource::created(path_).close());
    const auto source = DataSource::opened(path_, writing);
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        if (std::filesystem::read_symlink(entry.path(), error) == path_) {
            EXPECT_NE(0, fcntl(std::stoi(entry.path().filename()), F_GETFD) & FD_CLOEXEC);
        }
    }
}

TEST_F(StorageTest, NameThatIsNotUtf8IsReadInCodePage) {
    // Valid and overlong sequences, surrogates and code points beyond the last one.
    for (const auto& [name, stored] : std::map<std::string, std::string>{
             {"\xDC. \x80", "\xC3\x9C. \xE2\x82\xAC"},
             {"\xE6\xB5\x8B", "\xE6\xB5\x8B"},
             {"\xF0\x9F\x98\x80", "\xF0\x9F\x98\x80"},
             {"\xC0\xAF", "\xC3\x80\xC2\xAF"},
             {"\xED\xA0\x80", "\xC3\xAD\xC2\xA0\xE2\x82\xAC"},
             {"\xF4\x90\x80\x80", "\xC3\xB4\xC2\x90\xE2\x82\xAC\xE2\x82\xAC"},
             {"\x91x\x92", "\xE2\x80\x98x\xE2\x80\x99"},
             {"x\xC3", "x\xC3\x83"}}) {
        EXPECT_EQ(0U, DataSource::created(file(name)).close());
        EXPECT_TRUE(std::filesystem::exists(file(stored))) << stored;
        EXPECT_EQ(codes::fileExists, DataSource().create(file(stored))) << stored;
    }
}

TEST_F(StorageTest, WindowsPathIsRefused) {
    for (const char* path : {"C:\\data\\a.qar", "c:/data/a.qar", "\\\\server\\a.qar"}) {
        EXPECT_EQ(codes::windowsPath, DataSource().create(path)) << path;
        EXPECT_EQ(codes::windowsPath, DataSource().open(path, reading)) << path;
    }
    EXPECT_EQ(codes::fileNotFound, DataSource().open("C:x", reading));
}

TEST_F(StorageTest, ModeOfNewFileFollowsUmask) {
    const mode_t before = umask(0002);
    EXPECT_EQ(0U, DataSource().create(path_));
    umask(before);
    EXPECT_EQ(std::filesystem::perms(0664), std::filesystem::status(path_).permissions());
}

TEST_F(StorageTest, FileLockedByOtherProgramIsInUseUntilReleased) {
    { ASSERT_EQ(0U, DataSource::created(path_).put(QAR_D_LIVETIME, 1.0)); }
    const auto source = DataSource::opened(path_, writing);
    ASSERT_EQ(0U, source.put(QAR_D_LIVETIME, 2.0));
    {
        const auto other = program("BEGIN EXCLUSIVE");
        EXPECT_EQ(codes::inUse, SOrvFlush(source.context()));
        EXPECT_EQ(codes::inUse, SOrvReVerify(source.context()));
    }
    EXPECT_EQ(0U, source.close());
    {
        const auto other =
            program("PRAGMA locking_mode = EXCLUSIVE; PRAGMA journal_mode = WAL; ANALYZE");
        EXPECT_EQ(codes::inUse, source.open(path_, reading));
    }
    EXPECT_EQ(2.0, DataSource::opened(path_, reading).get<double>(QAR_D_LIVETIME));
}

TEST_F(StorageTest, SaveAfterWriteOfOtherProgramKeepsFileSound) {
    const auto source = DataSource::created(path_);
    ASSERT_EQ(0U, source.put(QAR_D_LIVETIME, 1.0));
    ASSERT_EQ(0U, source.put(QAR_D_REALTIME, 1.0));
    ASSERT_EQ(0U, source.putSpectrum({1, 2, 3}));
    ASSERT_EQ(0U, source.put(QAR_D_HALFLIFE, 1.0));
    ASSERT_EQ(0U, source.close());
    ASSERT_EQ(0U, source.open(path_, writing));
    EXPECT_EQ(3U, source.getSpectrum().size());
    ASSERT_EQ(0U, source.put(QAR_D_LIVETIME, 2.0));
    const auto other = program("CREATE TABLE mine(x); VACUUM");
    // Loading another class keeps the change; the save writes the whole changed class.
    EXPECT_EQ(1, source.recordCount(QAR_CLS_NUCLIDE));
    EXPECT_EQ(2.0, source.get<double>(QAR_D_LIVETIME));
    ASSERT_EQ(0U, SOrvFlush(source.context()));
    EXPECT_EQ(0U, SOrvReVerify(source.context()));
    EXPECT_EQ(1.0, source.get<double>(QAR_D_REALTIME));
    EXPECT_EQ(2.0, source.get<double>(QAR_D_LIVETIME));
    // A save to a file that the other program has damaged is refused.
    ASSERT_EQ(0U, source.put(QAR_D_LIVETIME, 3.0));
    execute(other, "PRAGMA user_version = 3");
    EXPECT_EQ(codes::damaged, SOrvFlush(source.context()));
    execute(other, "PRAGMA user_version = 2");
    EXPECT_EQ(0U, SOrvFlush(source.context()));
}

TEST_F(StorageTest, FileInWriteAheadModeIsReadWrittenAndRefreshed) {
    const auto saveElsewhere = [this](const std::vector<std::int32_t>& channels) {
        runElsewhere([&] {
            const auto source = DataSource::opened(path_, writing);
            return source.putSpectrum(channels) == 0 && source.close() == 0;
        });
    };
    { ASSERT_EQ(0U, DataSource::created(path_).put(QAR_L_CHANNELS, 2)); }
    const auto other = program("PRAGMA journal_mode = WAL; CREATE TABLE mine(x)");
    saveElsewhere({1, 2});
    const auto reader = DataSource::opened(path_, reading);
    saveElsewhere({5});
    EXPECT_THAT(reader.getSpectrum(), testing::ElementsAre(5, 2));
    saveElsewhere({9, 8});
    const auto writer = DataSource::opened(path_, writing);
    EXPECT_THAT(reader.getSpectrum(), testing::ElementsAre(9, 8));
    ASSERT_EQ(0U, writer.putSpectrum({7}));
    ASSERT_EQ(0U, SOrvFlush(writer.context()));
    EXPECT_EQ(0U, SOrvReVerify(writer.context()));
    EXPECT_THAT(reader.getSpectrum(), testing::ElementsAre(7, 8));
}

TEST_F(StorageTest, ReplacedFileIsNotOverwritten) {
    for (const char* mode : {"DELETE", "WAL"}) {  // SQLite itself detects it in one of them
        { static_cast<void>(DataSource::created(path_)); }
        { static_cast<void>(program(std::string("PRAGMA journal_mode = ") + mode)); }
        const auto source = DataSource::opened(path_, writing);
        ASSERT_EQ(0U, source.put(QAR_D_LIVETIME, 7.0));
        const std::string moved = file("moved.qar");
        std::filesystem::rename(path_, moved);
        { ASSERT_EQ(0U, DataSource::created(path_).put(QAR_D_LIVETIME, 8.0)); }
        EXPECT_EQ(codes::fileMoved, SOrvFlush(source.context())) << mode;
        EXPECT_EQ(8.0, DataSource::opened(path_, reading).get<double>(QAR_D_LIVETIME));
        std::filesystem::rename(moved, path_);
        EXPECT_EQ(0U, source.close());
        EXPECT_EQ(7.0, DataSource::opened(path_, reading).get<double>(QAR_D_LIVETIME));
        std::filesystem::remove(path_);
    }
}

TEST_F(StorageTest, CompactionReducesFileSizeAndKeepsContent) {
    const auto source = DataSource::created(path_);
    ASSERT_EQ(0U, source.putSpectrum(spectrum_));
    ASSERT_EQ(0U, source.put(QAR_D_LIVETIME, 7.0));
    ASSERT_EQ(0U, SOrvFlush(source.context()));
    const auto before = std::filesystem::file_size(path_);
    ASSERT_EQ(0U, SOrvDeleteOne(source.context(), QAR_CLS_SPECTRUM, 1, 0));
    EXPECT_EQ(0U, SOrvControlDSC(source.context(), 2, 0));
    EXPECT_EQ(0x1U, source.sourceState());
    EXPECT_LT(std::filesystem::file_size(path_), before / 2);
    EXPECT_EQ(0U, source.close());
    EXPECT_EQ(7.0, DataSource::opened(path_, reading).get<double>(QAR_D_LIVETIME));
}

}  // namespace
}  // namespace testing_support
