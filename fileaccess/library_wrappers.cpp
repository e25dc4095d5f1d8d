#include "fileaccess/library_wrappers.h"

namespace Tarsel::Datasources::QAR {

using pyORV3::libraryError;
using pyORV3::Status;
using pyORV3::success;

namespace {

// Fills the record of the node to which new contexts are bound, through a temporary context.
Status findNode(OrvNodeRecord& node) {
    OrvContext temporary = 0;
    if (OrvCreateDSC2(nullptr, &temporary, 0, 0) != 0) {
        return pyORV3::noTemporaryContext;
    }
    const OwnedContext owner(temporary);
    OrvResult result = enumerateNode(temporary, node, NodeSelector::first);
    if (result == ORV_RESULT_RETRY_SELECTOR) {
        result = enumerateNode(temporary, node, NodeSelector::second);
    }
    if (result != 0) {
        return pyORV3::noNode;
    }
    return node.refusal[0] == '\0' ? success : pyORV3::nodeWithRefusal;
}

}  // namespace

OrvResult enumerateNode(OrvContext context, OrvNodeRecord& node, NodeSelector selector) {
    std::uint16_t count = 1;
    return OrvNodeEnumeration(context, &node, &count, static_cast<std::uint16_t>(selector));
}

Status createContext(OrvContext& handle, std::uint16_t access, std::uint32_t option) {
    OrvNodeRecord node{};
    if (const Status status = findNode(node); status != success) {
        return status;
    }
    OrvContext created = 0;
    const OrvResult result = OrvCreateDSC2(&node, &created, access, option);
    if (result == 0) {
        handle = created;
        return success;
    }
    if (result != ORV_RESULT_NOTHING_CREATED) {
        OrvContextDeletion(created);
    }
    return pyORV3::noBoundContext;
}

Status closeDataSource(OrvContext handle, std::uint32_t flags) {
    Status status = success;
    if ((flags & closeWithoutFlush) == 0) {
        status = libraryError(OrvDataSourceFlush(handle), handle);
    }
    if (status == success) {
        status = libraryError(OrvDataSourceClosing(handle), handle);
    }
    const Status releaseStatus = releaseContext(handle);
    return status != success ? status : releaseStatus;
}

Status releaseContext(OrvContext handle) {
    return libraryError(OrvContextDeletion(handle), handle);
}

Status copyClass(OrvContext source, OrvContext destination, std::uint16_t classCode) {
    const OrvResult result = OrvClassCopy(source, destination, classCode);
    switch (result) {
        case ORV_RESULT_SOURCE_FAILED:
            return pyORV3::queriedError(source);
        case ORV_RESULT_DESTINATION_FAILED:
            return pyORV3::queriedError(destination);
        default:
            return libraryError(result, source);
    }
}

Status readParameter(OrvContext handle, std::uint32_t code, std::uint16_t record,
                     std::uint16_t entry, void* buffer, std::uint16_t bufferSize) {
    return libraryError(OrvParameterRead(handle, code, record, entry, buffer, bufferSize), handle);
}

Status writeParameter(OrvContext handle, std::uint32_t code, std::uint16_t record,
                      std::uint16_t entry, const void* buffer, std::uint16_t bufferSize) {
    return libraryError(OrvParameterWrite(handle, code, record, entry, buffer, bufferSize), handle);
}

}  // namespace Tarsel::Datasources::QAR
