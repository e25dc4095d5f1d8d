#include "module/status/trace.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>

namespace pyORV3 {

std::atomic<TraceSink> detail::traceSink{nullptr};

void detail::report(std::string_view context, int level, MessageParts message,
                    Status code) noexcept {
    try {
        std::string joined;
        for (const std::string_view part : message) {
            joined += part;
        }
        if (const TraceSink sink = traceSink.load(std::memory_order_acquire)) {
            sink({context, level, joined, code});
        }
    } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch)
        // Without memory the report is lost; the status of the failure is not.
    }
}

TraceSink setTraceSink(TraceSink sink) noexcept {
    return detail::traceSink.exchange(sink, std::memory_order_acq_rel);
}

namespace {

// Stays open until the process ends, because other threads may still report. Set before the sink.
std::FILE* traceFile = nullptr;

// The time as 2024-01-24T21:02:12.125Z.
std::string timeText() {
    namespace chrono = std::chrono;
    const auto now = chrono::floor<chrono::milliseconds>(chrono::system_clock::now());
    const auto midnight = chrono::floor<chrono::days>(now);
    const chrono::year_month_day date{midnight};
    const chrono::hh_mm_ss time{now - midnight};
    std::array<char, 64> text{};
    static_cast<void>(std::snprintf(
        text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ",
        static_cast<int>(date.year()), unsigned{date.month()}, unsigned{date.day()},
        static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
        static_cast<int>(time.seconds().count()), static_cast<int>(time.subseconds().count())));
    return text.data();
}

// Returns the string as one field of a line.
std::string field(std::string_view text) {
    std::string printable(text.empty() ? "-" : text);
    const auto isControl = [](char byte) {
        return static_cast<unsigned char>(byte) < ' ' || byte == '\x7F';
    };
    std::ranges::replace_if(printable, isControl, '?');
    return printable;
}

void appendToFile(const TraceReport& traceReport) {
    std::array<char, 16> code{};
    static_cast<void>(
        std::snprintf(code.data(), code.size(), "0x%08X\n", unsigned{codeOf(traceReport.code)}));
    const std::string line = timeText() + '\t' + field(traceReport.context) + '\t' +
                             std::to_string(traceReport.level) + '\t' + field(traceReport.message) +
                             '\t' + code.data();
    // A failed write cannot be reported anywhere.
    static_cast<void>(std::fwrite(line.data(), 1, line.size(), traceFile));
}

}  // namespace

void traceToFile(const char* fileName) {
    const bool toStandardError = std::string_view(fileName) == "-";
    std::error_code error;
    const auto status = std::filesystem::status(fileName, error);
    // A pipe would make the process wait for a reader.
    const bool isRefused = std::filesystem::exists(status) && !is_regular_file(status);
    traceFile = toStandardError ? stderr : isRefused ? nullptr : std::fopen(fileName, "a");
    if (traceFile == nullptr) {
        static_cast<void>(std::fprintf(stderr, "pyORV3: no reports: cannot open %s\n", fileName));
        return;
    }
    // Without a buffer a line is one write, which the system appends to the file.
    static_cast<void>(std::setvbuf(traceFile, nullptr, _IONBF, 0));
    static_cast<void>(setTraceSink(appendToFile));
}

}  // namespace pyORV3
