// What no test that uses the double would notice: a script that is not followed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <stdexcept>

#include "tests/double/recorder.h"

namespace {

using recording::forEver;
using recording::Recorder;

class DoubleTest : public testing::Test {
  protected:
    DoubleTest() { recorder.reset(); }

    Recorder& recorder = Recorder::instance();
};

TEST_F(DoubleTest, AnswersInOrderThenForEver) {
    recorder.answer("SOrvFlush", {.result = 9, .times = forEver});
    recorder.answer("SOrvFlush", {.result = 1, .times = 2});
    recorder.answer("SOrvFlush", {.result = 5, .when = {{"context", 42}}});
    recorder.answer("SOrvFlush", {.result = 8, .times = forEver});
    EXPECT_EQ(recorder.unusedAnswers(), std::vector<std::string>{"SOrvFlush"});

    std::vector<OrvStatus> results;
    for (const OrvContext context : {1, 42, 42, 1, 42}) {
        results.push_back(SOrvFlush(context));
    }
    EXPECT_THAT(results, testing::ElementsAre(1, 1, 5, 8, 8));
    EXPECT_THAT(recorder.unusedAnswers(), testing::IsEmpty());
}

TEST_F(DoubleTest, RefusesScriptsThatDoNotFitTheFunction) {
    EXPECT_THROW(recorder.answer("SOrvFlush", {.thrown = "tantrum"}), std::out_of_range);

    std::array<char, 2> buffer{};
    recorder.answer("SOrvGetParam", {.outputs = {{"buffer", "abc"}}});
    EXPECT_THROW(SOrvGetParam(1, 1, 1, 1, buffer.data(), 2), std::length_error);
    recorder.answer("SOrvFlush", {.outputs = {{"count", 1}}});
    EXPECT_THROW(SOrvFlush(1), std::invalid_argument);
}

}  // namespace
