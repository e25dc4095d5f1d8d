#include "module/status/caught_failure.h"

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

TEST(CaughtFailure, EachThrownTypeHasItsStatus) {
    const std::vector<std::pair<std::uint32_t, std::function<void()>>> cases{
        {0xECE99F6D, [] { throw std::string("disk full"); }},
        {0xEBE88102, [] { throw 0xEBE88102U; }},
        {0xFFFFFFFE, [] { throw -2; }},
        {0xFFFFFFFB, [] { throw static_cast<short>(-5); }},
        {0x8007000E, [] { throw std::bad_alloc(); }},
        {0xECE99F6D, [] { throw std::runtime_error("no disk"); }},
        {0xECE99F6D, [] { throw 1.5; }},
        {0, [] { throw 0; }},  // no failure
    };
    for (const auto& [status, raise] : cases) {
        try {
            raise();
        } catch (...) {
            EXPECT_EQ(status, codeOf(pyORV3::reportCaught("f")));
        }
    }
}

}  // namespace
