// Copies of classes, records and whole sources.
#include "tests/unit/embedded/data_source.h"

namespace testing_support {
namespace {

using namespace embedded;
using testing::ElementsAre;

class CopiesTest : public testing::Test {
  protected:
    CopiesTest() {
        source_.putNuclide(1, "Cs-137", {661.7});
        source_.putNuclide(2, "Co-60", {1173.2, 1332.5});
    }
    static OrvResult copyClass(const DataSource& from, const DataSource& into,
                               std::uint16_t classCode) {
        return OrvClassCopy(from.context(), into.context(), classCode);
    }

    TemporaryFolder folder_;
    DataSource source_ = DataSource::created(folder_.file("source.qar"));
    DataSource destination_ = DataSource::created(folder_.file("destination.qar"));
};

TEST_F(CopiesTest, AClassReplacesTheOneThatIsThere) {
    for (int record = 1; record <= 3; ++record) {
        destination_.putNuclide(record, "old", {1.0});
    }
    EXPECT_EQ(0, copyClass(source_, destination_, QAR_CLS_NUCLIDE));
    EXPECT_EQ(2, destination_.recordCount(QAR_CLS_NUCLIDE));
    EXPECT_EQ("Co-60", destination_.getText(QAR_C_NUCLNAME, 2));
    EXPECT_EQ(1332.5, destination_.get<double>(QAR_D_LINEENERGY, 2, 2));
    ASSERT_EQ(0U, source_.putText(QAR_C_NUCLNAME, "changed"));
    EXPECT_EQ("Cs-137", destination_.getText(QAR_C_NUCLNAME));
}

TEST_F(CopiesTest, AClassThatTheDestinationLacksIsCopiedAfterCreatingIt) {
    EXPECT_EQ(4, copyClass(source_, destination_, QAR_CLS_NUCLIDE));
    EXPECT_EQ(codes::noBlock, destination_.lastFailure());
    EXPECT_EQ(0U, source_.lastFailure());
    EXPECT_EQ(0, OrvCreateBlock(destination_.context(), QAR_CLS_NUCLIDE, 0, 0));
    EXPECT_EQ(0U, SOrvClassCopy(source_.context(), destination_.context(), QAR_CLS_NUCLIDE));
    EXPECT_EQ(2, destination_.recordCount(QAR_CLS_NUCLIDE));
}

TEST_F(CopiesTest, AFailureNamesItsSide) {
    const auto reader = DataSource::opened(folder_.file("destination.qar"), Reading);
    struct Case {
        const DataSource& from;
        const DataSource& into;
        OrvResult result;
        std::uint32_t code;
    };
    for (const Case& failing : {Case{destination_, source_, 3, codes::noBlock},
                                Case{DataSource(), source_, 3, codes::noSourceOpen},
                                Case{source_, DataSource(), 4, codes::noSourceOpen},
                                Case{source_, reader, 4, codes::readOnly}}) {
        EXPECT_EQ(failing.result, copyClass(failing.from, failing.into, QAR_CLS_NUCLIDE));
        const DataSource& side = failing.result == 3 ? failing.from : failing.into;
        EXPECT_EQ(failing.code, side.lastFailure());
    }
    EXPECT_EQ(2, source_.recordCount(QAR_CLS_NUCLIDE));
    EXPECT_EQ(0, destination_.recordCount(QAR_CLS_NUCLIDE));
}

TEST_F(CopiesTest, CopyingOntoItselfChangesNothing) {
    const auto again = DataSource::opened(folder_.file("source.qar"), Writing);
    EXPECT_EQ(0, copyClass(source_, source_, QAR_CLS_NUCLIDE));
    EXPECT_EQ(0, copyClass(source_, again, QAR_CLS_NUCLIDE));
    EXPECT_EQ(0U, SOrvSaveAs(source_.context(), again.context()));
    EXPECT_EQ(0U, SOrvCopyRecord(source_.context(), QAR_CLS_NUCLIDE, 2, again.context(), 2, 0));
    EXPECT_EQ(2, source_.recordCount(QAR_CLS_NUCLIDE));
    EXPECT_EQ("Cs-137", source_.getText(QAR_C_NUCLNAME, 1));
    EXPECT_EQ("Co-60", source_.getText(QAR_C_NUCLNAME, 2));
}

TEST_F(CopiesTest, AWholeCopyHasNothingOfWhatWasThere) {
    ASSERT_EQ(0U, source_.putSpectrum({1, 2, 3}));
    ASSERT_EQ(0U, destination_.put(QAR_D_LIVETIME, 5.0));
    EXPECT_EQ(0, OrvDataSourceDuplication(source_.context(), destination_.context()));
    ASSERT_EQ(0U, destination_.close());
    const auto copy = DataSource::opened(folder_.file("destination.qar"), Reading);
    EXPECT_THAT(copy.getSpectrum(), ElementsAre(1, 2, 3));
    EXPECT_EQ("Cs-137", copy.getText(QAR_C_NUCLNAME, 1));
    EXPECT_EQ(codes::notSet, copy.readStatus(QAR_D_LIVETIME));
}

TEST_F(CopiesTest, ARecordReplacesOneOrBecomesTheNext) {
    const auto copyRecord = [this](std::uint16_t from, std::uint16_t into) {
        return SOrvCopyRecord(source_.context(), QAR_CLS_NUCLIDE, from, destination_.context(),
                              into, 0);
    };
    EXPECT_EQ(codes::noSuchRecord, copyRecord(2, 2));
    EXPECT_EQ(codes::noSuchRecord, copyRecord(3, 1));
    EXPECT_EQ(codes::noSuchRecord, copyRecord(0, 1));
    EXPECT_EQ(0, destination_.recordCount(QAR_CLS_NUCLIDE));
    EXPECT_EQ(0U, copyRecord(1, 1));
    EXPECT_EQ(0U, copyRecord(1, 2));
    EXPECT_EQ(0U, copyRecord(2, 1));
    EXPECT_EQ("Co-60", destination_.getText(QAR_C_NUCLNAME, 1));
    EXPECT_EQ(2, destination_.entryCount(QAR_CLS_NUCLIDE, 1));
    EXPECT_EQ("Cs-137", destination_.getText(QAR_C_NUCLNAME, 2));
}

}  // namespace
}  // namespace testing_support
