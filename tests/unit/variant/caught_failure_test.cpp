#include "variant/caught_failure.h"

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/unit/variant/trace_log.h"

namespace {

TEST(CaughtFailure, mapsEachThrownTypeToItsStatusAndReport) {
    struct Case {
        std::function<void()> raise;
        pyORV3::Status status;
        const char* message;
    };
    const std::vector<Case> cases{
        {[] { throw std::string("disk full"); }, 0xECE99F6D, "disk full"},
        {[] { throw std::string(); }, 0xECE99F6D, "Exception thrown with empty Error String"},
        {[] { throw 0xEBE88102U; }, 0xEBE88102, "Caught exception"},
        {[] { throw -2; }, 0xFFFFFFFE, "Caught exception"},
        {[] { throw static_cast<short>(-5); }, 0xFFFFFFFB, "Caught exception"},
        {[] { throw std::bad_alloc(); }, 0x8007000E, "Caught exception"},
        {[] { throw std::runtime_error("no disk"); }, 0xECE99F6D,
         "Caught STL Exception.  Description: no disk"},
        {[] { throw 1.5; }, 0xECE99F6D, "Caught Unknown exception."},
        {[] { throw 0; }, 0, nullptr},  // no failure
    };
    for (const auto& [raise, status, message] : cases) {
        const testing_support::TraceLog log;
        try {
            raise();
        } catch (...) {
            EXPECT_EQ(pyORV3::reportCaught("Some::operation"), status);
        }
        std::vector<testing_support::LoggedReport> expected;
        if (message != nullptr) {
            expected.push_back(testing_support::failure("Some::operation", message, status));
        }
        EXPECT_EQ(log.reports(), expected);
    }
}

}  // namespace
