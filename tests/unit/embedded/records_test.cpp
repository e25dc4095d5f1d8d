// Parameters, records and entries: where values stand and what changes around them.
#include <array>

#include "tests/unit/embedded/data_source.h"

namespace testing_support {
namespace {

using namespace embedded;
using testing::ElementsAre;

class RecordsTest : public testing::Test {
  protected:
    [[nodiscard]] std::vector<double> peaks() const {
        std::vector<double> energies;
        for (int record = 1; record <= source_.recordCount(QAR_CLS_PEAK); ++record) {
            energies.push_back(
                source_.get<double>(QAR_D_PEAKENERGY, static_cast<std::uint16_t>(record)));
        }
        return energies;
    }
    void putPeaks(int count) const {
        for (int record = 1; record <= count; ++record) {
            ASSERT_EQ(0U, source_.put(QAR_D_PEAKENERGY, 100.0 * record, record));
        }
    }
    [[nodiscard]] OrvStatus insert(std::uint16_t classCode, int record, int entry) const {
        return SOrvInsertOne(source_.context(), classCode, static_cast<std::int16_t>(record),
                             static_cast<std::int16_t>(entry));
    }
    [[nodiscard]] OrvStatus erase(std::uint16_t classCode, int record, int entry) const {
        return SOrvDeleteOne(source_.context(), classCode, static_cast<std::uint16_t>(record),
                             static_cast<std::uint16_t>(entry));
    }

    TemporaryFolder folder_;
    DataSource source_ = DataSource::created(folder_.file("records.qar"));
};

TEST_F(RecordsTest, RecordsAreMadeOneAfterAnother) {
    EXPECT_EQ(codes::noSuchRecord, source_.put(QAR_D_PEAKENERGY, 1.0, 2));
    EXPECT_EQ(0, source_.recordCount(QAR_CLS_PEAK));
    putPeaks(2);
    for (const std::int32_t record : {0, 4, 65535, 65537, -1}) {
        EXPECT_EQ(codes::noSuchRecord, source_.put(QAR_D_PEAKENERGY, 1.0, record)) << record;
    }
    for (const std::uint16_t record : std::initializer_list<std::uint16_t>{0, 3, 65535}) {
        EXPECT_EQ(codes::noSuchRecord, source_.readStatus(QAR_D_PEAKENERGY, record)) << record;
    }
    EXPECT_THAT(peaks(), ElementsAre(100.0, 200.0));
}

TEST_F(RecordsTest, EntriesAreMadeOneAfterAnother) {
    EXPECT_EQ(codes::noSuchEntry, source_.put(QAR_D_ENERGYCAL, 1.0, 1, 2));
    EXPECT_EQ(codes::notSet, source_.readStatus(QAR_D_ENERGYCAL));
    EXPECT_EQ(0U, source_.put(QAR_D_ENERGYCAL, 0.5, 1, 0));
    EXPECT_EQ(0U, source_.put(QAR_D_ENERGYCAL, 0.25, 1, 2));
    EXPECT_EQ(0.5, source_.get<double>(QAR_D_ENERGYCAL, 1, 1));
    EXPECT_EQ(0.25, source_.get<double>(QAR_D_ENERGYCAL, 1, 2));
    EXPECT_EQ(codes::notSet, source_.readStatus(QAR_D_SHAPECAL, 1, 2));
    EXPECT_EQ(codes::noSuchEntry, source_.readStatus(QAR_D_ENERGYCAL, 1, 3));
    EXPECT_EQ(2, source_.entryCount(QAR_CLS_CALIBRATION, 1));
    std::uint16_t count = 0;
    EXPECT_EQ(0U, SOrvEntryCount(source_.context(), QAR_D_ENERGYCAL, 1, &count));
    EXPECT_EQ(2, count);
}

TEST_F(RecordsTest, AValueOfARecordHasOneEntry) {
    EXPECT_EQ(0U, source_.put(QAR_D_LIVETIME, 3.0, 1, 1));
    EXPECT_EQ(3.0, source_.get<double>(QAR_D_LIVETIME, 1, 0));
    EXPECT_EQ(codes::noSuchEntry, source_.put(QAR_D_LIVETIME, 4.0, 1, 2));
    EXPECT_EQ(codes::noSuchEntry, source_.readStatus(QAR_D_LIVETIME, 1, 2));
}

TEST_F(RecordsTest, SizesThatDoNotFitAreRefused) {
    std::array<char, 80> bytes{};
    const auto put = [&](std::uint32_t code, std::uint32_t size) {
        return SOrvPutParam(source_.context(), code, 1, 0, bytes.data(), size);
    };
    const auto get = [&](std::uint32_t code, std::uint32_t size) {
        return SOrvGetParam(source_.context(), code, 1, 0, bytes.data(), size);
    };
    for (const std::uint32_t size : {0U, 7U, 9U, 0x80000001U}) {
        EXPECT_EQ(codes::sizeRefused, put(QAR_D_LIVETIME, size)) << size;
    }
    EXPECT_EQ(0U, put(QAR_D_LIVETIME, 8));
    EXPECT_EQ(codes::sizeRefused, get(QAR_D_LIVETIME, 7));
    EXPECT_EQ(codes::sizeRefused, get(QAR_D_LIVETIME, 0xFFFFFFFF));

    EXPECT_EQ(codes::sizeRefused, source_.putText(QAR_C_NUCLNAME, std::string(17, 'n')));
    EXPECT_EQ(codes::sizeRefused,
              SOrvPutParam(source_.context(), QAR_C_NUCLNAME, 1, 0, "no end", 3));
    EXPECT_EQ(0U, SOrvPutParam(source_.context(), QAR_C_NUCLNAME, 1, 0, "Co-60\0\0", 7));
    EXPECT_EQ(codes::sizeRefused, get(QAR_C_NUCLNAME, 5));
    bytes.fill('?');
    EXPECT_EQ(0U, get(QAR_C_NUCLNAME, 18));
    EXPECT_EQ(std::string("Co-60") + std::string(12, '\0') + "?", std::string(bytes.data(), 18));
}

TEST_F(RecordsTest, InsertingAndDeletingARecordKeepsItsNeighbours) {
    putPeaks(3);
    EXPECT_EQ(0U, insert(QAR_CLS_PEAK, 2, 0));
    EXPECT_EQ(codes::notSet, source_.readStatus(QAR_D_PEAKENERGY, 2));
    EXPECT_EQ(0U, source_.put(QAR_D_PEAKENERGY, 150.0, 2));
    EXPECT_THAT(peaks(), ElementsAre(100.0, 150.0, 200.0, 300.0));
    EXPECT_EQ(0U, erase(QAR_CLS_PEAK, 1, 0));
    EXPECT_THAT(peaks(), ElementsAre(150.0, 200.0, 300.0));
    EXPECT_EQ(0U, insert(QAR_CLS_PEAK, 4, 0));
    EXPECT_EQ(4, source_.recordCount(QAR_CLS_PEAK));
    for (const int record : {0, 6, -4}) {
        EXPECT_EQ(codes::noSuchRecord, insert(QAR_CLS_PEAK, record, 0)) << record;
        EXPECT_EQ(codes::noSuchRecord, erase(QAR_CLS_PEAK, record, 0)) << record;
    }
}

TEST_F(RecordsTest, InsertingAndDeletingAnEntryKeepsItsNeighbours) {
    source_.putNuclide(1, "Cs-137", {32.0, 661.7});
    source_.putNuclide(2, "Co-60", {1173.2});
    EXPECT_EQ(0U, insert(QAR_CLS_NUCLIDE, 1, 2));
    EXPECT_EQ(codes::notSet, source_.readStatus(QAR_D_LINEENERGY, 1, 2));
    EXPECT_EQ(661.7, source_.get<double>(QAR_D_LINEENERGY, 1, 3));
    EXPECT_EQ(0U, erase(QAR_CLS_NUCLIDE, 1, 1));
    EXPECT_EQ(661.7, source_.get<double>(QAR_D_LINEENERGY, 1, 2));
    EXPECT_EQ("Cs-137", source_.getText(QAR_C_NUCLNAME, 1));
    EXPECT_EQ(1173.2, source_.get<double>(QAR_D_LINEENERGY, 2, 1));
    EXPECT_EQ(codes::noSuchEntry, erase(QAR_CLS_NUCLIDE, 1, 3));
    EXPECT_EQ(codes::noSuchEntry, insert(QAR_CLS_NUCLIDE, 1, 4));
}

TEST_F(RecordsTest, ABlockHoldsNoMoreThan65535Records) {
    for (int record = 1; record <= 65535; ++record) {
        ASSERT_EQ(0U, source_.put(QAR_L_PEAKLEFT, record, record));
    }
    EXPECT_EQ(codes::noSuchRecord, source_.put(QAR_L_PEAKLEFT, 0, 65536));
    EXPECT_EQ(codes::blockFull, insert(QAR_CLS_PEAK, 1, 0));
    EXPECT_EQ(65535, source_.recordCount(QAR_CLS_PEAK));
    EXPECT_EQ(65535, source_.get<std::int32_t>(QAR_L_PEAKLEFT, 65535));
}

TEST_F(RecordsTest, DeletingALevelDeletesWhatCameAfterIt) {
    struct Case {
        std::int32_t level;
        OrvStatus status;
        int peaks;
        int results;
    };
    for (const Case& expected :
         {Case{0, codes::unknownItem, 1, 1}, Case{3, codes::unknownItem, 1, 1}, Case{2, 0, 1, 0},
          Case{1, 0, 0, 0}}) {
        ASSERT_EQ(0U, source_.put(QAR_D_PEAKENERGY, 1.0));
        ASSERT_EQ(0U, source_.put(QAR_D_RESCONF, 1.0));
        EXPECT_EQ(expected.status, SOrvDeleteLevel(source_.context(), expected.level));
        EXPECT_EQ(expected.peaks, source_.recordCount(QAR_CLS_PEAK)) << expected.level;
        EXPECT_EQ(expected.results, source_.recordCount(QAR_CLS_RESULT)) << expected.level;
    }
}

TEST_F(RecordsTest, TheDescriptionQueryAnswersByCodeAndByName) {
    OrvParameterDescriptionKey key{};
    OrvParameterDescription description{};
    key.codeLow = 0x0104;
    key.codeHigh = 0x2010;
    ASSERT_EQ(0, OrvParameterDescriptionQuery(source_.context(), &key, &description));
    EXPECT_STREQ("CALFILE", description.name);
    EXPECT_EQ(14, description.type);
    EXPECT_EQ(255, description.size);
    EXPECT_STREQ("Name of the calibration file", description.text);

    key = {"channels", 0, 0, 0};
    ASSERT_EQ(0, OrvParameterDescriptionQuery(source_.context(), &key, &description));
    EXPECT_EQ(8, description.type);
    EXPECT_EQ(4, description.size);

    key = {"", 0, 0xFFFF, 0x2010};
    EXPECT_EQ(-1, OrvParameterDescriptionQuery(source_.context(), &key, &description));
    EXPECT_EQ(codes::unknownParameter, source_.lastFailure());
}

}  // namespace
}  // namespace testing_support
