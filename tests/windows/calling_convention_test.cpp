// Tests of the calling convention: a wrong one moves the stack pointer by the size of the
// arguments. A wrong number of argument bytes in the import library already fails to link.
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

// Returns the stack address of a function called now.
[[gnu::noinline]] std::intptr_t stackPosition() {
    volatile char here = 0;
    return reinterpret_cast<std::intptr_t>(&here);  // NOLINT: a number, no pointer
}

// Ends the process if the stack is not balanced, because return addresses are then unreliable.
template <typename Call>
void expectBalancedStack(Call call) {
    recording::Recorder& recorder = recording::Recorder::instance();
    const std::intptr_t before = stackPosition();
    for (int i = 0; i < callCount; ++i) {
        call();
        if (i % callsToRemember == 0) {
            if (std::abs(stackPosition() - before) > 1024) {
                std::cerr << recorder.calls().back().function << " moves the stack\n";
                std::_Exit(EXIT_FAILURE);
            }
            recorder.reset();
        }
    }
}

// The double does not check arguments; the buffers are large enough for every function.
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
void callMany(Result(ORV_CALL* function)(Arguments...)) {
    expectBalancedStack([=] { function(anyArgument<Arguments>()...); });
}

template <typename... Functions>
void callAll(Functions... functions) {
    EXPECT_EQ(44U, sizeof...(functions));
    (callMany(functions), ...);
}

TEST(CallingConvention, LibraryFunctionsKeepTheStackBalanced) {
    callAll(SOrvCreateDSC, SOrvCreateDSC2, OrvCreateDSC2, SOrvEnumNodes, OrvNodeEnumeration,
            SOrvDeleteDSC, OrvContextDeletion, OrvErrorQuery, SOrvOpenDataSource,
            OrvDataSourceOpening, SOrvCreateFile, OrvFileCreation, SOrvCloseDataSource,
            OrvDataSourceClosing, SOrvFlush, OrvDataSourceFlush, SOrvQueryDSC, SOrvGetParam,
            OrvParameterRead, SOrvPutParam, OrvParameterWrite, OrvParameterDescriptionQuery,
            SOrvGetSpectrum, SOrvPutSpectrum, OrvCreateBlock, SOrvClassCount, OrvRecordCount,
            SOrvEntryCount, SOrvInsertOne, SOrvDeleteOne, SOrvDeleteLevel, SOrvClassCopy,
            OrvClassCopy, SOrvSaveAs, OrvDataSourceDuplication, SOrvCopyRecord, OrvReadUFBlock,
            OrvWriteUFBlock, SOrvQueryDataSource, SOrvControlDSC, SOrvReVerify, SOrvFirstInput,
            SOrvNextInput, SOrvFindRecord);
}

TEST(CallingConvention, DictionaryAndEngineKeepTheStackBalanced) {
    const platform::DynamicLibrary dictionary("pqar.dll");
    const platform::DynamicLibrary engine("double_engine.dll");
    ASSERT_TRUE(dictionary && engine);
    const auto information = dictionary.find<OrvParameterInfoFunction>("pqar_util_getpinfo");
    const auto code = dictionary.find<OrvParameterNameFunction>("pqar_util_pname2code");
    const auto run = engine.find<OrvEngineFunction>("run");
    ASSERT_TRUE(information != nullptr && code != nullptr && run != nullptr);

    std::uint32_t word = 0;
    expectBalancedStack([&] {
        information(1, 1, 0, area.data(), area.data() + 256, &word, &word, &word, &word, &word,
                    &word, &word);
    });
    expectBalancedStack([&] { code("NAME", &word, area.data()); });
    expectBalancedStack([&] { run(1, 2, 0, 0); });
}

}  // namespace
