// The parameter dictionary: what every parameter of a gamma spectrum file is.
//
// The dictionary library answers scripts from this table and the data-access library checks and
// stores values by it, so that the two never disagree. The table is constant; every function here
// may be called from any thread.
#ifndef PYORV3_EMBEDDED_PQAR_PARAMETER_TABLE_H
#define PYORV3_EMBEDDED_PQAR_PARAMETER_TABLE_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace embedded {

// The statuses of the dictionary's entry points. Bit 0 set means success.
inline constexpr std::uint32_t dictionarySuccess = 0x00000001;
inline constexpr std::uint32_t dictionaryUnknownParameter = 0x00008180;  // no such code or name
inline constexpr std::uint32_t dictionaryNameTooLong = 0x00008182;       // name over 55 characters
inline constexpr std::uint32_t dictionaryNullPointer = 0x00008184;       // an argument is null
inline constexpr std::uint32_t dictionaryExtensionUnusable =
    0x00008186;  // not in the table, and the extension that the environment names is of no use

// The layout of a value's bytes; numbers are little-endian. The numbers are the format's.
enum class DataType : std::uint16_t {
    Byte = 2,
    Short = 3,
    Flag = 6,           // laid out as Byte
    UnsignedShort = 7,  // laid out as Short
    Long = 8,
    LongLong = 9,
    Float = 10,
    Text = 14,
    FixedText = 24,  // laid out as Text
    Double = 27,
    Date = 35,      // a double: seconds since 1858-11-17 00:00:00 UTC
    Measure = 192,  // laid out as Double
};

// Where a parameter's values stand: one in each record, or one in each entry of a record.
enum class ParameterScope : std::uint8_t { Record, Entry };

struct ParameterDescription {
    std::uint32_t code;
    std::string_view name;  // "QAR_", the letter of the type, "_" and at most 12 characters
    DataType type;
    std::uint16_t textLength;  // of a text: its most characters, without the NUL; otherwise 0
    ParameterScope scope;
    std::string_view description;  // English, at most 255 ASCII characters

    // Bytes of a value; of a text, of the longest one with its NUL.
    [[nodiscard]] std::uint16_t size() const;
    [[nodiscard]] bool isText() const;
    [[nodiscard]] std::uint16_t classCode() const;
    // The name without "QAR_", type letter and "_": at most 12 characters.
    [[nodiscard]] std::string_view shortName() const;
};

inline constexpr std::size_t parameterNamePrefixLength = 6;  // "QAR_L_"
inline constexpr std::size_t longestShortName = 12;
inline constexpr std::size_t longestParameterName = parameterNamePrefixLength + longestShortName;

// All parameters, ascending by code.
std::span<const ParameterDescription> allParameters();

// The parameter with the code, the name or the short name, or null: of the table, else of the
// extension that the environment names (dictionary_extension.h). Names are compared without regard
// to case; where two parameters share a short name, the lower code is found.
const ParameterDescription* findParameter(std::uint32_t code);
const ParameterDescription* findParameter(std::string_view name);
const ParameterDescription* findParameterByShortName(std::string_view shortName);

// Whether parameters of this class exist.
bool isFormattedClass(std::uint16_t classCode);

}  // namespace embedded

#endif
