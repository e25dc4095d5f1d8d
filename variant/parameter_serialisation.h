// Conversion between a Variant and the value bytes of one parameter in the layout of its data type
// (parameters/data_type.h). Values are at the front of their buffer, numbers little-endian.
#ifndef PYORV3_VARIANT_PARAMETER_SERIALISATION_H
#define PYORV3_VARIANT_PARAMETER_SERIALISATION_H

#include <cstdint>

#include "module/status/status.h"
#include "parameters/byte_stream.h"
#include "variant/variant.h"

namespace Tarsel::Datasources::QAR {

// Fills `out` with `bufferSize` bytes: the value in the layout of the data type, then zeros.
// Strings are cut so that a terminating zero remains. A date is the date of the Variant, or its
// number if the Variant is a Double. A data type outside the table leaves the buffer zero.
//
// Returns 0; invalidArgument if the buffer is shorter than the layout; memoryExhausted or another
// status of reportCaught if the buffer cannot be allocated. After a failure `out` is empty.
[[nodiscard]] pyORV3::Status serializeValue(std::uint32_t type, std::uint32_t bufferSize,
                                            const com::tarsel::utility::Variant& value,
                                            Utility::ByteStream& out);

// Sets `out` to the value at the front of `in`: byte flags as Boolean, 16- and 32-bit integers as
// Uint16 and Uint32, 64-bit integers as Int64, numbers as Float or Double, strings (the bytes
// before the first zero byte or the end) as String, dates as DateTime. Unknown for a data type
// outside the table.
//
// Returns 0, or invalidArgument with `out` Unknown if `in` is shorter than the layout.
[[nodiscard]] pyORV3::Status deserializeValue(std::uint32_t type, const Utility::ByteStream& in,
                                              com::tarsel::utility::Variant& out);

}  // namespace Tarsel::Datasources::QAR

#endif
