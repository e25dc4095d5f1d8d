#include "fileaccess/file_access.h"
#include "fileaccess/parameter_metadata.h"
#include "tests/unit/fileaccess/double_fixture.h"

namespace {

using com::tarsel::utility::Variant;
using Tarsel::Datasources::QAR::describeParameterCode;
using Tarsel::Datasources::QAR::FileAccess;
using Tarsel::Datasources::QAR::ParameterMetadata;
using testing_support::failure;
using testing_support::Lines;

constexpr std::uint32_t code = 0x20100075;

using FileAccessParameters = testing_support::DoubleFixture;

TEST_F(FileAccessParameters, asksTheDescriptionByCodeWithAnEmptyName) {
    ParameterMetadata metadata(1);
    describe(1, code, 24, 32);
    EXPECT_EQ(metadata.lookup(code), 0U);
    EXPECT_EQ(metadata.name(), "QAR_NAME");
    EXPECT_EQ(metadata.valueSize(), 33U);
    EXPECT_EQ(calls(), Lines{description(1, code)});
    EXPECT_EQ(std::get<std::string>(recorder().calls()[0].arguments[1].second),
              std::string(13, '\0'));

    answer("OrvParameterDescriptionQuery", -32742);
    EXPECT_EQ(metadata.lookup(code), 0x801AU);
    EXPECT_EQ(metadata.name(), "QAR_NAME");
    EXPECT_EQ(metadata.valueSize(), 33U);

    answer("OrvParameterDescriptionQuery", 0, {{"type", 8}, {"name", "ABCDEFGHIJKLM"}});
    EXPECT_EQ(metadata.lookup(code), 0xEBE8801AU);
    EXPECT_EQ(metadata.name(), "ABCDEFGHIJKL");
    EXPECT_EQ(metadata.valueSize(), 0U);
}

TEST_F(FileAccessParameters, looksUpThroughATemporaryContextOfItsOwn) {
    answer("OrvNodeEnumeration", 2, {{"identity", "dropped"}});
    answer("OrvNodeEnumeration", 9, {{"identity", "node"}});
    describe(1002, code, 8, 4);
    ParameterMetadata metadata(0);
    EXPECT_EQ(metadata.lookup(code), 0U);
    EXPECT_EQ(metadata.name(), "QAR_NAME");
    EXPECT_EQ(calls(), (Lines{"OrvCreateDSC2 null null 0 0", R"(OrvNodeEnumeration 3e9 "" "" 1 42)",
                              R"(OrvNodeEnumeration 3e9 "" "" 1 46)", "OrvContextDeletion 3e9",
                              R"(OrvCreateDSC2 "node" "" 0 0)", description(1002, code),
                              "OrvContextDeletion 3ea"}));
}

TEST_F(FileAccessParameters, describesACodeInDiagnosticsByNameElseInHexadecimal) {
    describe(1002, code, 8, 4);
    EXPECT_EQ(describeParameterCode(code), "QAR_NAME");
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

TEST_F(FileAccessParameters, movesValuesInTheLayoutThatTheDataSourceDescribes) {
    FileAccess file(1);
    Variant value;
    hold(1, code, "abc");
    EXPECT_EQ(file.getParameter(code, value, 0, 2), 0U);
    EXPECT_EQ(value.toString(), "abc");
    EXPECT_EQ(file.setParameter(code, value, 0, 3), 0U);
    EXPECT_EQ(file.setParameter(code, value, 7, 0), 0U);
    describe(1, code, 1, 1);  // the other code of a byte flag
    value = "5";
    EXPECT_EQ(file.setParameter(code, value, 65535, 65535), 0U);
    EXPECT_EQ(calls(),
              (Lines{description(1, code), "OrvParameterRead 1 20100075 1 2 4",
                     description(1, code), R"(OrvParameterWrite 1 20100075 1 3 "abc")",
                     description(1, code), R"(OrvParameterWrite 1 20100075 7 0 "abc")",
                     description(1, code), "OrvParameterWrite 1 20100075 ffff ffff \"\x01\""}));
}

TEST_F(FileAccessParameters, refusesWhatIsNotOpenDescribedOrLargeEnough) {
    FileAccess empty;
    FileAccess file(1);
    Variant value;
    value = "former";
    EXPECT_EQ(empty.setParameter(code, value, 1, 0), 0xEBE81389U);
    EXPECT_EQ(empty.getParameter(code, value, 1, 0), 0xEBE81389U);
    EXPECT_EQ(value.getDataType(), Variant::DataType::Unknown);
    EXPECT_EQ(
        log_.reports(),
        (std::vector{
            failure("FileAccess::setParameter", "File: (unknown). File is not open", 0xEBE81389),
            failure("FileAccess::getParameter", "File: (unknown). File is not open", 0xEBE81389)}));
    EXPECT_EQ(file.getParameter(code, value, 1, 0), 0xEBE8801AU);
    EXPECT_EQ(file.setParameter(code, value, 1, 0), 0xEBE8801AU);
    answerAlways("OrvParameterDescriptionQuery", -32742);
    EXPECT_EQ(file.getParameter(code, value, 1, 0), 0x801AU);
    EXPECT_EQ(file.setParameter(code, value, 1, 0), 0x801AU);
    EXPECT_EQ(log_.reports().size(), 2U);

    describe(1, code, 8, 2);
    value = true;
    EXPECT_EQ(file.setParameter(code, value, 1, 0), 0x80070057U);
    EXPECT_TRUE(calls("OrvParameterWrite").empty());
    EXPECT_EQ(file.getParameter(code, value, 1, 0), 0x80070057U);
    EXPECT_EQ(calls("OrvParameterRead"), Lines{"OrvParameterRead 1 20100075 1 0 2"});
}

TEST_F(FileAccessParameters, tracesFailedCallsWithTheNameRecordAndEntry) {
    FileAccess file(1);
    Variant value;
    describe(1, code, 8, 4);
    describe(1002, code, 8, 4);
    answerAlways("OrvErrorQuery", 0, {{"code", 0x8005}});
    answer("OrvParameterRead", -1);
    EXPECT_EQ(file.getParameter(code, value, 0, 12), 0xEBE88005U);
    EXPECT_EQ(value.getDataType(), Variant::DataType::Unknown);
    value = true;
    answer("OrvParameterWrite", 2);
    EXPECT_EQ(file.setParameter(code, value, 10, 0), 0x62U);
    EXPECT_EQ(log_.reports(),
              (std::vector{failure("FileAccess::getParameter",
                                   "File: (unknown). Failed to get parameter: QAR_NAME Record: 1 "
                                   "Entry: 12",
                                   0xEBE88005),
                           failure("FileAccess::setParameter",
                                   "File: (unknown). Failed to set parameter: 20100075 Record: 10 "
                                   "Entry: 0",
                                   0x62)}));
}

}  // namespace
