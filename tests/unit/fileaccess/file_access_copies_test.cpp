#include "fileaccess/file_access.h"
#include "tests/unit/fileaccess/double_fixture.h"

namespace {

using Tarsel::Datasources::QAR::FileAccess;
using testing_support::failure;
using testing_support::Lines;

using FileAccessCopies = testing_support::DoubleFixture;

TEST_F(FileAccessCopies, takesTheClassFromTheHighHalfOfTheArgument) {
    FileAccess source(1);
    FileAccess destination(2);
    EXPECT_EQ(source.copyTo(destination, 0x2010), 0U);
    EXPECT_EQ(source.copyTo(destination, 0x20100075), 0U);
    EXPECT_EQ(source.copyTo(destination, 0xFFFFFFFF), 0U);
    EXPECT_EQ(calls(), (Lines{"OrvClassCopy 1 2 2010", "OrvClassCopy 1 2 2010",
                              "OrvDataSourceDuplication 1 2"}));
}

TEST_F(FileAccessCopies, refusesMissingAndEqualSidesInThisOrder) {
    FileAccess open(1);
    FileAccess empty;
    FileAccess alsoEmpty;
    EXPECT_EQ(empty.copyTo(alsoEmpty, 0x2010), 0xEBE81389U);
    EXPECT_EQ(open.copyTo(empty, 0x2010), 0xEBE81389U);
    EXPECT_EQ(open.copyTo(open, 0x2010), 0xECE99D7DU);
    EXPECT_EQ(empty.duplicateTo(alsoEmpty), 0xEBE8138DU);
    EXPECT_EQ(open.duplicateTo(empty), 0xEBE8138DU);
    EXPECT_EQ(open.duplicateTo(open), 0xECE99D7DU);
    EXPECT_EQ(empty.createBlock(0x2010, 1, 1, 1), 0xEBE81389U);
    const std::string same = "File: (unknown). The source and destination cannot be the same";
    EXPECT_EQ(
        log_.reports(),
        (std::vector{
            failure("FileAccess::copyTo", "File: (unknown). Source file is not open", 0xEBE81389),
            failure("FileAccess::copyTo", "File: (unknown). Destination file is not open",
                    0xEBE81389),
            failure("FileAccess::copyTo", same, 0xECE99D7D),
            failure("FileAccess::duplicateTo", "File: (unknown). File is not open", 0xEBE8138D),
            failure("FileAccess::duplicateTo", "File: (unknown). Destination is not open",
                    0xEBE8138D),
            failure("FileAccess::duplicateTo", same, 0xECE99D7D),
            failure("FileAccess::createBlock", "File: (unknown). File is not open", 0xEBE81389)}));
    EXPECT_TRUE(calls().empty());
}

struct CopyFailure {
    std::int16_t result;
    Lines query;
    pyORV3::Status status;
};

TEST_F(FileAccessCopies, asksTheFailingSideForTheCodeOfAClassCopy) {
    FileAccess source(1);
    FileAccess destination(2);
    const std::vector<CopyFailure> cases{{-1, {"OrvErrorQuery 1"}, 0xEBE88102},
                                         {3, {"OrvErrorQuery 1"}, 0xEBE88102},
                                         {4, {"OrvErrorQuery 2"}, 0xEBE88102},
                                         {5, {}, 0x65}};
    for (const auto& [result, query, status] : cases) {
        SCOPED_TRACE(result);
        recorder().reset();
        answer("OrvClassCopy", result);
        answerAlways("OrvErrorQuery", 0, {{"code", 0x00278102}});
        EXPECT_EQ(source.copyTo(destination, 0x2003), status);
        EXPECT_EQ(calls("OrvErrorQuery"), query);
    }
    answer("OrvClassCopy", 4);
    answer("OrvErrorQuery", 7);
    EXPECT_EQ(source.copyTo(destination, 0x2003), 0x67U);
    EXPECT_TRUE(log_.reports().empty());
}

TEST_F(FileAccessCopies, doesNotResolveTheResultsOfDuplicationAndBlockCreation) {
    FileAccess source(1);
    FileAccess destination(2);
    for (const auto& [result, status] :
         {std::pair{-1, 0xFFFFFFFFU}, std::pair{-32763, 0xEBE88005U}}) {
        answer("OrvDataSourceDuplication", result);
        answer("OrvCreateBlock", result);
        EXPECT_EQ(source.copyTo(destination, 0xFFFFFFFF), status);
        EXPECT_EQ(source.createBlock(0x2010, 1, 1, 1), status);
    }
    EXPECT_TRUE(calls("OrvErrorQuery").empty());
}

TEST_F(FileAccessCopies, createsTheSpectrumBlockWithTheChannelCountOfTheFile) {
    FileAccess file(1);
    describe(1, 0x20000007, 8, 4);
    answerAlways("OrvParameterRead", 0, {{"buffer", 4096}});
    EXPECT_EQ(file.createBlock(0x2005, 0, 1, 1), 0U);
    EXPECT_EQ(calls(), (Lines{description(1, 0x20000007), "OrvParameterRead 1 20000007 1 0 4",
                              "OrvCreateBlock 1 2005 1000 0"}));
    recorder().reset();
    EXPECT_EQ(file.createBlock(0x20050000, 100, 1, 1), 0U);
    EXPECT_EQ(file.createBlock(0x2010, 0, 1, 1), 0U);
    EXPECT_EQ(calls(), (Lines{"OrvCreateBlock 1 2005 64 0", "OrvCreateBlock 1 2010 0 0"}));

    recorder().reset();  // no channel count is described
    testing::internal::CaptureStdout();
    EXPECT_EQ(file.createBlock(0x20050000, 0, 1, 1), 0U);
    EXPECT_NE(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(calls("OrvCreateBlock"), Lines{"OrvCreateBlock 1 2005 0 0"});
}

}  // namespace
