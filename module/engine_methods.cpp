#include "module/engine_methods.h"

#include <array>
#include <string>

#include "module/binding/call_frame.h"
#include "module/binding/text_conversion.h"
#include "module/handle_methods.h"
#include "platform/dynamic_library.h"

namespace pyORV3 {

namespace {

// Catches exceptions of the entry point while the engine is loaded, because the engine contains the
// code of the exception object.
Outcome executeEngine(const char* engineName, const char* entryPointName, std::int32_t first,
                      std::int32_t second) {
    constexpr std::size_t maxFileNameLength = 259;
    const std::string fileName = std::string(engineName) + ".dll";
    if (fileName.size() > maxFileNameLength) {
        return {badArguments, "The engine's name is too long"};
    }
    const platform::DynamicLibrary library(fileName.c_str());
    if (!library) {
        return {engineStatus(systemError(GetLastError())), "The engine cannot be loaded"};
    }
    const auto entryPoint = library.find<OrvEngineFunction>(entryPointName);
    if (entryPoint == nullptr) {
        return {engineStatus(systemError(GetLastError())), "The engine has no such entry point"};
    }
    return guardedRegion([&]() -> Outcome {
        return {engineStatus(libraryStatus(entryPoint(first, second, 0, 0))), "The engine failed"};
    });
}

// Returns the names of the inputs in the order of the library. A failure of the library ends the
// list.
std::string joinedInputNames(OrvContext context) {
    constexpr std::size_t maxListLength = 8191;
    std::array<char, ORV_INPUT_NAME_SIZE + 1> name{};  // terminates a name that fills its buffer
    std::string names;
    OrvStatus status = SOrvFirstInput(context, 0, name.data());
    for (const char* separator = ""; status == 0; separator = ",") {
        const std::string addition = std::string(separator) + name.data();
        if (names.size() + addition.size() > maxListLength) {
            break;
        }
        names += addition;
        status = SOrvNextInput(context, name.data());
    }
    return names;
}

}  // namespace

Outcome executeNativeEngine(const char* engineName, const char* entryPointName, std::int32_t first,
                            std::int32_t second) {
    // Other Python threads run meanwhile. The lock is not reacquired in a destructor: if the
    // interpreter has ended, reacquiring it ends this thread, which a destructor must not do.
    PyThreadState* const threadState = PyEval_SaveThread();
    const Outcome outcome =
        guardedRegion([&] { return executeEngine(engineName, entryPointName, first, second); });
    PyEval_RestoreThread(threadState);
    return outcome;
}

Outcome enumerateDefinitions(PythonReference& names) {
    OrvContext handle = 0;
    if (const Outcome created = createHandle(handle); created.isFailure()) {
        return created;
    }
    const TemporaryContext context(handle);
    names = textFromUtf8(joinedInputNames(context.get()));
    return success;
}

Outcome control(std::int32_t handle, std::int32_t first, std::int32_t second) {
    return {SOrvControlDSC(handle, first, second), "SOrvControlDSC() failed"};
}

Outcome getStatus(std::int32_t handle, PythonReference& state) {
    std::uint32_t word = 0;
    const OrvStatus status = SOrvQueryDataSource(handle, ORV_SOURCE_STATE_ITEM, &word);
    if (status == 0) {
        state = PythonReference(integerObject(static_cast<std::int16_t>(word & 0xFFFF)));
    }
    return {status, "SOrvQueryDataSource() failed"};
}

Outcome reverify(std::int32_t handle) {
    return {SOrvReVerify(handle), "SOrvReVerify() failed"};
}

}  // namespace pyORV3
