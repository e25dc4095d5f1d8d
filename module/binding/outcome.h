// Outcome: the result of a method, which is its status and a message for the failed step; and the
// guarded region, which converts exceptions to outcomes.
#ifndef PYORV3_MODULE_BINDING_OUTCOME_H
#define PYORV3_MODULE_BINDING_OUTCOME_H

#include <exception>
#include <new>

#include "module/status/status.h"
#include "module/status/trace.h"
#include "platform/exceptions.h"

namespace pyORV3 {

struct Outcome {
    // For a status that identifies the failed step by itself.
    constexpr Outcome(Status code = success, const char* step = "") noexcept
        : status(code), failedStep(step) {}

    // The result of a call of the data-access library.
    constexpr Outcome(OrvStatus code, const char* step) noexcept
        : Outcome(libraryStatus(code), step) {}

    [[nodiscard]] constexpr bool isFailure() const noexcept { return status != success; }

    Status status;
    const char* failedStep;  // static string; valid if the status is not 0
};

// Runs the work and returns its outcome, or the status of its exception. Clauses match exact types:
// a thrown long or unsigned int is an unknown exception. Does not stop the end of a thread.
template <typename Work>
[[nodiscard]] PYORV3_MEETS_THREAD_END Outcome guardedRegion(Work&& work) {
    constexpr const char* numberThrown = "A number was thrown";
    try {
        return work();
    } catch (unsigned long thrown) {
        return {thrownStatus(static_cast<std::uint32_t>(thrown)), numberThrown};
    } catch (int thrown) {
        return {thrownStatus(static_cast<std::uint32_t>(thrown)), numberThrown};
    } catch (short thrown) {
        return {signExtended(thrown), numberThrown};
    } catch (const std::bad_alloc&) {
        return {outOfMemory, "Memory is exhausted"};
    } catch (const std::exception& exception) {
        trace("guardedRegion", failureLevel, exception.what(), standardException);
        return {standardException, "A standard exception was thrown"};
    } catch (platform::ThreadEnd&) {
        throw;
    } catch (...) {
        return {unknownException, "Something unknown was thrown"};
    }
}

}  // namespace pyORV3

#endif
