// A fixture for tests that change properties of the whole process.
#ifndef PYORV3_TESTS_SUPPORT_PROCESS_FIXTURE_H
#define PYORV3_TESTS_SUPPORT_PROCESS_FIXTURE_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

// Creates a temporary directory for each test; restores environment and current directory after it.
class ProcessFixture : public testing::Test {
  public:
    ProcessFixture() {
        for (char** variable = environ; *variable != nullptr; ++variable) {
            variables_.emplace_back(*variable);
        }
        std::string pattern = std::filesystem::temp_directory_path() / "pyorv3-XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("no temporary folder");
        }
        folder_ = pattern;
    }

    ProcessFixture(const ProcessFixture&) = delete;
    ProcessFixture& operator=(const ProcessFixture&) = delete;
    ~ProcessFixture() override {
        std::filesystem::current_path(current_);
        std::filesystem::remove_all(folder_);
        clearenv();
        for (const auto& variable : variables_) {
            const auto equals = variable.find('=');
            setenv(variable.substr(0, equals).c_str(), variable.c_str() + equals + 1, 1);
        }
    }

  protected:
    const std::filesystem::path& folder() const { return folder_; }

    std::string write(const std::string& name, std::string_view content) const {
        const auto path = folder_ / name;
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }

  private:
    std::vector<std::string> variables_;
    std::filesystem::path current_ = std::filesystem::current_path();
    std::filesystem::path folder_;
};

#endif
