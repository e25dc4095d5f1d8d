// Numbers in text: how a text value becomes a number. Independent of the locale of the process,
// which a script may change.
#ifndef PYORV3_VARIANT_TEXT_NUMBER_H
#define PYORV3_VARIANT_TEXT_NUMBER_H

#include <cstdint>
#include <string_view>

namespace com::tarsel::utility {

// Each function skips leading white space and reads the longest prefix that forms a number; a text
// without one gives zero.

// An optional sign and decimal digits. Beyond 64 bits the nearest 64-bit number.
[[nodiscard]] std::int64_t integerIn(std::u16string_view text);

// A decimal floating-point number, as std::wcstod reads it. Beyond the range of a double
// infinity, below it 0, both with their sign.
[[nodiscard]] double floatingNumberIn(std::u16string_view text);

// T, t, Y, y are true and F, f, N, n false where the text begins with one of them; any other
// text is true when its integer is not zero.
[[nodiscard]] bool flagIn(std::u16string_view text);

}  // namespace com::tarsel::utility

#endif
