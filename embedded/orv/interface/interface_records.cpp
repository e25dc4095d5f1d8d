// The interface's functions on classes, records and entries, and the search for records.
#include <array>
#include <cstring>
#include <optional>

#include "embedded/orv/content/classes.h"
#include "embedded/orv/content/nuclide_search.h"
#include "embedded/orv/content/parameters.h"
#include "embedded/orv/interface/interface.h"

using namespace embedded;

namespace {

// The class of what a caller names by a class number, or by a code whose high half is one.
std::uint16_t classOfArgument(std::int32_t classArgument) {
    const auto code = static_cast<std::uint32_t>(classArgument);
    return classOf(code) != 0 ? classOf(code) : static_cast<std::uint16_t>(code);
}

// What a call on a class needs; the channels of the spectrum are counted by a parameter besides.
NeededClasses neededForClass(std::uint16_t classCode) {
    return classCode == QAR_CLS_SPECTRUM ? neededForSpectrum : NeededClasses{{classCode}};
}

std::optional<NuclideFound> find(const Content& content, std::int32_t kind, const void* key,
                                 std::uint32_t option) {
    switch (kind) {
        case ORV_SEARCH_BY_NAME:
            return findNuclideByName(content, static_cast<const char*>(key), option);
        case ORV_SEARCH_BY_ENERGY: {
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

OrvResult OrvCreateBlock(OrvContext handle, std::uint16_t classCode, std::int32_t size,
                         std::int32_t option) {
    return resultOf(onChanging(handle, neededForClass(classCode), [=](Content& content) {
        createBlock(content, classCode, size, option);
    }));
}

OrvStatus SOrvClassCount(OrvContext handle, std::uint16_t classCode, std::uint16_t* count) {
    return onReading(handle, neededForClass(classCode), [=](const Content& content) {
        requirePointers(count);
        *count = static_cast<std::uint16_t>(recordCount(content, classCode));
    });
}

OrvResult OrvRecordCount(OrvContext handle, std::uint16_t classCode, std::uint16_t* count) {
    return resultOf(SOrvClassCount(handle, classCode, count));
}

OrvStatus SOrvEntryCount(OrvContext handle, std::int32_t classArgument, std::uint16_t record,
                         std::uint16_t* count) {
    const std::uint16_t classCode = classOfArgument(classArgument);
    return onReading(handle, neededForClass(classCode), [=](const Content& content) {
        requirePointers(count);
        *count = static_cast<std::uint16_t>(entryCount(content, classCode, record));
    });
}

// record and entry: their 16 bits without a sign, so that every record can be named.
OrvStatus SOrvInsertOne(OrvContext handle, std::uint16_t classCode, std::int16_t record,
                        std::int16_t entry) {
    return onChanging(handle, neededForClass(classCode), [=](Content& content) {
        insertOne(content, classCode, static_cast<std::uint16_t>(record),
                  static_cast<std::uint16_t>(entry));
    });
}

OrvStatus SOrvDeleteOne(OrvContext handle, std::uint16_t classCode, std::uint16_t record,
                        std::uint16_t entry) {
    return onChanging(handle, neededForClass(classCode),
                      [=](Content& content) { deleteOne(content, classCode, record, entry); });
}

OrvStatus SOrvDeleteLevel(OrvContext handle, std::int32_t level) {
    return onChanging(handle, noClass, [=](Content& content) { deleteLevel(content, level); });
}

// word: the entry of the line found; 0 in a search by name.
OrvStatus SOrvFindRecord(OrvContext handle, std::int32_t kind, const void* key, std::int32_t option,
                         std::uint16_t* record, std::uint32_t* word) {
    return onReading(handle, {{QAR_CLS_NUCLIDE}}, [=](const Content& content) {
        requirePointers(key, record, word);
        const auto found = find(content, kind, key, static_cast<std::uint32_t>(option));
        if (!found) {
            return codes::notFound;
        }
        *record = found->record;
        *word = found->entry;
        return codes::success;
    });
}
