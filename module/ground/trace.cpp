#include "module/ground/trace.h"

#include <atomic>

namespace pyORV3 {

namespace {

std::atomic<TraceSink> installedSink{nullptr};

void report(const TraceReport& traceReport) {
    if (const TraceSink sink = installedSink.load(std::memory_order_acquire)) {
        sink(traceReport);
    }
}

}  // namespace

void trace(std::string_view context, int level, std::string_view message, Status code) {
    report({context, level, message, code});
}

void trace(std::string_view message) {
    report({{}, 0, message, success});
}

TraceSink setTraceSink(TraceSink sink) noexcept {
    return installedSink.exchange(sink, std::memory_order_acq_rel);
}

}  // namespace pyORV3
