// The functions of the double: each is one list of its named arguments, inputs and outputs.
//
//     FUNCTION(OrvStatus, SOrvClassCount, (OrvContext context, uint16_t classCode, uint16_t*
//     count),
//              IN(context), IN(classCode), OUT(count))
#ifndef PYORV3_TESTS_DOUBLE_REPLY_H
#define PYORV3_TESTS_DOUBLE_REPLY_H

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/double/recorder.h"

#define IN(argument) recording::input(#argument, argument)
#define OUT(argument) recording::output(#argument, argument)
#define FUNCTION(Result, name, parameters, ...)                                \
    Result ORV_CALL name parameters {                                          \
        return static_cast<Result>(recording::reply(#name, {__VA_ARGS__}, 0)); \
    }

namespace recording {

// An input, which is logged, or the place of an output.
struct Argument {
    std::string name;
    Value value;  // of an input; of an output what is written where no answer is scripted
    bool isOutput = false;
    void* destination = nullptr;  // null is left alone
    std::size_t size = 0;         // bytes there
    bool isNumber = false;        // of that width; else bytes, a number being a 32-bit word
};

inline Argument input(const char* name, Value value) {
    return {name, std::move(value)};
}
// A null text is a null value.
ORV_EXPORT Argument input(const char* name, const char* text);
// length bytes, or a null value.
ORV_EXPORT Argument input(const char* name, const void* data, std::size_t length);

template <std::integral Integer>
Argument output(const char* name, Integer* destination, std::int64_t fallback = 0) {
    return {name, fallback, true, destination, sizeof *destination, true};
}

// A fallback that stands for the next number of a context.
inline constexpr std::int64_t nextContext = INT64_MIN;

ORV_EXPORT Argument area(const char* name, void* destination, std::size_t size,
                         std::string fallback = {});

// One call: logs the inputs, takes the scripted answer, writes the outputs that it names (without
// an answer all of them), then throws what the answer wants thrown or returns its result, without
// one the default result. Throws std::length_error where bytes do not fit their place, and
// std::invalid_argument where the answer names an output that the function has not.
ORV_EXPORT std::int64_t reply(const char* function, const std::vector<Argument>& arguments,
                              std::int64_t defaultResult);

}  // namespace recording

#endif
