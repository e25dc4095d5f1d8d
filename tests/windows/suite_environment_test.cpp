// Tests of the suite environment with the registry and environment of the system.
#include "environment/suite_environment.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "platform/platform.h"

namespace {

using Bytes = std::vector<BYTE>;

Bytes text(const std::string& content) {
    Bytes bytes(content.begin(), content.end());
    bytes.push_back(0);
    return bytes;
}

/// Creates the empty registry key of the suite and deletes it after the test.
class SuiteKey {
  public:
    SuiteKey() {
        remove();
        EXPECT_EQ(ERROR_SUCCESS, RegCreateKeyExA(HKEY_LOCAL_MACHINE, path, 0, nullptr, 0,
                                                 KEY_ALL_ACCESS, nullptr, &key_, nullptr));
    }
    ~SuiteKey() {
        RegCloseKey(key_);
        remove();
    }
    SuiteKey(const SuiteKey&) = delete;
    SuiteKey& operator=(const SuiteKey&) = delete;

    void set(const std::string& name, DWORD type, const Bytes& data) const {
        EXPECT_EQ(ERROR_SUCCESS, RegSetValueExA(key_, name.c_str(), 0, type, data.data(),
                                                static_cast<DWORD>(data.size())));
    }

  private:
    static constexpr const char* path = "SOFTWARE\\Tarsel\\Orsova Environment";

    static void remove() { RegDeleteKeyA(HKEY_LOCAL_MACHINE, path); }

    HKEY key_ = nullptr;
};

void forgetVariables() {
    for (const std::string name : {"OSVENV", "PYORV3_A"}) {
        SetEnvironmentVariableA(name.c_str(), nullptr);
        _putenv((name + "=").c_str());
    }
}

std::optional<std::string> runtimeVariable(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

TEST(SuiteEnvironment, UnsetVariablesGetTheRegistryValueInBothCopies) {
    struct Case {
        const char* present;
        DWORD type;
        Bytes data;
        std::optional<std::string> expected;
    };
    const std::string longText(300, 'x');
    const std::string german =
        "Pr\xFC"
        "fung";
    const std::vector<Case> cases = {
        {"mine", REG_SZ, text("registry"), "mine"},
        {nullptr, REG_SZ, text(longText), longText},
        {nullptr, REG_SZ, text(german), german},
        {nullptr, REG_EXPAND_SZ, text("%PATH%"), "%PATH%"},
        {nullptr, REG_BINARY, {'A', 'B'}, "AB"},
        {nullptr, REG_SZ, text(""), std::nullopt},
    };
    forgetVariables();
    pyORV3::loadSuiteEnvironment();
    EXPECT_EQ(std::nullopt, pyORV3::processVariable("OSVENV"));  // the key does not exist
    for (const auto& [present, type, data, expected] : cases) {
        forgetVariables();
        SetEnvironmentVariableA("PYORV3_A", present);
        const SuiteKey key;
        key.set("PYORV3_A", type, data);
        pyORV3::loadSuiteEnvironment();
        EXPECT_EQ(expected, pyORV3::processVariable("PYORV3_A"));
        EXPECT_EQ(expected, runtimeVariable("PYORV3_A"));
        EXPECT_EQ("1", pyORV3::processVariable("OSVENV"));
        EXPECT_EQ(std::nullopt, runtimeVariable("OSVENV"));
    }
}

TEST(SuiteEnvironment, DefaultAccessControlListOfTheProcessIsRemoved) {
    forgetVariables();
    const SuiteKey key;
    pyORV3::loadSuiteEnvironment();
    HANDLE token = nullptr;
    ASSERT_NE(0, OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token));
    std::vector<BYTE> buffer(4096);
    DWORD size = 0;
    EXPECT_NE(0, GetTokenInformation(token, TokenDefaultDacl, buffer.data(),
                                     static_cast<DWORD>(buffer.size()), &size));
    EXPECT_EQ(nullptr, reinterpret_cast<const TOKEN_DEFAULT_DACL*>(buffer.data())->DefaultDacl);
    CloseHandle(token);
}

}  // namespace
