#include "embedded/orv/files/inputs.h"

#include <dirent.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "embedded/orv/content/failure.h"
#include "embedded/orv/files/file_descriptor.h"
#include "embedded/orv/files/file_name.h"
#include "embedded/orv/files/open_files.h"
#include "text/unicode.h"

namespace embedded {
namespace {

constexpr std::string_view extension = ".qar";

// Returns an empty string if the variable is not set.
std::string inputFolder() {
    const char* const folder = std::getenv("ORV_INPUTS");
    return folder == nullptr ? std::string() : nameInUtf8(folder);
}

// Returns null after the last entry.
const dirent* nextIn(DIR* folder) {
    errno = 0;
    const dirent* entry = readdir(folder);
    if (entry == nullptr && errno != 0) {
        throwSystemFailure(errno);
    }
    return entry;
}

}  // namespace

std::vector<std::string> inputNames() {
    std::vector<std::string> names;
    const std::string folder = inputFolder();
    if (folder.empty()) {
        return names;
    }
    const auto close = [](DIR* directory) { closedir(directory); };
    const std::unique_ptr<DIR, decltype(close)> opened(opendir(folder.c_str()));
    if (opened == nullptr) {
        if (errno == ENOENT || errno == ENOTDIR || errno == EACCES) {
            return names;
        }
        throwSystemFailure(errno);
    }
    while (const dirent* entry = nextIn(opened.get())) {
        const std::string_view file = entry->d_name;
        // A file whose name is not UTF-8 could not be opened by its listed name.
        if (file.size() > extension.size() && file.ends_with(extension) && text::isUtf8(file) &&
            isDataSource(folder + "/" + std::string(file))) {
            names.emplace_back(file.substr(0, file.size() - extension.size()));
        }
    }
    std::ranges::sort(names);
    return names;
}

std::string inputPath(const std::string& name) {
    if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos) {
        throw Failure(codes::nameRefused);
    }
    const std::string folder = inputFolder();
    if (folder.empty()) {
        throw Failure(codes::fileNotFound);
    }
    return folder + "/" + name + std::string(extension);
}

}  // namespace embedded
