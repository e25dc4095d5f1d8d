// How a data source handle is made, and the methods that make, flush and end one; the flag methods.
//
// A handle is the library's context; 0 means none. The module keeps no table of handles: what a
// script passes goes to the library as it is.
#ifndef PYORV3_MODULE_HANDLE_METHODS_H
#define PYORV3_MODULE_HANDLE_METHODS_H

#include <cstdint>

#include "module/binding/outcome.h"
#include "module/binding/python_reference.h"
#include "module/interface/orv.h"

namespace pyORV3 {

// Makes a context bound to the node that the library's node enumeration reports; loads the suite
// environment first. On failure `handle` is 0 and the status is the library's, nodeRefused or
// contextNotCreated. The caller owns the context.
[[nodiscard]] Outcome createHandle(OrvContext& handle);

// Owns a library context and deletes it in the end.
class TemporaryContext {
  public:
    explicit TemporaryContext(OrvContext context) noexcept : context_(context) {}
    TemporaryContext(const TemporaryContext&) = delete;
    TemporaryContext& operator=(const TemporaryContext&) = delete;
    TemporaryContext(TemporaryContext&&) = delete;
    TemporaryContext& operator=(TemporaryContext&&) = delete;
    ~TemporaryContext();

    [[nodiscard]] OrvContext get() const noexcept { return context_; }

  private:
    OrvContext context_;
};

// Opens a data source, or creates a file when the access mode has bit 0x400. The handle is given
// whatever the status: after a failed creation it names a context without a source, after another
// failed opening a released context, and it is 0 when no context could be made.
// typeSelector: nonzero a file, zero an input of the node. auxiliaryText: handed to the library
// unless empty.
Outcome open(const char* sourceName, std::int32_t accessMode, std::int32_t typeSelector,
             const char* auxiliaryText, PythonReference& handle);

// Closes the source and deletes the context. After a failed closing the handle stays valid.
Outcome close(std::int32_t handle, std::int32_t unused);

// Makes what was written durable.
Outcome flush(std::int32_t handle);

// 1 for every handle but 0, without asking the library.
std::int32_t getIsOpen(std::int32_t handle);

// Always 0; kept for scripts that ask.
std::int32_t getIsDirty(std::int32_t handle);

// Does nothing; kept for scripts that call it.
Outcome setIsDirty(std::int32_t handle);

}  // namespace pyORV3

#endif
