// Interface functions on contexts and nodes.
#include <algorithm>
#include <cstring>
#include <string_view>

#include "embedded/orv/entry_points/guarded_call.h"

using namespace embedded;

namespace {

constexpr std::string_view localNode = "local";

OrvStatus createContext(const OrvNodeRecord* node, OrvContext* handle) noexcept {
    return onLibrary([=] {
        requirePointers(handle);
        *handle = 0;
        if (node != nullptr && node->refusal[0] != '\0') {
            throw Failure(codes::nodeRefusesContexts);
        }
        *handle = contexts().create();
    });
}

OrvStatus enumerateNodes(OrvContext handle, OrvNodeRecord* node, bool room,
                         std::uint32_t selector) noexcept {
    return onContext(handle, [=](Context&) {
        requirePointers(node);
        if (selector != ORV_NODE_SELECTOR && selector != ORV_NODE_SELECTOR_RETRY) {
            throw Failure(codes::unknownSelector);
        }
        if (!room) {
            throw Failure(codes::sizeRefused);
        }
        *node = OrvNodeRecord{};
        std::ranges::copy(localNode, node->identity);
    });
}

}  // namespace

// The machine is the only node, and contexts do not need it: access and option are not used.
OrvStatus SOrvCreateDSC(const OrvNodeRecord* node, OrvContext* handle, std::uint16_t /*access*/,
                        std::uint32_t /*option*/) {
    return createContext(node, handle);
}

OrvStatus SOrvCreateDSC2(const OrvNodeRecord* node, OrvContext* handle, std::uint16_t /*access*/,
                         std::uint32_t /*option*/) {
    return createContext(node, handle);
}

OrvResult OrvCreateDSC2(const OrvNodeRecord* node, OrvContext* handle, std::uint16_t /*access*/,
                        std::uint32_t /*option*/) {
    return resultOf(createContext(node, handle));
}

OrvStatus SOrvEnumNodes(OrvContext handle, OrvNodeRecord* node, std::uint32_t* count,
                        std::uint32_t selector) {
    if (count == nullptr) {
        return onContext(handle, [](Context&) { return codes::nullPointer; });
    }
    const OrvStatus status = enumerateNodes(handle, node, *count > 0, selector);
    *count = status == codes::success ? 1 : 0;
    return status;
}

OrvResult OrvNodeEnumeration(OrvContext handle, OrvNodeRecord* node, std::uint16_t* count,
                             std::uint16_t selector) {
    std::uint32_t room = count == nullptr ? 0 : *count;
    const OrvStatus status =
        SOrvEnumNodes(handle, node, count == nullptr ? nullptr : &room, selector);
    if (count != nullptr) {
        *count = static_cast<std::uint16_t>(room);
    }
    return status == codes::unknownSelector ? OrvResult{ORV_RESULT_RETRY_SELECTOR}
                                            : resultOf(status);
}

OrvStatus SOrvDeleteDSC(OrvContext handle) {
    return onLibrary([=] {
        return contexts().remove(handle)->run([](Context& context) { context.abandon(); });
    });
}

OrvResult OrvContextDeletion(OrvContext handle) {
    return resultOf(SOrvDeleteDSC(handle));
}

// second and third: set to 0. Returns 1 if the query failed.
OrvResult OrvErrorQuery(OrvContext handle, std::uint32_t* code, std::uint32_t* second,
                        std::uint32_t* third) {
    if (code == nullptr || second == nullptr || third == nullptr) {
        return 1;
    }
    const OrvStatus status =
        onContext(handle, [code](const Context& context) { *code = context.lastFailure(); });
    *second = 0;
    *third = 0;
    return status == codes::success ? 0 : 1;
}
