// Files written by an earlier version of the library, which each later version must open, read and
// change.
//
// measurement.qar: values of every class, spectrum and peaks. nuclides.qar: a nuclide library.
// sequence.qar: an analysis sequence with its unformatted geometry block.
#include <array>
#include <filesystem>
#include <numeric>

#include "tests/support/data_source.h"

namespace testing_support {
namespace {

using namespace embedded;

class GoldenFileTest : public DataSourceTest, public testing::WithParamInterface<const char*> {
  protected:
    // Returns a copy of the file, opened for writing.
    [[nodiscard]] DataSource copyOf(const std::string& name) const {
        std::filesystem::copy_file(std::filesystem::path(GOLDEN_FILES) / GetParam() / name,
                                   file(name));
        return DataSource::opened(file(name), writing);
    }
    // Closes the source and returns it opened again, with the content from the disk.
    [[nodiscard]] DataSource reopened(const DataSource& source, const std::string& name) const {
        EXPECT_EQ(0U, SOrvReVerify(source.context()));
        EXPECT_EQ(0U, source.close());
        auto again = DataSource::opened(file(name), reading);
        EXPECT_EQ(0U, SOrvReVerify(again.context()));
        return again;
    }
};

TEST_P(GoldenFileTest, OldMeasurementIsReadAndChanged) {
    const auto source = copyOf("measurement.qar");
    std::vector<std::int32_t> channels(512);
    std::iota(channels.begin(), channels.end(), 0);
    EXPECT_EQ(channels, source.getSpectrum());
    EXPECT_EQ("J. M\xFCller", source.text(QAR_C_OPERATOR));
    EXPECT_EQ(3600.0, source.get<double>(QAR_D_LIVETIME));
    EXPECT_EQ(130816, source.get<std::int64_t>(QAR_Q_TOTALCOUNT));
    EXPECT_EQ(1.5F, source.get<float>(QAR_F_DEADTIME));
    EXPECT_EQ(9, source.get<std::int16_t>(QAR_S_ADCBITS));
    EXPECT_EQ(0.4985, source.get<double>(QAR_D_ENERGYCAL, 1, 2));
    EXPECT_EQ(1460.822, source.get<double>(QAR_D_PEAKENERGY, 2));
    channels[0] = 7;
    ASSERT_EQ(0U, source.putSpectrum(channels));
    ASSERT_EQ(0U, source.put(QAR_D_LIVETIME, 3601.0));
    ASSERT_EQ(0U, SOrvInsertOne(source.context(), QAR_CLS_PEAK, 1, 0));
    const auto again = reopened(source, "measurement.qar");
    EXPECT_EQ(channels, again.getSpectrum());
    EXPECT_EQ(3601.0, again.get<double>(QAR_D_LIVETIME));
    EXPECT_EQ(1460.822, again.get<double>(QAR_D_PEAKENERGY, 3));
    EXPECT_EQ("J. M\xFCller", again.text(QAR_C_OPERATOR));
}

TEST_P(GoldenFileTest, OldNuclideLibraryIsSearchedAndChanged) {
    const auto source = copyOf("nuclides.qar");
    EXPECT_EQ("Ba-133m", source.text(QAR_C_NUCLNAME, 4));
    ASSERT_EQ(0U, SOrvDeleteOne(source.context(), QAR_CLS_NUCLIDE, 1, 0));
    ASSERT_EQ(0U, SOrvDeleteOne(source.context(), QAR_CLS_NUCLIDE, 2, 1));
    const auto again = reopened(source, "nuclides.qar");
    EXPECT_EQ(4, again.recordCount(QAR_CLS_NUCLIDE));
    const std::array<float, 2> key = {356.0F, 1.0F};
    std::uint16_t record = 0;
    std::uint32_t entry = 0;
    EXPECT_EQ(
        0U, SOrvFindRecord(again.context(), ORV_SEARCH_BY_ENERGY, key.data(), 0, &record, &entry));
    EXPECT_EQ(2, record);
    EXPECT_EQ(2U, entry);
}

TEST_P(GoldenFileTest, OldAnalysisSequenceIsReadAndChanged) {
    const auto source = copyOf("sequence.qar");
    EXPECT_EQ("Environmental, long", source.text(QAR_C_ANSEQUENCE));
    EXPECT_EQ(5, source.get<std::int16_t>(QAR_S_ANSTEP, 2));
    ASSERT_EQ(0, OrvWriteUFBlock(source.context(), QAR_CLS_VORLAGEOM, "end", 3, 0));
    const auto again = reopened(source, "sequence.qar");
    std::array<char, 4> bytes{};
    std::uint32_t chunks = 1;
    EXPECT_EQ(0,
              OrvReadUFBlock(again.context(), QAR_CLS_VORLAGEOM, 767, bytes.data(), 4, 0, &chunks));
    EXPECT_EQ(std::string("\xFF"
                          "end"),
              std::string(bytes.data(), 4));
    EXPECT_EQ(2, again.get<std::int16_t>(QAR_S_REPORTCOPIES));
}

// Files of format version 1 have no checksums; the first save converts them to version 2.
INSTANTIATE_TEST_SUITE_P(Versions, GoldenFileTest, testing::Values(".", "version-2"));

}  // namespace
}  // namespace testing_support
