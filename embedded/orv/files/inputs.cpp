#include "embedded/orv/files/inputs.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <system_error>

#include "embedded/orv/content/failure.h"
#include "embedded/orv/files/open_files.h"

namespace embedded {
namespace {

constexpr const char* extension = ".qar";

std::optional<std::filesystem::path> inputFolder() {
    const char* const folder = std::getenv("ORV_INPUTS");
    if (folder == nullptr || *folder == '\0') {
        return std::nullopt;
    }
    return folder;
}

}  // namespace

std::vector<std::string> inputNames() {
    std::vector<std::string> names;
    const auto folder = inputFolder();
    if (!folder) {
        return names;
    }
    std::error_code failure;
    std::filesystem::directory_iterator place(*folder, failure);
    while (!failure && place != std::filesystem::directory_iterator()) {
        const std::filesystem::path& file = place->path();
        if (file.extension() == extension && openFiles().isDataSource(file.string())) {
            names.push_back(file.stem().string());
        }
        place.increment(failure);
    }
    std::ranges::sort(names);
    return names;
}

std::string inputPath(const std::string& name) {
    if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos) {
        throw Failure(codes::nameRefused);
    }
    const auto folder = inputFolder();
    if (!folder) {
        throw Failure(codes::fileNotFound);
    }
    return (*folder / (name + extension)).string();
}

}  // namespace embedded
