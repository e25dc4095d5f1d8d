#include "module/status.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using pyORV3::mapStatus;
using pyORV3::normalizeStatus;
using pyORV3::Status;

struct Mapping {
    Status status;
    Status expected;
};

TEST(MapStatus, TakesTheFirstRuleThatApplies) {
    const std::vector<Mapping> mappings = {
        {0, 0},
        {0xECE99D7D, 0xECE99D7D},
        {0xECE99F6D, 0xECE99F6D},
        {0xE0610007, 0xE0610007},
        {0x00610000, 0x00610000},
        {0x00270010, 0xEBE80010},
        {0x12270000, 0xEBE80000},
        {0x00008005, 0xEBE88005},
        {0x00007FFF, 0xE0007FFF},
        {0x00008000, 0xEBE88000},
        {0x00009FFF, 0xEBE89FFF},
        {0x0000A000, 0xE000A000},
        {0x00418000, 0xEBE88000},
        {0x00500002, 0xE0400199},
        {0x00400000, 0xE0400199},
        {0xFFFFFFFF, 0xE0400199},
        {0x00300022, 0xE0300022},
        {126, 0xE000007E},
        {0x18000001, 0xF8000001},
        {pyORV3::noDataSource, 0xE0400199},
        {pyORV3::blockMissing, pyORV3::blockMissing},
    };
    for (const Mapping& mapping : mappings) {
        EXPECT_EQ(mapStatus(mapping.status), mapping.expected) << std::hex << mapping.status;
    }
}

TEST(NormalizeStatus, ChangesOnlyTheNormalizedFamily) {
    const std::vector<Mapping> mappings = {
        {0, 0},
        {0x00500002, 0x00500002},
        {0x00278001, 0xEBE88001},
        {0x00270010, 0xEBE80010},
        {0x00008102, 0xEBE88102},
        {0x00000061, 0x00000061},
        {0xFFFFFFFF, 0xFFFFFFFF},
    };
    for (const Mapping& mapping : mappings) {
        EXPECT_EQ(normalizeStatus(mapping.status), mapping.expected) << std::hex << mapping.status;
    }
}

}  // namespace
