// The interface's functions that copy between data sources.
//
// A copy takes what it copies from the source before it touches the destination. So no two sources
// are locked at once, a source can be copied onto itself, and a copy that fails changes nothing.
#include <utility>

#include "embedded/orv/content/classes.h"
#include "embedded/orv/interface/interface.h"

using namespace embedded;

namespace {

enum class Side : OrvResult { None = 0, Source = 3, Destination = 4 };  // as the class copy reports

struct Copying {
    OrvStatus status;
    Side failedSide;
};

// take: the copied thing from the source's content. put: it into the destination's content.
template <typename Take, typename Put>
Copying copy(OrvContext source, OrvContext destination, Take take, Put put) noexcept {
    decltype(take(std::declval<const Content&>())) copied;
    OrvStatus status = onContext(source, [&](const Context& from) { copied = from.read(take); });
    if (status != codes::success) {
        return {status, Side::Source};
    }
    status = onContext(destination, [&](const Context& into) {
        into.change([&](Content& content) { put(content, std::move(copied)); });
    });
    return {status, status == codes::success ? Side::None : Side::Destination};
}

Copying copyClass(OrvContext source, OrvContext destination, std::uint16_t classCode) noexcept {
    return copy(
        source, destination,
        [=](const Content& content) { return Block(requireBlock(content, classCode)); },
        [=](Content& content, Block block) { replaceBlock(content, classCode, std::move(block)); });
}

}  // namespace

OrvStatus SOrvClassCopy(OrvContext source, OrvContext destination, std::uint16_t classCode) {
    return copyClass(source, destination, classCode).status;
}

OrvResult OrvClassCopy(OrvContext source, OrvContext destination, std::uint16_t classCode) {
    return static_cast<OrvResult>(copyClass(source, destination, classCode).failedSide);
}

OrvStatus SOrvSaveAs(OrvContext source, OrvContext destination) {
    return copy(
               source, destination, [](const Content& content) { return content; },
               [](Content& content, Content copied) { content = std::move(copied); })
        .status;
}

OrvResult OrvDataSourceDuplication(OrvContext source, OrvContext destination) {
    return resultOf(SOrvSaveAs(source, destination));
}

// option: nothing to choose.
OrvStatus SOrvCopyRecord(OrvContext source, std::uint16_t classCode, std::uint16_t sourceRecord,
                         OrvContext destination, std::uint16_t destinationRecord,
                         std::uint32_t /*option*/) {
    return copy(
               source, destination,
               [=](const Content& content) {
                   return blockOfRecord(content, classCode, sourceRecord);
               },
               [=](Content& content, Block block) {
                   putRecord(content, classCode, destinationRecord, std::move(block));
               })
        .status;
}
