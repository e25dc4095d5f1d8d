// Exceptions: the end of a thread, which is not one, and how exceptions of other libraries reach
// the catch clauses of this module.
//
// If the system ends a thread by unwinding its stack, catch clauses and destructors see the
// unwinding like an exception. It must pass: a catch (...) that stops it, or a noexcept function,
// ends the process.
//
// On most systems one C++ runtime serves the whole process. The runtime of the compiler for 32-bit
// Windows finds catch clauses through tables that were registered with it. The module has its own
// runtime, and another library throws through another runtime, which does not have the tables of
// the module; such an exception would end the process. Therefore the module registers its tables
// with the shared runtime of the compiler, libgcc_s_dw2-1.dll, as soon as a library has loaded it.
//
// Exceptions of a library are caught if it was built by the same compiler and linked with the
// shared runtime (-shared-libgcc). A library with its own runtime, or from another compiler, must
// catch its exceptions itself.
#ifndef PYORV3_PLATFORM_EXCEPTIONS_H
#define PYORV3_PLATFORM_EXCEPTIONS_H

#if !defined(_WIN32)
#include <cxxabi.h>
#endif

namespace platform {

// The end of a thread on its way through the stack. A catch (...) that may meet it needs this
// clause before it: catch (platform::ThreadEnd&) { throw; }
#if defined(_WIN32)
class ThreadEnd {};  // threads end without unwinding
#else
using ThreadEnd = abi::__forced_unwind;
#endif

// Marks a function with such a clause: the reference may have no address, which a sanitizer would
// report.
#define PYORV3_MEETS_THREAD_END __attribute__((no_sanitize("undefined")))

// Must be called after a library was loaded and before it is called. Costs a few look-ups. Safe for
// concurrent use by multiple threads.
#if defined(_WIN32)
void receiveExceptionsOfLoadedLibraries();
#else
inline void receiveExceptionsOfLoadedLibraries() {}
#endif

}  // namespace platform

#endif
