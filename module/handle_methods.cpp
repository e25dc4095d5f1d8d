#include "module/handle_methods.h"

#include <array>

#include "module/data_source_handle.h"
#include "module/frame/call_frame.h"

namespace pyORV3 {

namespace {

// True when a source that the library opened with a remark cannot be used.
bool stateRefusesUse(OrvContext handle) {
    std::array<std::uint32_t, ORV_STATE_BUFFER_SIZE / sizeof(std::uint32_t)> state{};
    SOrvQueryDSC(handle, ORV_CONTEXT_STATE_ITEM, state.data());
    return (state[0] & ORV_STATE_UNUSABLE) != 0;
}

// The status of the library's opening; what it may stand for besides failure is resolved here.
Status openingStatus(OrvContext handle, OrvStatus opened) {
    switch (opened) {
        case ORV_STATUS_NOT_A_SOURCE:
            return openRefused;
        case ORV_STATUS_OPENED_WITH_REMARK:
            return stateRefusesUse(handle) ? openRefusedByState : success;
        default:
            return opened;
    }
}

Status openSource(OrvContext handle, const char* sourceName, std::int32_t accessMode,
                  std::int32_t typeSelector, const char* auxiliaryText) {
    const OrvStatus opened = SOrvOpenDataSource(
        handle, sourceName, typeSelector != 0 ? ORV_SOURCE_FILE : ORV_SOURCE_INPUT,
        static_cast<std::uint32_t>(accessMode), 0,
        *auxiliaryText == '\0' ? nullptr : auxiliaryText);
    const Status status = openingStatus(handle, opened);
    if (status != success) {
        SOrvCloseDataSource(handle);
        SOrvDeleteDSC(handle);
    }
    return status;
}

}  // namespace

Outcome open(const char* sourceName, std::int32_t accessMode, std::int32_t typeSelector,
             const char* auxiliaryText, PythonReference& handle) {
    OrvContext context = 0;
    Status status = createHandle(context);
    if (status == success) {
        const bool create = (static_cast<std::uint32_t>(accessMode) & ORV_ACCESS_CREATE) != 0;
        status = create ? SOrvCreateFile(context, sourceName, ORV_SOURCE_FILE, ORV_CREATION_FIRST,
                                         ORV_CREATION_SECOND, ORV_CREATION_THIRD)
                        : openSource(context, sourceName, accessMode, typeSelector, auxiliaryText);
    }
    handle = PythonReference(integerObject(context));
    return status;
}

Outcome close(std::int32_t handle, std::int32_t /*unused*/) {
    if (const OrvStatus status = SOrvCloseDataSource(handle); status != 0) {
        return status;
    }
    SOrvDeleteDSC(handle);
    return success;
}

Outcome flush(std::int32_t handle) {
    return SOrvFlush(handle);
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
