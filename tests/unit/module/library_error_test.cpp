#include "module/library_error.h"

#include <gtest/gtest.h>

#include <vector>

#include "tests/double/recorder.h"

namespace {

using recording::Recorder;

constexpr OrvContext context = 42;

class LibraryError : public testing::Test {
  protected:
    LibraryError() { Recorder::instance().reset(); }
};

TEST_F(LibraryError, AsksTheErrorQueryOnlyForMinusOne) {
    struct Case {
        OrvResult result;
        OrvResult queryResult;
        std::uint32_t queriedCode;
        pyORV3::Status expected;
        std::size_t expectedQueries;
    };
    const std::vector<Case> cases = {
        {0, 0, 0x500004, 0, 0},           {-1, 0, 0x500004, 0x500004, 1},
        {-1, 7, 0x500004, 0x67, 1},       {-1, -2, 0x500004, 0xFFFFFFFE, 1},
        {1, 0, 0x500004, 0x61, 0},        {5, 0, 0x500004, 0x65, 0},
        {-2, 0, 0x500004, 0xFFFFFFFE, 0},
    };
    for (const Case& testCase : cases) {
        SCOPED_TRACE(testCase.result);
        Recorder::instance().reset();
        Recorder::instance().answer(
            "OrvErrorQuery",
            {.result = testCase.queryResult,
             .outputs = {{"code", static_cast<std::int64_t>(testCase.queriedCode)}}});
        EXPECT_EQ(pyORV3::libraryError(testCase.result, context), testCase.expected);
        const auto calls = Recorder::instance().calls();
        ASSERT_EQ(calls.size(), testCase.expectedQueries);
        for (const auto& call : calls) {
            EXPECT_EQ(call.function, "OrvErrorQuery");
            EXPECT_EQ(call.arguments, (recording::Values{{"context", std::int64_t{context}}}));
        }
    }
}

}  // namespace
