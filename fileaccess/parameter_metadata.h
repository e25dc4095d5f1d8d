// ParameterMetadata: the description of one parameter in the data source.
#ifndef PYORV3_FILEACCESS_PARAMETER_METADATA_H
#define PYORV3_FILEACCESS_PARAMETER_METADATA_H

#include <array>
#include <cstdint>
#include <string>

#include "module/interface/orv.h"
#include "module/status/status.h"
#include "parameters/byte_stream.h"
#include "variant/variant.h"

namespace Tarsel::Datasources::QAR {

// Exists for one operation. Empty (type and sizes 0) until a lookup succeeds.
class ParameterMetadata {
  public:
    // context: used for lookups and owned by the caller; 0 makes each lookup create a temporary
    // context.
    explicit ParameterMetadata(OrvContext handle) noexcept : handle_(handle) {}

    // Looks up the description of the parameter code.
    //
    // Returns 0; the 16-bit result of a failed query, zero-extended, with the former description
    // unchanged; or parameterUnknown if the data source reports the size 0. With a temporary
    // context the results are reduced to 16 bits and sign-extended, and a context that cannot be
    // created gives 0 with an empty description.
    [[nodiscard]] pyORV3::Status lookup(std::uint32_t code);

    // Bytes of the value; for a text its length and a terminator.
    [[nodiscard]] std::uint32_t valueSize() const noexcept;

    // Writes the value as `valueSize` bytes in the layout of the type; see serializeValue.
    [[nodiscard]] pyORV3::Status serialize(const com::tarsel::utility::Variant& value,
                                           Utility::ByteStream& out) const;

    // Reads the value from bytes in the layout of the type; see deserializeValue.
    [[nodiscard]] pyORV3::Status deserialize(const Utility::ByteStream& in,
                                             com::tarsel::utility::Variant& out) const;

    // The parameter's name, at most 12 characters.
    [[nodiscard]] std::string name() const { return name_.data(); }

  private:
    [[nodiscard]] OrvResult lookupThroughTemporaryContext();
    [[nodiscard]] pyORV3::Status queryDescription(OrvContext context);

    OrvContext handle_;
    std::uint32_t code_ = 0;
    std::uint32_t type_ = 0;    // data type code
    std::uint32_t size_ = 0;    // bytes, as the data source reports them
    std::uint32_t length_ = 0;  // of a text, without its terminator
    std::array<char, 56> name_{};
};

// Returns the name of the parameter for a diagnostic message, from a temporary context, or its code
// in hexadecimal (at least two digits) if the lookup fails.
[[nodiscard]] std::string describeParameterCode(std::uint32_t code);

}  // namespace Tarsel::Datasources::QAR

#endif
