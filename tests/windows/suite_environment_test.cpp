// The suite environment on the system's own registry and environment.
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

/// The suite's key, empty at first and gone after the test.
class SuiteKey {
  public:
    SuiteKey() {
        remove();
        EXPECT_EQ(RegCreateKeyExA(HKEY_LOCAL_MACHINE, path, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                                  &key_, nullptr),
                  ERROR_SUCCESS);
    }
    ~SuiteKey() {
        RegCloseKey(key_);
        remove();
    }
    SuiteKey(const SuiteKey&) = delete;
    SuiteKey& operator=(const SuiteKey&) = delete;

    void set(const std::string& name, DWORD type, const Bytes& data) const {
        EXPECT_EQ(RegSetValueExA(key_, name.c_str(), 0, type, data.data(),
                                 static_cast<DWORD>(data.size())),
                  ERROR_SUCCESS);
    }

  private:
    static constexpr const char* path = "SOFTWARE\\Tarsel\\Orsova Environment";

    static void remove() { RegDeleteKeyA(HKEY_LOCAL_MACHINE, path); }

    HKEY key_ = nullptr;
};

class SuiteEnvironment : public testing::Test {
  protected:
    void SetUp() override {
        SetEnvironmentVariableA("OSVENV", nullptr);
        for (const char* name : {"PYORV3_A", "PYORV3_Z"}) {
            SetEnvironmentVariableA(name, nullptr);
            _putenv((std::string(name) + "=").c_str());
        }
    }
};

std::optional<std::string> runtimeVariable(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

TEST_F(SuiteEnvironment, BothCopiesHoldTheRegistrysTextUnlessTheVariableHasAValue) {
    struct Case {
        const char* present;
        DWORD type;
        Bytes data;
        std::optional<std::string> expected;
    };
    const std::string longText(300, 'x');
    const std::vector<Case> cases = {
        {nullptr, REG_SZ, text("C:\\Suite"), "C:\\Suite"},
        {"mine", REG_SZ, text("registry"), "mine"},
        {nullptr, REG_SZ, text(longText), longText},
        {nullptr, REG_SZ,
         text("Pr\xFC"
              "fung"),
         "Pr\xFC"
         "fung"},
        {nullptr, REG_EXPAND_SZ, text("%PATH%"), "%PATH%"},
        {nullptr, REG_BINARY, {'A', 'B'}, "AB"},
        {nullptr, REG_SZ, text(""), std::nullopt},
    };
    for (const auto& [present, type, data, expected] : cases) {
        SetUp();
        SetEnvironmentVariableA("PYORV3_A", present);
        const SuiteKey key;
        key.set("PYORV3_A", type, data);
        key.set("PYORV3_Z", REG_SZ, text("last"));
        pyORV3::loadSuiteEnvironment();
        EXPECT_EQ(pyORV3::processVariable("PYORV3_A"), expected);
        EXPECT_EQ(runtimeVariable("PYORV3_A"), expected);
        EXPECT_EQ(pyORV3::processVariable("PYORV3_Z"), "last");
    }
}

TEST_F(SuiteEnvironment, TheMarkerIsSetOnlyWhereTheKeyIsAndStopsFurtherReading) {
    pyORV3::loadSuiteEnvironment();
    EXPECT_EQ(pyORV3::processVariable("OSVENV"), std::nullopt);

    const SuiteKey key;
    key.set("PYORV3_A", REG_SZ, text("first"));
    pyORV3::loadSuiteEnvironment();
    EXPECT_EQ(pyORV3::processVariable("OSVENV"), "1");
    EXPECT_EQ(runtimeVariable("OSVENV"), std::nullopt);

    key.set("PYORV3_Z", REG_SZ, text("second"));
    pyORV3::loadSuiteEnvironment();
    EXPECT_EQ(pyORV3::processVariable("PYORV3_Z"), std::nullopt);
}

TEST_F(SuiteEnvironment, TheProcessGivesUpItsDefaultAccessControlList) {
    pyORV3::loadSuiteEnvironment();
    HANDLE token = nullptr;
    ASSERT_NE(OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token), 0);
    std::vector<BYTE> buffer(4096);
    DWORD size = 0;
    EXPECT_NE(GetTokenInformation(token, TokenDefaultDacl, buffer.data(),
                                  static_cast<DWORD>(buffer.size()), &size),
              0);
    EXPECT_EQ(reinterpret_cast<const TOKEN_DEFAULT_DACL*>(buffer.data())->DefaultDacl, nullptr);
    CloseHandle(token);
}

}  // namespace
