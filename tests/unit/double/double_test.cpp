#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/double/recorder.h"

namespace recording {

static bool operator==(const Call& left, const Call& right) {
    return left.function == right.function && left.arguments == right.arguments;
}

namespace {

class DoubleTest : public testing::Test {
  protected:
    DoubleTest() { recorder.reset(); }

    Recorder& recorder = Recorder::instance();
};

TEST_F(DoubleTest, LogsArgumentsWithTheirSignsAndTexts) {
    SOrvOpenDataSource(-1, "caf\xC3\xA9", 769, 0xFFFFFFFF, 0, nullptr);
    SOrvInsertOne(7, 0xFFFF, -4, 0);

    const Call open{"SOrvOpenDataSource",
                    {{"context", -1},
                     {"name", "caf\xC3\xA9"},
                     {"sourceType", 769},
                     {"accessMode", 0xFFFFFFFF},
                     {"option", 0},
                     {"auxiliary", {}}}};
    const Call insert{"SOrvInsertOne",
                      {{"context", 7}, {"classCode", 0xFFFF}, {"record", -4}, {"entry", 0}}};
    EXPECT_THAT(recorder.calls(), testing::ElementsAre(open, insert));
}

TEST_F(DoubleTest, LogsInputBuffersWhole) {
    const std::array<float, 2> energy{1.0F, -2.0F};
    SOrvFindRecord(1, 2, "Co", 0, nullptr, nullptr);
    SOrvFindRecord(1, 4, energy.data(), 0, nullptr, nullptr);
    SOrvPutParam(1, 0x20000007, 1, 1, "\0\1", 2);
    OrvNodeRecord node{};
    node.refusal[0] = 'x';
    SOrvCreateDSC2(&node, nullptr, 0, 0);

    std::vector<Value> inputs;
    for (const Call& call : recorder.calls()) {
        for (const auto& [name, value] : call.arguments) {
            if (std::holds_alternative<std::string>(value)) {
                inputs.push_back(value);
            }
        }
    }
    using namespace std::string_literals;
    EXPECT_THAT(inputs, testing::ElementsAre(Value("Co\0"s), Value("\0\0\x80\x3F\0\0\0\xC0"s),
                                             Value("\0\1"s), Value(""s), Value("x"s)));
}

TEST_F(DoubleTest, AnswersInOrderThenForEver) {
    recorder.answer("SOrvFlush", {.result = 9, .times = forEver});
    recorder.answer("SOrvFlush", {.result = 1, .times = 2});
    recorder.answer("SOrvFlush", {.result = 5, .when = {{"context", 42}}});
    recorder.answer("SOrvFlush", {.result = 8, .times = forEver});

    std::vector<OrvStatus> results;
    for (const OrvContext context : {1, 42, 42, 1, 42}) {
        results.push_back(SOrvFlush(context));
    }
    EXPECT_THAT(results, testing::ElementsAre(1, 1, 5, 8, 8));
    EXPECT_THAT(recorder.unusedAnswers(), testing::IsEmpty());
}

TEST_F(DoubleTest, WritesScriptedOutputsAlsoOnFailure) {
    recorder.answer("SOrvCreateDSC2", {.result = 5, .outputs = {{"context", 77}}});
    recorder.answer("SOrvCreateDSC2", {.result = 6});
    OrvContext context = 0;
    EXPECT_EQ(SOrvCreateDSC2(nullptr, &context, 0, 0), 5U);
    EXPECT_EQ(context, 77);
    EXPECT_EQ(SOrvCreateDSC2(nullptr, &context, 0, 0), 6U);
    EXPECT_EQ(context, 77);
    EXPECT_EQ(SOrvCreateDSC2(nullptr, &context, 0, 0), 0U);
    EXPECT_EQ(context, 1001);
}

TEST_F(DoubleTest, ServesTheSpectrumAndNothingBeyondIt) {
    recorder.setChannels({10, -20, 30});
    std::array<std::int32_t, 3> channels{-1, -1, -1};
    EXPECT_EQ(SOrvGetSpectrum(1, 2, 3, 0, channels.data()), 0U);
    EXPECT_THAT(channels, testing::ElementsAre(-20, 30, -1));
}

TEST_F(DoubleTest, RefusesScriptsThatDoNotFitTheFunction) {
    EXPECT_THROW(recorder.answer("SOrvFlush", {.thrown = "tantrum"}), std::invalid_argument);

    std::array<char, 2> buffer{};
    recorder.answer("SOrvGetParam", {.outputs = {{"buffer", "abc"}}});
    EXPECT_THROW(SOrvGetParam(1, 1, 1, 1, buffer.data(), 2), std::length_error);
    recorder.answer("SOrvFlush", {.outputs = {{"count", 1}}});
    EXPECT_THROW(SOrvFlush(1), std::invalid_argument);
}

TEST_F(DoubleTest, ThrowsTheExactType) {
    const auto flushThrowing = [this](const char* kind) {
        recorder.answer("SOrvFlush", {.result = -5, .thrown = kind});
        SOrvFlush(1);
    };
    EXPECT_THROW(flushThrowing("short"), short);
    EXPECT_THROW(flushThrowing("int"), int);
    EXPECT_THROW(flushThrowing("long"), long);
    EXPECT_THROW(flushThrowing("unsigned int"), unsigned int);
    EXPECT_THROW(flushThrowing("unsigned long"), unsigned long);
    EXPECT_THROW(flushThrowing("bad_alloc"), std::bad_alloc);
    EXPECT_THROW(flushThrowing("runtime_error"), std::runtime_error);
    EXPECT_THROW(flushThrowing("text"), const char*);
    EXPECT_ANY_THROW(flushThrowing("struct"));
}

TEST_F(DoubleTest, LosesNoCallOfSeveralThreads) {
    constexpr int callsOfEach = 200;
    recorder.answer("SOrvFlush", {.result = 1, .times = callsOfEach});
    std::vector<int> answered(4, 0);
    std::vector<std::thread> threads;
    threads.reserve(answered.size());
    for (int& count : answered) {
        threads.emplace_back([&count] {
            for (int call = 0; call < callsOfEach; ++call) {
                count += static_cast<int>(SOrvFlush(call));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(recorder.calls().size(), answered.size() * callsOfEach);
    EXPECT_EQ(answered[0] + answered[1] + answered[2] + answered[3], callsOfEach);
}

}  // namespace
}  // namespace recording
