// FileAccess: the operations on single parameters.
#include "fileaccess/file_access.h"
#include "fileaccess/library_wrappers.h"
#include "fileaccess/parameter_metadata.h"
#include "module/ground/caught_failure.h"
#include "parameters/byte_stream.h"

namespace Tarsel::Datasources::QAR {

using com::tarsel::utility::Variant;
using pyORV3::normalizeStatus;
using pyORV3::Status;
using pyORV3::success;
using Utility::ByteStream;

namespace {

// Records count from 1; callers that have no record to name pass 0.
std::uint16_t recordOrFirst(std::uint16_t record) {
    return record == 0 ? 1 : record;
}

// The library takes the size of a value as 16 bits.
std::uint16_t sizeOf(const ByteStream& buffer) {
    return static_cast<std::uint16_t>(buffer.size());
}

}  // namespace

Status FileAccess::getParameter(std::uint32_t code, Variant& value, std::uint16_t record,
                                std::uint16_t entry) {
    const std::lock_guard lock(mutex_);
    value.clear();
    if (handle_ == 0) {
        return report("getParameter", "File is not open", pyORV3::noDataSource);
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
        return reportParameter("getParameter", "Failed to get parameter: ", code, record, entry,
                               status);
    }
    return metadata.deserialize(buffer, value);
}

Status FileAccess::setParameter(std::uint32_t code, const Variant& value, std::uint16_t record,
                                std::uint16_t entry) {
    const std::lock_guard lock(mutex_);
    if (handle_ == 0) {
        return report("setParameter", "File is not open", pyORV3::noDataSource);
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
        return reportParameter("setParameter", "Failed to set parameter: ", code, record, entry,
                               status);
    }
    return success;
}

Status FileAccess::reportParameter(std::string_view operation, std::string_view message,
                                   std::uint32_t code, std::uint16_t record, std::uint16_t entry,
                                   Status status) const {
    return report(operation,
                  std::string(message) + describeParameterCode(code) +
                      " Record: " + std::to_string(record) + " Entry: " + std::to_string(entry),
                  status);
}

}  // namespace Tarsel::Datasources::QAR
