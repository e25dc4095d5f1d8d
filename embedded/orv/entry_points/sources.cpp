// Interface functions that open, create, save and close data sources or return their state.
#include <algorithm>
#include <climits>
#include <cstring>

#include "embedded/orv/entry_points/guarded_call.h"
#include "embedded/orv/files/file_name.h"
#include "embedded/orv/files/inputs.h"

using namespace embedded;

namespace {

constexpr std::uint32_t writingMode = 0x2;

enum ControlCommand : std::int32_t {
    FlushCommand = 1,
    CompactCommand = 2,
    CheckCommand = 3,
    SalvageCommand = 4,
};

std::string pathOf(const std::string& name, std::uint16_t sourceType) {
    switch (sourceType) {
        case ORV_SOURCE_FILE:
            requireLocalPath(name);
            return name;
        case ORV_SOURCE_INPUT:
            return inputPath(name);
        default:
            throw Failure(codes::unknownItem);
    }
}

// Returns a name from a caller in UTF-8.
std::string nameOf(const char* text) {
    requirePointers(text);
    const std::size_t length = strnlen(text, PATH_MAX);
    if (length == 0 || length == PATH_MAX) {
        throw Failure(codes::nameRefused);
    }
    return nameInUtf8({text, length});
}

void openOn(Context& context, const char* name, std::uint16_t sourceType,
            std::uint32_t accessMode) {
    context.open(pathOf(nameOf(name), sourceType), (accessMode & writingMode) != 0);
}

std::uint32_t copyNextInput(Context& context, char* name) {
    const auto input = context.nextInput();
    if (!input) {
        return codes::endOfList;
    }
    const std::size_t length = std::min<std::size_t>(input->size(), ORV_INPUT_NAME_SIZE - 1);
    *std::copy_n(input->begin(), length, name) = '\0';
    return codes::success;
}

}  // namespace

// option, auxiliary: not used. A source that another process writes opens with the status that
// refers to the state; the unusable bit of the state is then not set.
OrvStatus SOrvOpenDataSource(OrvContext handle, const char* sourceName, std::uint16_t sourceType,
                             std::uint32_t accessMode, std::uint32_t /*option*/,
                             const char* /*auxiliary*/) {
    std::uint32_t state = 0;
    const OrvStatus status = onContext(handle, [&](Context& context) {
        openOn(context, sourceName, sourceType, accessMode);
        state = context.openingState();
    });
    return status == codes::success && state != 0 ? codes::openedWithRemark : status;
}

// A result other than 0 would mean a failure, so the remark is only in the state.
OrvResult OrvDataSourceOpening(OrvContext handle, const char* fileName, std::uint16_t sourceType,
                               std::uint32_t accessMode, std::uint32_t /*option*/,
                               const char* /*auxiliary*/) {
    return resultOf(onContext(
        handle, [=](Context& context) { openOn(context, fileName, sourceType, accessMode); }));
}

// The three numbers are not used: files have no fixed size.
OrvStatus SOrvCreateFile(OrvContext handle, const char* fileName, std::uint16_t sourceType,
                         std::uint16_t /*first*/, std::uint16_t /*second*/,
                         std::uint16_t /*third*/) {
    return onContext(handle, [=](Context& context) {
        if (sourceType != ORV_SOURCE_FILE) {
            throw Failure(codes::unknownItem);
        }
        context.create(pathOf(nameOf(fileName), sourceType));
    });
}

OrvResult OrvFileCreation(OrvContext handle, const char* fileName, std::uint16_t sourceType,
                          std::uint16_t first, std::uint16_t second, std::uint16_t third) {
    return resultOf(SOrvCreateFile(handle, fileName, sourceType, first, second, third));
}

OrvStatus SOrvCloseDataSource(OrvContext handle) {
    return onContext(handle, [](Context& context) { context.close(); });
}

OrvResult OrvDataSourceClosing(OrvContext handle) {
    return resultOf(SOrvCloseDataSource(handle));
}

OrvStatus SOrvFlush(OrvContext handle) {
    return onContext(handle, [](Context& context) { context.source().save(); });
}

OrvResult OrvDataSourceFlush(OrvContext handle) {
    return resultOf(SOrvFlush(handle));
}

OrvStatus SOrvQueryDSC(OrvContext handle, std::int32_t item, void* buffer) {
    return onContext(handle, [=](const Context& context) {
        requirePointers(buffer);
        if (item != ORV_CONTEXT_STATE_ITEM) {
            throw Failure(codes::unknownItem);
        }
        const std::uint32_t state = context.openingState();
        std::memcpy(buffer, &state, sizeof state);
    });
}

OrvStatus SOrvQueryDataSource(OrvContext handle, std::int32_t item, std::uint32_t* word) {
    return onContext(handle, [=](const Context& context) {
        requirePointers(word);
        if (item != ORV_SOURCE_STATE_ITEM) {
            throw Failure(codes::unknownItem);
        }
        *word = context.sourceState();
    });
}

// second: must be 0.
OrvStatus SOrvControlDSC(OrvContext handle, std::int32_t first, std::int32_t second) {
    return onContext(handle, [=](Context& context) {
        if (second != 0) {
            throw Failure(codes::unknownItem);
        }
        switch (first) {
            case FlushCommand:
                return context.source().save();
            case CompactCommand:
                return context.writableSource().compact();
            case CheckCommand:
                return context.source().check();
            case SalvageCommand:
                return context.startSalvage();
            default:
                throw Failure(codes::unknownItem);
        }
    });
}

OrvStatus SOrvReVerify(OrvContext handle) {
    return onContext(handle, [](Context& context) { context.source().verify(); });
}

OrvStatus SOrvFirstInput(OrvContext handle, std::uint32_t /*option*/, char* name) {
    return onContext(handle, [=](Context& context) {
        requirePointers(name);
        context.beginInputs();
        return copyNextInput(context, name);
    });
}

OrvStatus SOrvNextInput(OrvContext handle, char* name) {
    return onContext(handle, [=](Context& context) {
        requirePointers(name);
        return copyNextInput(context, name);
    });
}
