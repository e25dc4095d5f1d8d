// The double's contexts, nodes and inputs.
#include "tests/double/reply.h"

using recording::named;
using recording::Reply;
using recording::Value;

namespace {

// What is left of a fixed field without the zero bytes at its end, so that a zero-filled field is
// an empty text in the log.
Value withoutTrailingZeros(const void* data, std::size_t size) {
    const std::string field(static_cast<const char*>(data), size);
    return field.substr(0, field.find_last_not_of('\0') + 1);
}

template <typename Field>
Value inside(const OrvNodeRecord* node, Field OrvNodeRecord::*field) {
    return node == nullptr ? Value() : withoutTrailingZeros(&(node->*field), sizeof(Field));
}

Reply createContext(const char* function, const OrvNodeRecord* node, OrvContext* context,
                    uint16_t access, uint32_t option) {
    Reply reply(function, {named("identity", inside(node, &OrvNodeRecord::identity)),
                           named("refusal", inside(node, &OrvNodeRecord::refusal)), ARG(access),
                           ARG(option)});
    return reply.number("context", context,
                        reply.isScripted() ? 0 : recording::Recorder::instance().nextContext());
}

template <typename Number>
Reply enumerateNodes(const char* function, OrvContext context, OrvNodeRecord* node, Number* count,
                     Number selector) {
    return Reply(function, {ARG(context), named("identity", inside(node, &OrvNodeRecord::identity)),
                            named("refusal", inside(node, &OrvNodeRecord::refusal)),
                            named("count", *count), ARG(selector)})
        .buffer("identity", node->identity, sizeof node->identity)
        .buffer("refusal", node->refusal, sizeof node->refusal)
        .number("count", count, 1);
}

constexpr std::int64_t noMoreInputs = 0x00500003;
}  // namespace

DEFINE_FUNCTION(OrvStatus, SOrvDeleteDSC, (OrvContext context), ARG(context))
DEFINE_FUNCTION(OrvResult, OrvContextDeletion, (OrvContext context), ARG(context))

OrvStatus ORV_CALL SOrvCreateDSC(const OrvNodeRecord* node, OrvContext* context, uint16_t access,
                                 uint32_t option) {
    return createContext(__func__, node, context, access, option).status();
}

OrvStatus ORV_CALL SOrvCreateDSC2(const OrvNodeRecord* node, OrvContext* context, uint16_t access,
                                  uint32_t option) {
    return createContext(__func__, node, context, access, option).status();
}

OrvResult ORV_CALL OrvCreateDSC2(const OrvNodeRecord* node, OrvContext* context, uint16_t access,
                                 uint32_t option) {
    return createContext(__func__, node, context, access, option).result();
}

OrvStatus ORV_CALL SOrvEnumNodes(OrvContext context, OrvNodeRecord* node, uint32_t* count,
                                 uint32_t selector) {
    return enumerateNodes(__func__, context, node, count, selector).status();
}

OrvResult ORV_CALL OrvNodeEnumeration(OrvContext context, OrvNodeRecord* node, uint16_t* count,
                                      uint16_t selector) {
    return enumerateNodes(__func__, context, node, count, selector).result();
}

OrvResult ORV_CALL OrvErrorQuery(OrvContext context, uint32_t* code, uint32_t* second,
                                 uint32_t* third) {
    return Reply(__func__, {ARG(context)})
        .number("code", code)
        .number("second", second)
        .number("third", third)
        .result();
}

OrvStatus ORV_CALL SOrvQueryDSC(OrvContext context, int32_t item, void* buffer) {
    return Reply(__func__, {ARG(context), ARG(item),
                            named("buffer", withoutTrailingZeros(buffer, ORV_STATE_BUFFER_SIZE))})
        .buffer("buffer", buffer, ORV_STATE_BUFFER_SIZE)
        .status();
}

OrvStatus ORV_CALL SOrvFirstInput(OrvContext context, uint32_t option, char* name) {
    return Reply(__func__, {ARG(context), ARG(option)}, noMoreInputs)
        .buffer("name", name, ORV_INPUT_NAME_SIZE)
        .status();
}

OrvStatus ORV_CALL SOrvNextInput(OrvContext context, char* name) {
    return Reply(__func__, {ARG(context)}, noMoreInputs)
        .buffer("name", name, ORV_INPUT_NAME_SIZE)
        .status();
}
