// A call with the wrong calling convention moves the stack pointer by the size of the arguments,
// and a wrong number of argument bytes in the import library does not even link.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <type_traits>

#include "platform/dynamic_library.h"
#include "tests/double/recorder.h"

namespace {

constexpr int callCount = 100000;
constexpr int callsToRemember = 400;

// Where the stack of a function that is called now begins.
[[gnu::noinline]] std::intptr_t stackPosition() {
    volatile char here = 0;
    return reinterpret_cast<std::intptr_t>(&here);  // NOLINT: a number, no pointer
}

// Ends the process at the first sign of imbalance, for then no return address can be trusted.
template <typename Call>
void expectBalancedStack(const char* function, Call call) {
    const std::intptr_t before = stackPosition();
    for (int i = 0; i < callCount; ++i) {
        call();
        if (i % callsToRemember == 0) {
            recording::Recorder::instance().reset();
            if (std::abs(stackPosition() - before) > 1024) {
                std::cerr << function << " moves the stack\n";
                std::_Exit(EXIT_FAILURE);
            }
        }
    }
}

// Any arguments do: the double checks none, and buffers are large enough for every function.
std::array<char, 4096> area{};

template <typename Argument>
Argument anyArgument() {
    if constexpr (std::is_pointer_v<Argument>) {
        return reinterpret_cast<Argument>(area.data());
    } else {
        return 1;
    }
}

template <typename Result, typename... Arguments>
void callMany(const char* name, Result(ORV_CALL* function)(Arguments...)) {
    expectBalancedStack(name, [=] { function(anyArgument<Arguments>()...); });
}

TEST(CallingConvention, EveryLibraryFunctionLeavesTheStackAsItWas) {
#define CALL_MANY(function) callMany(#function, function)
    CALL_MANY(SOrvCreateDSC);
    CALL_MANY(SOrvCreateDSC2);
    CALL_MANY(OrvCreateDSC2);
    CALL_MANY(SOrvEnumNodes);
    CALL_MANY(OrvNodeEnumeration);
    CALL_MANY(SOrvDeleteDSC);
    CALL_MANY(OrvContextDeletion);
    CALL_MANY(OrvErrorQuery);
    CALL_MANY(SOrvOpenDataSource);
    CALL_MANY(OrvDataSourceOpening);
    CALL_MANY(SOrvCreateFile);
    CALL_MANY(OrvFileCreation);
    CALL_MANY(SOrvCloseDataSource);
    CALL_MANY(OrvDataSourceClosing);
    CALL_MANY(SOrvFlush);
    CALL_MANY(OrvDataSourceFlush);
    CALL_MANY(SOrvQueryDSC);
    CALL_MANY(SOrvGetParam);
    CALL_MANY(OrvParameterRead);
    CALL_MANY(SOrvPutParam);
    CALL_MANY(OrvParameterWrite);
    CALL_MANY(OrvParameterDescriptionQuery);
    CALL_MANY(SOrvGetSpectrum);
    CALL_MANY(SOrvPutSpectrum);
    CALL_MANY(OrvCreateBlock);
    CALL_MANY(SOrvClassCount);
    CALL_MANY(OrvRecordCount);
    CALL_MANY(SOrvEntryCount);
    CALL_MANY(SOrvInsertOne);
    CALL_MANY(SOrvDeleteOne);
    CALL_MANY(SOrvDeleteLevel);
    CALL_MANY(SOrvClassCopy);
    CALL_MANY(OrvClassCopy);
    CALL_MANY(SOrvSaveAs);
    CALL_MANY(OrvDataSourceDuplication);
    CALL_MANY(SOrvCopyRecord);
    CALL_MANY(OrvReadUFBlock);
    CALL_MANY(OrvWriteUFBlock);
    CALL_MANY(SOrvQueryDataSource);
    CALL_MANY(SOrvControlDSC);
    CALL_MANY(SOrvReVerify);
    CALL_MANY(SOrvFirstInput);
    CALL_MANY(SOrvNextInput);
#undef CALL_MANY
    // The double reads the key as the kind says, so the kind is no arbitrary number.
    std::uint16_t record = 0;
    std::uint32_t word = 0;
    expectBalancedStack("SOrvFindRecord",
                        [&] { SOrvFindRecord(1, 2, "Co-60", 0, &record, &word); });
}

TEST(CallingConvention, DictionaryAndEngineLeaveTheStackAsItWas) {
    const platform::DynamicLibrary dictionary("pqar.dll");
    const platform::DynamicLibrary engine("double_engine.dll");
    ASSERT_TRUE(dictionary && engine);
    const auto information = dictionary.find<OrvParameterInfoFunction>("pqar_util_getpinfo");
    const auto code = dictionary.find<OrvParameterNameFunction>("pqar_util_pname2code");
    const auto run = engine.find<OrvEngineFunction>("run");
    ASSERT_TRUE(information != nullptr && code != nullptr && run != nullptr);

    std::uint32_t word = 0;
    expectBalancedStack("pqar_util_getpinfo", [&] {
        information(1, 1, 0, area.data(), area.data() + 256, &word, &word, &word, &word, &word,
                    &word, &word);
    });
    expectBalancedStack("pqar_util_pname2code", [&] { code("NAME", &word, area.data()); });
    expectBalancedStack("run", [&] { run(1, 2, 0, 0); });
}

}  // namespace
