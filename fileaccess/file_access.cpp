#include "fileaccess/file_access.h"

#include <cstdlib>
#include <memory>
#include <utility>

#include "environment/suite_environment.h"
#include "fileaccess/library_wrappers.h"
#include "fileaccess/parameter_metadata.h"
#include "module/status/caught_failure.h"
#include "module/status/trace.h"
#include "parameters/byte_stream.h"
#include "parameters/data_type.h"
#include "platform/platform.h"

namespace Tarsel::Datasources::QAR {

using com::tarsel::utility::Variant;
using pyORV3::failureLevel;
using pyORV3::normalizeStatus;
using pyORV3::Status;
using pyORV3::success;
using pyORV3::trace;
using Utility::ByteStream;

namespace {

// Returns the absolute form of a name, or the name if the system does not return one.
std::string fullPath(const std::string& name) {
    struct Freed {
        void operator()(char* text) const noexcept { std::free(text); }
    };
    const std::unique_ptr<char, Freed> absolute(_fullpath(nullptr, name.c_str(), 0));
    return absolute != nullptr ? absolute.get() : name;
}

// Opens or creates the file on a new context.
Status openOnContext(OrvContext context, const std::string& path, std::uint32_t flags) {
    if ((flags & ORV_ACCESS_CREATE) != 0) {
        return normalizeStatus(pyORV3::signExtended(
            OrvFileCreation(context, path.c_str(), ORV_SOURCE_FILE, ORV_CREATION_FIRST,
                            ORV_CREATION_SECOND, ORV_CREATION_THIRD)));
    }
    return pyORV3::signExtended(OrvDataSourceOpening(context, path.c_str(), ORV_SOURCE_FILE,
                                                     flags | ORV_ACCESS_READ, 0, nullptr));
}

// Records count from 1; 0 means that the caller does not name a record.
std::uint16_t recordOrFirst(std::uint16_t record) {
    return record == 0 ? 1 : record;
}

// The library accepts the size of a value as 16 bits.
std::uint16_t sizeOf(const ByteStream& buffer) {
    return static_cast<std::uint16_t>(buffer.size());
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
    } catch (...) {  // NOLINT(bugprone-empty-catch): a destructor cannot report it
    }
}

Status FileAccess::open(std::string fileName, std::uint32_t flags) {
    constexpr const char* context = "FileAccess::open";
    const std::lock_guard lock(mutex_);
    if (fileName.empty()) {
        return trace(context, failureLevel, "File name is NUL", pyORV3::badArguments);
    }
    if (handle_ != 0) {
        return trace(context, failureLevel,
                     {"Cannot open: ", fileName, " because this instance already has a file open."},
                     pyORV3::dataSourceAlreadyOpen);
    }
    const std::string path = fullPath(fileName);
    OrvContext handle = 0;
    if (const Status status = createContext(handle, 0, 0); status != success) {
        return normalizeStatus(status);
    }
    const Status status = openOnContext(handle, path, flags);
    if (status != success) {
        return trace(context, failureLevel, {"Failed to open: ", path}, status);
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
        return trace(context, failureLevel, "File is already closed", pyORV3::noDataSource);
    }
    const std::string formerName = std::exchange(fileName_, {});
    const Status status = normalizeStatus(closeDataSource(std::exchange(handle_, 0), flags));
    if (status != success) {
        return trace(context, failureLevel, {"Failed to close: ", formerName}, status);
    }
    return success;
}

// ---- Whole classes and data sources ----

Status FileAccess::copyTo(FileAccess& destination, std::uint32_t classArgument) {
    constexpr std::string_view context = "FileAccess::copyTo";
    const std::lock_guard sourceLock(mutex_);
    const std::lock_guard destinationLock(destination.mutex_);
    if (handle_ == 0) {
        return report(context, "Source file is not open", pyORV3::noDataSource);
    }
    if (destination.handle_ == 0) {
        return report(context, "Destination file is not open", pyORV3::noDataSource);
    }
    if (&destination == this) {
        return report(context, "The source and destination cannot be the same",
                      pyORV3::badArguments);
    }
    if (classArgument == allClasses) {
        return duplicateTo(destination);
    }
    return normalizeStatus(copyClass(handle_, destination.handle_, classCodeOf(classArgument)));
}

Status FileAccess::duplicateTo(FileAccess& destination) {
    constexpr std::string_view context = "FileAccess::duplicateTo";
    if (handle_ == 0) {
        return report(context, "File is not open", pyORV3::dataSourceAlreadyOpen);
    }
    if (destination.handle_ == 0) {
        return report(context, "Destination is not open", pyORV3::dataSourceAlreadyOpen);
    }
    if (&destination == this) {
        return report(context, "The source and destination cannot be the same",
                      pyORV3::badArguments);
    }
    return normalizeStatus(
        pyORV3::signExtended(OrvDataSourceDuplication(handle_, destination.handle_)));
}

Status FileAccess::createBlock(std::uint32_t classArgument, std::uint32_t count, std::uint32_t,
                               std::uint32_t) {
    const std::lock_guard lock(mutex_);
    if (handle_ == 0) {
        return report("FileAccess::createBlock", "File is not open", pyORV3::noDataSource);
    }
    const std::uint16_t classCode = classCodeOf(classArgument);
    auto size = static_cast<std::int32_t>(count);
    if (classCode == ORV_SPECTRUM_CLASS && count == 0) {
        Variant channels;
        // After a failure the value is Unknown, which counts as 0.
        getParameter(ORV_CHANNEL_COUNT_PARAMETER, channels, 0, 0);
        size = channels.toInt32();
    }
    return normalizeStatus(pyORV3::signExtended(OrvCreateBlock(handle_, classCode, size, 0)));
}

// ---- Single parameters ----

Status FileAccess::getParameter(std::uint32_t code, Variant& value, std::uint16_t record,
                                std::uint16_t entry) {
    const std::lock_guard lock(mutex_);
    value.clear();
    if (handle_ == 0) {
        return report("FileAccess::getParameter", "File is not open", pyORV3::noDataSource);
    }
    ParameterMetadata metadata(handle_);
    if (const Status status = metadata.lookup(code); status != success) {
        return status;
    }
    ByteStream buffer;
    try {
        buffer.allocate(metadata.valueSize());
    } catch (...) {
        if (const Status status = pyORV3::reportCaught("FileAccess::getParameter");
            status != success) {
            return status;
        }
    }
    record = recordOrFirst(record);
    const Status status =
        normalizeStatus(readParameter(handle_, code, record, entry, buffer.data(), sizeOf(buffer)));
    if (status != success) {
        return reportParameter("FileAccess::getParameter", "Failed to get parameter: ", code,
                               record, entry, status);
    }
    return metadata.deserialize(buffer, value);
}

Status FileAccess::setParameter(std::uint32_t code, const Variant& value, std::uint16_t record,
                                std::uint16_t entry) {
    const std::lock_guard lock(mutex_);
    if (handle_ == 0) {
        return report("FileAccess::setParameter", "File is not open", pyORV3::noDataSource);
    }
    ParameterMetadata metadata(handle_);
    if (const Status status = metadata.lookup(code); status != success) {
        return status;
    }
    ByteStream buffer;
    if (const Status status = metadata.serialize(value, buffer); status != success) {
        return status;
    }
    record = recordOrFirst(record);
    const Status status = normalizeStatus(
        writeParameter(handle_, code, record, entry, buffer.data(), sizeOf(buffer)));
    if (status != success) {
        return reportParameter("FileAccess::setParameter", "Failed to set parameter: ", code,
                               record, entry, status);
    }
    return success;
}

// ---- Diagnostics ----

Status FileAccess::report(std::string_view context, std::string_view message, Status status) const {
    const std::string_view name = fileName_.empty() ? "(unknown)" : std::string_view(fileName_);
    return trace(context, failureLevel, {"File: ", name, ". ", message}, status);
}

Status FileAccess::reportParameter(std::string_view context, std::string_view message,
                                   std::uint32_t code, std::uint16_t record, std::uint16_t entry,
                                   Status status) const {
    return report(context,
                  std::string(message) + describeParameterCode(code) +
                      " Record: " + std::to_string(record) + " Entry: " + std::to_string(entry),
                  status);
}

}  // namespace Tarsel::Datasources::QAR
