// The parameter dictionary of the double. Without a scripted answer it has one parameter of each
// data type code and the channel count; the low byte of the other codes is their data type code.
#include <algorithm>
#include <array>
#include <string_view>
#include <type_traits>

#include "tests/double/recorder.h"

namespace {

using recording::area;
using recording::output;
using recording::reply;

struct Parameter {
    uint32_t code;
    uint32_t type;
    uint32_t size;    // bytes
    uint32_t length;  // characters of a text
    std::string_view name;
    std::string_view description;
};

constexpr std::array<Parameter, 14> parameters{{
    {0x20000007, 8, 4, 0, "QAR_L_CHANNELS", "Number of channels"},
    {0x00070002, 2, 1, 0, "BYTE", "A byte"},
    {0x00070006, 6, 1, 0, "FLAG", "A byte of the other code"},
    {0x00070003, 3, 2, 0, "SHORT", "A short"},
    {0x00070007, 7, 2, 0, "WORD", "A short of the other code"},
    {0x00070008, 8, 4, 0, "LONG", "A long"},
    {0x00070009, 9, 8, 0, "LONGLONG", "A long of 64 bits"},
    {0x0007000A, 10, 4, 0, "FLOAT", "A float"},
    {0x0007000E, 14, 0, 12, "TEXT", "A text"},
    {0x00070018, 24, 0, 40, "LONG_TEXT", "A text of the other code"},
    {0x0007001B, 27, 8, 0, "DOUBLE", "A double"},
    {0x000700C0, 192, 8, 0, "QUANTITY", "A double of the other code"},
    {0x00070023, 35, 8, 0, "DATE", "A date"},
    {0x00000023, 35, 8, 0, "BARE_DATE", "A date whose code has no class"},
}};

constexpr std::int64_t success = 1;  // a status with bit 0 set is a success
constexpr std::int64_t unknownParameter = 0x00278002;
constexpr std::size_t textAreaSize = 256;
const recording::Presence presence("pqar");

}  // namespace

extern "C" {

ORV_EXPORT uint32_t ORV_DICTIONARY_CALL pqar_util_getpinfo(uint32_t code, uint32_t one,
                                                           uint32_t zero, char* name,
                                                           char* description, uint32_t* output6,
                                                           uint32_t* output7, uint32_t* length,
                                                           uint32_t* type, uint32_t* size,
                                                           uint32_t* output11, uint32_t* output12) {
    const auto* const known = std::ranges::find(parameters, code, &Parameter::code);
    const bool isKnown = known != parameters.end();
    const Parameter parameter = isKnown ? *known : Parameter{};
    return static_cast<uint32_t>(reply(
        __func__,
        {INPUT(code), INPUT(one), INPUT(zero), area("name", name, textAreaSize, parameter.name),
         area("description", description, textAreaSize, parameter.description), OUTPUT(output6),
         OUTPUT(output7), output("length", length, parameter.length),
         output("type", type, parameter.type), output("size", size, parameter.size),
         OUTPUT(output11), OUTPUT(output12)},
        isKnown ? success : unknownParameter));
}

ORV_EXPORT uint32_t ORV_DICTIONARY_CALL pqar_util_pname2code(const char* name, uint32_t* code,
                                                             void* unread) {
    const auto* const known =
        std::ranges::find(parameters, std::string_view(name), &Parameter::name);
    const bool isKnown = known != parameters.end();
    return static_cast<uint32_t>(reply(
        __func__,
        {INPUT(name), output("code", code, isKnown ? known->code : 0), area("area", unread, 260)},
        isKnown ? success : unknownParameter));
}
}

static_assert(std::is_same_v<decltype(&pqar_util_getpinfo), OrvParameterInfoFunction>);
static_assert(std::is_same_v<decltype(&pqar_util_pname2code), OrvParameterNameFunction>);
