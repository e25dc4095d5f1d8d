// Texts between Python and the 8-bit world of the suite.
#ifndef PYORV3_MODULE_BINDING_TEXT_CONVERSION_H
#define PYORV3_MODULE_BINDING_TEXT_CONVERSION_H

#include <string>

#include "module/binding/python_reference.h"

namespace pyORV3 {

// A str of a text in the system's ANSI code page. Empty, with Python's error pending, only when
// memory is exhausted.
[[nodiscard]] PythonReference textFromAnsi(const std::string& text);

// A str of a UTF-8 text; a text that is none is read in the ANSI code page instead.
[[nodiscard]] PythonReference textFromUtf8(const std::string& text);

// The str up to its first NUL in the ANSI code page; what the code page does not hold becomes its
// default character. Exhausted memory is std::bad_alloc, without a pending Python error.
[[nodiscard]] std::string ansiFromText(PyObject* text);

}  // namespace pyORV3

#endif
