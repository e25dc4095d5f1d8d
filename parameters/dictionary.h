// Access to the parameter dictionary, the library pqar.dll, which is loaded for each lookup and
// released after it.
#ifndef PYORV3_PARAMETERS_DICTIONARY_H
#define PYORV3_PARAMETERS_DICTIONARY_H

#include <array>
#include <cstdint>

#include "module/status/status.h"

namespace Tarsel::Datasources::QAR {

// What the dictionary reports of one parameter. The numbered outputs are called after their
// position among the lookup's arguments; nothing in the module interprets them.
struct ParameterInfo {
    static constexpr std::size_t textSize = 256;

    std::array<char, textSize> name{};         // NUL-terminated
    std::array<char, textSize> description{};  // NUL-terminated
    std::uint32_t output6 = 0;
    std::uint32_t output7 = 0;
    std::uint32_t length = 0;  // characters of a text, without the terminator
    std::uint32_t type = 0;    // data type code
    std::uint32_t size = 0;    // value size in bytes
    std::uint32_t output11 = 0;
    std::uint32_t output12 = 0;
};

// Asks for the description of a parameter code. Returns 0, the dictionary's own failure status
// (parameterUnknown where it gives none), or the operating system's error number (126 for a
// library, 127 for an entry point that is missing).
[[nodiscard]] pyORV3::Status getParameterInfo(std::uint32_t code, ParameterInfo& info);

// Asks for the code of a parameter name, an 8-bit text. Returns as getParameterInfo.
[[nodiscard]] pyORV3::Status parameterNameToCode(const char* name, std::uint32_t& code);

}  // namespace Tarsel::Datasources::QAR

#endif
