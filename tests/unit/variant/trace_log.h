// The reports that reach the diagnostics sink while a TraceLog lives.
#ifndef PYORV3_TESTS_UNIT_VARIANT_TRACE_LOG_H
#define PYORV3_TESTS_UNIT_VARIANT_TRACE_LOG_H

#include <ostream>
#include <string>
#include <vector>

#include "module/trace.h"

namespace testing_support {

struct LoggedReport {
    std::string context;
    int level;
    std::string message;
    pyORV3::Status code;

    friend bool operator==(const LoggedReport&, const LoggedReport&) = default;
    friend std::ostream& operator<<(std::ostream& stream, const LoggedReport& report) {
        return stream << report.context << " | " << report.level << " | " << report.message << " | "
                      << std::hex << report.code << std::dec;
    }
};

/// A failure report of the object layer.
inline LoggedReport failure(std::string context, std::string message, pyORV3::Status code) {
    return {std::move(context), 3, std::move(message), code};
}

/// One at a time; the sink before it is put back at its end.
class TraceLog {
  public:
    TraceLog() : former_(pyORV3::setTraceSink(&TraceLog::append)) { current = this; }
    ~TraceLog() { pyORV3::setTraceSink(former_); }
    TraceLog(const TraceLog&) = delete;
    TraceLog& operator=(const TraceLog&) = delete;
    TraceLog(TraceLog&&) = delete;
    TraceLog& operator=(TraceLog&&) = delete;

    [[nodiscard]] const std::vector<LoggedReport>& reports() const { return reports_; }

  private:
    static void append(const pyORV3::TraceReport& report) {
        current->reports_.push_back(
            {std::string(report.context), report.level, std::string(report.message), report.code});
    }

    inline static TraceLog* current = nullptr;
    std::vector<LoggedReport> reports_;
    pyORV3::TraceSink former_;
};

}  // namespace testing_support

#endif
