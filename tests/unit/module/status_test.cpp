#include "module/ground/status.h"

#include <gtest/gtest.h>

#include "tests/support/status_code.h"

namespace {

TEST(Status, TakesTheFirstRuleThatApplies) {
    struct Case {
        std::uint32_t status;
        std::uint32_t mapped;      // for scripts
        std::uint32_t normalized;  // within the object layer
    };
    for (const auto& [status, mapped, normalized] : {
             Case{0, 0, 0},
             {0xECE99D7D, 0xECE99D7D, 0xEBE89D7D},
             {0xFCE91234, 0xFCE91234, 0xFCE91234},
             {0xE0610007, 0xE0610007, 0xE0610007},
             {0x00610000, 0x00610000, 0x00610000},
             {0x00270010, 0xEBE80010, 0xEBE80010},
             {0x00278001, 0xEBE88001, 0xEBE88001},
             {0x12270000, 0xEBE80000, 0xEBE80000},
             {0x00007FFF, 0xE0007FFF, 0x00007FFF},
             {0x00008000, 0xEBE88000, 0xEBE88000},
             {0x00009FFF, 0xEBE89FFF, 0xEBE89FFF},
             {0x0000A000, 0xE000A000, 0x0000A000},
             {0x00418000, 0xEBE88000, 0xEBE88000},
             {0x00500002, 0xE0400199, 0x00500002},
             {0x00400000, 0xE0400199, 0x00400000},
             {0xFFFFFFFF, 0xE0400199, 0xFFFFFFFF},
             {0x00300022, 0xE0300022, 0x00300022},
             {0x00000061, 0xE0000061, 0x00000061},
             {126, 0xE000007E, 126},
             {0x18000001, 0xF8000001, 0x18000001},
         }) {
        EXPECT_EQ(pyORV3::mapStatus(pyORV3::libraryStatus(status)), mapped) << std::hex << status;
        EXPECT_EQ(pyORV3::normalizeStatus(pyORV3::libraryStatus(status)), normalized)
            << std::hex << status;
    }
}

}  // namespace
