#include "fileaccess/file_access.h"

#include <filesystem>
#include <optional>

#include "tests/unit/fileaccess/double_fixture.h"

namespace {

using Tarsel::Datasources::QAR::FileAccess;
using testing_support::failure;
using testing_support::Lines;

const std::string absoluteName = std::filesystem::absolute("some.qar").string();

// How a context is made: on the node that a first context (1001) names.
const Lines contextCreation{"OrvCreateDSC2 null null 0 0", R"(OrvNodeEnumeration 3e9 "" "" 1 42)",
                            "OrvContextDeletion 3e9", R"(OrvCreateDSC2 "node" "" 0 0)"};

class FileAccessObject : public testing_support::DoubleFixture {
  protected:
    FileAccessObject() { answerAlways("OrvNodeEnumeration", 0, {{"identity", "node"}}); }

    static Lines afterCreation(const Lines& calls) {
        Lines all = contextCreation;
        all.insert(all.end(), calls.begin(), calls.end());
        return all;
    }
};

TEST_F(FileAccessObject, opensTheAbsolutePathAndClosesWhenDestroyed) {
    {
        FileAccess file;
        EXPECT_EQ(file.open("some.qar", 0x3), 0U);
    }
    EXPECT_EQ(calls(),
              afterCreation({"OrvDataSourceOpening 3ea \"" + absoluteName + "\" 1 83 0 null",
                             "OrvDataSourceClosing 3ea", "OrvContextDeletion 3ea"}));
    EXPECT_TRUE(log_.reports().empty());
}

TEST_F(FileAccessObject, createsAFileWhenTheFlagSaysSo) {
    FileAccess file;
    EXPECT_EQ(file.open("some.qar", 0x403), 0U);
    EXPECT_EQ(calls(),
              afterCreation({"OrvFileCreation 3ea \"" + absoluteName + "\" 1 ffff 1 8000"}));
}

TEST_F(FileAccessObject, refusesToOpenWithoutANameOrASecondTime) {
    FileAccess file;
    EXPECT_EQ(file.open("", 0), 0xECE99D7DU);
    EXPECT_EQ(file.open("some.qar", 0), 0U);
    EXPECT_EQ(file.open("other.qar", 0), 0xEBE8138DU);
    FileAccess attached(7);
    EXPECT_EQ(attached.open("other.qar", 0), 0xEBE8138DU);
    const std::string second =
        "Cannot open: other.qar because this instance already has a file open.";
    EXPECT_EQ(log_.reports(),
              (std::vector{failure("FileAccess::open", "File name is NUL", 0xECE99D7D),
                           failure("FileAccess::open", second, 0xEBE8138D),
                           failure("FileAccess::open", second, 0xEBE8138D)}));
    EXPECT_EQ(calls("OrvDataSourceOpening").size(), 1U);

    // The first name stays the one in diagnostics.
    FileAccess empty;
    file.copyTo(empty, 0x2010);
    EXPECT_EQ(
        log_.reports().back(),
        failure("FileAccess::copyTo", "File: some.qar. Destination file is not open", 0xEBE81389));
}

struct OpenFailure {
    std::uint32_t flags;
    std::int16_t result;
    pyORV3::Status status;
};

TEST_F(FileAccessObject, staysEmptyWhenTheLibraryDoesNotOpen) {
    const std::vector<OpenFailure> cases{
        {0, -32763, 0xFFFF8005}, {0, 5, 5}, {0x400, -32763, 0xEBE88005}, {0x400, -1, 0xFFFFFFFF}};
    for (const auto& [flags, result, status] : cases) {
        SCOPED_TRACE(result);
        answer((flags & 0x400) != 0 ? "OrvFileCreation" : "OrvDataSourceOpening", result);
        FileAccess file;
        EXPECT_EQ(file.open("some.qar", flags), status);
        EXPECT_EQ(log_.reports().back(),
                  failure("FileAccess::open", "Failed to open: " + absoluteName, status));
        EXPECT_EQ(file.close(0), 0xEBE81389U);
        EXPECT_EQ(log_.reports().back(),
                  failure("FileAccess::close", "File is already closed", 0xEBE81389));
    }
    EXPECT_TRUE(calls("OrvErrorQuery").empty());
    EXPECT_TRUE(calls("OrvDataSourceClosing").empty());
}

TEST_F(FileAccessObject, numbersTheFailureOfAContextAndTracesNothing) {
    FileAccess file;
    answer("OrvCreateDSC2", 9);
    EXPECT_EQ(file.open("some.qar", 0), 1U);
    EXPECT_EQ(calls(), Lines{contextCreation[0]});

    recorder().reset();
    answer("OrvNodeEnumeration", 2, {{"identity", "kept"}});
    answer("OrvNodeEnumeration", 2);
    EXPECT_EQ(file.open("some.qar", 0), 2U);
    EXPECT_EQ(calls(), (Lines{contextCreation[0], contextCreation[1],
                              R"(OrvNodeEnumeration 3e9 "kept" "" 1 46)", contextCreation[2]}));

    recorder().reset();
    answer("OrvNodeEnumeration", 0, {{"refusal", "no licence"}});
    EXPECT_EQ(file.open("some.qar", 0), 3U);
    EXPECT_EQ(calls(), (Lines{contextCreation[0], contextCreation[1], contextCreation[2]}));

    for (const auto& [result, isDeleted] : {std::pair{5, true}, std::pair{-2, false}}) {
        recorder().reset();
        answer("OrvNodeEnumeration", 0, {{"identity", "node"}});
        answer("OrvCreateDSC2", result, {{"context", 1005}}, {{"identity", "node"}});
        EXPECT_EQ(file.open("some.qar", 0), 4U);
        EXPECT_EQ(calls(), isDeleted ? afterCreation({"OrvContextDeletion 3ed"}) : contextCreation);
    }
    EXPECT_TRUE(log_.reports().empty());
}

TEST_F(FileAccessObject, forgetsAnAttachedDataSourceWithoutACall) {
    {
        FileAccess closed(7);
        EXPECT_EQ(closed.close(0), 0U);
        EXPECT_EQ(closed.close(0), 0xEBE81389U);
        const FileAccess destroyed(8);
    }
    EXPECT_TRUE(calls().empty());
}

struct CloseCase {
    const char* name;
    std::uint32_t flags;
    std::int16_t flush;
    std::int16_t closing;
    std::int16_t deletion;
    pyORV3::Status status;
    Lines calls;
};

TEST_F(FileAccessObject, reportsTheFirstFailureOfAClosingAndAlwaysDeletesTheContext) {
    const std::string flush = "OrvDataSourceFlush 3ea";
    const std::string closing = "OrvDataSourceClosing 3ea";
    const std::string deletion = "OrvContextDeletion 3ea";
    const std::string query = "OrvErrorQuery 3ea";
    const std::vector<CloseCase> cases{
        {"success", 0, 0, 0, 0, 0, {flush, closing, deletion}},
        {"no flush", 1, 0, 0, 0, 0, {closing, deletion}},
        {"flush", 0, -1, 0, 5, 0xEBE88005, {flush, query, deletion}},
        {"closing", 0, 0, 1, 5, 0x61, {flush, closing, deletion}},
        {"deletion", 0, 0, 0, -2, 0xFFFFFFFE, {flush, closing, deletion}},
    };
    for (const CloseCase& testCase : cases) {
        SCOPED_TRACE(testCase.name);
        recorder().reset();
        FileAccess file;
        ASSERT_EQ(file.open("some.qar", 0), 0U);
        const std::size_t before = calls().size();
        const std::size_t reports = log_.reports().size();
        answer("OrvDataSourceFlush", testCase.flush);
        answer("OrvDataSourceClosing", testCase.closing);
        answer("OrvContextDeletion", testCase.deletion);
        answer("OrvErrorQuery", 0, {{"code", 0x8005}});
        EXPECT_EQ(file.close(testCase.flags), testCase.status);
        const Lines all = calls();
        EXPECT_EQ(Lines(all.begin() + static_cast<std::ptrdiff_t>(before), all.end()),
                  testCase.calls);
        EXPECT_EQ(log_.reports().size(), reports + (testCase.status == 0 ? 0 : 1));
        if (testCase.status != 0) {
            EXPECT_EQ(log_.reports().back(),
                      failure("FileAccess::close", "Failed to close: some.qar", testCase.status));
        }
        EXPECT_EQ(file.close(0), 0xEBE81389U);
    }
}

}  // namespace
