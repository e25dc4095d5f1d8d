// Journals that a killed process has left beside its file or beside a file of the same name.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <filesystem>

#include "tests/support/data_source.h"

namespace {

std::string keptJournal;            // the path of a copy of each journal that is deleted
bool isNextJournalDeleted = false;  // the next journal disappears when it has been seen

}  // namespace

// These replace functions of the C library in the whole process.
extern "C" [[gnu::visibility("default")]] int lstat(const char* path,
                                                    struct stat* status) noexcept {
    const int result = fstatat(AT_FDCWD, path, status, AT_SYMLINK_NOFOLLOW);
    if (isNextJournalDeleted && std::string_view(path).ends_with("-journal")) {
        isNextJournalDeleted = false;
        std::filesystem::remove(path);
    }
    return result;
}

extern "C" [[gnu::visibility("default")]] int unlink(const char* path) noexcept {
    if (!keptJournal.empty() && std::string_view(path).ends_with("-journal")) {
        std::filesystem::copy_file(path, keptJournal,
                                   std::filesystem::copy_options::overwrite_existing);
    }
    return static_cast<int>(syscall(SYS_unlinkat, AT_FDCWD, path, 0));
}

namespace testing_support {
namespace {

using namespace embedded;

// The file in three successive states, and the journal of the save that led to the last one.
class JournalTest : public DataSourceTest {
  protected:
    static constexpr std::size_t pageSize = 4096;

    JournalTest() {
        {
            const auto source = DataSource::created(path_);
            save(source, 1);
            states_.push_back(contentOf(path_));
            save(source, 2);
            states_.push_back(contentOf(path_));
            keptJournal = file("kept");
            save(source, 3);
            keptJournal.clear();
            journal_ = contentOf(file("kept"));
        }
        states_.push_back(contentOf(path_));
        std::filesystem::remove(file("kept"));
        writeFile(journalPath_, journal_);
    }

    // Saves a state with several classes on several pages.
    static void save(const DataSource& source, int state) {
        EXPECT_EQ(0U, source.putSpectrum(std::vector<std::int32_t>(4096, state)));
        EXPECT_EQ(0U, source.put(QAR_D_LIVETIME, double(state)));
        EXPECT_EQ(0U, SOrvFlush(source.context()));
    }
    static int stateOf(const std::string& path) {
        const auto source = DataSource::opened(path, reading);
        EXPECT_EQ(0U, SOrvReVerify(source.context()));
        const auto channels = source.getSpectrum();
        EXPECT_EQ(std::vector<std::int32_t>(4096, channels.at(0)), channels);
        EXPECT_EQ(channels[0], source.get<double>(QAR_D_LIVETIME));
        return channels[0];
    }
    void expectJournalApplied() const { EXPECT_EQ(1, fileCount()); }
    void expectJournalSetAside() const {
        EXPECT_FALSE(std::filesystem::exists(journalPath_));
        EXPECT_EQ(journal_, contentOf(path_ + ".journal"));
    }

    const std::string path_ = file();
    const std::string journalPath_ = path_ + "-journal";
    std::vector<Bytes> states_;
    Bytes journal_;
};

TEST_F(JournalTest, JournalOfInterruptedSaveIsRolledBack) {
    // Killed before the first page was written, after one, and before the last one.
    for (std::size_t written : {std::size_t{0}, pageSize, states_[2].size() - pageSize}) {
        Bytes content = states_[1];
        std::copy_n(states_[2].begin(), written, content.begin());
        writeFile(path_, content);
        writeFile(journalPath_, journal_);
        EXPECT_EQ(2, stateOf(path_)) << written;
        expectJournalApplied();
    }
}

TEST_F(JournalTest, JournalOfCompleteSaveIsDeletedAndSaveIsKept) {
    EXPECT_EQ(3, stateOf(path_));
    EXPECT_EQ(1, fileCount());
}

TEST_F(JournalTest, FileOpensIfSaveOfOtherProcessDeletesJournalDuringOpening) {
    isNextJournalDeleted = true;
    EXPECT_EQ(3, stateOf(path_));
    EXPECT_EQ(1, fileCount());
}

TEST_F(JournalTest, JournalOfRemovedFileIsSetAsideAtCreation) {
    std::filesystem::remove(path_);
    { save(DataSource::created(path_), 4); }
    EXPECT_EQ(4, stateOf(path_));
    expectJournalSetAside();
}

TEST_F(JournalTest, JournalThatChangesOnlyTheSizeIsSetAsideAtCreation) {
    std::filesystem::remove(path_);
    journal_.resize(512);
    std::fill_n(journal_.begin() + 8, 4, '\0');  // no page was synced
    writeFile(journalPath_, journal_);
    { save(DataSource::created(path_), 4); }
    EXPECT_EQ(4, stateOf(path_));
    expectJournalSetAside();
}

TEST_F(JournalTest, JournalOfOtherStateIsSetAsideBesideRestoredFile) {
    writeFile(path_, states_[0]);
    EXPECT_EQ(1, stateOf(path_));
    expectJournalSetAside();
    writeFile(journalPath_, journal_);
    writeFile(path_, states_[2]);
    std::filesystem::rename(journalPath_, file("later"));
    { save(DataSource::opened(path_, writing), 5); }
    std::filesystem::rename(file("later"), journalPath_);
    EXPECT_EQ(5, stateOf(path_));
    expectJournalSetAside();
}

// The copy has the change counter that the interrupted save would have written.
TEST_F(JournalTest, JournalIsNotAppliedToCopyThatWasSavedOnce) {
    writeFile(file("copy.qar"), states_[1]);
    { save(DataSource::opened(file("copy.qar"), writing), 6); }
    std::filesystem::rename(file("copy.qar"), path_);
    EXPECT_EQ(6, stateOf(path_));
    EXPECT_EQ(1, fileCount());
}

TEST_F(JournalTest, SaveByOtherHardLinkIsNotUndone) {
    writeFile(path_, states_[1]);
    std::filesystem::create_hard_link(path_, file("link.qar"));
    { save(DataSource::opened(file("link.qar"), writing), 7); }
    EXPECT_EQ(7, stateOf(path_));
    EXPECT_EQ(7, stateOf(file("link.qar")));
}

TEST_F(JournalTest, InterruptedSaveIsDamageByOtherHardLinkUntilRolledBack) {
    Bytes content = states_[1];
    std::copy_n(states_[2].begin(), 2 * pageSize, content.begin());
    writeFile(path_, content);
    std::filesystem::create_hard_link(path_, file("link.qar"));
    EXPECT_EQ(codes::openedWithRemark, DataSource().open(file("link.qar"), writing));
    EXPECT_EQ(2, stateOf(path_));
    EXPECT_EQ(2, stateOf(file("link.qar")));
}

TEST_F(JournalTest, LogBesideFileWithoutWriteAheadModeIsSetAside) {
    std::filesystem::remove(journalPath_);
    Bytes log;
    {
        const auto other = program("PRAGMA journal_mode = WAL; CREATE TABLE mine(x)");
        log = contentOf(path_ + "-wal");
    }
    std::filesystem::remove(path_);
    writeFile(path_ + "-wal", log);
    writeFile(path_ + "-shm", Bytes(32768));
    { save(DataSource::created(path_), 8); }
    EXPECT_EQ(8, stateOf(path_));
    EXPECT_EQ(log, contentOf(path_ + ".wal"));
    EXPECT_EQ(2, fileCount());
}

TEST_F(JournalTest, InvalidJournalIsHarmless) {
    const std::vector<Bytes> contents = {{}, {'x'}, Bytes(journal_.begin(), journal_.begin() + 20)};
    for (const Bytes& content : contents) {
        writeFile(journalPath_, content);
        EXPECT_EQ(3, stateOf(path_));
    }
}

}  // namespace
}  // namespace testing_support
