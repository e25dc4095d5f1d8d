#include "module/data_source_handle.h"

#include "environment/suite_environment.h"

namespace pyORV3 {

namespace {

// Fills the record of the node that new contexts are bound to.
Status findNode(OrvNodeRecord& node) {
    OrvContext created = 0;
    if (const OrvStatus status = SOrvCreateDSC(nullptr, &created, 0, 0); status != 0) {
        return status;
    }
    const TemporaryContext temporary(created);
    std::uint32_t count = 1;
    OrvStatus status = SOrvEnumNodes(temporary.get(), &node, &count, ORV_NODE_SELECTOR);
    if (status == ORV_STATUS_RETRY_SELECTOR) {
        count = 1;
        status = SOrvEnumNodes(temporary.get(), &node, &count, ORV_NODE_SELECTOR_RETRY);
    }
    if (status != 0) {
        return status;
    }
    return node.refusal[0] == '\0' ? success : nodeRefused;
}

}  // namespace

TemporaryContext::~TemporaryContext() {
    SOrvDeleteDSC(context_);
}

Status createHandle(OrvContext& handle) {
    handle = 0;
    OrvNodeRecord node{};
    loadSuiteEnvironment();
    if (const Status status = findNode(node); status != success) {
        return status;
    }
    // The library may report a failure and yet give a context that works: that one is used.
    const OrvStatus status = SOrvCreateDSC2(&node, &handle, 0, 0);
    return status != 0 && handle == 0 ? contextNotCreated : success;
}

}  // namespace pyORV3
