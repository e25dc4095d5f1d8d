// Library contexts for a temporary purpose, and the node that contexts are bound to.
#ifndef PYORV3_FILEACCESS_LIBRARY_CONTEXT_H
#define PYORV3_FILEACCESS_LIBRARY_CONTEXT_H

#include <cstdint>

#include "module/interface/orv.h"

namespace Tarsel::Datasources::QAR {

// Deletes a library context at the end of its life, whatever handle it was given.
class OwnedContext {
  public:
    explicit OwnedContext(OrvContext handle) noexcept : handle_(handle) {}
    ~OwnedContext() { OrvContextDeletion(handle_); }
    OwnedContext(const OwnedContext&) = delete;
    OwnedContext& operator=(const OwnedContext&) = delete;
    OwnedContext(OwnedContext&&) = delete;
    OwnedContext& operator=(OwnedContext&&) = delete;

    [[nodiscard]] OrvContext handle() const noexcept { return handle_; }

  private:
    OrvContext handle_;
};

// Which nodes an enumeration looks at: the second choice is for the result that asks for it.
enum class NodeSelector : std::uint16_t {
    first = ORV_NODE_SELECTOR,
    second = ORV_NODE_SELECTOR_RETRY,
};

// Enumerates one node on the context into the record; the result is the library's.
[[nodiscard]] OrvResult enumerateNode(OrvContext context, OrvNodeRecord& node,
                                      NodeSelector selector);

}  // namespace Tarsel::Datasources::QAR

#endif
