// Methods that act on a whole data source, run engines or list the inputs of the node.
#ifndef PYORV3_MODULE_ENGINE_METHODS_H
#define PYORV3_MODULE_ENGINE_METHODS_H

#include <cstdint>

#include "module/binding/outcome.h"
#include "module/binding/python_reference.h"

namespace pyORV3 {

// Loads the library engineName + ".dll", calls its entry point with (first, second, 0, 0) and
// unloads it, with the interpreter lock released. Returns the result as status; results with 0x61
// in bits 23-16 become 0xE061xxxx. A missing library or entry point gives the error number of the
// operating system, a name of more than 255 bytes badArguments.
Outcome executeNativeEngine(const char* engineName, const char* entryPointName, std::int32_t first,
                            std::int32_t second);

// Returns the names of the inputs of the node, joined by commas, as many as fit into 8,191 bytes.
Outcome enumerateDefinitions(PythonReference& names);

// Passes two values to the control function of the library.
Outcome control(std::int32_t handle, std::int32_t first, std::int32_t second);

// Returns the state of the data source, a signed 16-bit number.
Outcome getStatus(std::int32_t handle, PythonReference& state);

// Makes the library verify the data source again.
Outcome reverify(std::int32_t handle);

}  // namespace pyORV3

#endif
