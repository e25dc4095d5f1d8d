// How a data source handle is made: a context of the data-access library on the local node.
#ifndef PYORV3_MODULE_DATA_SOURCE_HANDLE_H
#define PYORV3_MODULE_DATA_SOURCE_HANDLE_H

#include "module/frame/outcome.h"
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

}  // namespace pyORV3

#endif
