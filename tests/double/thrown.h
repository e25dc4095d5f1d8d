// The C++ values that a scripted answer can throw through the interface.
#ifndef PYORV3_TESTS_DOUBLE_THROWN_H
#define PYORV3_TESTS_DOUBLE_THROWN_H

#include <cstdint>
#include <string_view>

namespace recording {

// "short", "int", "long", "unsigned int", "unsigned long", "bad_alloc", "runtime_error", "text" and
// "struct".
bool isKnown(std::string_view kind);

// Throws a value of the kind; the integers carry the low bits of value.
[[noreturn]] void raise(std::string_view kind, std::int64_t value);

}  // namespace recording

#endif
