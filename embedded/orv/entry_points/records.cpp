// Interface functions on classes, records and entries: changes, searches, and copies between data
// sources.
#include <array>
#include <cstring>
#include <optional>
#include <utility>

#include "embedded/orv/content/classes.h"
#include "embedded/orv/content/nuclide_search.h"
#include "embedded/orv/content/parameters.h"
#include "embedded/orv/entry_points/guarded_call.h"

using namespace embedded;

namespace {

// Returns the class of a class number or of a code whose high half is a class number.
std::uint16_t classOfArgument(std::int32_t classArgument) {
    const auto code = static_cast<std::uint32_t>(classArgument);
    return classOf(code) != 0 ? classOf(code) : static_cast<std::uint16_t>(code);
}

// Returns the classes that a call on a class needs: a parameter of another class limits the
// channels of the spectrum.
NeededClasses neededForClass(std::uint16_t classCode) {
    return classCode == QAR_CLS_SPECTRUM ? neededForSpectrum : NeededClasses{{classCode}};
}

std::optional<NuclideResult> find(const Content& content, std::int32_t kind, const void* key,
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

// record and entry: their 16 bits without a sign, so that every record has a number.
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

// word: the entry of the matching line; 0 in a search by name.
OrvStatus SOrvFindRecord(OrvContext handle, std::int32_t kind, const void* key, std::int32_t option,
                         std::uint16_t* record, std::uint32_t* word) {
    return onReading(handle, {{QAR_CLS_NUCLIDE}}, [=](const Content& content) {
        requirePointers(key, record, word);
        const auto result = find(content, kind, key, static_cast<std::uint32_t>(option));
        if (!result) {
            return codes::notFound;
        }
        *record = result->record;
        *word = result->entry;
        return codes::success;
    });
}

// ---- Copies ----------------------------------------------------------------------------------
//
// A copy is read from the source before the destination is locked. So two sources are never locked
// at once, a source can be copied onto itself, and a failed copy changes nothing.

namespace {

struct Copying {
    OrvStatus status;
    OrvResult result;  // of the class copy: the side that failed
};

// take: returns the copy from the context of the source. put: stores it in the content of the
// destination, in which it needs the destination classes.
template <typename Take, typename Put>
Copying copy(OrvContext source, Take take, OrvContext destination, const NeededClasses& replaced,
             Put put) noexcept {
    decltype(take(std::declval<const Context&>())) copied;
    OrvStatus status = onContext(source, [&](const Context& context) { copied = take(context); });
    if (status != codes::success) {
        return {status, ORV_RESULT_SOURCE_FAILED};
    }
    status = onChanging(destination, replaced,
                        [&](Content& content) { put(content, std::move(copied)); });
    return {status,
            status == codes::success ? OrvResult{0} : OrvResult{ORV_RESULT_DESTINATION_FAILED}};
}

Copying copyClass(OrvContext source, OrvContext destination, std::uint16_t classCode) noexcept {
    const auto take = [=](const Context& context) {
        return context.source().read({{classCode}}, [=](const Content& content) {
            return requireBlock(content, classCode);
        });
    };
    const auto put = [=](Content& content, Block block) {
        replaceBlock(content, classCode, std::move(block));
    };
    return copy(source, take, destination, noClass, put);
}

}  // namespace

OrvStatus SOrvClassCopy(OrvContext source, OrvContext destination, std::uint16_t classCode) {
    return copyClass(source, destination, classCode).status;
}

OrvResult OrvClassCopy(OrvContext source, OrvContext destination, std::uint16_t classCode) {
    return copyClass(source, destination, classCode).result;
}

OrvStatus SOrvSaveAs(OrvContext source, OrvContext destination) {
    const auto take = [](const Context& context) {
        return context.source().read(allClasses,
                                     [](const Content& content) { return content.copyOfBlocks(); });
    };
    const auto put = [](Content& content, Blocks blocks) {
        content.replaceBlocks(std::move(blocks));
    };
    return copy(source, take, destination, noClass, put).status;
}

OrvResult OrvDataSourceDuplication(OrvContext source, OrvContext destination) {
    return resultOf(SOrvSaveAs(source, destination));
}

// option: not used.
OrvStatus SOrvCopyRecord(OrvContext source, std::uint16_t classCode, std::uint16_t sourceRecord,
                         OrvContext destination, std::uint16_t destinationRecord,
                         std::uint32_t /*option*/) {
    const auto take = [=](const Context& context) {
        return context.record(classCode, sourceRecord);
    };
    const auto put = [=](Content& content, Block block) {
        putRecord(content, classCode, destinationRecord, std::move(block));
    };
    return copy(source, take, destination, {{classCode}}, put).status;
}
