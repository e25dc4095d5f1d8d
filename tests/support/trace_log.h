// The reports that reach the diagnostics sink while a TraceLog lives.
#ifndef PYORV3_TESTS_SUPPORT_TRACE_LOG_H
#define PYORV3_TESTS_SUPPORT_TRACE_LOG_H

#include <sstream>
#include <string>
#include <vector>

#include "module/ground/trace.h"
#include "tests/support/status_code.h"

namespace testing_support {

using Lines = std::vector<std::string>;

/// One at a time; the sink before it is put back at its end.
class TraceLog {
  public:
    TraceLog() : former_(pyORV3::setTraceSink(&TraceLog::append)) { current = this; }
    ~TraceLog() { pyORV3::setTraceSink(former_); }
    TraceLog(const TraceLog&) = delete;
    TraceLog& operator=(const TraceLog&) = delete;

    /// Each as its level, code (hexadecimal), context and message.
    [[nodiscard]] const Lines& reports() const { return reports_; }

  private:
    static void append(const pyORV3::TraceReport& report) {
        std::ostringstream line;
        line << report.level << ' ' << std::hex << report.code << ' ' << report.context << ' '
             << report.message;
        current->reports_.push_back(line.str());
    }

    inline static TraceLog* current = nullptr;
    Lines reports_;
    pyORV3::TraceSink former_;
};

}  // namespace testing_support

#endif
