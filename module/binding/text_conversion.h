// Conversion between Python strings and the 8-bit strings of the suite.
#ifndef PYORV3_MODULE_BINDING_TEXT_CONVERSION_H
#define PYORV3_MODULE_BINDING_TEXT_CONVERSION_H

#include <string>

#include "module/binding/python_reference.h"

namespace pyORV3 {

// Returns the str for a string in the ANSI code page. Empty, with a pending Python error, only if
// memory is exhausted.
[[nodiscard]] PythonReference textFromAnsi(const std::string& text);

// Returns the str for a UTF-8 string; a string that is not valid UTF-8 is read in the ANSI code
// page.
[[nodiscard]] PythonReference textFromUtf8(const std::string& text);

// Returns the str up to its first NUL in the ANSI code page, with the default character for
// characters outside the code page. Throws std::bad_alloc if memory is exhausted, without a pending
// Python error.
[[nodiscard]] std::string ansiFromText(PyObject* text);

}  // namespace pyORV3

#endif
