// The recording double: logs calls and returns the answers that a test has scripted.
//
// Every function of its data-access library, dictionary and engine is a list of named arguments. It
// logs its name and its inputs and then uses the scripted answer:
//
//     FUNCTION(OrvStatus, SOrvClassCount,
//              (OrvContext context, uint16_t classCode, uint16_t* count),
//              INPUT(context), INPUT(classCode), OUTPUT(count))
//
// FUNCTION_OR defines the result of a call without a scripted answer; the default is 0.
//
// The data-access library contains the only Recorder of the process. Safe for concurrent use.
#ifndef PYORV3_TESTS_DOUBLE_RECORDER_H
#define PYORV3_TESTS_DOUBLE_RECORDER_H

#include <atomic>
#include <concepts>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "module/interface/orv.h"

#define INPUT(argument) recording::input(#argument, argument)
#define OUTPUT(argument) recording::output(#argument, argument)
#define FUNCTION(Result, name, ...) FUNCTION_OR(Result, name, 0, __VA_ARGS__)
#define FUNCTION_OR(Result, name, otherwise, parameters, ...)                          \
    Result ORV_CALL name parameters {                                                  \
        return static_cast<Result>(recording::reply(#name, {__VA_ARGS__}, otherwise)); \
    }

namespace recording {

// A null pointer, an integer of any width of the interface, or the bytes of a string or a buffer.
using Value = std::variant<std::monostate, std::int64_t, std::string>;
// Values by name, in the order of the interface.
using Values = std::vector<std::pair<std::string, Value>>;

struct Call {
    std::string function;
    Values arguments;  // the inputs only
};

constexpr int forEver = -1;

template <typename Integer>
void raiseInteger(std::int64_t number) {
    throw static_cast<Integer>(number);
}

// By type: functions that throw a value of the type, from the code of the library that includes
// this.
inline const std::map<std::string, void (*)(std::int64_t)> raisers{
    {"short", raiseInteger<short>},
    {"int", raiseInteger<int>},
    {"long", raiseInteger<long>},
    {"unsigned int", raiseInteger<unsigned int>},
    {"unsigned long", raiseInteger<unsigned long>},
    {"bad_alloc", [](std::int64_t) { throw std::bad_alloc(); }},
    {"runtime_error", [](std::int64_t) { throw std::runtime_error("scripted"); }},
    {"text", [](std::int64_t) { throw "scripted"; }},
    {"struct", [](std::int64_t) { throw Values(); }},
};

// Behaviour of one call (or several) of a function. It writes the outputs in the list, whatever the
// result, and then throws or returns.
struct Answer {
    std::int64_t result = 0;
    std::string thrown = {};  // name of a raiser, which throws the result
    Values outputs = {};
    Values when = {};  // the answer is only for calls with these arguments
    int times = 1;     // number of calls, or forEver

    std::int64_t end() const {
        if (!thrown.empty()) {
            raisers.at(thrown)(result);
        }
        return result;
    }
};

// An input, which is logged, or an output.
struct Argument {
    enum class Kind : std::uint8_t { input, number, bytes };

    std::string name;
    Value value;  // of an input; of an output, the value without a scripted answer
    Kind kind = Kind::input;
    void* destination = nullptr;  // null: not written
    std::size_t size = 0;         // bytes; a number written as bytes has 4
};
using Arguments = std::vector<Argument>;

class Recorder {
  public:
    ORV_EXPORT static Recorder& instance();

    // Deletes calls and answers; contexts count from 1001 again.
    ORV_EXPORT void reset();
    // Throws std::out_of_range if there is no raiser of this name.
    ORV_EXPORT void answer(const std::string& function, Answer answer);
    ORV_EXPORT std::vector<Call> calls() const;
    // Returns the functions with unused counted answers: calls that the test expected and did not
    // get.
    ORV_EXPORT std::vector<std::string> unusedAnswers() const;

    // Logs the inputs and uses the oldest counted answer that matches, otherwise the newest
    // permanent one; writes its outputs. Without an answer, writes all outputs and returns the
    // default result. Throws std::length_error if bytes do not fit, and std::invalid_argument if
    // the answer names an unknown output.
    ORV_EXPORT Answer take(const char* function, const Arguments& arguments, std::int64_t result);

    ORV_EXPORT OrvContext nextContext();

  private:
    static constexpr OrvContext firstContext = 1001;

    bool findAnswer(const Call& call, Answer& answer);

    mutable std::mutex mutex_;
    OrvContext nextContext_ = firstContext;
    std::vector<Call> calls_;
    std::map<std::string, std::deque<Answer>> answers_;
};

// ---- Arguments ----

inline Argument input(const char* name, Value value) {
    return {name, std::move(value)};
}
// A null string is a null value.
inline Argument input(const char* name, const char* text) {
    return {name, text == nullptr ? Value() : Value(text)};
}
// size bytes, or a null value.
inline Argument input(const char* name, const void* data, std::size_t size) {
    return {name,
            data == nullptr ? Value() : Value(std::string(static_cast<const char*>(data), size))};
}
template <std::integral Integer>
Argument output(const char* name, Integer* destination, std::int64_t fallback = 0) {
    return {name, fallback, Argument::Kind::number, destination, sizeof *destination};
}
inline Argument area(const char* name, void* destination, std::size_t size,
                     std::string_view fallback = {}) {
    return {name, std::string(fallback), Argument::Kind::bytes, destination, size};
}

// One call from its first to its last step.
ORV_EXPORT std::int64_t reply(const char* function, const Arguments& arguments,
                              std::int64_t result);

// True if the dictionary of the double, "pqar", or its engine is in the process.
ORV_EXPORT std::atomic<bool>& isMapped(std::string_view library);

// Part of such a library.
struct Presence {
    explicit Presence(const char* library) : mark(isMapped(library)) { mark = true; }
    ~Presence() { mark = false; }
    Presence(const Presence&) = delete;
    Presence& operator=(const Presence&) = delete;
    std::atomic<bool>& mark;
};

}  // namespace recording

#endif
