// Parses arguments with the formats of the method table, checked against the types of the output
// variables at compile time.
//
// Format units: l and i are a signed 32-bit integer on every platform, f a single-precision number,
// d a double-precision number, L a signed 64-bit integer, I the low 32 bits of an int of any size,
// s a NUL-terminated UTF-8 string owned by the argument object, O any object, borrowed. Units in
// parentheses are the items of a tuple of exactly this length.
#ifndef PYORV3_MODULE_BINDING_ARGUMENT_FORMAT_H
#define PYORV3_MODULE_BINDING_ARGUMENT_FORMAT_H

#include <algorithm>
#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>

#include "module/binding/python_reference.h"

namespace pyORV3 {

// A string as a template argument.
template <std::size_t size>
struct FixedText {
    // NOLINTNEXTLINE(google-explicit-constructor): allows a string literal as template argument
    consteval FixedText(const char (&literal)[size]) { std::copy_n(literal, size, text.begin()); }

    [[nodiscard]] constexpr std::string_view view() const { return {text.data(), size - 1}; }

    std::array<char, size> text{};
};

namespace detail {

// True if a variable of type Output can receive the values of the format unit.
template <typename Output>
constexpr bool receives(char unit) {
    switch (unit) {
        case 'l':
        case 'i':
            return std::same_as<Output, std::int32_t>;
        case 'L':
            return std::same_as<Output, long long>;
        case 'I':
            return std::same_as<Output, unsigned int>;
        case 'f':
            return std::same_as<Output, float>;
        case 'd':
            return std::same_as<Output, double>;
        case 's':
            return std::same_as<Output, const char*>;
        case 'O':
            return std::same_as<Output, PyObject*>;
        default:
            return false;
    }
}

constexpr std::string_view unitsOf(std::string_view format) {
    return format.starts_with('(') && format.ends_with(')') ? format.substr(1, format.size() - 2)
                                                            : format;
}

template <typename... Outputs>
constexpr bool formatMatches(std::string_view format) {
    const std::string_view units = unitsOf(format);
    std::size_t next = 0;
    return units.size() == sizeof...(Outputs) && (receives<Outputs>(units[next++]) && ...);
}

// Returns the format for the parser of this platform: the C type long has 64 bits on some
// platforms, int 32 bits on all, so the unit l is parsed as i.
template <FixedText format>
consteval auto portableFormat() {
    static_assert(std::numeric_limits<int>::digits == 31);
    auto portable = format.text;
    std::ranges::replace(portable, 'l', 'i');
    return portable;
}

// Reads a plain int in the 32-bit range. Returns false, without a pending error, for other objects.
inline bool readPlainInteger(PyObject* object, std::int32_t& integer) {
    if (object == nullptr || Py_TYPE(object) != &PyLong_Type) {
        return false;
    }
    const long value = PyLong_AsLong(object);
    if (value == -1 && PyErr_Occurred() != nullptr) {
        PyErr_Clear();
        return false;
    }
    integer = static_cast<std::int32_t>(value);
    return integer == value;
}

// Fast path for a tuple of plain ints, without interpretation of the format. Returns false for
// other arguments, which the parser then handles.
template <typename... Outputs>
bool readPlainIntegers(PyObject* arguments, Outputs&... outputs) {
    if constexpr (sizeof...(Outputs) > 0 && (std::same_as<Outputs, std::int32_t> && ...)) {
        Py_ssize_t next = 0;
        return PyTuple_Size(arguments) == sizeof...(Outputs) &&
               (readPlainInteger(PyTuple_GetItem(arguments, next++), outputs) && ...);
    } else {
        return false;
    }
}

}  // namespace detail

// Parses one object, not wrapped in a tuple, with a format of one unit. Returns false, without a
// pending Python error, if it does not match.
template <FixedText format, typename Output>
[[nodiscard]] bool parseObject(PyObject* object, Output& output) {
    static_assert(detail::formatMatches<Output>(format.view()));
    static constexpr auto portable = detail::portableFormat<format>();
    if (PyArg_Parse(object, portable.data(), &output) == 0) {
        PyErr_Clear();
        return false;
    }
    return true;
}

// Parses an argument tuple with a format in parentheses. Returns false, without a pending Python
// error, if it does not match; the outputs are undefined then.
template <FixedText format, typename... Outputs>
[[nodiscard]] bool parseArguments(PyObject* arguments, Outputs&... outputs) {
    static_assert(format.view().starts_with('(') && format.view().ends_with(')'));
    static_assert(detail::formatMatches<Outputs...>(format.view()),
                  "the format's units do not match the types of the method's parameters");
    static constexpr auto portable = detail::portableFormat<format>();
    if (detail::readPlainIntegers(arguments, outputs...)) {
        return true;
    }
    if (PyArg_Parse(arguments, portable.data(), &outputs...) == 0) {
        PyErr_Clear();
        return false;
    }
    return true;
}

}  // namespace pyORV3

#endif
