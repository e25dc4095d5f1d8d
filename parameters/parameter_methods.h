// The methods that read and write the value of one parameter, and tell what the dictionary knows of
// it.
//
// A value travels with the data type that the parameter dictionary gives for the code:
// 2 and 6 bool, 3 and 7 int 0 to 65535, 8 and 9 int, 10, 27 and 192 float, 14 and 24 str,
// 35 str holding an ISO 8601 date text in UTC.
#ifndef PYORV3_PARAMETERS_PARAMETER_METHODS_H
#define PYORV3_PARAMETERS_PARAMETER_METHODS_H

#include <cstdint>

#include "module/binding/outcome.h"
#include "module/binding/python_reference.h"

namespace pyORV3 {

// Gives the value of a parameter. Record and entry go to the library modulo 65536. A code that
// the dictionary refuses ends, by way of a thrown long, as unknownException.
Outcome getParameter(std::int32_t handle, std::int32_t code, std::int32_t record,
                     std::int32_t entry, PythonReference& value);

// Writes the value of a parameter. An int is stored with the low bytes that its type holds; a
// value of the wrong kind gives badArguments before the library is called.
Outcome setParameter(std::int32_t handle, std::int32_t code, PyObject* value, std::int32_t record,
                     std::int32_t entry);

// Gives the tuple (name, description, code, class code, type name) of the parameter that the name
// or, when it is empty, the code names. The type name is one of "byte", "short", "long",
// "longlong", "float", "str", "double", "Date", and empty for a data type that is not known.
// A name that the dictionary does not know is looked up among the environment variables of the
// process and the suite: (name, value, 0, 0, "str"). badArguments when nothing is found.
// handle: not used.
Outcome getParameterMetaData(std::int32_t handle, std::int32_t code, const char* name,
                             PythonReference& metadata);

}  // namespace pyORV3

#endif
