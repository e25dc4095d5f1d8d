// The lines of the Registry Editor's export format that give a key its values.
#ifndef PYORV3_PLATFORM_POSIX_REGISTRY_LINE_H
#define PYORV3_PLATFORM_POSIX_REGISTRY_LINE_H

#include <optional>
#include <string>
#include <string_view>

#include "platform/posix/types.h"

namespace platform {

// name: in the ANSI code page, empty for the default value of a key. data: its bytes as the ANSI
// functions of Windows give them, so a text is in the ANSI code page, with its NUL.
struct RegistryValue {
    std::string name;
    DWORD type = 0;
    std::string data;
};

// How an export writes the bytes of a text that it writes as numbers.
enum class TextData { ansi, utf16 };

// deleted: the line takes the value away from its key.
struct RegistryLine {
    bool deleted = false;
    RegistryValue value;
};

// Reads one of
//   "name"="text"     a text; \\ and \" stand for \ and "
//   "name"=dword:n    a number of up to 8 hexadecimal digits
//   "name"=hex:b,b    bytes of two hexadecimal digits
//   "name"=hex(n):b,b bytes of a value of type n
//   "name"=-          no value any more
// where @ in the place of "name" is the default value, and a comment may follow after a ";". None
// where the line is none of these.
std::optional<RegistryLine> parseRegistryLine(std::string_view line, TextData textData);

// Whether the line writes its data as bytes, which go on in the next line after a "\".
bool isHexadecimalLine(std::string_view line);

}  // namespace platform

#endif
