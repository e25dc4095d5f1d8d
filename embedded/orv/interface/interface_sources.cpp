// The interface's functions that open, create, save and close data sources, and on their state.
#include <algorithm>
#include <climits>
#include <cstring>

#include "embedded/orv/files/inputs.h"
#include "embedded/orv/interface/interface.h"

using namespace embedded;

namespace {

constexpr std::uint32_t writingMode = 0x2;

constexpr std::int32_t openingStateItem = 3;
constexpr std::int32_t sourceStateItem = 1;

enum ControlCommand : std::int32_t { FlushCommand = 1, CompactCommand = 2, CheckCommand = 3 };

std::string pathOf(const std::string& name, std::uint16_t sourceType) {
    switch (sourceType) {
        case ORV_SOURCE_FILE:
            return name;
        case ORV_SOURCE_INPUT:
            return inputPath(name);
        default:
            throw Failure(codes::unknownItem);
    }
}

// The text that a caller passes as a name.
std::string nameOf(const char* text) {
    requirePointers(text);
    const std::size_t length = strnlen(text, PATH_MAX);
    if (length == 0 || length == PATH_MAX) {
        throw Failure(codes::nameRefused);
    }
    return {text, length};
}

void openOn(Context& context, const char* name, std::uint16_t sourceType,
            std::uint32_t accessMode) {
    context.open(pathOf(nameOf(name), sourceType), (accessMode & writingMode) != 0);
}

void giveInput(Context& context, char* name) {
    const std::string given = context.nextInput();
    const std::size_t length = std::min<std::size_t>(given.size(), ORV_INPUT_NAME_SIZE - 1);
    *std::copy_n(given.begin(), length, name) = '\0';
}

}  // namespace

// option, auxiliary: nothing that a file or an input needs. A source that another process writes
// opens with the status that asks for a look at the state, whose unusable bit is not set then.
OrvStatus SOrvOpenDataSource(OrvContext context, const char* sourceName, std::uint16_t sourceType,
                             std::uint32_t accessMode, std::uint32_t /*option*/,
                             const char* /*auxiliary*/) {
    std::uint32_t state = 0;
    const OrvStatus status = onContext(context, [&](Context& opened) {
        openOn(opened, sourceName, sourceType, accessMode);
        state = opened.openingState();
    });
    return status == codes::success && state != 0 ? codes::openedWithRemark : status;
}

// A result other than 0 would be a failure, so that the remark is left to the state.
OrvResult OrvDataSourceOpening(OrvContext context, const char* fileName, std::uint16_t sourceType,
                               std::uint32_t accessMode, std::uint32_t /*option*/,
                               const char* /*auxiliary*/) {
    return resultOf(onContext(
        context, [=](Context& opened) { openOn(opened, fileName, sourceType, accessMode); }));
}

// The three numbers: a file has the room that it needs, whatever they ask for.
OrvStatus SOrvCreateFile(OrvContext context, const char* fileName, std::uint16_t sourceType,
                         std::uint16_t /*first*/, std::uint16_t /*second*/,
                         std::uint16_t /*third*/) {
    return onContext(context, [=](Context& created) {
        if (sourceType != ORV_SOURCE_FILE) {
            throw Failure(codes::unknownItem);
        }
        created.create(nameOf(fileName));
    });
}

OrvResult OrvFileCreation(OrvContext context, const char* fileName, std::uint16_t sourceType,
                          std::uint16_t first, std::uint16_t second, std::uint16_t third) {
    return resultOf(SOrvCreateFile(context, fileName, sourceType, first, second, third));
}

OrvStatus SOrvCloseDataSource(OrvContext context) {
    return onContext(context, [](Context& closed) { closed.close(); });
}

OrvResult OrvDataSourceClosing(OrvContext context) {
    return resultOf(SOrvCloseDataSource(context));
}

OrvStatus SOrvFlush(OrvContext context) {
    return onContext(context, [](const Context& flushed) { flushed.source().save(); });
}

OrvResult OrvDataSourceFlush(OrvContext context) {
    return resultOf(SOrvFlush(context));
}

OrvStatus SOrvQueryDSC(OrvContext context, std::int32_t item, void* buffer) {
    return onContext(context, [=](const Context& queried) {
        requirePointers(buffer);
        if (item != openingStateItem) {
            throw Failure(codes::unknownItem);
        }
        const std::uint32_t state = queried.openingState();
        std::memcpy(buffer, &state, sizeof state);
    });
}

OrvStatus SOrvQueryDataSource(OrvContext context, std::int32_t item, std::uint32_t* word) {
    return onContext(context, [=](const Context& queried) {
        requirePointers(word);
        if (item != sourceStateItem) {
            throw Failure(codes::unknownItem);
        }
        *word = queried.sourceState();
    });
}

// second: 0.
OrvStatus SOrvControlDSC(OrvContext context, std::int32_t first, std::int32_t second) {
    return onContext(context, [=](const Context& controlled) {
        if (second != 0) {
            throw Failure(codes::unknownItem);
        }
        switch (first) {
            case FlushCommand:
                return controlled.source().save();
            case CompactCommand:
                return controlled.writableSource().compact();
            case CheckCommand:
                return controlled.source().check();
            default:
                throw Failure(codes::unknownItem);
        }
    });
}

OrvStatus SOrvReVerify(OrvContext context) {
    return onContext(context, [](const Context& verified) { verified.source().reload(); });
}

OrvStatus SOrvFirstInput(OrvContext context, std::uint32_t /*option*/, char* name) {
    return onContext(context, [=](Context& asked) {
        requirePointers(name);
        asked.beginInputs();
        giveInput(asked, name);
    });
}

OrvStatus SOrvNextInput(OrvContext context, char* name) {
    return onContext(context, [=](Context& asked) {
        requirePointers(name);
        giveInput(asked, name);
    });
}
