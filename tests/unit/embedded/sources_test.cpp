// Contexts, nodes, states and limits of data sources.
#include <array>
#include <tuple>

#include "tests/support/data_source.h"

namespace testing_support {
namespace {

using namespace embedded;

class SourcesTest : public DataSourceTest {};

TEST_F(SourcesTest, ContextIsBoundToEnumeratedNodeUnlessNodeRefuses) {
    OrvContext temporary = 0;
    ASSERT_EQ(0U, SOrvCreateDSC(nullptr, &temporary, 0, 0));
    OrvNodeRecord node{};
    std::uint32_t count = 1;
    EXPECT_EQ(codes::unknownSelector, SOrvEnumNodes(temporary, &node, &count, 0x41));
    EXPECT_EQ(0U, count);
    std::uint16_t shortCount = 1;
    EXPECT_EQ(2, OrvNodeEnumeration(temporary, &node, &shortCount, 0));
    for (const std::uint32_t selector : {0x42U, 0x46U}) {
        count = 1;
        EXPECT_EQ(0U, SOrvEnumNodes(temporary, &node, &count, selector));
        EXPECT_EQ(1U, count);
        EXPECT_STREQ("", node.refusal);
    }
    OrvContext bound = 0;
    EXPECT_EQ(0, OrvCreateDSC2(&node, &bound, 0, 0));
    EXPECT_GT(bound, temporary);
    EXPECT_EQ(0, OrvContextDeletion(bound));
    node.refusal[0] = 'x';
    EXPECT_EQ(codes::nodeRefusesContexts, SOrvCreateDSC2(&node, &bound, 0, 0));
    EXPECT_EQ(0, bound);
    EXPECT_EQ(0U, SOrvDeleteDSC(temporary));
}

TEST_F(SourcesTest, ContextWithOpenSourceRefusesSecondOne) {
    const DataSource source;
    EXPECT_EQ(0U, source.sourceState());
    EXPECT_EQ(0U, source.create(file()));
    EXPECT_EQ(0x1U, source.sourceState());
    EXPECT_EQ(codes::alreadyOpen, source.create(file("second.qar")));
    EXPECT_EQ(codes::alreadyOpen, source.open(file(), reading));
    EXPECT_EQ(0U, source.close());
    EXPECT_EQ(0U, source.open(file(), 0x2));
    EXPECT_EQ(0U, source.put(QAR_D_LIVETIME, 1.0));
    EXPECT_EQ(0x3U, source.sourceState());
    EXPECT_EQ(codes::alreadyOpen, source.lastFailure()) << "success keeps the last failure";
    EXPECT_EQ(1, fileCount());
}

TEST_F(SourcesTest, WritingToSourceOpenedForReadingIsRefused) {
    { ASSERT_EQ(0U, DataSource::created(file()).putSpectrum({1})); }
    for (const std::uint32_t access : {0x0U, 0x1U, 0x80U, 0x81U}) {
        const DataSource source;
        ASSERT_EQ(0U, source.open(file(), access));
        EXPECT_EQ(0x5U, source.sourceState());
        EXPECT_EQ(codes::readOnly, source.put(QAR_D_LIVETIME, 1.0));
        EXPECT_EQ(codes::readOnly, SOrvControlDSC(source.context(), 2, 0));
        EXPECT_EQ(0U, SOrvFlush(source.context()));
    }
}

TEST_F(SourcesTest, SecondListOfInputsBeginsWithFirstInput) {
    const auto source = DataSource::created(file("only.qar"));
    setenv("ORV_INPUTS", file("").c_str(), 1);
    for (int list = 0; list < 2; ++list) {
        std::array<char, ORV_INPUT_NAME_SIZE> name{};
        EXPECT_EQ(0U, SOrvFirstInput(source.context(), 0, name.data()));
        EXPECT_STREQ("only", name.data());
        EXPECT_EQ(codes::endOfList, SOrvNextInput(source.context(), name.data()));
    }
    unsetenv("ORV_INPUTS");
}

TEST_F(SourcesTest, FailedClassCopyReportsSide) {
    const auto source = DataSource::created(file("source.qar"));
    const auto empty = DataSource::created(file("empty.qar"));
    const auto reader = DataSource::opened(file("empty.qar"), reading);
    ASSERT_EQ(0U, source.put(QAR_C_NUCLNAME, "Cs-137"));
    // Returns the result and the last failures of both sides.
    const auto copy = [](const DataSource& from, const DataSource& into) {
        const int result = OrvClassCopy(from.context(), into.context(), QAR_CLS_NUCLIDE);
        return std::tuple(result, from.lastFailure(), into.lastFailure());
    };
    EXPECT_EQ(std::tuple(3, codes::noBlock, 0U), copy(empty, source));
    EXPECT_EQ(std::tuple(3, codes::noSourceOpen, 0U), copy(DataSource(), source));
    EXPECT_EQ(std::tuple(4, 0U, codes::noSourceOpen), copy(source, DataSource()));
    EXPECT_EQ(std::tuple(4, 0U, codes::noBlock), copy(source, empty));
    EXPECT_EQ(std::tuple(4, 0U, codes::readOnly), copy(source, reader));
}

TEST_F(SourcesTest, CopyOfWholeSourceWritesOnlyDifferentClasses) {
    const auto source = DataSource::created(file());
    ASSERT_EQ(0U, source.put(QAR_C_NUCLNAME, "Cs-137") + source.put(QAR_D_LIVETIME, 1.0));
    ASSERT_EQ(0U, source.putSpectrum({1, 2, 3}) + SOrvFlush(source.context()));
    const auto copy = DataSource::created(file("copy.qar"));
    ASSERT_EQ(0U, SOrvSaveAs(source.context(), copy.context()));
    ASSERT_EQ(0U, SOrvSaveAs(copy.context(), source.context()));
    EXPECT_EQ(0x1U, source.sourceState());  // unchanged
    ASSERT_EQ(0U, copy.put(QAR_D_LIVETIME, 2.0) + copy.put(QAR_C_NUCLNAME, "Co-60", 2));
    // Only a class that is written again loses this damage.
    program("UPDATE item SET checksum = 0 WHERE key >> 48 IN (0x2004, 0x2005)");
    ASSERT_EQ(0U, SOrvSaveAs(copy.context(), source.context()) + source.close());
    const auto saved = DataSource::opened(file(), reading);
    EXPECT_EQ(2.0, saved.get<double>(QAR_D_LIVETIME));
    EXPECT_EQ("Co-60", saved.text(QAR_C_NUCLNAME, 2));
    EXPECT_EQ(-1, saved.recordCount(QAR_CLS_SPECTRUM));
}

TEST_F(SourcesTest, StringIsPaddedWithZerosToMaxLength) {
    const auto source = DataSource::created(file());
    ASSERT_EQ(0U, source.put(QAR_C_NUCLNAME, "Cs-137"));
    std::array<char, 20> buffer{};
    buffer.fill('?');
    EXPECT_EQ(0U, SOrvGetParam(source.context(), QAR_C_NUCLNAME, 1, 1, buffer.data(), 20));
    EXPECT_EQ(std::string("Cs-137") + std::string(11, '\0') + "???",
              std::string(buffer.begin(), buffer.end()));
}

TEST_F(SourcesTest, Record65536IsRefused) {
    const auto source = DataSource::created(file());
    for (int record = 1; record <= 65535; ++record) {
        ASSERT_EQ(0U, source.put(QAR_L_PEAKLEFT, record, record));
    }
    EXPECT_EQ(codes::noSuchRecord, source.put(QAR_L_PEAKLEFT, 0, 65536));
    EXPECT_EQ(codes::blockFull, SOrvInsertOne(source.context(), QAR_CLS_PEAK, 1, 0));
    EXPECT_EQ(65535, source.recordCount(QAR_CLS_PEAK));
    EXPECT_EQ(65535, source.get<std::int32_t>(QAR_L_PEAKLEFT, 65535));
}

}  // namespace
}  // namespace testing_support
