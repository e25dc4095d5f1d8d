// What a port has to know of exceptions: what is none, and how those that other libraries throw
// find the catch clauses of this module.
//
// Where the system ends a thread by unwinding its stack, the unwinding meets catch clauses and
// destructors as an exception does. It has to pass: a catch (...) that ends it, or a function that
// lets nothing out, ends the process.
//
// As to exceptions, on most systems one C++ runtime serves a whole process, and there is nothing to
// do.
//
// The compiler's runtime for 32-bit Windows finds catch clauses through tables, and it searches
// only those that were registered with it. The module carries a runtime of its own, and another
// library throws through another runtime, which does not know the module's tables; such an
// exception would end the process. The module therefore registers its tables with the shared
// runtime of the compiler, libgcc_s_dw2-1.dll, as soon as a library has brought it into the
// process.
//
// What a library throws is caught when it was built by the same compiler and linked with the shared
// runtime (-shared-libgcc). A library with a runtime of its own inside has to catch its exceptions
// itself, and so has one that was built by another compiler.
#ifndef PYORV3_PLATFORM_EXCEPTIONS_H
#define PYORV3_PLATFORM_EXCEPTIONS_H

#if !defined(_WIN32)
#include <cxxabi.h>
#endif

namespace platform {

// The end of a thread on its way through the stack. A catch (...) that may meet it has a clause
// before it that hands it on: catch (platform::ThreadEnd&) { throw; }
#if defined(_WIN32)
class ThreadEnd {};  // threads end without unwinding
#else
using ThreadEnd = abi::__forced_unwind;
#endif

// Marks a function with such a clause: what the reference names may have no address, and a
// sanitizer would take that for a fault.
#define PYORV3_MEETS_THREAD_END __attribute__((no_sanitize("undefined")))

// To be called after a library was loaded and before it is called. Costs a few look-ups; safe to
// call from several threads.
#if defined(_WIN32)
void receiveExceptionsOfLoadedLibraries();
#else
inline void receiveExceptionsOfLoadedLibraries() {}
#endif

}  // namespace platform

#endif
