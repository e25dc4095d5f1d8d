// Methods that read or write the value of one parameter or return its description.
//
// The dictionary defines the data type of a code: 2 and 6 bool, 3 and 7 int 0 to 65535, 8 and 9
// int, 10, 27 and 192 float, 14 and 24 str, 35 str with an ISO 8601 date in UTC.
#ifndef PYORV3_PARAMETERS_PARAMETER_METHODS_H
#define PYORV3_PARAMETERS_PARAMETER_METHODS_H

#include <cstdint>

#include "module/binding/outcome.h"
#include "module/binding/python_reference.h"

namespace pyORV3 {

// Returns the value of a parameter. Record and entry are passed to the library modulo 65536. A code
// that the dictionary refuses becomes unknownException, through a thrown long.
Outcome getParameter(std::int32_t handle, std::int32_t code, std::int32_t record,
                     std::int32_t entry, PythonReference& value);

// Writes the value of a parameter. Of an int, the low bytes of its type are stored; a value of the
// wrong kind gives badArguments before the library is called.
Outcome setParameter(std::int32_t handle, std::int32_t code, PyObject* value, std::int32_t record,
                     std::int32_t entry);

// Returns the tuple (name, description, code, class code, type name) of the parameter with the name
// or, if it is empty, the code. The type name is "byte", "short", "long", "longlong", "float",
// "str", "double" or "Date", or empty for an unknown data type. A name that is not in the
// dictionary is looked up in the environment variables of the process and the suite: (name, value,
// 0, 0, "str"). badArguments if there is none. handle is not used.
Outcome getParameterMetaData(std::int32_t handle, std::int32_t code, const char* name,
                             PythonReference& metadata);

}  // namespace pyORV3

#endif
