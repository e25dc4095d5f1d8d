// Telling a process from those that were forked from it.
#ifndef PYORV3_EMBEDDED_ORV_FILES_PROCESS_H
#define PYORV3_EMBEDDED_ORV_FILES_PROCESS_H

#include <cstdint>

namespace embedded {

// A number that differs between a process and a process forked from it. It costs no system call.
std::uint32_t processGeneration();

}  // namespace embedded

#endif
