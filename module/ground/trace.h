// The diagnostics sink of the module. In production every report is discarded; a test, or a
// developer hunting a fault, puts a sink in place and sees each report as it was made.
#ifndef PYORV3_MODULE_GROUND_TRACE_H
#define PYORV3_MODULE_GROUND_TRACE_H

#include <string_view>

#include "module/ground/status.h"

namespace pyORV3 {

// One report. The texts live only as long as the call of the sink.
struct TraceReport {
    std::string_view context;  // class name, "::" and operation name; empty in a plain message
    int level;                 // 3 for every failure of the object layer; 0 in a plain message
    std::string_view message;
    Status code;  // 0 in a plain message
};

// The level of all failure reports of the object layer.
inline constexpr int failureLevel = 3;

using TraceSink = void (*)(const TraceReport&);

// Reports a failure of the object layer.
void trace(std::string_view context, int level, std::string_view message, Status code);

// Reports a plain message.
void trace(std::string_view message);

// Puts a sink in place (null: discard, as at the start) and returns the one before it. The sink
// is called on the reporting thread.
TraceSink setTraceSink(TraceSink sink) noexcept;

}  // namespace pyORV3

#endif
