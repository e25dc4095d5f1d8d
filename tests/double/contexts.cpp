// The double's contexts, nodes and inputs.
#include "tests/double/reply.h"

namespace {

using recording::Recorder;
using recording::Reply;
using recording::Value;
using recording::Values;

// What is left of a fixed field without the zero bytes at its end, so that a zero-filled field is
// an empty text in the log.
Value withoutTrailingZeros(const void* data, std::size_t size) {
    const auto* const characters = static_cast<const char*>(data);
    while (size > 0 && characters[size - 1] == '\0') {
        --size;
    }
    return recording::bytes(characters, size);
}

Value identity(const OrvNodeRecord* node) {
    return node == nullptr ? Value() : withoutTrailingZeros(node->identity, sizeof node->identity);
}

Value refusal(const OrvNodeRecord* node) {
    return node == nullptr ? Value() : withoutTrailingZeros(node->refusal, sizeof node->refusal);
}

Reply createContext(const char* function, const OrvNodeRecord* node, OrvContext* context,
                    uint16_t access, uint32_t option) {
    Reply reply(function, {{"identity", identity(node)},
                           {"refusal", refusal(node)},
                           {"access", access},
                           {"option", option}});
    reply.number("context", context, reply.isScripted() ? 0 : Recorder::instance().nextContext());
    return reply;
}

template <typename Number>
Reply enumerateNodes(const char* function, OrvContext context, OrvNodeRecord* node, Number* count,
                     Number selector) {
    Reply reply(function, {{"context", context},
                           {"identity", identity(node)},
                           {"refusal", refusal(node)},
                           {"count", *count},
                           {"selector", selector}});
    reply.buffer("identity", node->identity, sizeof node->identity)
        .buffer("refusal", node->refusal, sizeof node->refusal)
        .number("count", count, 1);
    return reply;
}

constexpr std::int64_t noMoreInputs = 0x00500003;

}  // namespace

OrvStatus ORV_CALL SOrvCreateDSC(const OrvNodeRecord* node, OrvContext* context, uint16_t access,
                                 uint32_t option) {
    return createContext("SOrvCreateDSC", node, context, access, option).status();
}

OrvStatus ORV_CALL SOrvCreateDSC2(const OrvNodeRecord* node, OrvContext* context, uint16_t access,
                                  uint32_t option) {
    return createContext("SOrvCreateDSC2", node, context, access, option).status();
}

OrvResult ORV_CALL OrvCreateDSC2(const OrvNodeRecord* node, OrvContext* context, uint16_t access,
                                 uint32_t option) {
    return createContext("OrvCreateDSC2", node, context, access, option).result();
}

OrvStatus ORV_CALL SOrvEnumNodes(OrvContext context, OrvNodeRecord* node, uint32_t* count,
                                 uint32_t selector) {
    return enumerateNodes("SOrvEnumNodes", context, node, count, selector).status();
}

OrvResult ORV_CALL OrvNodeEnumeration(OrvContext context, OrvNodeRecord* node, uint16_t* count,
                                      uint16_t selector) {
    return enumerateNodes("OrvNodeEnumeration", context, node, count, selector).result();
}

OrvStatus ORV_CALL SOrvDeleteDSC(OrvContext context) {
    return Reply("SOrvDeleteDSC", {{"context", context}}).status();
}

OrvResult ORV_CALL OrvContextDeletion(OrvContext context) {
    return Reply("OrvContextDeletion", {{"context", context}}).result();
}

OrvResult ORV_CALL OrvErrorQuery(OrvContext context, uint32_t* code, uint32_t* second,
                                 uint32_t* third) {
    return Reply("OrvErrorQuery", {{"context", context}})
        .number("code", code)
        .number("second", second)
        .number("third", third)
        .result();
}

OrvStatus ORV_CALL SOrvQueryDSC(OrvContext context, int32_t item, void* buffer) {
    return Reply("SOrvQueryDSC", {{"context", context},
                                  {"item", item},
                                  {"buffer", withoutTrailingZeros(buffer, ORV_STATE_BUFFER_SIZE)}})
        .buffer("buffer", buffer, ORV_STATE_BUFFER_SIZE)
        .status();
}

OrvStatus ORV_CALL SOrvFirstInput(OrvContext context, uint32_t option, char* name) {
    return Reply("SOrvFirstInput", {{"context", context}, {"option", option}}, noMoreInputs)
        .buffer("name", name, ORV_INPUT_NAME_SIZE)
        .status();
}

OrvStatus ORV_CALL SOrvNextInput(OrvContext context, char* name) {
    return Reply("SOrvNextInput", {{"context", context}}, noMoreInputs)
        .buffer("name", name, ORV_INPUT_NAME_SIZE)
        .status();
}
