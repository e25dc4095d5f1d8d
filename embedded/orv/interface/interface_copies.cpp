// The interface's functions that copy between data sources.
//
// A copy takes what it copies from the source before it touches the destination. So no two sources
// are locked at once, a source can be copied onto itself, and a copy that fails changes nothing.
#include <utility>

#include "embedded/orv/content/classes.h"
#include "embedded/orv/interface/interface.h"

using namespace embedded;

namespace {

struct Copying {
    OrvStatus status;
    OrvResult result;  // as the class copy reports: which side failed
};

// take: the copied thing from the source's content, of which it needs these classes. put: it into
// the destination's, of which it needs those.
template <typename Take, typename Put>
Copying copy(OrvContext source, const NeededClasses& taken, Take take, OrvContext destination,
             const NeededClasses& replaced, Put put) noexcept {
    decltype(take(std::declval<const Content&>())) copied;
    OrvStatus status =
        onReading(source, taken, [&](const Content& content) { copied = take(content); });
    if (status != codes::success) {
        return {status, ORV_RESULT_SOURCE_FAILED};
    }
    status = onChanging(destination, replaced,
                        [&](Content& content) { put(content, std::move(copied)); });
    return {status,
            status == codes::success ? OrvResult{0} : OrvResult{ORV_RESULT_DESTINATION_FAILED}};
}

Copying copyClass(OrvContext source, OrvContext destination, std::uint16_t classCode) noexcept {
    const auto take = [=](const Content& content) { return requireBlock(content, classCode); };
    const auto put = [=](Content& content, Block block) {
        replaceBlock(content, classCode, std::move(block));
    };
    return copy(source, {{classCode}}, take, destination, noClass, put);
}

}  // namespace

OrvStatus SOrvClassCopy(OrvContext source, OrvContext destination, std::uint16_t classCode) {
    return copyClass(source, destination, classCode).status;
}

OrvResult OrvClassCopy(OrvContext source, OrvContext destination, std::uint16_t classCode) {
    return copyClass(source, destination, classCode).result;
}

OrvStatus SOrvSaveAs(OrvContext source, OrvContext destination) {
    const auto take = [](const Content& content) { return content.copyOfBlocks(); };
    const auto put = [](Content& content, Blocks blocks) {
        content.replaceBlocks(std::move(blocks));
    };
    return copy(source, allClasses, take, destination, noClass, put).status;
}

OrvResult OrvDataSourceDuplication(OrvContext source, OrvContext destination) {
    return resultOf(SOrvSaveAs(source, destination));
}

// option: nothing to choose.
OrvStatus SOrvCopyRecord(OrvContext source, std::uint16_t classCode, std::uint16_t sourceRecord,
                         OrvContext destination, std::uint16_t destinationRecord,
                         std::uint32_t /*option*/) {
    const auto take = [=](const Content& content) {
        return blockOfRecord(content, classCode, sourceRecord);
    };
    const auto put = [=](Content& content, Block block) {
        putRecord(content, classCode, destinationRecord, std::move(block));
    };
    return copy(source, {{classCode}}, take, destination, {{classCode}}, put).status;
}
