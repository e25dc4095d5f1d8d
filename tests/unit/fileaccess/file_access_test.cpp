#include "fileaccess/file_access.h"

#include <filesystem>
#include <tuple>
#include <vector>

#include "fileaccess/parameter_metadata.h"
#include "tests/unit/fileaccess/double_fixture.h"

namespace {

using com::tarsel::utility::Variant;
using Tarsel::Datasources::QAR::describeParameterCode;
using Tarsel::Datasources::QAR::FileAccess;
using Tarsel::Datasources::QAR::ParameterMetadata;
using testing_support::forEver;
using testing_support::Lines;

constexpr std::uint32_t code = 0x20100075;
const std::string absoluteName = std::filesystem::absolute("some.qar").string();

// How a context is made: on the node that a first context (1001) names.
const std::string firstContext = "OrvCreateDSC2 null null 0 0";
const std::string node = R"(OrvNodeEnumeration 3e9 "" "" 1 42)";
const std::string noFirstContext = "OrvContextDeletion 3e9";
const Lines creation{firstContext, node, noFirstContext, R"(OrvCreateDSC2 "" "" 0 0)"};

Lines afterCreation(const Lines& calls) {
    Lines all = creation;
    all.insert(all.end(), calls.begin(), calls.end());
    return all;
}

class FileAccessTest : public testing_support::DoubleFixture {
  protected:
    FileAccess file_{1};
    FileAccess destination_{2};
};

TEST_F(FileAccessTest, opensOrCreatesTheAbsolutePathAndClosesWhenDestroyed) {
    for (const auto& [flags, opening] :
         {std::pair{0x3U, "OrvDataSourceOpening 3ea \"" + absoluteName + "\" 1 83 0 null"},
          {0x403U, "OrvFileCreation 3ea \"" + absoluteName + "\" 1 ffff 1 8000"}}) {
        recorder().reset();
        {
            FileAccess file;
            EXPECT_EQ(file.open("some.qar", flags), 0U);
        }
        EXPECT_EQ(calls(),
                  afterCreation({opening, "OrvDataSourceClosing 3ea", "OrvContextDeletion 3ea"}));
    }
    EXPECT_EQ(log_.reports(), Lines{});
}

TEST_F(FileAccessTest, refusesToOpenWithoutANameOrASecondTime) {
    FileAccess file;
    FileAccess empty;
    EXPECT_EQ(file.open("", 0), 0xECE99D7DU);
    EXPECT_EQ(file.open("some.qar", 0), 0U);
    EXPECT_EQ(file.open("other.qar", 0), 0xEBE8138DU);
    EXPECT_EQ(file_.open("other.qar", 0), 0xEBE8138DU);
    EXPECT_EQ(file.copyTo(empty, 0x2010), 0xEBE81389U);
    const std::string second =
        "3 ebe8138d FileAccess::open Cannot open: other.qar because this instance already has a "
        "file open.";
    EXPECT_EQ(
        log_.reports(),
        (Lines{"3 ece99d7d FileAccess::open File name is NUL", second, second,
               "3 ebe81389 FileAccess::copyTo File: some.qar. Destination file is not open"}));
    EXPECT_EQ(calls("OrvDataSourceOpening").size(), 1U);
}

TEST_F(FileAccessTest, staysEmptyWhenTheLibraryDoesNotOpen) {
    struct Case {
        std::uint32_t flags;
        std::int16_t result;
        std::uint32_t status;
    };
    for (const auto& [flags, result, status] :
         {Case{0, -32763, 0xFFFF8005}, Case{0, 5, 5}, Case{0x400, -32763, 0xEBE88005},
          Case{0x400, -1, 0xFFFFFFFF}}) {
        answer(flags == 0 ? "OrvDataSourceOpening" : "OrvFileCreation", result);
        FileAccess file;
        EXPECT_EQ(file.open("some.qar", flags), status);
        EXPECT_TRUE(log_.reports().back().ends_with("Failed to open: " + absoluteName));
        EXPECT_EQ(file.close(0), 0xEBE81389U);
    }
    EXPECT_EQ(calls("OrvErrorQuery"), Lines{});
    EXPECT_EQ(calls("OrvDataSourceClosing"), Lines{});
}

TEST_F(FileAccessTest, numbersTheFailureOfAContextAndTracesNothing) {
    const auto expectFailure = [](std::uint32_t status, const Lines& expected) {
        EXPECT_EQ(FileAccess().open("some.qar", 0), status);
        EXPECT_EQ(calls(), expected);
        recorder().reset();
    };
    answer("OrvCreateDSC2", 9);
    expectFailure(1, {firstContext});
    answer("OrvNodeEnumeration", 2, {{"identity", "node"}});
    answer("OrvNodeEnumeration", 2);
    expectFailure(2,
                  {firstContext, node, R"(OrvNodeEnumeration 3e9 "node" "" 1 46)", noFirstContext});
    answer("OrvNodeEnumeration", 0, {{"refusal", "no licence"}});
    expectFailure(3, {firstContext, node, noFirstContext});
    for (const auto& [result, deletion] :
         {std::pair{5, Lines{"OrvContextDeletion 3ed"}}, {-2, Lines{}}}) {
        answer("OrvNodeEnumeration", 0, {{"identity", "node"}});
        answer("OrvCreateDSC2", result, {{"context", 1005}}, {{"identity", "node"}});
        Lines expected{firstContext, node, noFirstContext, R"(OrvCreateDSC2 "node" "" 0 0)"};
        expected.insert(expected.end(), deletion.begin(), deletion.end());
        expectFailure(4, expected);
    }
    EXPECT_EQ(log_.reports(), Lines{});
}

TEST_F(FileAccessTest, forgetsAnAttachedDataSourceWithoutACall) {
    EXPECT_EQ(file_.close(0), 0U);
    EXPECT_EQ(file_.close(0), 0xEBE81389U);
    { const FileAccess destroyed(8); }
    EXPECT_EQ(calls(), Lines{});
}

TEST_F(FileAccessTest, reportsTheFirstFailureOfAClosingAndAlwaysDeletesTheContext) {
    const std::string flush = "OrvDataSourceFlush 3ea";
    const std::string closing = "OrvDataSourceClosing 3ea";
    const std::string deletion = "OrvContextDeletion 3ea";
    const std::vector<
        std::tuple<std::uint32_t, std::int16_t, std::int16_t, std::int16_t, std::uint32_t, Lines>>
        cases{
            {0, 0, 0, 0, 0, {flush, closing, deletion}},
            {1, 0, 0, 0, 0, {closing, deletion}},
            {0, -1, 0, 5, 0xEBE88005, {flush, "OrvErrorQuery 3ea", deletion}},
            {0, 0, 1, 5, 0x61, {flush, closing, deletion}},
            {0, 0, 0, -2, 0xFFFFFFFE, {flush, closing, deletion}},
        };
    for (const auto& [flags, flushed, closed, deleted, status, expected] : cases) {
        SCOPED_TRACE(status);
        recorder().reset();
        FileAccess file;
        ASSERT_EQ(file.open("some.qar", 0), 0U);
        const std::size_t reports = log_.reports().size();
        answer("OrvDataSourceFlush", flushed);
        answer("OrvDataSourceClosing", closed);
        answer("OrvContextDeletion", deleted);
        answer("OrvErrorQuery", 0, {{"code", 0x8005}});
        EXPECT_EQ(file.close(flags), status);
        const Lines all = calls();
        EXPECT_EQ(Lines(all.begin() + 5, all.end()), expected);
        ASSERT_EQ(log_.reports().size(), reports + (status == 0 ? 0 : 1));
        EXPECT_TRUE(status == 0 || log_.reports().back().ends_with("Failed to close: some.qar"));
        EXPECT_EQ(file.close(0), 0xEBE81389U);
    }
}

TEST_F(FileAccessTest, copiesTheClassInTheHighHalfOfTheArgumentOrTheWholeSource) {
    for (const std::uint32_t classArgument : {0x2010U, 0x20100075U, 0xFFFFFFFFU}) {
        EXPECT_EQ(file_.copyTo(destination_, classArgument), 0U);
    }
    EXPECT_EQ(calls(), (Lines{"OrvClassCopy 1 2 2010", "OrvClassCopy 1 2 2010",
                              "OrvDataSourceDuplication 1 2"}));
}

TEST_F(FileAccessTest, refusesMissingAndEqualSidesInThisOrder) {
    FileAccess empty;
    FileAccess alsoEmpty;
    Variant value;
    value = "former";
    EXPECT_EQ(empty.copyTo(alsoEmpty, 0x2010), 0xEBE81389U);
    EXPECT_EQ(file_.copyTo(empty, 0x2010), 0xEBE81389U);
    EXPECT_EQ(file_.copyTo(file_, 0x2010), 0xECE99D7DU);
    EXPECT_EQ(empty.duplicateTo(alsoEmpty), 0xEBE8138DU);
    EXPECT_EQ(file_.duplicateTo(empty), 0xEBE8138DU);
    EXPECT_EQ(file_.duplicateTo(file_), 0xECE99D7DU);
    EXPECT_EQ(empty.createBlock(0x2010, 1, 1, 1), 0xEBE81389U);
    EXPECT_EQ(empty.setParameter(code, value, 1, 0), 0xEBE81389U);
    EXPECT_EQ(empty.getParameter(code, value, 1, 0), 0xEBE81389U);
    EXPECT_EQ(value.getDataType(), Variant::DataType::Unknown);
    const std::string copy = "FileAccess::copyTo File: (unknown). ";
    const std::string duplicate = "FileAccess::duplicateTo File: (unknown). ";
    const std::string same = "The source and destination cannot be the same";
    EXPECT_EQ(log_.reports(),
              (Lines{"3 ebe81389 " + copy + "Source file is not open",
                     "3 ebe81389 " + copy + "Destination file is not open",
                     "3 ece99d7d " + copy + same, "3 ebe8138d " + duplicate + "File is not open",
                     "3 ebe8138d " + duplicate + "Destination is not open",
                     "3 ece99d7d " + duplicate + same,
                     "3 ebe81389 FileAccess::createBlock File: (unknown). File is not open",
                     "3 ebe81389 FileAccess::setParameter File: (unknown). File is not open",
                     "3 ebe81389 FileAccess::getParameter File: (unknown). File is not open"}));
    EXPECT_EQ(calls(), Lines{});
}

TEST_F(FileAccessTest, asksTheFailingSideForTheCodeOfAClassCopy) {
    const std::vector<std::tuple<std::int16_t, std::int16_t, Lines, std::uint32_t>> cases{
        {-1, 0, {"OrvErrorQuery 1"}, 0xEBE88102},
        {3, 0, {"OrvErrorQuery 1"}, 0xEBE88102},
        {4, 0, {"OrvErrorQuery 2"}, 0xEBE88102},
        {4, 7, {"OrvErrorQuery 2"}, 0x67},
        {-1, -2, {"OrvErrorQuery 1"}, 0xFFFFFFFE},
        {5, 0, {}, 0x65},
        {-2, 0, {}, 0xFFFFFFFE}};
    for (const auto& [result, queryResult, query, status] : cases) {
        SCOPED_TRACE(result);
        recorder().reset();
        answer("OrvClassCopy", result);
        answer("OrvErrorQuery", queryResult, {{"code", 0x00278102}});
        EXPECT_EQ(file_.copyTo(destination_, 0x2003), status);
        EXPECT_EQ(calls("OrvErrorQuery"), query);
    }
    // Duplication and block creation are not resolved.
    recorder().reset();
    for (const auto& [result, status] : {std::pair{-1, 0xFFFFFFFFU}, {-32763, 0xEBE88005U}}) {
        answer("OrvDataSourceDuplication", result);
        answer("OrvCreateBlock", result);
        EXPECT_EQ(file_.copyTo(destination_, 0xFFFFFFFF), status);
        EXPECT_EQ(file_.createBlock(0x2010, 1, 1, 1), status);
    }
    EXPECT_EQ(calls("OrvErrorQuery"), Lines{});
    EXPECT_EQ(log_.reports(), Lines{});
}

TEST_F(FileAccessTest, createsTheSpectrumBlockWithTheChannelCountOfTheFile) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(file_.createBlock(0x20050000, 0, 1, 1), 0U);  // no channel count is described
    EXPECT_NE(testing::internal::GetCapturedStdout(), "");
    describe(1, 0x20000007, 8, 4);
    answer("OrvParameterRead", 0, {{"buffer", 4096}});
    EXPECT_EQ(file_.createBlock(0x2005, 0, 1, 1), 0U);
    EXPECT_EQ(file_.createBlock(0x20050000, 100, 1, 1), 0U);
    EXPECT_EQ(file_.createBlock(0x2010, 0, 1, 1), 0U);
    EXPECT_EQ(calls(), (Lines{description(1, 0x20000007), "OrvCreateBlock 1 2005 0 0",
                              description(1, 0x20000007), "OrvParameterRead 1 20000007 1 0 4",
                              "OrvCreateBlock 1 2005 1000 0", "OrvCreateBlock 1 2005 64 0",
                              "OrvCreateBlock 1 2010 0 0"}));
}

TEST_F(FileAccessTest, asksTheDescriptionByCodeWithAnEmptyName) {
    ParameterMetadata metadata(1);
    describe(1, code, 24, 32);
    EXPECT_EQ(metadata.lookup(code), 0U);
    EXPECT_EQ(recorder().calls()[0].arguments[1].second, recording::Value(std::string(13, '\0')));
    EXPECT_EQ(calls(), Lines{description(1, code)});

    answer("OrvParameterDescriptionQuery", -32742);
    EXPECT_EQ(metadata.lookup(code), 0x801AU);
    EXPECT_EQ(metadata.name(), "QAR_NAME");  // still
    EXPECT_EQ(metadata.valueSize(), 33U);

    answer("OrvParameterDescriptionQuery", 0, {{"type", 8}, {"name", "ABCDEFGHIJKLM"}});
    EXPECT_EQ(metadata.lookup(code), 0xEBE8801AU);
    EXPECT_EQ(metadata.name(), "ABCDEFGHIJKL");
    EXPECT_EQ(metadata.valueSize(), 0U);
}

TEST_F(FileAccessTest, looksUpThroughATemporaryContextOfItsOwn) {
    answer("OrvNodeEnumeration", 2, {{"identity", "dropped"}});
    answer("OrvNodeEnumeration", 9, {{"identity", "node"}});
    describe(1002, code, 8, 4);
    EXPECT_EQ(describeParameterCode(code), "QAR_NAME");
    EXPECT_EQ(calls(), (Lines{firstContext, node, R"(OrvNodeEnumeration 3e9 "" "" 1 46)",
                              noFirstContext, R"(OrvCreateDSC2 "node" "" 0 0)",
                              description(1002, code), "OrvContextDeletion 3ea"}));
    EXPECT_EQ(describeParameterCode(0x20000007), "20000007");
    EXPECT_EQ(describeParameterCode(5), "05");

    recorder().reset();
    answer("OrvCreateDSC2", 1);  // no context at all
    EXPECT_EQ(describeParameterCode(code), "");
    EXPECT_EQ(calls().size(), 1U);

    recorder().reset();
    answer("OrvCreateDSC2", 0, {{"context", 1001}});
    answer("OrvCreateDSC2", -2, {{"context", 1002}});  // no bound one
    EXPECT_EQ(ParameterMetadata(0).lookup(code), 0xFFFFFFFEU);
    EXPECT_EQ(calls().back(), "OrvContextDeletion 3ea");
}

TEST_F(FileAccessTest, movesValuesInTheLayoutThatTheDataSourceDescribes) {
    Variant value;
    hold(1, code, "abc");
    EXPECT_EQ(file_.getParameter(code, value, 0, 2), 0U);
    EXPECT_EQ(value.toString(), "abc");
    EXPECT_EQ(file_.setParameter(code, value, 0, 3), 0U);
    describe(1, code, 1, 1);  // the other code of a byte flag
    value = "5";
    EXPECT_EQ(file_.setParameter(code, value, 65535, 65535), 0U);
    EXPECT_EQ(calls("OrvParameter"),
              (Lines{description(1, code), "OrvParameterRead 1 20100075 1 2 4",
                     description(1, code), R"(OrvParameterWrite 1 20100075 1 3 "abc")",
                     description(1, code), "OrvParameterWrite 1 20100075 ffff ffff \"\x01\""}));
}

TEST_F(FileAccessTest, movesNothingThatIsNotDescribedOrTooSmall) {
    Variant value;
    EXPECT_EQ(file_.getParameter(code, value, 1, 0), 0xEBE8801AU);
    EXPECT_EQ(file_.setParameter(code, value, 1, 0), 0xEBE8801AU);
    answer("OrvParameterDescriptionQuery", -32742, {}, {}, forEver);
    EXPECT_EQ(file_.getParameter(code, value, 1, 0), 0x801AU);
    EXPECT_EQ(file_.setParameter(code, value, 1, 0), 0x801AU);
    EXPECT_EQ(log_.reports(), Lines{});

    describe(1, code, 8, 2);
    value = true;
    EXPECT_EQ(file_.setParameter(code, value, 1, 0), 0x80070057U);
    EXPECT_EQ(calls("OrvParameterWrite"), Lines{});
    EXPECT_EQ(file_.getParameter(code, value, 1, 0), 0x80070057U);
    EXPECT_EQ(calls("OrvParameterRead"), Lines{"OrvParameterRead 1 20100075 1 0 2"});
}

TEST_F(FileAccessTest, tracesFailedCallsWithTheNameRecordAndEntry) {
    Variant value;
    describe(1, code, 8, 4);
    describe(1002, code, 8, 4);
    answer("OrvErrorQuery", 0, {{"code", 0x8005}});
    answer("OrvParameterRead", -1);
    EXPECT_EQ(file_.getParameter(code, value, 0, 12), 0xEBE88005U);
    EXPECT_EQ(value.getDataType(), Variant::DataType::Unknown);
    value = true;
    answer("OrvParameterWrite", 2);
    EXPECT_EQ(file_.setParameter(code, value, 10, 0), 0x62U);
    const std::string unknown = "File: (unknown). ";
    EXPECT_EQ(log_.reports(), (Lines{"3 ebe88005 FileAccess::getParameter " + unknown +
                                         "Failed to get parameter: QAR_NAME Record: 1 Entry: 12",
                                     "3 62 FileAccess::setParameter " + unknown +
                                         "Failed to set parameter: 20100075 Record: 10 Entry: 0"}));
}

}  // namespace
