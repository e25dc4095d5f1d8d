#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <vector>

#include "fileaccess/file_access.h"
#include "fileaccess/parameter_metadata.h"
#include "tests/unit/platform/process_fixture.h"

namespace {

using namespace Tarsel::Datasources::QAR;

class SuiteEnvironmentUse : public ProcessFixture {};

TEST_F(SuiteEnvironmentUse, isLoadedBeforeTheObjectLayerMakesAContext) {
    const std::string registry =
        write("registry.reg",
              "REGEDIT4\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Tarsel\\Orsova Environment]\n"
              "\"PYORV3_TEST\"=\"loaded\"\n");
    setenv("ORSOVA_REGISTRY", registry.c_str(), 1);
    const std::vector<std::function<void()>> uses{
        [] { const FileAccess empty; }, [] { const FileAccess attached(1); },
        [] { static_cast<void>(describeParameterCode(5)); }};
    for (std::size_t use = 0; use < uses.size(); ++use) {
        SCOPED_TRACE(use);
        unsetenv("OSVENV");
        unsetenv("PYORV3_TEST");
        uses[use]();
        EXPECT_STREQ(std::getenv("PYORV3_TEST"), "loaded");
    }
}

}  // namespace
