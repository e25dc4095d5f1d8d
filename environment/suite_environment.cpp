#include "environment/suite_environment.h"

#include <cstdint>
#include <string>

#include "environment/default_access.h"
#include "environment/process_variable.h"
#include "environment/registry_key.h"
#include "platform/platform.h"

namespace pyORV3 {

namespace {

constexpr const char* markerVariable = "OSVENV";
constexpr const char* suiteKey = "SOFTWARE\\Tarsel\\Orsova Environment";

// Ends the reading of a key that fails at every index and never reports its last one, as one that
// is deleted meanwhile; no suite has so many variables.
constexpr std::uint32_t maximumValueCount = 65536;

bool canNameVariable(const std::string& name) {
    return !name.empty() && name.find('=') == std::string::npos;
}

void setVariable(const std::string& name, const std::string& registryText) {
    const auto present = processVariable(name);
    const std::string& value = present ? *present : registryText;
    if (!present) {
        SetEnvironmentVariableA(name.c_str(), value.c_str());
    }
    // The runtime library made its copy of the environment before these variables were set.
    _putenv((name + "=" + value).c_str());
}

}  // namespace

void loadSuiteEnvironment() {
    if (processVariable(markerVariable)) {
        return;
    }
    relaxDefaultAccess();
    const RegistryKey key(HKEY_LOCAL_MACHINE, suiteKey);
    if (!key.isOpen()) {
        return;
    }
    std::string name;
    std::string text;
    for (std::uint32_t index = 0; index < maximumValueCount; ++index) {
        const auto reading = key.readValue(index, name, text);
        if (reading == RegistryKey::Reading::end) {
            break;
        }
        if (reading == RegistryKey::Reading::value && canNameVariable(name)) {
            setVariable(name, text);
        }
    }
    SetEnvironmentVariableA(markerVariable, "1");
}

}  // namespace pyORV3
