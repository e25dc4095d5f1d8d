// The double's classes, records and entries, and unformatted block data.
#include <cstring>

#include "tests/double/reply.h"

using recording::bytes;
using recording::named;
using recording::Reply;

DEFINE_FUNCTION(OrvResult, OrvCreateBlock,
                (OrvContext context, uint16_t classCode, int32_t size, int32_t option),
                ARG(context), ARG(classCode), ARG(size), ARG(option))
DEFINE_FUNCTION(OrvStatus, SOrvInsertOne,
                (OrvContext context, uint16_t classCode, int16_t record, int16_t entry),
                ARG(context), ARG(classCode), ARG(record), ARG(entry))
DEFINE_FUNCTION(OrvStatus, SOrvDeleteOne,
                (OrvContext context, uint16_t classCode, uint16_t record, uint16_t entry),
                ARG(context), ARG(classCode), ARG(record), ARG(entry))
DEFINE_FUNCTION(OrvStatus, SOrvDeleteLevel, (OrvContext context, int32_t level), ARG(context),
                ARG(level))
DEFINE_FUNCTION(OrvStatus, SOrvClassCopy,
                (OrvContext source, OrvContext destination, uint16_t classCode), ARG(source),
                ARG(destination), ARG(classCode))
DEFINE_FUNCTION(OrvResult, OrvClassCopy,
                (OrvContext source, OrvContext destination, uint16_t classCode), ARG(source),
                ARG(destination), ARG(classCode))
DEFINE_FUNCTION(OrvStatus, SOrvCopyRecord,
                (OrvContext source, uint16_t classCode, uint16_t sourceRecord,
                 OrvContext destination, uint16_t destinationRecord, uint32_t option),
                ARG(source), ARG(classCode), ARG(sourceRecord), ARG(destination),
                ARG(destinationRecord), ARG(option))

OrvStatus ORV_CALL SOrvClassCount(OrvContext context, uint16_t classCode, uint16_t* count) {
    return Reply(__func__, {ARG(context), ARG(classCode)}).number("count", count).status();
}

OrvResult ORV_CALL OrvRecordCount(OrvContext context, uint16_t classCode, uint16_t* count) {
    return Reply(__func__, {ARG(context), ARG(classCode)}).number("count", count).result();
}

OrvStatus ORV_CALL SOrvEntryCount(OrvContext context, int32_t classArgument, uint16_t record,
                                  uint16_t* count) {
    return Reply(__func__, {ARG(context), ARG(classArgument), ARG(record)})
        .number("count", count)
        .status();
}

OrvStatus ORV_CALL SOrvFindRecord(OrvContext context, int32_t kind, const void* key, int32_t option,
                                  uint16_t* record, uint32_t* word) {
    const std::size_t keySize = kind == ORV_SEARCH_BY_NAME
                                    ? std::strlen(static_cast<const char*>(key)) + 1
                                    : 2 * sizeof(float);
    return Reply(__func__,
                 {ARG(context), ARG(kind), named("key", bytes(key, keySize)), ARG(option)})
        .number("record", record)
        .number("word", word)
        .status();
}

OrvResult ORV_CALL OrvReadUFBlock(OrvContext context, uint16_t classCode, uint32_t offset,
                                  void* buffer, uint32_t length, uint32_t option, uint32_t* count) {
    return Reply(__func__, {ARG(context), ARG(classCode), ARG(offset), ARG(length), ARG(option),
                            named("count", *count)})
        .buffer("buffer", buffer, length)
        .number("count", count, 1)
        .result();
}

DEFINE_FUNCTION(OrvResult, OrvWriteUFBlock,
                (OrvContext context, uint16_t classCode, const void* buffer, uint32_t length,
                 uint32_t option),
                ARG(context), ARG(classCode), named("buffer", bytes(buffer, length)), ARG(option))
