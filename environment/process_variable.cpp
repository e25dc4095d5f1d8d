#include "environment/process_variable.h"

#include "platform/platform.h"

namespace pyORV3 {

std::optional<std::string> processVariable(const std::string& name) {
    std::string value(256, '\0');
    // The size that is needed may grow again before the next attempt.
    for (;;) {
        const auto size = static_cast<DWORD>(value.size());
        const DWORD result = GetEnvironmentVariableA(name.c_str(), value.data(), size);
        value.resize(result);
        if (result == 0) {
            return std::nullopt;
        }
        if (result < size) {
            return value;
        }
    }
}

}  // namespace pyORV3
