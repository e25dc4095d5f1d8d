// What the tests of the object layer on the recording double share: scripted parameters, and the
// calls of the library as lines of text.
#ifndef PYORV3_TESTS_UNIT_FILEACCESS_DOUBLE_FIXTURE_H
#define PYORV3_TESTS_UNIT_FILEACCESS_DOUBLE_FIXTURE_H

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>

#include "tests/double/recorder.h"
#include "tests/support/trace_log.h"

namespace testing_support {

using recording::forEver;
using recording::Values;

/// A fresh double and an empty trace log for each test.
class DoubleFixture : public testing::Test {
  protected:
    DoubleFixture() { recorder().reset(); }

    static recording::Recorder& recorder() { return recording::Recorder::instance(); }

    static void answer(const std::string& function, std::int64_t result, Values outputs = {},
                       Values when = {}, int times = 1) {
        recorder().answer(function, {result, "", std::move(outputs), std::move(when), times});
    }

    /// The data source describes the parameter, by default as a text of at most three characters.
    static void describe(OrvContext context, std::uint32_t code, int type = 14, int size = 3) {
        answer("OrvParameterDescriptionQuery", 0,
               {{"type", type}, {"size", size}, {"name", "QAR_NAME"}},
               {{"context", context}, {"codeLow", code & 0xFFFF}, {"codeHigh", code >> 16}},
               forEver);
    }

    /// The data source holds such a text in the parameter.
    static void hold(OrvContext context, std::uint32_t code, const std::string& text) {
        describe(context, code);
        answer("OrvParameterRead", 0, {{"buffer", text}}, {{"context", context}, {"code", code}},
               forEver);
    }

    /// The calls of one function, or all, each as its function and its inputs: numbers in
    /// hexadecimal (negative ones in decimal), bytes in quotes without the zero bytes at their end.
    static Lines calls(const std::string& function = "Orv") {
        Lines lines;
        for (const recording::Call& call : recorder().calls()) {
            std::ostringstream line;
            line << call.function;
            for (const auto& [name, value] : call.arguments) {
                if (const auto* const number = std::get_if<std::int64_t>(&value)) {
                    line << ' ' << (*number < 0 ? std::dec : std::hex) << *number;
                } else if (const auto* const bytes = std::get_if<std::string>(&value)) {
                    line << " \"" << bytes->substr(0, bytes->find_last_not_of('\0') + 1) << '"';
                } else {
                    line << " null";
                }
            }
            if (call.function.starts_with(function)) {
                lines.push_back(line.str());
            }
        }
        return lines;
    }

    /// The line of a description query.
    static std::string description(OrvContext context, std::uint32_t code) {
        std::ostringstream line;
        line << std::hex << "OrvParameterDescriptionQuery " << context << " \"\" "
             << (code & 0xFFFF) << ' ' << (code >> 16);
        return line.str();
    }

    TraceLog log_;
};

}  // namespace testing_support

#endif
