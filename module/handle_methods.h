// Creates data source handles; the methods that open, flush and close a source; the flag methods.
//
// A handle is a context of the library; 0 means none. The module keeps no table of handles: it
// passes handles from scripts to the library unchanged.
#ifndef PYORV3_MODULE_HANDLE_METHODS_H
#define PYORV3_MODULE_HANDLE_METHODS_H

#include <cstdint>

#include "module/binding/outcome.h"
#include "module/binding/python_reference.h"
#include "module/interface/orv.h"

namespace pyORV3 {

// Creates a context bound to the node that the library enumerates; loads the suite environment
// first. After a failure `handle` is 0 and the status is that of the library, nodeRefused or
// contextNotCreated. The caller owns the context.
[[nodiscard]] Outcome createHandle(OrvContext& handle);

// Owns a library context; the destructor deletes it.
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

// Opens a data source, or creates a file if the access mode has bit 0x400. Sets the handle even
// after a failure: a failed creation leaves a context without a source, another failed opening a
// released context. It is 0 if no context could be created.
// typeSelector: nonzero for a file, zero for an input of the node. auxiliaryText: passed to the
// library unless empty.
Outcome open(const char* sourceName, std::int32_t accessMode, std::int32_t typeSelector,
             const char* auxiliaryText, PythonReference& handle);

// Closes the source and deletes the context. After a failure the handle stays valid.
Outcome close(std::int32_t handle, std::int32_t unused);

// Saves the changes of the source.
Outcome flush(std::int32_t handle);

// Returns 1 for every handle except 0, without a call of the library.
std::int32_t getIsOpen(std::int32_t handle);

// Always 0. Kept for scripts that call it.
std::int32_t getIsDirty(std::int32_t handle);

// Does nothing. Kept for scripts that call it.
Outcome setIsDirty(std::int32_t handle);

}  // namespace pyORV3

#endif
