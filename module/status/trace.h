// The diagnostics sink of the module, which receives the reasons of failures.
//
// Reports are discarded unless a sink is set. Results do not depend on it.
#ifndef PYORV3_MODULE_STATUS_TRACE_H
#define PYORV3_MODULE_STATUS_TRACE_H

#include <atomic>
#include <concepts>
#include <initializer_list>
#include <string_view>

#include "module/status/status.h"

namespace pyORV3 {

// One report. The strings are valid only during the call of the sink.
struct TraceReport {
    std::string_view context;  // the method, or class name, "::" and operation; may be empty
    int level;                 // failureLevel; 0 in a plain message
    std::string_view message;
    Status code;  // before the mapping; success in a plain message
};

// The level of all failure reports.
inline constexpr int failureLevel = 3;

// Called on the reporting thread, possibly on several at once. If it throws, the report is lost.
using TraceSink = void (*)(const TraceReport&);

// The parts of a message, joined without separators.
using MessageParts = std::initializer_list<std::string_view>;

namespace detail {

extern std::atomic<TraceSink> traceSink;

void report(std::string_view context, int level, MessageParts message, Status code) noexcept;

}  // namespace detail

// Reports a failure and returns the status. Without a sink this costs one pointer test.
inline Status trace(std::string_view context, int level, MessageParts message,
                    Status code) noexcept {
    if (detail::traceSink.load(std::memory_order_acquire) != nullptr) {
        detail::report(context, level, message, code);
    }
    return code;
}
template <std::convertible_to<std::string_view> Text>
Status trace(std::string_view context, int level, const Text& message, Status code) noexcept {
    return trace(context, level, MessageParts{message}, code);
}

// Reports a plain message.
inline void trace(std::string_view message) noexcept {
    trace({}, 0, message, success);
}

// Sets the sink (null discards reports, the default) and returns the previous one.
TraceSink setTraceSink(TraceSink sink) noexcept;

// Appends each report from now on as one line to the file ("-": standard error): time in UTC,
// context, level, message and code, separated by tabs, "-" for empty fields. Each line is one write
// at the end of the file, so that threads, child processes and other processes can share it. If the
// file cannot be opened, an error is printed to standard error.
void traceToFile(const char* fileName);

}  // namespace pyORV3

#endif
