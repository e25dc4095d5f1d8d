// The methods that act on a data source as a whole, run engines or list the node's inputs.
#ifndef PYORV3_MODULE_ENGINE_METHODS_H
#define PYORV3_MODULE_ENGINE_METHODS_H

#include <cstdint>

#include "module/binding/outcome.h"
#include "module/binding/python_reference.h"

namespace pyORV3 {

// Loads the library engineName + ".dll", calls its entry point with (first, second, 0, 0) and
// unloads it, all with the interpreter lock released. Its result is the status; results with 0x61
// in bits 23-16 become 0xE061xxxx. A library or entry point that is missing gives the operating
// system's error number, a name of more than 255 bytes badArguments.
Outcome executeNativeEngine(const char* engineName, const char* entryPointName, std::int32_t first,
                            std::int32_t second);

// Gives the names of the node's inputs, joined by commas: as many of the first as 8,191 bytes
// hold.
Outcome enumerateDefinitions(PythonReference& names);

// Hands two values to the library's control of the data source.
Outcome control(std::int32_t handle, std::int32_t first, std::int32_t second);

// Gives the data source's state, a signed 16-bit number.
Outcome getStatus(std::int32_t handle, PythonReference& state);

// Has the library verify the data source again.
Outcome reverify(std::int32_t handle);

}  // namespace pyORV3

#endif
