// Reading and writing single values and the spectrum of a data source.
#ifndef PYORV3_EMBEDDED_ORV_CONTENT_PARAMETERS_H
#define PYORV3_EMBEDDED_ORV_CONTENT_PARAMETERS_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "embedded/orv/content/content.h"
#include "embedded/pqar/parameter_codes.h"
#include "embedded/pqar/parameter_table.h"

namespace embedded {

// The parameter with the code, or with the short name. Throw Failure(unknownParameter).
const ParameterDescription& requireParameter(std::uint32_t code);
const ParameterDescription& requireParameter(std::string_view shortName);

// The classes that reading and writing a parameter's values need, and those that the spectrum and
// the channel count need.
NeededClasses neededFor(std::uint32_t code);
inline constexpr NeededClasses neededForSpectrum{{QAR_CLS_MEASUREMENT, QAR_CLS_SPECTRUM}};

// Reads a value into the buffer, which holds at least the value; of a text, the stored characters
// and a NUL. A text's remaining characters up to its most are filled with NULs as far as the
// buffer goes. The channel count that was never written is that of the spectrum, if there is one.
// record and entry: see RecordBlock; entry 0 and 1 both name the value of a record.
// Returns codes::success, or what is in the way: notSet, noSuchRecord, noSuchEntry, sizeRefused.
std::uint32_t readParameter(const Content& content, const ParameterDescription& parameter,
                            std::size_t record, std::size_t entry, std::span<char> buffer);

// Writes a value of exactly the parameter's size; of a text, 1 to its size bytes with a NUL among
// them, which ends it. The class's block, the next record and the next entry are made as needed.
// Throws Failure: noSuchRecord, noSuchEntry, sizeRefused, blockFull.
void writeParameter(Content& content, const ParameterDescription& parameter, std::size_t record,
                    std::size_t entry, std::span<const char> value);

// Channels that the spectrum has: the channel count as it was written, else what is stored.
std::size_t channelCount(const Content& content);

// Write the spectrum up to the channel count, or beyond what is stored as far as no channel count
// was written; read it up to the channel count.
// Throw Failure: sizeRefused for channels out of range, noBlock for reading where there is neither.
void writeSpectrum(Content& content, std::size_t firstChannel,
                   std::span<const std::int32_t> channels);
void readSpectrum(const Content& content, std::size_t firstChannel,
                  std::span<std::int32_t> channels);

}  // namespace embedded

#endif
