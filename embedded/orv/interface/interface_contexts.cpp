// The interface's functions on contexts and nodes.
#include <algorithm>
#include <cstring>
#include <string_view>

#include "embedded/orv/interface/interface.h"

using namespace embedded;

namespace {

constexpr std::string_view localNode = "local";
constexpr OrvResult selectorResult = 2;  // of the 16-bit enumeration: try the other selector

OrvStatus createContext(const OrvNodeRecord* node, OrvContext* context) noexcept {
    try {
        requirePointers(context);
        *context = 0;
        if (node != nullptr && node->refusal[0] != '\0') {
            throw Failure(codes::nodeRefused);
        }
        *context = contexts().create();
        return codes::success;
    } catch (...) {
        return codeOfCurrentException();
    }
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

// There is one node, the machine itself, and contexts need none: access and option ask for nothing.
OrvStatus SOrvCreateDSC(const OrvNodeRecord* node, OrvContext* context, std::uint16_t /*access*/,
                        std::uint32_t /*option*/) {
    return createContext(node, context);
}

OrvStatus SOrvCreateDSC2(const OrvNodeRecord* node, OrvContext* context, std::uint16_t /*access*/,
                         std::uint32_t /*option*/) {
    return createContext(node, context);
}

OrvResult OrvCreateDSC2(const OrvNodeRecord* node, OrvContext* context, std::uint16_t /*access*/,
                        std::uint32_t /*option*/) {
    return resultOf(createContext(node, context));
}

OrvStatus SOrvEnumNodes(OrvContext context, OrvNodeRecord* node, std::uint32_t* count,
                        std::uint32_t selector) {
    if (count == nullptr) {
        return onContext(context, [](Context&) { throw Failure(codes::nullPointer); });
    }
    const OrvStatus status = enumerateNodes(context, node, *count > 0, selector);
    *count = status == codes::success ? 1 : 0;
    return status;
}

OrvResult OrvNodeEnumeration(OrvContext context, OrvNodeRecord* node, std::uint16_t* count,
                             std::uint16_t selector) {
    std::uint32_t room = count == nullptr ? 0 : *count;
    const OrvStatus status =
        SOrvEnumNodes(context, node, count == nullptr ? nullptr : &room, selector);
    if (count != nullptr) {
        *count = static_cast<std::uint16_t>(room);
    }
    return status == codes::unknownSelector ? selectorResult : resultOf(status);
}

OrvStatus SOrvDeleteDSC(OrvContext context) {
    try {
        return contexts().remove(context)->run([](Context& removed) { removed.abandon(); });
    } catch (...) {
        return codeOfCurrentException();
    }
}

OrvResult OrvContextDeletion(OrvContext context) {
    return resultOf(SOrvDeleteDSC(context));
}

// second and third: 0. The result is 1 when nothing could be queried.
OrvResult OrvErrorQuery(OrvContext context, std::uint32_t* code, std::uint32_t* second,
                        std::uint32_t* third) {
    if (code == nullptr || second == nullptr || third == nullptr) {
        return 1;
    }
    const OrvStatus status =
        onContext(context, [code](const Context& queried) { *code = queried.lastFailure(); });
    *second = 0;
    *third = 0;
    return status == codes::success ? 0 : 1;
}
