// What the tests of the object layer on the recording double share: scripted parameters, and the
// calls of the library as lines of text.
#ifndef PYORV3_TESTS_UNIT_FILEACCESS_DOUBLE_FIXTURE_H
#define PYORV3_TESTS_UNIT_FILEACCESS_DOUBLE_FIXTURE_H

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "tests/double/recorder.h"
#include "tests/unit/variant/trace_log.h"

namespace testing_support {

using Lines = std::vector<std::string>;

/// A fresh double and an empty trace log for each test.
class DoubleFixture : public testing::Test {
  protected:
    DoubleFixture() { recorder().reset(); }

    static recording::Recorder& recorder() { return recording::Recorder::instance(); }

    static void answer(const std::string& function, std::int64_t result,
                       recording::Values outputs = {}, recording::Values when = {}) {
        recorder().answer(function, {result, "", std::move(outputs), std::move(when), 1});
    }

    static void answerAlways(const std::string& function, std::int64_t result,
                             recording::Values outputs = {}, recording::Values when = {}) {
        recorder().answer(function,
                          {result, "", std::move(outputs), std::move(when), recording::forEver});
    }

    static recording::Values parameter(OrvContext context, std::uint32_t code) {
        return {{"context", context},
                {"codeLow", static_cast<std::uint16_t>(code)},
                {"codeHigh", static_cast<std::uint16_t>(code >> 16)}};
    }

    /// The data source describes the parameter.
    static void describe(OrvContext context, std::uint32_t code, std::uint16_t type,
                         std::uint16_t size) {
        answerAlways("OrvParameterDescriptionQuery", 0,
                     {{"type", type}, {"size", size}, {"name", "QAR_NAME"}},
                     parameter(context, code));
    }

    /// The data source holds a text of at most three characters in the parameter.
    static void hold(OrvContext context, std::uint32_t code, const std::string& text) {
        describe(context, code, 14, 3);
        answerAlways("OrvParameterRead", 0, {{"buffer", text}},
                     {{"context", context}, {"code", code}});
    }

    /// Every call as its function and its inputs: numbers in hexadecimal (negative ones in
    /// decimal), bytes in quotes without the zero bytes at their end.
    static Lines calls() {
        Lines lines;
        for (const recording::Call& call : recorder().calls()) {
            std::ostringstream line;
            line << call.function;
            for (const auto& [name, value] : call.arguments) {
                line << ' ' << written(value);
            }
            lines.push_back(line.str());
        }
        return lines;
    }

    /// The calls of one function.
    static Lines calls(const std::string& function) {
        Lines lines = calls();
        std::erase_if(lines,
                      [&](const std::string& line) { return !line.starts_with(function + ' '); });
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

  private:
    static std::string written(const recording::Value& value) {
        std::ostringstream text;
        if (const auto* const number = std::get_if<std::int64_t>(&value)) {
            text << (*number < 0 ? std::dec : std::hex) << *number;
        } else if (const auto* const bytes = std::get_if<std::string>(&value)) {
            text << '"' << bytes->substr(0, bytes->find_last_not_of('\0') + 1) << '"';
        } else {
            text << "null";
        }
        return text.str();
    }
};

}  // namespace testing_support

#endif
