// Statuses as the numbers that tests are written in.
#ifndef PYORV3_TESTS_SUPPORT_STATUS_CODE_H
#define PYORV3_TESTS_SUPPORT_STATUS_CODE_H

#include <cstdint>
#include <ostream>

#include "module/ground/status.h"

namespace pyORV3 {

inline bool operator==(Status status, std::uint32_t code) {
    return codeOf(status) == code;
}
inline std::ostream& operator<<(std::ostream& stream, Status status) {
    return stream << codeOf(status);
}

}  // namespace pyORV3

#endif
