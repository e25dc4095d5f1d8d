// FileAccess: the copy of an analysis sequence.
//
// Copies two classes, the geometry block and single parameters of the source, and a class and two
// parameters of the file that the source refers to. The own settings of the destination are in the
// copied classes: they are read before and written back after the copy.
#include <array>

#include "fileaccess/file_access.h"
#include "parameters/byte_stream.h"

namespace Tarsel::Datasources::QAR {

using com::tarsel::utility::Variant;
using pyORV3::Status;
using pyORV3::success;

namespace {

constexpr std::string_view context = "FileAccess::copySequenceTo";

struct SequenceClass {
    std::uint16_t classCode;
    const char* failure;
};

constexpr std::array<SequenceClass, 2> copiedClasses{{
    {0x2010, "Failed to copy QAR_CLS_ANALCNTL"},
    {0x2003, "Failed to copy QAR_CLS_PROC"},
}};

constexpr std::uint16_t geometryClass = 0x4005;  // QAR_CLS_VORLAGEOM
constexpr const char* geometryFailure = "Failed to copy QAR_CLS_VORLAGEOM";

// Settings of the destination that the copy keeps.
constexpr std::array<std::uint32_t, 4> preservedSettings{0x20100075, 0x20100076, 0x20030015,
                                                         0x20030053};
using SavedSettings = std::array<Variant, preservedSettings.size()>;

// Copied from the source.
constexpr std::uint32_t mandatoryParameter = 0x20020028;  // a failed write ends the copy
constexpr std::uint32_t optionalParameter = 0x20020083;

// The file that the source refers to, and the parameters that are copied from it.
constexpr std::uint32_t referenceSwitch = 0x2010002D;
constexpr std::uint32_t referencedFileName = 0x20100104;
constexpr std::array<std::uint32_t, 2> referencedParameters{0x200000B6, 0x2010004C};
constexpr std::uint16_t referencedClass = 0x2002;

// The first is copied to the destination; if the source has only one of the two, that one becomes
// the second in the destination.
constexpr std::uint32_t sequenceParameter = 0x20000002;
constexpr std::uint32_t analysisParameter = 0x20100005;

bool isPresent(const Variant& value) {
    return value.getDataType() != Variant::DataType::Unknown;
}

// Reads the value of the first record; it is Unknown if the value cannot be read.
Variant read(FileAccess& file, std::uint32_t code) {
    Variant value;
    file.getParameter(code, value, 0, 0);
    return value;
}

// Writes a known value to the first record.
Status writePresent(FileAccess& file, std::uint32_t code, const Variant& value) {
    return isPresent(value) ? file.setParameter(code, value, 0, 0) : success;
}

SavedSettings saveSettings(FileAccess& file) {
    SavedSettings saved;
    for (std::size_t index = 0; index < saved.size(); ++index) {
        saved[index] = read(file, preservedSettings[index]);
    }
    return saved;
}

void restoreSettings(FileAccess& file, const SavedSettings& saved) {
    for (std::size_t index = 0; index < saved.size(); ++index) {
        writePresent(file, preservedSettings[index], saved[index]);
    }
}

// Creates the block of the class if the destination does not have it. If it is still missing, it
// counts as copied.
Status copyOrCreateClass(FileAccess& source, FileAccess& destination, std::uint16_t classCode) {
    Status status = source.copyTo(destination, classCode);
    if (status == pyORV3::noBlock) {
        destination.createBlock(classCode, 0, 1, 1);
        status = source.copyTo(destination, classCode);
    }
    return status == pyORV3::noBlock ? success : status;
}

// Copies the whole chunks of the geometry block, which begins with its number of bytes. Returns the
// result of the failed library call, or 0.
OrvResult copyGeometry(OrvContext source, OrvContext destination) {
    constexpr std::uint32_t writeOption = 0x40;
    std::array<std::uint8_t, ORV_BLOCK_CHUNK_SIZE> chunk{};
    std::uint32_t count = 1;
    const auto readChunk = [&](std::uint64_t offset) {
        return OrvReadUFBlock(source, geometryClass, static_cast<std::uint32_t>(offset),
                              chunk.data(), ORV_BLOCK_CHUNK_SIZE, 0, &count);
    };
    // The results of the first two calls are ignored: the destination may have the block already,
    // or the source may not have one.
    OrvCreateBlock(destination, geometryClass, 0, -1);
    readChunk(0);
    const auto total = Utility::readLittleEndian<std::uint32_t>(chunk.data());
    // 64 bits, so that a total near 2^32 does not wrap the offset to 0.
    for (std::uint64_t offset = chunk.size(); total >= offset; offset += chunk.size()) {
        OrvResult result = OrvWriteUFBlock(destination, geometryClass, chunk.data(),
                                           ORV_BLOCK_CHUNK_SIZE, writeOption);
        if (result == 0) {
            result = readChunk(offset);
        }
        if (result != 0) {
            return result;
        }
    }
    return 0;
}

// Copies the class and the parameters from the file that the source refers to. Skips failures.
void copyFromReferencedFile(FileAccess& source, FileAccess& destination) {
    const Variant isUsed = read(source, referenceSwitch);
    if (!isPresent(isUsed) || !isUsed.toBoolean()) {
        return;
    }
    const Variant name = read(source, referencedFileName);
    if (!isPresent(name)) {
        return;
    }
    FileAccess referenced;
    if (referenced.open(name.toString(), 0) != success) {
        return;
    }
    for (const std::uint32_t code : referencedParameters) {
        writePresent(destination, code, read(referenced, code));
    }
    referenced.copyTo(destination, referencedClass);
}

void copySequenceParameters(FileAccess& source, FileAccess& destination) {
    const Variant sequence = read(source, sequenceParameter);
    writePresent(destination, sequenceParameter, sequence);
    const Variant analysis = read(source, analysisParameter);
    if (isPresent(sequence) != isPresent(analysis)) {
        writePresent(destination, analysisParameter, isPresent(sequence) ? sequence : analysis);
    }
}

}  // namespace

Status FileAccess::copySequenceTo(FileAccess& destination) {
    const std::lock_guard sourceLock(mutex_);
    const std::lock_guard destinationLock(destination.mutex_);
    if (destination.handle_ == 0) {
        return report(context, "Destination is not open", pyORV3::noDataSource);
    }
    if (handle_ == 0) {
        return report(context, "Source is not open", pyORV3::noDataSource);
    }
    if (&destination == this) {
        return report(context, "The source and destination cannot be the same",
                      pyORV3::badArguments);
    }
    const SavedSettings saved = saveSettings(destination);
    for (const auto& [classCode, failure] : copiedClasses) {
        const Status status = copyOrCreateClass(*this, destination, classCode);
        if (status != success) {
            return report(context, failure, status);
        }
    }
    const Status status =
        writePresent(destination, mandatoryParameter, read(*this, mandatoryParameter));
    if (status != success) {
        return status;
    }
    writePresent(destination, optionalParameter, read(*this, optionalParameter));
    if (const OrvResult result = copyGeometry(handle_, destination.handle_); result != 0) {
        report(context, geometryFailure, pyORV3::signExtended(result));
    }
    copyFromReferencedFile(*this, destination);
    restoreSettings(destination, saved);
    copySequenceParameters(*this, destination);
    return success;
}

}  // namespace Tarsel::Datasources::QAR
