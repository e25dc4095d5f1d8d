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

// Return the parameter with the code or short name. Throw Failure(unknownParameter).
const ParameterDescription& requireParameter(std::uint32_t code);
const ParameterDescription& requireParameter(std::string_view shortName);

// Returns the classes that must be loaded to read or write values of a parameter.
NeededClasses neededFor(std::uint32_t code);
// The classes that must be loaded to read or write the spectrum and the channel count.
inline constexpr NeededClasses neededForSpectrum{{QAR_CLS_MEASUREMENT, QAR_CLS_SPECTRUM}};

// Reads a value into the buffer, which must have room for it; for a string, for the stored
// characters and a NUL. The rest of a string, up to its maximum size, is filled with NULs if the
// buffer has room. A channel count that was never written is that of the spectrum. record and
// entry: see RecordBlock; entries 0 and 1 both mean the value of a record. Returns codes::success,
// notSet, noSuchRecord, noSuchEntry or sizeRefused.
std::uint32_t readParameter(const Content& content, const ParameterDescription& parameter,
                            std::size_t record, std::size_t entry, std::span<char> buffer);

// Writes a value of exactly the parameter's size; a string has 1 to that many bytes and ends at its
// first NUL. Creates the block, the next record and the next entry if necessary.
// Throws Failure: noSuchRecord, noSuchEntry, sizeRefused, blockFull.
void writeParameter(Content& content, const ParameterDescription& parameter, std::size_t record,
                    std::size_t entry, std::span<const char> value);

// Returns the channel count that was written, otherwise the number of stored channels.
std::size_t channelCount(const Content& content);

// Write and read channels up to the channel count. Without a written channel count, writing extends
// the stored spectrum. Throw Failure: sizeRefused if the channels are out of range; reading also
// noBlock if there is neither a spectrum nor a channel count.
void writeSpectrum(Content& content, std::size_t firstChannel,
                   std::span<const std::int32_t> channels);
void readSpectrum(const Content& content, std::size_t firstChannel,
                  std::span<std::int32_t> channels);

}  // namespace embedded

#endif
