// The interface's functions on classes, records and entries, and the search for records.
#include <array>
#include <cstring>
#include <string_view>

#include "embedded/orv/content/classes.h"
#include "embedded/orv/content/nuclide_search.h"
#include "embedded/orv/interface/interface.h"

using namespace embedded;

namespace {

constexpr std::int32_t nameSearch = 2;
constexpr std::int32_t energySearch = 4;

// A class number, or a code whose high half is one.
std::uint16_t classNumberOf(std::int32_t classArgument) {
    const auto code = static_cast<std::uint32_t>(classArgument);
    const std::uint32_t highHalf = code >> 16U;
    return static_cast<std::uint16_t>(highHalf != 0 ? highHalf : code);
}

NuclideFound find(const Content& content, std::int32_t kind, const void* key,
                  std::uint32_t option) {
    switch (kind) {
        case nameSearch:
            return findNuclideByName(content, static_cast<const char*>(key), option);
        case energySearch: {
            std::array<float, 2> energyAndTolerance{};
            std::memcpy(energyAndTolerance.data(), key, sizeof energyAndTolerance);
            return findNuclideByEnergy(content, energyAndTolerance[0], energyAndTolerance[1],
                                       option);
        }
        default:
            throw Failure(codes::unknownItem);
    }
}

}  // namespace

OrvResult OrvCreateBlock(OrvContext context, std::uint16_t classCode, std::int32_t size,
                         std::int32_t option) {
    return resultOf(onContext(context, [=](const Context& source) {
        source.change([=](Content& content) { createBlock(content, classCode, size, option); });
    }));
}

OrvStatus SOrvClassCount(OrvContext context, std::uint16_t classCode, std::uint16_t* count) {
    return onContext(context, [=](const Context& source) {
        requirePointers(count);
        *count = static_cast<std::uint16_t>(
            source.read([=](const Content& content) { return recordCount(content, classCode); }));
    });
}

OrvResult OrvRecordCount(OrvContext context, std::uint16_t classCode, std::uint16_t* count) {
    return resultOf(SOrvClassCount(context, classCode, count));
}

OrvStatus SOrvEntryCount(OrvContext context, std::int32_t classArgument, std::uint16_t record,
                         std::uint16_t* count) {
    return onContext(context, [=](const Context& source) {
        requirePointers(count);
        *count = static_cast<std::uint16_t>(source.read([=](const Content& content) {
            return entryCount(content, classNumberOf(classArgument), record);
        }));
    });
}

// record and entry: their 16 bits without a sign, so that every record can be named.
OrvStatus SOrvInsertOne(OrvContext context, std::uint16_t classCode, std::int16_t record,
                        std::int16_t entry) {
    const auto recordNumber = static_cast<std::uint16_t>(record);
    const auto entryNumber = static_cast<std::uint16_t>(entry);
    return onContext(context, [=](const Context& source) {
        source.change(
            [=](Content& content) { insertOne(content, classCode, recordNumber, entryNumber); });
    });
}

OrvStatus SOrvDeleteOne(OrvContext context, std::uint16_t classCode, std::uint16_t record,
                        std::uint16_t entry) {
    return onContext(context, [=](const Context& source) {
        source.change([=](Content& content) { deleteOne(content, classCode, record, entry); });
    });
}

OrvStatus SOrvDeleteLevel(OrvContext context, std::int32_t level) {
    return onContext(context, [=](const Context& source) {
        source.change([=](Content& content) { deleteLevel(content, level); });
    });
}

// word: the entry of the line found; 0 in a search by name.
OrvStatus SOrvFindRecord(OrvContext context, std::int32_t kind, const void* key,
                         std::int32_t option, std::uint16_t* record, std::uint32_t* word) {
    return onContext(context, [=](const Context& source) {
        requirePointers(key, record, word);
        const NuclideFound found = source.read([=](const Content& content) {
            return find(content, kind, key, static_cast<std::uint32_t>(option));
        });
        *record = found.record;
        *word = found.entry;
    });
}
