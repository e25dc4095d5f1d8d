#include <gtest/gtest.h>

#include "tests/windows/guarded_engine.h"

namespace {

struct Case {
    const char* thrown;
    std::int32_t kind;
    std::int32_t value;
    std::uint32_t status;
};

constexpr Case cases[] = {
    {"unsigned long", 0, 5, 5},
    {"int", 1, -7, 0xFFFFFFF9},
    {"short", 2, -5, 0xFFFFFFFB},
    {"std::bad_alloc", 3, 0, codeOf(pyORV3::outOfMemory)},
    {"std::runtime_error", 4, 0, codeOf(pyORV3::standardException)},
    {"long", 5, 5, codeOf(pyORV3::unknownException)},
    {"a class of the engine", 6, 0, codeOf(pyORV3::unknownException)},
    {"nothing", 7, 42, 42},
};

TEST(ExceptionTables, ExceptionsOfAnEngineAreCaughtEachTimeItIsLoaded) {
    for (int round = 0; round < 3; ++round) {
        for (const auto& [thrown, kind, value, status] : cases) {
            EXPECT_EQ(status, runGuarded(kind, value)) << thrown;
        }
        EXPECT_EQ(nullptr, GetModuleHandleA("throwing_engine.dll"));
    }
}

// The start-up code of a module registers its tables with the shared runtime only if that is
// already loaded.
TEST(ExceptionTables, ModuleLoadedAfterTheSharedRuntimeCatchesExceptions) {
    const platform::DynamicLibrary engine("throwing_engine.dll");
    const platform::DynamicLibrary late("catching_module.dll");
    ASSERT_TRUE(engine && late);
    const auto throwHere = late.find<std::uint32_t (*)(std::int32_t)>("throwInLateModule");
    const auto run = late.find<std::uint32_t (*)(std::int32_t, std::int32_t)>("runInLateModule");
    EXPECT_EQ(0xFFFFFFF9, throwHere(-7));
    for (const auto& [thrown, kind, value, status] : cases) {
        EXPECT_EQ(status, run(kind, value)) << thrown;
    }
    EXPECT_EQ(0xFFFFFFF9, throwHere(-7));
}

}  // namespace
