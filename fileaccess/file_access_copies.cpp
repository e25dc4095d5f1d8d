// FileAccess: the operations on whole classes and data sources.
#include "fileaccess/file_access.h"
#include "fileaccess/library_wrappers.h"
#include "parameters/data_type.h"

namespace Tarsel::Datasources::QAR {

using com::tarsel::utility::Variant;
using pyORV3::normalizeStatus;
using pyORV3::Status;

namespace {

std::uint16_t classNumberOf(std::uint32_t classArgument) {
    return static_cast<std::uint16_t>(classCodeOf(classArgument));
}

}  // namespace

Status FileAccess::copyTo(FileAccess& destination, std::uint32_t classArgument) {
    constexpr std::string_view operation = "copyTo";
    const std::lock_guard sourceLock(mutex_);
    const std::lock_guard destinationLock(destination.mutex_);
    if (handle_ == 0) {
        return report(operation, "Source file is not open", pyORV3::noDataSource);
    }
    if (destination.handle_ == 0) {
        return report(operation, "Destination file is not open", pyORV3::noDataSource);
    }
    if (&destination == this) {
        return report(operation, "The source and destination cannot be the same",
                      pyORV3::badArguments);
    }
    if (classArgument == allClasses) {
        return duplicateTo(destination);
    }
    return normalizeStatus(copyClass(handle_, destination.handle_, classNumberOf(classArgument)));
}

Status FileAccess::duplicateTo(FileAccess& destination) {
    constexpr std::string_view operation = "duplicateTo";
    if (handle_ == 0) {
        return report(operation, "File is not open", pyORV3::dataSourceAlreadyOpen);
    }
    if (destination.handle_ == 0) {
        return report(operation, "Destination is not open", pyORV3::dataSourceAlreadyOpen);
    }
    if (&destination == this) {
        return report(operation, "The source and destination cannot be the same",
                      pyORV3::badArguments);
    }
    return normalizeStatus(
        pyORV3::signExtended(OrvDataSourceDuplication(handle_, destination.handle_)));
}

Status FileAccess::createBlock(std::uint32_t classArgument, std::uint32_t count, std::uint32_t,
                               std::uint32_t) {
    const std::lock_guard lock(mutex_);
    if (handle_ == 0) {
        return report("createBlock", "File is not open", pyORV3::noDataSource);
    }
    const std::uint16_t classNumber = classNumberOf(classArgument);
    auto size = static_cast<std::int32_t>(count);
    if (classNumber == ORV_SPECTRUM_CLASS && count == 0) {
        Variant channels;
        getParameter(ORV_CHANNEL_COUNT_PARAMETER, channels, 0,
                     0);  // a failure leaves no value, which counts as 0
        size = channels.toInt32();
    }
    return normalizeStatus(pyORV3::signExtended(OrvCreateBlock(handle_, classNumber, size, 0)));
}

}  // namespace Tarsel::Datasources::QAR
