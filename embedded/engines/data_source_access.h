// The engine's access to a data source through the data-access library.
#ifndef PYORV3_EMBEDDED_ENGINES_DATA_SOURCE_ACCESS_H
#define PYORV3_EMBEDDED_ENGINES_DATA_SOURCE_ACCESS_H

#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "embedded/engines/engine.h"
#include "module/interface/orv.h"

namespace embedded::engines {

// Thrown by a step that cannot continue; the entry point returns its status.
class EngineFailure : public std::exception {
  public:
    explicit EngineFailure(std::uint32_t status) : status_(status) {}
    std::uint32_t status() const { return status_; }  // one of engine.h, not 0
    const char* what() const noexcept override { return "analysis engine failure"; }

  private:
    std::uint32_t status_;
};

// Returns the value. Throws recordUnreadable if a record lacks it.
template <typename Value>
Value required(const std::optional<Value>& value) {
    if (!value) {
        throw EngineFailure(status::recordUnreadable);
    }
    return *value;
}

// An open data source, owned by the caller of the engine. Records and entries count from 1. Throws
// EngineFailure.
class DataSourceAccess {
  public:
    // Throws dataSourceRefused if the library does not know the handle.
    explicit DataSourceAccess(OrvContext context);

    // Return one value, or nullopt if the file does not contain it.
    std::optional<std::int32_t> readLong(std::uint32_t code) const;
    std::optional<std::int16_t> readShort(std::uint32_t code) const;
    std::optional<float> readFloat(std::uint32_t code) const;
    std::optional<double> readDouble(std::uint32_t code, std::uint16_t record = 1,
                                     std::uint16_t entry = 1) const;
    std::optional<std::uint8_t> readByte(std::uint32_t code, std::uint16_t record,
                                         std::uint16_t entry = 1) const;
    std::optional<std::string> readText(std::uint32_t code, std::uint16_t record) const;

    // Returns the values of entries 1, 2, ... of record 1, up to the first missing entry.
    std::vector<double> readCoefficients(std::uint32_t code) const;

    // Return the values of entries 1, 2, ... of record 1, as many as the class has.
    std::vector<double> readLongs(std::uint32_t code) const;
    std::vector<double> readDoubles(std::uint32_t code) const;

    // Returns the contents of all channels, at least one. Throws spectrumUnreadable.
    std::vector<double> readSpectrum() const;

    // Return 0 if the file does not have the class or record.
    std::uint16_t recordCount(std::uint16_t classCode) const;
    std::uint16_t entryCount(std::uint16_t classCode, std::uint16_t record) const;

    // Throw resultsNotWritable. Writing to the record after the last one creates it.
    void deleteRecords(std::uint16_t classCode) const;
    void writeShort(std::uint32_t code, std::uint16_t record, std::uint16_t value) const;
    void writeLong(std::uint32_t code, std::uint16_t record, std::int32_t value) const;
    void writeFloat(std::uint32_t code, std::uint16_t record, float value) const;
    void writeDouble(std::uint32_t code, std::uint16_t record, double value,
                     std::uint16_t entry = 1) const;
    // Writes entries 1, 2, ... of record 1 and sets the remaining entries of a longer earlier value
    // to 0.
    void writeCoefficients(std::uint32_t code, const std::vector<double>& coefficients) const;
    void writeText(std::uint32_t code, std::uint16_t record, const std::string& value) const;

  private:
    template <typename Value>
    std::vector<double> readEntries(std::uint32_t code, std::uint32_t maxEntries) const;
    template <typename Value>
    std::optional<Value> read(std::uint32_t code, std::uint16_t record, std::uint16_t entry) const;
    void write(std::uint32_t code, std::uint16_t record, const void* value, std::uint32_t size,
               std::uint16_t entry = 1) const;

    OrvContext context_;
};

}  // namespace embedded::engines

#endif
