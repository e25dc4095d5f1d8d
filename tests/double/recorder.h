// The recording double: what was called, and what the test wants answered.
//
// Every function of the double's data-access library, dictionary and engine is one list of its
// named arguments. It logs its name and its inputs and answers as the test scripted it:
//
//     FUNCTION(OrvStatus, SOrvClassCount,
//              (OrvContext context, uint16_t classCode, uint16_t* count),
//              INPUT(context), INPUT(classCode), OUTPUT(count))
//
// FUNCTION_OR names the result of a call without a scripted answer, which else is 0.
//
// The one Recorder of the process lives in the data-access library; any thread may use it.
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

// A null pointer, an integer of any width of the interface, or the bytes of a text or a buffer.
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

// By type what throws a value of it, from the code of the library that includes this.
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

// What one call (or several) of a function does. The outputs are written first, whatever the
// result, and only those that are named here; then the call throws or returns.
struct Answer {
    std::int64_t result = 0;
    std::string thrown = {};  // one of the raisers: thrown with the result as its value
    Values outputs = {};
    Values when = {};  // arguments that the call must have had for this answer to be taken
    int times = 1;     // forEver, or how many calls are answered

    std::int64_t end() const {
        if (!thrown.empty()) {
            raisers.at(thrown)(result);
        }
        return result;
    }
};

// An input, which is logged, or the place of an output.
struct Argument {
    enum class Kind : std::uint8_t { input, number, bytes };

    std::string name;
    Value value;  // of an input; of an output what is written where no answer is scripted
    Kind kind = Kind::input;
    void* destination = nullptr;  // null is left alone
    std::size_t size = 0;         // bytes there; a number that is written as bytes takes 4 of them
};
using Arguments = std::vector<Argument>;

class Recorder {
  public:
    ORV_EXPORT static Recorder& instance();

    // Forgets calls and answers; contexts count from 1001 again.
    ORV_EXPORT void reset();
    // Throws std::out_of_range where no raiser throws what is to be thrown.
    ORV_EXPORT void answer(const std::string& function, Answer answer);
    ORV_EXPORT std::vector<Call> calls() const;
    // The functions for which counted answers are left: calls that the test expected in vain.
    ORV_EXPORT std::vector<std::string> unusedAnswers() const;

    // Logs the inputs and takes the oldest counted answer that fits, else the newest one that
    // stands for ever; writes the outputs that it names. Without an answer writes all of them and
    // gives the default result. Throws std::length_error where bytes do not fit their place, and
    // std::invalid_argument where the answer names an output that the function has not.
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
// A null text is a null value.
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

// One call from its first step to its end.
ORV_EXPORT std::int64_t reply(const char* function, const Arguments& arguments,
                              std::int64_t result);

// Whether the double's dictionary, "pqar", or its engine is in the process.
ORV_EXPORT std::atomic<bool>& isMapped(std::string_view library);

// Lives in such a library.
struct Presence {
    explicit Presence(const char* library) : mark(isMapped(library)) { mark = true; }
    ~Presence() { mark = false; }
    Presence(const Presence&) = delete;
    Presence& operator=(const Presence&) = delete;
    std::atomic<bool>& mark;
};

}  // namespace recording

#endif
