#include "module/ground/caught_failure.h"

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "tests/support/trace_log.h"

namespace {

TEST(CaughtFailure, mapsEachThrownTypeToItsStatusAndReport) {
    const std::vector<std::tuple<std::function<void()>, std::uint32_t, testing_support::Lines>>
        cases{
            {[] { throw std::string("disk full"); }, 0xECE99F6D, {"3 ece99f6d f disk full"}},
            {[] { throw std::string(); },
             0xECE99F6D,
             {"3 ece99f6d f Exception thrown with empty Error String"}},
            {[] { throw 0xEBE88102U; }, 0xEBE88102, {"3 ebe88102 f Caught exception"}},
            {[] { throw -2; }, 0xFFFFFFFE, {"3 fffffffe f Caught exception"}},
            {[] { throw static_cast<short>(-5); }, 0xFFFFFFFB, {"3 fffffffb f Caught exception"}},
            {[] { throw std::bad_alloc(); }, 0x8007000E, {"3 8007000e f Caught exception"}},
            {[] { throw std::runtime_error("no disk"); },
             0xECE99F6D,
             {"3 ece99f6d f Caught STL Exception.  Description: no disk"}},
            {[] { throw 1.5; }, 0xECE99F6D, {"3 ece99f6d f Caught Unknown exception."}},
            {[] { throw 0; }, 0, {}},  // no failure
        };
    for (const auto& [raise, status, reports] : cases) {
        const testing_support::TraceLog log;
        try {
            raise();
        } catch (...) {
            EXPECT_EQ(pyORV3::reportCaught("f"), status);
        }
        EXPECT_EQ(log.reports(), reports);
    }
}

}  // namespace
