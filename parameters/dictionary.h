// Access to the parameter dictionary, the library pqar.dll, which is loaded and released for each
// lookup.
#ifndef PYORV3_PARAMETERS_DICTIONARY_H
#define PYORV3_PARAMETERS_DICTIONARY_H

#include <array>
#include <cstdint>

#include "module/status/status.h"

namespace Tarsel::Datasources::QAR {

// Description of one parameter in the dictionary. Outputs without a known meaning are named after
// their position in the arguments.
struct ParameterInfo {
    static constexpr std::size_t textSize = 256;

    std::array<char, textSize> name{};         // NUL-terminated
    std::array<char, textSize> description{};  // NUL-terminated
    std::uint32_t output6 = 0;
    std::uint32_t output7 = 0;
    std::uint32_t length = 0;  // characters of a string, without the terminator
    std::uint32_t type = 0;    // data type code
    std::uint32_t size = 0;    // value size in bytes
    std::uint32_t output11 = 0;
    std::uint32_t output12 = 0;
};

// Looks up the description of a parameter code. Returns 0, the failure status of the dictionary
// (parameterUnknown if it returns 0), or the error number of the operating system (126 for a
// missing library, 127 for a missing entry point).
[[nodiscard]] pyORV3::Status getParameterInfo(std::uint32_t code, ParameterInfo& info);

// Looks up the code of a parameter name, an 8-bit string. Returns as getParameterInfo.
[[nodiscard]] pyORV3::Status parameterNameToCode(const char* name, std::uint32_t& code);

}  // namespace Tarsel::Datasources::QAR

#endif
