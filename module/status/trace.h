// The diagnostics sink of the module: the reasons of failures, for whoever hunts one.
//
// Reports are discarded unless a sink is in place. No result depends on it.
#ifndef PYORV3_MODULE_STATUS_TRACE_H
#define PYORV3_MODULE_STATUS_TRACE_H

#include <atomic>
#include <concepts>
#include <initializer_list>
#include <string_view>

#include "module/status/status.h"

namespace pyORV3 {

// One report. The texts live only as long as the call of the sink.
struct TraceReport {
    std::string_view context;  // the method, or class name, "::" and operation; may be empty
    int level;                 // failureLevel; 0 in a plain message
    std::string_view message;
    Status code;  // before the mapping; success in a plain message
};

// The level of all failure reports.
inline constexpr int failureLevel = 3;

// Called on the reporting thread, on several at once; may throw, which loses the report.
using TraceSink = void (*)(const TraceReport&);

// The parts of a message, joined without anything between them.
using MessageParts = std::initializer_list<std::string_view>;

namespace detail {

extern std::atomic<TraceSink> traceSink;

void report(std::string_view context, int level, MessageParts message, Status code) noexcept;

}  // namespace detail

// Reports a failure; returns the status. Costs the test of a pointer where there is no sink.
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

// Puts a sink in place (null: discard, as at the start) and returns the one before it.
TraceSink setTraceSink(TraceSink sink) noexcept;

// From now on appends each report as one line to the file ("-": standard error) until the process
// ends: time in UTC, context, level, message and code, separated by tabs, what is empty as "-".
// Each line is one writing at the end of the file, so that threads, forked children and other
// processes may share it. A file that cannot be opened is said on standard error.
void traceToFile(const char* fileName);

}  // namespace pyORV3

#endif
