// The analysis-sequence copy between real files of the embedded library.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "embedded/pqar/parameter_codes.h"
#include "fileaccess/file_access.h"
#include "tests/support/data_source.h"

namespace {

using namespace embedded;  // the names of the parameter codes
using com::tarsel::utility::Variant;
using Tarsel::Datasources::QAR::FileAccess;
using testing_support::DataSource;
using Chunk = std::array<char, ORV_BLOCK_CHUNK_SIZE>;
using Texts = std::vector<std::string>;

struct Setting {
    std::uint32_t code;
    std::uint16_t entry;
    const char* text;
};
using Settings = std::vector<Setting>;

void put(const DataSource& source, const Settings& settings) {
    FileAccess file(source.context());
    for (const auto& [code, entry, text] : settings) {
        Variant value;
        value = text;
        EXPECT_EQ(0U, codeOf(file.setParameter(code, value, 1, entry))) << text;
    }
}

// Every setting is there as it is listed; "unknown" stands for one that is not set.
void expect(const DataSource& source, const Settings& settings) {
    FileAccess file(source.context());
    for (const auto& [code, entry, text] : settings) {
        Variant value;
        file.getParameter(code, value, 1, entry);
        EXPECT_EQ(text, value.toString()) << code;
    }
}

// A geometry block of one chunk for each text; the block says that it has `total` bytes.
void putGeometry(const DataSource& source, std::uint32_t total, const Texts& texts) {
    EXPECT_EQ(0, OrvCreateBlock(source.context(), QAR_CLS_VORLAGEOM, 0, -1));
    for (const std::string& text : texts) {
        Chunk chunk{};
        text.copy(chunk.data() + sizeof total, text.size());
        std::memcpy(chunk.data(), &total, sizeof total);
        EXPECT_EQ(0, OrvWriteUFBlock(source.context(), QAR_CLS_VORLAGEOM, chunk.data(),
                                     chunk.size(), 0x40));
    }
}

// The text in each chunk of the geometry block.
Texts geometryOf(const DataSource& source) {
    Texts texts;
    Chunk chunk{};
    std::uint32_t count = 1;
    while (OrvReadUFBlock(source.context(), QAR_CLS_VORLAGEOM,
                          static_cast<std::uint32_t>(texts.size() * chunk.size()), chunk.data(),
                          chunk.size(), 0, &count) == 0 &&
           count != 0) {
        texts.emplace_back(chunk.data() + sizeof(std::uint32_t));
    }
    return texts;
}

class SequenceOnFiles : public testing_support::DataSourceTest {};

TEST_F(SequenceOnFiles, BringsTheSequenceAndKeepsTheOwnSettingsAlsoAfterReopening) {
    const std::string calibration = file("calibration.qar");
    {
        const DataSource referenced = DataSource::created(calibration);
        put(referenced, {{QAR_C_CALTITLE, 0, "May"}, {QAR_C_CALGEOMETRY, 0, "well"}});
        EXPECT_EQ(0U, referenced.close());
    }
    const DataSource source = DataSource::created(file("source.qar"));
    put(source, {{QAR_C_ANENGINE, 1, "search"},
                 {QAR_C_ANENGINE, 2, "identify"},
                 {QAR_D_PEAKLIMIT, 0, "4.5"},
                 {QAR_C_REPORTTITLE, 0, "Other title"},
                 {QAR_B_REPORTPRINT, 0, "0"},
                 {QAR_F_CALTEMPER, 0, "21.5"},
                 {QAR_C_CALGEOMETRY, 0, "beaker"},
                 {QAR_C_SEQUENCE, 0, "routine"},
                 {QAR_B_USECALFILE, 0, "1"},
                 {QAR_C_CALFILE, 0, calibration.c_str()}});
    const Settings expected{{QAR_C_ANENGINE, 1, "search"},   {QAR_C_ANENGINE, 2, "identify"},
                            {QAR_D_PEAKLIMIT, 0, "4.5"},     {QAR_C_REPORTTITLE, 0, "Own title"},
                            {QAR_B_REPORTPRINT, 0, "1"},     {QAR_D_REPORTLIMIT, 0, "0.5"},
                            {QAR_S_REPORTCOPIES, 0, "3"},    {QAR_C_CALTITLE, 0, "May"},
                            {QAR_C_CALGEOMETRY, 0, "well"},   // of the referenced file
                            {QAR_F_CALTEMPER, 0, "unknown"},  // its class replaces all
                            {QAR_C_SEQUENCE, 0, "routine"},  {QAR_C_ANSEQUENCE, 0, "routine"},
                            {QAR_C_OPERATOR, 0, "kept"}};
    // The block's total, its chunks, and those that arrive: also where the block breaks off.
    const std::vector<std::tuple<std::uint32_t, Texts, Texts>> geometries{
        {1024, {"detector", "sample"}, {"detector", "sample"}}, {5000, {"a", "b"}, {"a", "b", ""}}};
    for (const auto& [total, chunks, arrived] : geometries) {
        const std::string name = file(std::to_string(total));
        putGeometry(source, total, chunks);
        const DataSource destination = DataSource::created(name);
        put(destination, {{QAR_C_REPORTTITLE, 0, "Own title"},
                          {QAR_B_REPORTPRINT, 0, "1"},
                          {QAR_D_REPORTLIMIT, 0, "0.5"},
                          {QAR_S_REPORTCOPIES, 0, "3"},
                          {QAR_D_PEAKLIMIT, 0, "7"},
                          {QAR_C_OPERATOR, 0, "kept"}});
        FileAccess from(source.context());
        FileAccess to(destination.context());
        EXPECT_EQ(0U, codeOf(from.copySequenceTo(to)));
        expect(destination, expected);
        EXPECT_EQ(0U, destination.close());
        const DataSource reopened = DataSource::opened(name, testing_support::reading);
        expect(reopened, expected);
        EXPECT_EQ(arrived, geometryOf(reopened));
    }
}

}  // namespace
