#include "fileaccess/file_access.h"

#include <cstdlib>
#include <memory>
#include <utility>

#include "environment/suite_environment.h"
#include "fileaccess/library_wrappers.h"
#include "module/ground/trace.h"
#include "platform/platform.h"

namespace Tarsel::Datasources::QAR {

using pyORV3::normalizeStatus;
using pyORV3::Status;
using pyORV3::success;

namespace {

// The absolute form of a name, or the name itself where the system gives none.
std::string fullPath(const std::string& name) {
    struct Freed {
        void operator()(char* text) const noexcept { std::free(text); }
    };
    const std::unique_ptr<char, Freed> absolute(_fullpath(nullptr, name.c_str(), 0));
    return absolute != nullptr ? absolute.get() : name;
}

// Opens or creates the file on a fresh context.
Status openOnContext(OrvContext context, const std::string& path, std::uint32_t flags) {
    if ((flags & ORV_ACCESS_CREATE) != 0) {
        return normalizeStatus(pyORV3::signExtended(
            OrvFileCreation(context, path.c_str(), ORV_SOURCE_FILE, ORV_CREATION_FIRST,
                            ORV_CREATION_SECOND, ORV_CREATION_THIRD)));
    }
    return pyORV3::signExtended(OrvDataSourceOpening(context, path.c_str(), ORV_SOURCE_FILE,
                                                     flags | ORV_ACCESS_READ, 0, nullptr));
}

Status traced(const char* context, std::string_view message, Status status) {
    pyORV3::trace(context, pyORV3::failureLevel, message, status);
    return status;
}

}  // namespace

FileAccess::FileAccess() : FileAccess(0) {}

FileAccess::FileAccess(OrvContext handle) : handle_(handle), attached_(handle != 0) {
    pyORV3::loadSuiteEnvironment();
}

FileAccess::~FileAccess() {
    if (handle_ == 0) {
        return;
    }
    try {
        close(closeWithoutFlush);
    } catch (...) {  // NOLINT(bugprone-empty-catch): nobody is left to tell
    }
}

Status FileAccess::open(std::string fileName, std::uint32_t flags) {
    constexpr const char* context = "FileAccess::open";
    const std::lock_guard lock(mutex_);
    if (fileName.empty()) {
        return traced(context, "File name is NUL", pyORV3::badArguments);
    }
    if (handle_ != 0) {
        return traced(
            context, "Cannot open: " + fileName + " because this instance already has a file open.",
            pyORV3::dataSourceAlreadyOpen);
    }
    const std::string path = fullPath(fileName);
    OrvContext handle = 0;
    if (const Status status = createContext(handle, 0, 0); status != success) {
        return normalizeStatus(status);
    }
    const Status status = openOnContext(handle, path, flags);
    if (status != success) {
        return traced(context, "Failed to open: " + path, status);
    }
    handle_ = handle;
    fileName_ = std::move(fileName);
    return success;
}

Status FileAccess::close(std::uint32_t flags) {
    constexpr const char* context = "FileAccess::close";
    const std::lock_guard lock(mutex_);
    if (attached_) {
        attached_ = false;
        handle_ = 0;
        return success;
    }
    if (handle_ == 0) {
        return traced(context, "File is already closed", pyORV3::noDataSource);
    }
    const std::string formerName = std::exchange(fileName_, {});
    const Status status = normalizeStatus(closeDataSource(std::exchange(handle_, 0), flags));
    if (status != success) {
        return traced(context, "Failed to close: " + formerName, status);
    }
    return success;
}

Status FileAccess::report(std::string_view operation, std::string_view message,
                          Status status) const {
    const std::string name = fileName_.empty() ? "(unknown)" : fileName_;
    pyORV3::trace("FileAccess::" + std::string(operation), pyORV3::failureLevel,
                  "File: " + name + ". " + std::string(message), status);
    return status;
}

}  // namespace Tarsel::Datasources::QAR
