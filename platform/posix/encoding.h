// Texts in the encodings that the system's iconv knows.
#ifndef PYORV3_PLATFORM_POSIX_ENCODING_H
#define PYORV3_PLATFORM_POSIX_ENCODING_H

#include <optional>
#include <string>
#include <string_view>

namespace platform {

// The bytes in the encoding (an iconv name) as wide text, one wide character for each code point.
// None where the bytes are not in it. Throws std::system_error where the system does not know the
// encoding.
std::optional<std::wstring> wideFromBytes(const char* encoding, std::string_view bytes);

}  // namespace platform

#endif
