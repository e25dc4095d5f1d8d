// The life of one call in the double: log it, write its outputs, return or throw.
//
//     return Reply(__func__, {ARG(context), ARG(classCode)}).number("count", count).status();
#ifndef PYORV3_TESTS_DOUBLE_REPLY_H
#define PYORV3_TESTS_DOUBLE_REPLY_H

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

#include "tests/double/recorder.h"

// An input of a call under its own name.
#define ARG(argument) recording::named(#argument, argument)

// Defines a function without outputs. Behind the parameters: the inputs, ARG(...) or named(...).
#define DEFINE_FUNCTION(Result, function, parameters, ...)                    \
    Result ORV_CALL function parameters {                                     \
        return static_cast<Result>(Reply(#function, {__VA_ARGS__}).finish()); \
    }

namespace recording {

// length bytes, or a null value.
ORV_EXPORT Value bytes(const void* data, std::size_t length);
ORV_EXPORT Values::value_type named(const char* name, Value value);
// A null text is a null value.
ORV_EXPORT Values::value_type named(const char* name, const char* text);

class Reply {
  public:
    // Logs the call and takes its answer. defaultResult: what a call without an answer returns.
    ORV_EXPORT Reply(const char* function, Values arguments, std::int64_t defaultResult = 0);

    // Outputs. A scripted answer writes what it names and nothing else; without one the fallback
    // is written. A null destination is left alone.
    template <std::integral Integer>
    Reply& number(const char* name, Integer* destination,
                  std::type_identity_t<Integer> fallback = 0) {
        const std::optional<Value> scripted = takeOutput(name);
        if (destination != nullptr && scripted) {
            *destination = static_cast<Integer>(std::get<std::int64_t>(*scripted));
        } else if (destination != nullptr && !isScripted_) {
            *destination = fallback;
        }
        return *this;
    }
    // Writes bytes as they are, an integer as a 32-bit word. Throws std::length_error where they
    // do not fit into the size bytes of the destination.
    ORV_EXPORT Reply& buffer(const char* name, void* destination, std::size_t size,
                             std::string_view fallback = {});

    bool isScripted() const { return isScripted_; }

    // The end of the call: throws what the answer wants thrown, else returns its result.
    // Throws std::invalid_argument where the answer names an output that the function has not.
    ORV_EXPORT std::int64_t finish();
    OrvStatus status() { return static_cast<OrvStatus>(finish()); }
    OrvResult result() { return static_cast<OrvResult>(finish()); }

  private:
    ORV_EXPORT std::optional<Value> takeOutput(std::string_view name);

    std::string function_;
    bool isScripted_ = false;
    Answer answer_;
};

}  // namespace recording

#endif
