// Tests of the object layer that the analysis-sequence copy of the module does not cover: library
// calls, their order and their arguments.
#include "fileaccess/file_access.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "fileaccess/library_wrappers.h"
#include "fileaccess/parameter_metadata.h"
#include "tests/double/recorder.h"

namespace {

using com::tarsel::utility::Variant;
using recording::Values;
using Tarsel::Datasources::QAR::describeParameterCode;
using Tarsel::Datasources::QAR::FileAccess;
using Lines = std::vector<std::string>;

constexpr std::uint32_t code = 0x20100075;
constexpr std::uint32_t wholeSource = 0xFFFFFFFF;
const std::string absoluteName = std::filesystem::absolute("some.qar").string();
const std::string description = R"(OrvParameterDescriptionQuery 1 "" 75 2010)";

class FileAccessTest : public testing::Test {
  protected:
    FileAccessTest() { recorder_.reset(); }

    void answer(const std::string& function, std::int64_t result, Values outputs = {},
                int times = 1) {
        recorder_.answer(function,
                         {.result = result, .outputs = std::move(outputs), .times = times});
    }

    // The data source describes every parameter so from now on.
    void describe(int type, int size, const char* name = "QAR_NAME") {
        answer("OrvParameterDescriptionQuery", 0, {{"type", type}, {"size", size}, {"name", name}},
               recording::forEver);
    }

    // The calls after the first ones, each as its function and its inputs: numbers in hexadecimal,
    // bytes in quotes without the zero bytes at their end.
    Lines calls(std::size_t first = 0) const {
        Lines lines;
        for (const recording::Call& call : recorder_.calls()) {
            std::ostringstream line;
            line << call.function << std::hex;
            for (const auto& [name, value] : call.arguments) {
                if (const auto* const number = std::get_if<std::int64_t>(&value)) {
                    line << ' ' << *number;
                } else if (const auto* const bytes = std::get_if<std::string>(&value)) {
                    line << " \"" << bytes->substr(0, bytes->find_last_not_of('\0') + 1) << '"';
                } else {
                    line << " null";
                }
            }
            lines.push_back(line.str());
        }
        lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(first));
        return lines;
    }

    static constexpr std::size_t contextCalls = 4;  // that make a context, 1002 as a rule

    recording::Recorder& recorder_ = recording::Recorder::instance();
    FileAccess file_{1};
    FileAccess destination_{2};
    FileAccess empty_;
};

TEST_F(FileAccessTest, OpenUsesAbsolutePathAndDestructorCloses) {
    for (const auto& [flags, opening] :
         {std::pair{0x3U, "OrvDataSourceOpening 3ea \"" + absoluteName + "\" 1 83 0 null"},
          {0x403U, "OrvFileCreation 3ea \"" + absoluteName + "\" 1 ffff 1 8000"}}) {
        recorder_.reset();
        {
            FileAccess file;
            EXPECT_EQ(0xECE99D7DU, codeOf(file.open("", flags)));
            EXPECT_EQ(0U, codeOf(file.open("some.qar", flags)));
            EXPECT_EQ(0xEBE8138DU, codeOf(file.open("other.qar", flags)));
        }
        EXPECT_EQ((Lines{opening, "OrvDataSourceClosing 3ea", "OrvContextDeletion 3ea"}),
                  calls(contextCalls));
    }
    EXPECT_EQ(0xEBE8138DU, codeOf(file_.open("other.qar", 0)));
}

TEST_F(FileAccessTest, FailedOpenLeavesObjectEmpty) {
    const std::vector<std::tuple<std::uint32_t, const char*, int, std::uint32_t>> cases{
        {0, "OrvDataSourceOpening", -32763, 0xFFFF8005},
        {0, "OrvDataSourceOpening", 5, 5},
        {0x400, "OrvFileCreation", -32763, 0xEBE88005},
        {0x400, "OrvFileCreation", -1, 0xFFFFFFFF},
        {0, "OrvCreateDSC2", 9, 1},
        {0, "OrvNodeEnumeration", 9, 2}};
    for (const auto& [flags, function, result, status] : cases) {
        answer(function, result);
        EXPECT_EQ(status, codeOf(empty_.open("some.qar", flags)));
        EXPECT_EQ(0xEBE81389U, codeOf(empty_.close(0)));
    }
    answer("OrvNodeEnumeration", 0, {{"refusal", "no licence"}});
    EXPECT_EQ(3U, codeOf(empty_.open("some.qar", 0)));
    answer("OrvCreateDSC2", 0);
    answer("OrvCreateDSC2", -2);
    EXPECT_EQ(4U, codeOf(empty_.open("some.qar", 0)));
}

TEST_F(FileAccessTest, FailedCloseDeletesContext) {
    const std::string flush = "OrvDataSourceFlush 3ea";
    const std::string closing = "OrvDataSourceClosing 3ea";
    const std::string deletion = "OrvContextDeletion 3ea";
    const std::vector<std::tuple<std::uint32_t, int, int, int, std::uint32_t, Lines>> cases{
        {0, 0, 0, 0, 0, {flush, closing, deletion}},
        {1, 0, 0, 0, 0, {closing, deletion}},
        {0, -1, 0, 5, 0xEBE88005, {flush, "OrvErrorQuery 3ea", deletion}},
        {0, 0, 1, 5, 0x61, {flush, closing, deletion}},
        {0, 0, 0, -2, 0xFFFFFFFE, {flush, closing, deletion}},
    };
    for (const auto& [flags, flushed, closed, deleted, status, expected] : cases) {
        SCOPED_TRACE(status);
        recorder_.reset();
        ASSERT_EQ(0U, codeOf(empty_.open("some.qar", 0)));
        answer("OrvDataSourceFlush", flushed);
        answer("OrvDataSourceClosing", closed);
        answer("OrvContextDeletion", deleted);
        answer("OrvErrorQuery", 0, {{"code", 0x8005}});
        EXPECT_EQ(status, codeOf(empty_.close(flags)));
        EXPECT_EQ(expected, calls(contextCalls + 1));
        EXPECT_EQ(0xEBE81389U, codeOf(empty_.close(0)));
    }
}

TEST_F(FileAccessTest, CopyRefusesMissingAndEqualSides) {
    FileAccess alsoEmpty;
    Variant value;
    value = "former";
    EXPECT_EQ(0xEBE81389U, codeOf(empty_.copyTo(empty_, 0x2010)));
    EXPECT_EQ(0xEBE81389U, codeOf(file_.copyTo(empty_, 0x2010)));
    EXPECT_EQ(0xECE99D7DU, codeOf(file_.copyTo(file_, 0x2010)));
    EXPECT_EQ(0xEBE8138DU, codeOf(empty_.duplicateTo(alsoEmpty)));
    EXPECT_EQ(0xEBE8138DU, codeOf(file_.duplicateTo(empty_)));
    EXPECT_EQ(0xECE99D7DU, codeOf(file_.duplicateTo(file_)));
    EXPECT_EQ(0xEBE81389U, codeOf(empty_.copySequenceTo(empty_)));
    EXPECT_EQ(0xECE99D7DU, codeOf(file_.copySequenceTo(file_)));
    EXPECT_EQ(0xEBE81389U, codeOf(empty_.createBlock(0x2010, 1, 1, 1)));
    EXPECT_EQ(0xEBE81389U, codeOf(empty_.setParameter(code, value, 1, 0)));
    EXPECT_EQ(0xEBE81389U, codeOf(empty_.getParameter(code, value, 1, 0)));
    EXPECT_EQ(Variant::DataType::Unknown, value.getDataType());
    EXPECT_EQ(0U, codeOf(file_.close(0)));
    EXPECT_EQ(0xEBE81389U, codeOf(file_.close(0)));
    EXPECT_EQ(Lines{}, calls());
}

TEST_F(FileAccessTest, CopyAcceptsClassOrCodeOrWholeSource) {
    for (const auto& [classArgument, call] : {std::pair{0x2010U, "OrvClassCopy 1 2 2010"},
                                              {code, "OrvClassCopy 1 2 2010"},
                                              {wholeSource, "OrvDataSourceDuplication 1 2"}}) {
        recorder_.reset();
        EXPECT_EQ(0U, codeOf(file_.copyTo(destination_, classArgument)));
        EXPECT_EQ(Lines{call}, calls());
    }
}

TEST_F(FileAccessTest, FailedDuplicationOrBlockIsNotQueried) {
    for (const auto& [result, status] : {std::pair{-1, 0xFFFFFFFFU}, {-32763, 0xEBE88005U}}) {
        answer("OrvDataSourceDuplication", result);
        answer("OrvCreateBlock", result);
        EXPECT_EQ(status, codeOf(file_.copyTo(destination_, wholeSource)));
        EXPECT_EQ(status, codeOf(file_.createBlock(0x2010, 1, 1, 1)));
    }
    EXPECT_EQ(4U, calls().size());
}

TEST_F(FileAccessTest, SpectrumBlockGetsChannelCountOfFile) {
    describe(8, 4);
    answer("OrvParameterRead", 0, {{"buffer", 4096}});
    EXPECT_EQ(0U, codeOf(file_.createBlock(0x2005, 0, 1, 1)));
    EXPECT_EQ(0U, codeOf(file_.createBlock(0x20050000, 100, 1, 1)));
    EXPECT_EQ(0U, codeOf(file_.createBlock(0x2010, 0, 1, 1)));
    EXPECT_EQ((Lines{"OrvParameterRead 1 20000007 1 0 4", "OrvCreateBlock 1 2005 1000 0",
                     "OrvCreateBlock 1 2005 64 0", "OrvCreateBlock 1 2010 0 0"}),
              calls(1));
}

TEST_F(FileAccessTest, ReadsAndWritesTheGivenRecordAndEntry) {
    Variant value;
    describe(14, 3);
    answer("OrvParameterRead", 0, {{"buffer", "abc"}});
    EXPECT_EQ(0U, codeOf(file_.getParameter(code, value, 0, 2)));
    EXPECT_EQ(0U, codeOf(file_.setParameter(code, value, 65535, 65535)));
    EXPECT_EQ((Lines{description, "OrvParameterRead 1 20100075 1 2 4", description,
                     R"(OrvParameterWrite 1 20100075 ffff ffff "abc")"}),
              calls());
    answer("OrvParameterRead", -32763);
    EXPECT_EQ(0xEBE88065U, codeOf(file_.getParameter(code, value, 1, 0)));
    EXPECT_EQ(Variant::DataType::Unknown, value.getDataType());
}

TEST_F(FileAccessTest, UnknownParameterIsDescribedByCode) {
    EXPECT_EQ("05", describeParameterCode(5));
    EXPECT_EQ("20100075", describeParameterCode(code));
    describe(8, 4, "ABCDEFGHIJKLM");  // too long by one
    EXPECT_EQ("ABCDEFGHIJKL", describeParameterCode(code));
    answer("OrvCreateDSC2", 1);  // no context at all
    EXPECT_EQ("", describeParameterCode(code));
}

}  // namespace
