#include "module/data_source_handle.h"

#include "environment/suite_environment.h"

namespace pyORV3 {

namespace {

// Fills the record of the node that new contexts are bound to.
Outcome findNode(OrvNodeRecord& node) {
    OrvContext created = 0;
    if (const OrvStatus status = SOrvCreateDSC(nullptr, &created, 0, 0); status != 0) {
        return {status, "SOrvCreateDSC() failed"};
    }
    const TemporaryContext temporary(created);
    std::uint32_t count = 1;
    OrvStatus status = SOrvEnumNodes(temporary.get(), &node, &count, ORV_NODE_SELECTOR);
    if (status == ORV_STATUS_RETRY_SELECTOR) {
        count = 1;
        status = SOrvEnumNodes(temporary.get(), &node, &count, ORV_NODE_SELECTOR_RETRY);
    }
    if (status != 0) {
        return {status, "SOrvEnumNodes() failed"};
    }
    return {node.refusal[0] == '\0' ? success : nodeRefused, "The node refuses contexts"};
}

}  // namespace

TemporaryContext::~TemporaryContext() {
    SOrvDeleteDSC(context_);
}

Outcome createHandle(OrvContext& handle) {
    handle = 0;
    OrvNodeRecord node{};
    loadSuiteEnvironment();
    if (const Outcome found = findNode(node); found.isFailure()) {
        return found;
    }
    // The library may report a failure and yet give a context that works: that one is used.
    const OrvStatus status = SOrvCreateDSC2(&node, &handle, 0, 0);
    return {status != 0 && handle == 0 ? contextNotCreated : success, "SOrvCreateDSC2() failed"};
}

}  // namespace pyORV3
