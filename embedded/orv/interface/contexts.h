// The contexts of this process by their handles.
#ifndef PYORV3_EMBEDDED_ORV_INTERFACE_CONTEXTS_H
#define PYORV3_EMBEDDED_ORV_INTERFACE_CONTEXTS_H

#include <memory>
#include <shared_mutex>
#include <unordered_map>

#include "embedded/orv/interface/context.h"
#include "module/interface/orv.h"

namespace embedded {

// Any thread may call any function. Handles are positive and ascend, and no handle is given twice:
// one that was kept after its context went names nothing.
class Contexts {
  public:
    // Throws Failure(noHandleLeft) after 2,147,483,647 contexts.
    OrvContext create();
    // The context; it lives as long as the result, also when it is removed meanwhile.
    // Throws Failure(unknownContext).
    std::shared_ptr<Context> find(OrvContext handle) const;
    std::shared_ptr<Context> remove(OrvContext handle);

  private:
    mutable std::shared_mutex mutex_;
    OrvContext last_ = 0;
    std::unordered_map<OrvContext, std::shared_ptr<Context>> contexts_;
};

// The ones of this process.
Contexts& contexts();

}  // namespace embedded

#endif
