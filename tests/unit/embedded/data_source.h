// What the tests of the embedded library share: a folder of their own and open data sources.
#ifndef PYORV3_TESTS_UNIT_EMBEDDED_DATA_SOURCE_H
#define PYORV3_TESTS_UNIT_EMBEDDED_DATA_SOURCE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "embedded/orv/codes.h"
#include "embedded/pqar/parameter_codes.h"
#include "module/orv.h"

namespace testing_support {

// A folder that goes with the object.
class TemporaryFolder {
  public:
    TemporaryFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "embedded-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("no temporary folder");
        }
        path_ = name;
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    TemporaryFolder(TemporaryFolder&&) = delete;
    TemporaryFolder& operator=(TemporaryFolder&&) = delete;

    [[nodiscard]] std::string file(const std::string& name) const {
        return (path_ / name).string();
    }
    [[nodiscard]] std::size_t fileCount() const {
        return static_cast<std::size_t>(
            std::distance(std::filesystem::directory_iterator(path_), {}));
    }

  private:
    std::filesystem::path path_;
};

enum Access : std::uint32_t { Reading = 0x1, Writing = 0x3 };

// A context that is deleted with the object, and what tests do with it.
class DataSource {
  public:
    DataSource() { EXPECT_EQ(0U, SOrvCreateDSC2(nullptr, &context_, 0, 0)); }
    ~DataSource() { SOrvDeleteDSC(context_); }
    DataSource(DataSource&& other) noexcept : context_(std::exchange(other.context_, 0)) {}
    DataSource(const DataSource&) = delete;
    DataSource& operator=(const DataSource&) = delete;
    DataSource& operator=(DataSource&&) = delete;

    static DataSource created(const std::string& path) {
        DataSource source;
        EXPECT_EQ(0U, source.create(path));
        return source;
    }
    static DataSource opened(const std::string& path, Access access) {
        DataSource source;
        EXPECT_EQ(0U, source.open(path, access));
        return source;
    }

    [[nodiscard]] OrvContext context() const { return context_; }
    [[nodiscard]] OrvStatus create(const std::string& path) const {
        return SOrvCreateFile(context_, path.c_str(), 1, 65535, 1, 32768);
    }
    [[nodiscard]] OrvStatus open(const std::string& path, std::uint32_t access,
                                 std::uint16_t sourceType = 1) const {
        return SOrvOpenDataSource(context_, path.c_str(), sourceType, access, 0, nullptr);
    }
    [[nodiscard]] OrvStatus close() const { return SOrvCloseDataSource(context_); }
    [[nodiscard]] std::uint32_t lastFailure() const {
        std::uint32_t code = 0;
        std::uint32_t unused = 0;
        EXPECT_EQ(0, OrvErrorQuery(context_, &code, &unused, &unused));
        return code;
    }
    [[nodiscard]] std::uint32_t openingState() const {
        std::vector<std::uint32_t> buffer(ORV_STATE_BUFFER_SIZE / sizeof(std::uint32_t));
        EXPECT_EQ(0U, SOrvQueryDSC(context_, 3, buffer.data()));
        return buffer[0];
    }
    [[nodiscard]] std::uint32_t sourceState() const {
        std::uint32_t word = 0;
        EXPECT_EQ(0U, SOrvQueryDataSource(context_, 1, &word));
        return word;
    }

    template <typename Number>
    [[nodiscard]] OrvStatus put(std::uint32_t code, Number value, std::int32_t record = 1,
                                std::int32_t entry = 0) const {
        return SOrvPutParam(context_, code, record, entry, &value, sizeof value);
    }
    [[nodiscard]] OrvStatus putText(std::uint32_t code, const std::string& text,
                                    std::int32_t record = 1, std::int32_t entry = 0) const {
        return SOrvPutParam(context_, code, record, entry, text.c_str(),
                            static_cast<std::uint32_t>(text.size() + 1));
    }
    // The value; the status of a reading that fails is reported as the test's failure.
    template <typename Number>
    [[nodiscard]] Number get(std::uint32_t code, std::uint16_t record = 1,
                             std::uint16_t entry = 0) const {
        Number value{};
        EXPECT_EQ(0U, SOrvGetParam(context_, code, record, entry, &value, sizeof value))
            << std::hex << code;
        return value;
    }
    [[nodiscard]] std::string getText(std::uint32_t code, std::uint16_t record = 1,
                                      std::uint16_t entry = 0) const {
        std::string buffer(256, '?');
        EXPECT_EQ(0U, SOrvGetParam(context_, code, record, entry, buffer.data(), 256));
        return buffer.substr(0, buffer.find('\0'));
    }
    // The status of reading a number of 8 bytes.
    [[nodiscard]] OrvStatus readStatus(std::uint32_t code, std::uint16_t record = 1,
                                       std::uint16_t entry = 0) const {
        double value = 0;
        return SOrvGetParam(context_, code, record, entry, &value, sizeof value);
    }

    [[nodiscard]] OrvStatus putSpectrum(const std::vector<std::int32_t>& channels) const {
        for (std::size_t first = 0; first < channels.size(); first += 256) {
            const std::size_t count = std::min<std::size_t>(256, channels.size() - first);
            const OrvStatus status =
                SOrvPutSpectrum(context_, static_cast<std::uint16_t>(first + 1),
                                static_cast<std::uint16_t>(count), &channels[first]);
            if (status != 0) {
                return status;
            }
        }
        return 0;
    }
    [[nodiscard]] std::vector<std::int32_t> getSpectrum() const {
        std::vector<std::int32_t> channels(
            static_cast<std::size_t>(get<std::int32_t>(embedded::QAR_L_CHANNELS)), -1);
        EXPECT_EQ(0U, SOrvGetSpectrum(context_, 1, static_cast<std::uint16_t>(channels.size()), 0,
                                      channels.data()));
        return channels;
    }

    [[nodiscard]] int recordCount(std::uint16_t classCode) const {
        std::uint16_t count = 0;
        return SOrvClassCount(context_, classCode, &count) == 0 ? count : -1;
    }
    [[nodiscard]] int entryCount(std::uint16_t classCode, std::uint16_t record) const {
        std::uint16_t count = 0;
        return SOrvEntryCount(context_, classCode, record, &count) == 0 ? count : -1;
    }

    // A nuclide record with its lines.
    void putNuclide(std::int32_t record, const std::string& name,
                    const std::vector<double>& lines) const {
        ASSERT_EQ(0U, putText(embedded::QAR_C_NUCLNAME, name, record));
        std::int32_t entry = 0;
        for (const double energy : lines) {
            ASSERT_EQ(0U, put(embedded::QAR_D_LINEENERGY, energy, record, ++entry));
        }
    }

  private:
    OrvContext context_ = 0;
};

}  // namespace testing_support

#endif
