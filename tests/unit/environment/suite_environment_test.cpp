#include "environment/suite_environment.h"

#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "platform/platform.h"
#include "tests/support/process_fixture.h"

namespace {

using platform::environmentVariable;

class SuiteEnvironment : public ProcessFixture {
  protected:
    SuiteEnvironment() {
        unsetenv("OSVENV");
        setenv("ORSOVA_REGISTRY", (folder() / "registry.reg").c_str(), 1);
    }

    void useRegistry(const std::string& values) const {
        write("registry.reg",
              "REGEDIT4\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarsel\\Orsova Environment]\n" + values);
    }
};

TEST_F(SuiteEnvironment, RegistrySetsOnlyUnsetVariables) {
    const std::string bufferSized(256, 'x');
    const std::string longText(100000, 'y');
    const std::vector<
        std::tuple<std::optional<std::string>, std::string, std::optional<std::string>>>
        cases = {
            {std::nullopt, R"("PYORV3_A"="C:\\Suite")", "C:\\Suite"},
            {"", R"("PYORV3_A"="registry")", "registry"},
            {"mine", R"("PYORV3_A"="registry")", "mine"},
            {bufferSized, R"("PYORV3_A"="registry")", bufferSized},
            {longText, R"("PYORV3_A"="registry")", longText},
            {std::nullopt, R"("PYORV3_A"="")", ""},
            {std::nullopt, R"("PYORV3_A"=")" + bufferSized + "\"", bufferSized},
            {std::nullopt, R"("PYORV3_A"=")" + longText + "\"", longText},
            {std::nullopt, R"("PYORV3_A"=")" + std::string(2000000, 'z') + "\"", std::nullopt},
            {std::nullopt, R"("PYORV3_A"="a=b")", "a=b"},
            {std::nullopt, R"("PYORV3_A=b"="c")", std::nullopt},
            {std::nullopt, "\"PYORV3_A\"=dword:00004241", "AB"},
            {std::nullopt, "\"PYORV3_A\"=hex(2):25,41,00,42,00", "%A"},
            {std::nullopt, "@=\"default\"", std::nullopt},
        };
    for (const auto& [present, line, expected] : cases) {
        unsetenv("OSVENV");
        unsetenv("PYORV3_A");
        if (present) {
            setenv("PYORV3_A", present->c_str(), 1);
        }
        useRegistry(line + "\n\"PYORV3_Z\"=\"last\"\n");
        pyORV3::loadSuiteEnvironment();
        EXPECT_EQ(expected, environmentVariable("PYORV3_A")) << line.substr(0, 400);
        EXPECT_EQ("last", environmentVariable("PYORV3_Z"));
        EXPECT_EQ("1", environmentVariable("OSVENV"));
    }
}

TEST_F(SuiteEnvironment, ManyVariablesAndLongNamesAreRead) {
    std::vector<std::string> names = {"PYORV3_" + std::string(16000, 'N'),
                                      "PYORV3_" + std::string(249, 'F')};
    for (int i = 0; i < 300; ++i) {
        names.push_back("PYORV3_N" + std::to_string(i));
    }
    std::string values;
    for (const auto& name : names) {
        // Short data: of some only the name is too long for the usual buffer, of one by its NUL.
        values.append("\"").append(name).append("\"=\"").append(name, 0, 16).append("\"\n");
    }
    useRegistry(values);
    pyORV3::loadSuiteEnvironment();
    for (const auto& name : names) {
        EXPECT_EQ(name.substr(0, 16), environmentVariable(name.c_str()));
    }
}

TEST_F(SuiteEnvironment, MissingKeyIsTriedAgain) {
    pyORV3::loadSuiteEnvironment();
    EXPECT_EQ(std::nullopt, environmentVariable("OSVENV"));

    setenv("OSVENV", "", 1);
    useRegistry("\"PYORV3_A\"=\"first\"\n");
    pyORV3::loadSuiteEnvironment();
    EXPECT_EQ("first", environmentVariable("PYORV3_A"));
    EXPECT_EQ("1", environmentVariable("OSVENV"));

    for (const char* marker : {"1", "inherited"}) {
        setenv("OSVENV", marker, 1);
        useRegistry("\"PYORV3_B\"=\"second\"\n");
        pyORV3::loadSuiteEnvironment();
        EXPECT_EQ(std::nullopt, environmentVariable("PYORV3_B"));
        EXPECT_EQ(marker, environmentVariable("OSVENV"));
    }
}

}  // namespace
