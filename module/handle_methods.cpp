#include "module/handle_methods.h"

#include <array>

#include "environment/suite_environment.h"
#include "module/binding/call_frame.h"

namespace pyORV3 {

namespace {

// Fills the record of the node to which new contexts are bound.
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

// True if a source that the library opened with a remark cannot be used.
bool stateRefusesUse(OrvContext handle) {
    std::array<std::uint32_t, ORV_STATE_BUFFER_SIZE / sizeof(std::uint32_t)> state{};
    SOrvQueryDSC(handle, ORV_CONTEXT_STATE_ITEM, state.data());
    return (state[0] & ORV_STATE_UNUSABLE) != 0;
}

// Opens a source in the library and resolves the statuses that are not failures.
Outcome openingOutcome(OrvContext handle, OrvStatus opened) {
    switch (opened) {
        case ORV_STATUS_NOT_A_SOURCE:
            return {openRefused, "The name is no data source"};
        case ORV_STATUS_OPENED_WITH_REMARK:
            return {stateRefusesUse(handle) ? openRefusedByState : success,
                    "The data source cannot be used"};
        default:
            return {opened, "SOrvOpenDataSource() failed"};
    }
}

void closeAndDelete(OrvContext handle) {
    SOrvCloseDataSource(handle);
    SOrvDeleteDSC(handle);
}

}  // namespace

TemporaryContext::~TemporaryContext() {
    SOrvDeleteDSC(context_);
}

Outcome createHandle(OrvContext& handle) {
    handle = 0;
    OrvNodeRecord node{};
    loadSuiteEnvironment();
    if (const Outcome outcome = findNode(node); outcome.isFailure()) {
        return outcome;
    }
    // The library may report a failure and still create a usable context, which is used then.
    const OrvStatus status = SOrvCreateDSC2(&node, &handle, 0, 0);
    return {status != 0 && handle == 0 ? contextNotCreated : success, "SOrvCreateDSC2() failed"};
}

Outcome open(const char* sourceName, std::int32_t accessMode, std::int32_t typeSelector,
             const char* auxiliaryText, PythonReference& handle) {
    OrvContext context = 0;
    Outcome outcome = createHandle(context);
    bool isLive = !outcome.isFailure();
    if (isLive && (static_cast<std::uint32_t>(accessMode) & ORV_ACCESS_CREATE) != 0) {
        outcome = {SOrvCreateFile(context, sourceName, ORV_SOURCE_FILE, ORV_CREATION_FIRST,
                                  ORV_CREATION_SECOND, ORV_CREATION_THIRD),
                   "SOrvCreateFile() failed"};
    } else if (isLive) {
        const OrvStatus opened = SOrvOpenDataSource(
            context, sourceName, typeSelector != 0 ? ORV_SOURCE_FILE : ORV_SOURCE_INPUT,
            static_cast<std::uint32_t>(accessMode), 0,
            *auxiliaryText == '\0' ? nullptr : auxiliaryText);
        outcome = openingOutcome(context, opened);
        isLive = !outcome.isFailure();
        if (!isLive) {
            closeAndDelete(context);
        }
    }
    handle = PythonReference(integerObject(context));
    if (!handle && isLive) {
        closeAndDelete(context);  // no script has the handle
    }
    return outcome;
}

Outcome close(std::int32_t handle, std::int32_t /*unused*/) {
    if (const OrvStatus status = SOrvCloseDataSource(handle); status != 0) {
        return {status, "SOrvCloseDataSource() failed"};
    }
    SOrvDeleteDSC(handle);
    return success;
}

Outcome flush(std::int32_t handle) {
    return {SOrvFlush(handle), "SOrvFlush() failed"};
}

std::int32_t getIsOpen(std::int32_t handle) {
    return handle != 0 ? 1 : 0;
}

std::int32_t getIsDirty(std::int32_t /*handle*/) {
    return 0;
}

Outcome setIsDirty(std::int32_t /*handle*/) {
    return success;
}

}  // namespace pyORV3
