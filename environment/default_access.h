// The access that other users get to what this process creates.
#ifndef PYORV3_ENVIRONMENT_DEFAULT_ACCESS_H
#define PYORV3_ENVIRONMENT_DEFAULT_ACCESS_H

#include <cstdint>

namespace pyORV3 {

// Takes the default access-control list from the token of the process, so that every user may open
// the objects that it creates without a security description of their own: the suite's libraries
// share such objects between users. Returns 0, or the system's error number of the step that
// failed.
std::uint32_t relaxDefaultAccess();

}  // namespace pyORV3

#endif
