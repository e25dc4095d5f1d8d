#include "variant/caught_failure.h"

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/unit/variant/trace_log.h"

namespace {

struct ThrownCase {
    const char* name;
    std::function<void()> raise;
    pyORV3::Status status;
    const char* message;
};

TEST(CaughtFailure, mapsEachThrownTypeToItsStatusAndReport) {
    const std::vector<ThrownCase> cases{
        {"text", [] { throw std::string("disk full"); }, 0xECE99F6D, "disk full"},
        {"empty text", [] { throw std::string(); }, 0xECE99F6D,
         "Exception thrown with empty Error String"},
        {"unsigned int", [] { throw 0xEBE88102U; }, 0xEBE88102, "Caught exception"},
        {"int", [] { throw -2; }, 0xFFFFFFFE, "Caught exception"},
        {"short", [] { throw static_cast<short>(-5); }, 0xFFFFFFFB, "Caught exception"},
        {"bad_alloc", [] { throw std::bad_alloc(); }, 0x8007000E, "Caught exception"},
        {"exception", [] { throw std::runtime_error("no disk"); }, 0xECE99F6D,
         "Caught STL Exception.  Description: no disk"},
        {"anything else", [] { throw 1.5; }, 0xECE99F6D, "Caught Unknown exception."},
    };
    for (const ThrownCase& testCase : cases) {
        SCOPED_TRACE(testCase.name);
        const testing_support::TraceLog log;
        try {
            testCase.raise();
        } catch (...) {
            EXPECT_EQ(pyORV3::reportCaught("Some::operation"), testCase.status);
        }
        EXPECT_EQ(log.reports(), std::vector{testing_support::failure(
                                     "Some::operation", testCase.message, testCase.status)});
    }
}

TEST(CaughtFailure, takesAThrownZeroForNoFailure) {
    const testing_support::TraceLog log;
    try {
        throw 0;
    } catch (...) {
        EXPECT_EQ(pyORV3::reportCaught("Some::operation"), 0U);
    }
    EXPECT_TRUE(log.reports().empty());
}

}  // namespace
