// The statuses of the dictionary's entry points. Bit 0 set means success.
#ifndef PYORV3_EMBEDDED_PQAR_DICTIONARY_STATUS_H
#define PYORV3_EMBEDDED_PQAR_DICTIONARY_STATUS_H

#include <cstdint>

namespace embedded {

inline constexpr std::uint32_t dictionarySuccess = 0x00000001;
inline constexpr std::uint32_t dictionaryUnknownParameter = 0x00008180;  // no such code or name
inline constexpr std::uint32_t dictionaryNameTooLong = 0x00008182;       // name over 55 characters
inline constexpr std::uint32_t dictionaryNullPointer = 0x00008184;       // an argument is null
inline constexpr std::uint32_t dictionaryExtensionUnusable =
    0x00008186;  // not in the table, and the extension that the environment names is of no use

}  // namespace embedded

#endif
