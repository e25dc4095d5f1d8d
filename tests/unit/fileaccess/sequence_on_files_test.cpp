// The analysis-sequence copy between real files of the embedded library.
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "embedded/pqar/parameter_codes.h"
#include "fileaccess/file_access.h"
#include "fileaccess/library_wrappers.h"
#include "fileaccess/parameter_metadata.h"
#include "tests/support/process_fixture.h"
#include "tests/support/status_code.h"

namespace {

using namespace embedded;  // the names of the parameter codes
using com::tarsel::utility::Variant;
using Tarsel::Datasources::QAR::FileAccess;
using Chunk = std::array<char, ORV_BLOCK_CHUNK_SIZE>;

constexpr std::uint32_t creation = 0x400;
constexpr std::uint32_t reading = 0x80;

struct Setting {
    std::uint32_t code;
    std::uint16_t entry;
    const char* text;
};

/// A file that is open for the life of the object.
struct OpenFile {
    OpenFile(const std::string& path, std::uint32_t mode) {
        EXPECT_EQ(Tarsel::Datasources::QAR::createContext(handle, 0, 0), 0U);
        const OrvResult result =
            mode == creation ? OrvFileCreation(handle, path.c_str(), 1, 0xFFFF, 1, 0x8000)
                             : OrvDataSourceOpening(handle, path.c_str(), 1, mode, 0, nullptr);
        EXPECT_EQ(result, 0) << path;
    }
    ~OpenFile() { EXPECT_EQ(Tarsel::Datasources::QAR::closeDataSource(handle, 0), 0U); }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    void put(const std::vector<Setting>& settings) const {
        FileAccess file(handle);
        for (const Setting& setting : settings) {
            Variant value;
            value = setting.text;
            EXPECT_EQ(file.setParameter(setting.code, value, 1, setting.entry), 0U) << setting.text;
        }
    }

    /// Every setting is there as it is listed; a null text stands for one that is not set.
    void expect(const std::vector<Setting>& settings) const {
        FileAccess file(handle);
        for (const auto& [code, entry, text] : settings) {
            SCOPED_TRACE(code);
            Variant value;
            EXPECT_EQ(file.getParameter(code, value, 1, entry) == 0, text != nullptr);
            EXPECT_EQ(value.toString(), text != nullptr ? text : "unknown");
        }
    }

    /// A geometry block of one chunk for each text; the block says that it has `total` bytes.
    void putGeometry(std::uint32_t total, const std::vector<std::string>& texts) const {
        EXPECT_EQ(OrvCreateBlock(handle, QAR_CLS_VORLAGEOM, 0, -1), 0);
        for (const std::string& text : texts) {
            Chunk chunk{};
            std::memcpy(chunk.data() + sizeof total, text.data(), text.size());
            std::memcpy(chunk.data(), &total, sizeof total);
            EXPECT_EQ(OrvWriteUFBlock(handle, QAR_CLS_VORLAGEOM, chunk.data(), chunk.size(), 0x40),
                      0);
        }
    }

    /// The text in each chunk of the geometry block.
    [[nodiscard]] std::vector<std::string> geometry() const {
        std::vector<std::string> texts;
        std::uint32_t count = 1;
        for (std::uint32_t offset = 0;; offset += ORV_BLOCK_CHUNK_SIZE) {
            Chunk chunk{};
            if (OrvReadUFBlock(handle, QAR_CLS_VORLAGEOM, offset, chunk.data(), chunk.size(), 0,
                               &count) != 0 ||
                count == 0) {
                return texts;
            }
            texts.emplace_back(chunk.data() + sizeof(std::uint32_t));
        }
    }

    OrvContext handle = 0;
};

class SequenceOnFiles : public ProcessFixture {
  protected:
    [[nodiscard]] std::string path(const char* name) const { return folder() / name; }

    [[nodiscard]] static pyORV3::Status copy(const OpenFile& source, const OpenFile& destination) {
        Tarsel::Datasources::QAR::FileAccess from(source.handle);
        Tarsel::Datasources::QAR::FileAccess to(destination.handle);
        return from.copySequenceTo(to);
    }

    const std::vector<Setting> ownSettings_{{QAR_C_REPORTTITLE, 0, "Own title"},
                                            {QAR_B_REPORTPRINT, 0, "1"},
                                            {QAR_D_REPORTLIMIT, 0, "0.5"},
                                            {QAR_S_REPORTCOPIES, 0, "3"}};
    const std::vector<Setting> sequence_{{QAR_C_ANENGINE, 1, "search"},
                                         {QAR_C_ANENGINE, 2, "identify"},
                                         {QAR_D_PEAKLIMIT, 0, "4.5"},
                                         {QAR_L_LASTCHAN, 0, "4096"}};
};

TEST_F(SequenceOnFiles, bringsTheSequenceAndKeepsTheOwnSettingsAlsoAfterReopening) {
    const std::string calibration = path("calibration.qar");
    OpenFile(calibration, creation)
        .put({{QAR_C_CALTITLE, 0, "May"}, {QAR_C_CALGEOMETRY, 0, "well"}});
    const OpenFile source(path("source.qar"), creation);
    source.put(sequence_);
    source.put({{QAR_C_REPORTTITLE, 0, "Other title"},
                {QAR_B_REPORTPRINT, 0, "0"},
                {QAR_D_REPORTLIMIT, 0, "7"},
                {QAR_F_CALTEMPER, 0, "21.5"},
                {QAR_C_CALGEOMETRY, 0, "beaker"},
                {QAR_C_SEQUENCE, 0, "routine"},
                {QAR_B_USECALFILE, 0, "1"},
                {QAR_C_CALFILE, 0, calibration.c_str()}});
    source.putGeometry(1024, {"detector", "sample"});

    std::vector<Setting> expected = sequence_;
    expected.insert(expected.end(), ownSettings_.begin(), ownSettings_.end());
    expected.insert(expected.end(), {{QAR_C_CALTITLE, 0, "May"},
                                     {QAR_C_CALGEOMETRY, 0, "well"},  // of the referenced file
                                     {QAR_F_CALTEMPER, 0, nullptr},   // its class replaces all
                                     {QAR_C_SEQUENCE, 0, "routine"},
                                     {QAR_C_ANSEQUENCE, 0, "routine"},
                                     {QAR_C_OPERATOR, 0, "kept"}});
    const std::vector<std::string> geometry{"detector", "sample"};
    {
        const OpenFile destination(path("destination.qar"), creation);
        destination.put(ownSettings_);
        destination.put({{QAR_L_LASTCHAN, 0, "12"}, {QAR_C_OPERATOR, 0, "kept"}});
        EXPECT_EQ(copy(source, destination), 0U);
        destination.expect(expected);
        EXPECT_EQ(destination.geometry(), geometry);
    }
    const OpenFile reopened(path("destination.qar"), reading);
    reopened.expect(expected);
    EXPECT_EQ(reopened.geometry(), geometry);
}

TEST_F(SequenceOnFiles, leavesAFileThatOpensWhereTheGeometryBreaksOff) {
    const OpenFile source(path("source.qar"), creation);
    source.put(sequence_);
    source.putGeometry(5000, {"detector"});  // says more than it has
    {
        const OpenFile destination(path("destination.qar"), creation);
        destination.put(ownSettings_);
        EXPECT_EQ(copy(source, destination), 0U);
    }
    const OpenFile reopened(path("destination.qar"), reading);
    reopened.expect(sequence_);
    reopened.expect(ownSettings_);
    EXPECT_EQ(reopened.geometry().front(), "detector");
}

TEST_F(SequenceOnFiles, theSuiteEnvironmentIsLoadedBeforeTheObjectLayerMakesAContext) {
    const std::string registry =
        write("registry.reg",
              "REGEDIT4\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarsel\\Orsova Environment]\n"
              "\"PYORV3_TEST\"=\"loaded\"\n");
    setenv("ORSOVA_REGISTRY", registry.c_str(), 1);
    const std::vector<void (*)()> uses{
        [] { const FileAccess empty; }, [] { const FileAccess attached(1); },
        [] { static_cast<void>(Tarsel::Datasources::QAR::describeParameterCode(5)); }};
    for (const auto use : uses) {
        unsetenv("OSVENV");
        unsetenv("PYORV3_TEST");
        use();
        EXPECT_STREQ(std::getenv("PYORV3_TEST"), "loaded");
    }
}

}  // namespace
