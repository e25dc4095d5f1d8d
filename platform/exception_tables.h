// How exceptions that other libraries throw find the catch clauses of this module.
//
// On most systems one C++ runtime serves a whole process, and there is nothing to do.
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
#ifndef PYORV3_PLATFORM_EXCEPTION_TABLES_H
#define PYORV3_PLATFORM_EXCEPTION_TABLES_H

namespace platform {

// To be called after a library was loaded and before it is called. Costs a few look-ups; safe to
// call from several threads.
#if defined(_WIN32)
void receiveExceptionsOfLoadedLibraries();
#else
inline void receiveExceptionsOfLoadedLibraries() {}
#endif

}  // namespace platform

#endif
