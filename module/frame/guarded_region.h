// The guarded region: turns what is thrown inside a method into a status.
#ifndef PYORV3_MODULE_FRAME_GUARDED_REGION_H
#define PYORV3_MODULE_FRAME_GUARDED_REGION_H

#include <exception>
#include <new>

#include "module/frame/outcome.h"

namespace pyORV3 {

// Runs the work and returns its outcome, or the status of what it threw. Clauses match exact
// types: a thrown long or unsigned int is an unknown exception.
template <typename Work>
[[nodiscard]] Outcome guardedRegion(Work&& work) noexcept {
    try {
        return work();
    } catch (unsigned long thrown) {
        return static_cast<Status>(thrown);
    } catch (int thrown) {
        return static_cast<Status>(thrown);
    } catch (short thrown) {
        return signExtended(thrown);
    } catch (const std::bad_alloc&) {
        return outOfMemory;
    } catch (const std::exception&) {
        return standardException;
    } catch (...) {
        return unknownException;
    }
}

}  // namespace pyORV3

#endif
