#include "module/block_methods.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "fileaccess/file_access.h"
#include "module/binding/call_frame.h"
#include "module/spectrum_methods.h"
#include "parameters/byte_stream.h"
#include "parameters/data_type.h"

namespace pyORV3 {

using Tarsel::Datasources::QAR::classCodeOf;
using Tarsel::Utility::ByteStream;
using Tarsel::Utility::writeLittleEndian;

namespace {

constexpr std::uint16_t wholeRecord = 0;

std::uint16_t low16(std::int32_t number) {
    return static_cast<std::uint16_t>(number);
}

// Searches for a record; kind defines the meaning of the key bytes.
Outcome findRecord(std::int32_t handle, std::int32_t kind, const ByteStream& key,
                   std::int32_t searchOption, PythonReference& record) {
    std::uint16_t number = 0;
    std::uint32_t word = 0;
    const OrvStatus status = SOrvFindRecord(handle, kind, key.data(), searchOption, &number, &word);
    if (status == 0) {
        record = PythonReference(integerObject(number));
    }
    return {status, "SOrvFindRecord() failed"};
}

}  // namespace

Outcome createBlock(std::int32_t handle, std::int32_t classArgument, std::int32_t size) {
    const std::uint16_t code = classCodeOf(classArgument);
    const OrvResult result = OrvCreateBlock(
        handle, code, code == ORV_SPECTRUM_CLASS ? roundedSpectrumSize(size) : size, 0);
    return {result == ORV_RESULT_ASK_ERROR_QUERY ? queriedError(handle) : signExtended(result),
            "OrvCreateBlock() failed"};
}

Outcome deleteBlock(std::int32_t handle, std::int32_t classArgument) {
    const std::uint16_t code = classCodeOf(classArgument);
    std::uint16_t recordCount = 0;
    if (const OrvResult result = OrvRecordCount(handle, code, &recordCount); result != 0) {
        return {signExtended(result), "The record count failed"};
    }
    for (std::uint16_t record = recordCount; record > 0; --record) {
        if (const OrvStatus status = SOrvDeleteOne(handle, code, record, wholeRecord);
            status != 0) {
            return {status, "SOrvDeleteOne() failed"};
        }
    }
    return success;
}

Outcome deleteOne(std::int32_t handle, std::int32_t classArgument, std::int32_t record,
                  std::int32_t entry) {
    return {SOrvDeleteOne(handle, classCodeOf(classArgument), low16(std::max(record, 0)),
                          low16(std::max(entry, 0))),
            "SOrvDeleteOne() failed"};
}

Outcome deleteLevel(std::int32_t handle, std::int32_t level) {
    return {SOrvDeleteLevel(handle, level), "SOrvDeleteLevel() failed"};
}

Outcome insert(std::int32_t handle, std::int32_t classArgument, std::int32_t record,
               std::int32_t entry) {
    return {SOrvInsertOne(handle, classCodeOf(classArgument), static_cast<std::int16_t>(record),
                          static_cast<std::int16_t>(std::max(entry, 0))),
            "SOrvInsertOne() failed"};
}

Outcome count(std::int32_t handle, std::int32_t classArgument, std::int32_t record,
              PythonReference& number) {
    std::uint16_t counted = 0;
    const OrvStatus status = record > 0 && classArgument != 0
                                 ? SOrvEntryCount(handle, classArgument, low16(record), &counted)
                                 : SOrvClassCount(handle, classCodeOf(classArgument), &counted);
    if (status == 0) {
        number = PythonReference(integerObject(counted));
    }
    return {status, "The count failed"};
}

Outcome copyTo(std::int32_t source, std::int32_t destination, std::int32_t classArgument) {
    if (classArgument > 0) {
        return {SOrvClassCopy(source, destination, classCodeOf(classArgument)),
                "SOrvClassCopy() failed"};
    }
    return {SOrvSaveAs(source, destination), "SOrvSaveAs() failed"};
}

Outcome moveRecordsTo(std::int32_t source, std::int32_t destination, std::int32_t classArgument,
                      std::int32_t sourceRecord, std::int32_t destinationRecord) {
    return {SOrvCopyRecord(source, classCodeOf(classArgument), low16(sourceRecord), destination,
                           low16(destinationRecord), 0),
            "SOrvCopyRecord() failed"};
}

Outcome copyAnalysisSequenceTo(std::int32_t sourceHandle, std::int32_t destinationHandle) {
    using Tarsel::Datasources::QAR::FileAccess;
    FileAccess source(sourceHandle);
    FileAccess destination(destinationHandle);
    return {source.copySequenceTo(destination), "copySequenceTo() Failed"};
}

Outcome findNuclideByEnergy(std::int32_t handle, float first, float second,
                            std::int32_t searchOption, PythonReference& record) {
    ByteStream key(2 * sizeof(float));
    writeLittleEndian(key.data(), first);
    writeLittleEndian(key.data() + sizeof first, second);
    return findRecord(handle, ORV_SEARCH_BY_ENERGY, key, searchOption, record);
}

Outcome findNuclideByName(std::int32_t handle, const char* name, std::int32_t searchOption,
                          PythonReference& record) {
    const std::size_t length = std::strlen(name);
    if (length >= std::numeric_limits<std::uint32_t>::max()) {
        return {outOfMemory, "No key holds the name"};
    }
    ByteStream key(static_cast<std::uint32_t>(length + 1));
    std::memcpy(key.data(), name, length);
    return findRecord(handle, ORV_SEARCH_BY_NAME, key, searchOption, record);
}

}  // namespace pyORV3
