// The double's classes, records and entries, and unformatted block data.
#include <cstring>

#include "tests/double/reply.h"

namespace {

using recording::bytes;
using recording::Reply;
using recording::Value;

constexpr int32_t searchByName = 2;

Value searchKey(int32_t kind, const void* key) {
    const auto* const characters = static_cast<const char*>(key);
    return bytes(key, kind == searchByName ? std::strlen(characters) + 1 : 2 * sizeof(float));
}

Reply countRecords(const char* function, OrvContext context, uint16_t classCode, uint16_t* count) {
    Reply reply(function, {{"context", context}, {"classCode", classCode}});
    reply.number("count", count);
    return reply;
}

Reply copyClass(const char* function, OrvContext source, OrvContext destination,
                uint16_t classCode) {
    return {function, {{"source", source}, {"destination", destination}, {"classCode", classCode}}};
}

}  // namespace

OrvResult ORV_CALL OrvCreateBlock(OrvContext context, uint16_t classCode, int32_t size,
                                  int32_t option) {
    return Reply(
               "OrvCreateBlock",
               {{"context", context}, {"classCode", classCode}, {"size", size}, {"option", option}})
        .result();
}

OrvStatus ORV_CALL SOrvClassCount(OrvContext context, uint16_t classCode, uint16_t* count) {
    return countRecords("SOrvClassCount", context, classCode, count).status();
}

OrvResult ORV_CALL OrvRecordCount(OrvContext context, uint16_t classCode, uint16_t* count) {
    return countRecords("OrvRecordCount", context, classCode, count).result();
}

OrvStatus ORV_CALL SOrvEntryCount(OrvContext context, int32_t classArgument, uint16_t record,
                                  uint16_t* count) {
    return Reply("SOrvEntryCount",
                 {{"context", context}, {"classArgument", classArgument}, {"record", record}})
        .number("count", count)
        .status();
}

OrvStatus ORV_CALL SOrvInsertOne(OrvContext context, uint16_t classCode, int16_t record,
                                 int16_t entry) {
    return Reply("SOrvInsertOne", {{"context", context},
                                   {"classCode", classCode},
                                   {"record", record},
                                   {"entry", entry}})
        .status();
}

OrvStatus ORV_CALL SOrvDeleteOne(OrvContext context, uint16_t classCode, uint16_t record,
                                 uint16_t entry) {
    return Reply("SOrvDeleteOne", {{"context", context},
                                   {"classCode", classCode},
                                   {"record", record},
                                   {"entry", entry}})
        .status();
}

OrvStatus ORV_CALL SOrvDeleteLevel(OrvContext context, int32_t level) {
    return Reply("SOrvDeleteLevel", {{"context", context}, {"level", level}}).status();
}

OrvStatus ORV_CALL SOrvClassCopy(OrvContext source, OrvContext destination, uint16_t classCode) {
    return copyClass("SOrvClassCopy", source, destination, classCode).status();
}

OrvResult ORV_CALL OrvClassCopy(OrvContext source, OrvContext destination, uint16_t classCode) {
    return copyClass("OrvClassCopy", source, destination, classCode).result();
}

OrvStatus ORV_CALL SOrvCopyRecord(OrvContext source, uint16_t classCode, uint16_t sourceRecord,
                                  OrvContext destination, uint16_t destinationRecord,
                                  uint32_t option) {
    return Reply("SOrvCopyRecord", {{"source", source},
                                    {"classCode", classCode},
                                    {"sourceRecord", sourceRecord},
                                    {"destination", destination},
                                    {"destinationRecord", destinationRecord},
                                    {"option", option}})
        .status();
}

OrvStatus ORV_CALL SOrvFindRecord(OrvContext context, int32_t kind, const void* key, int32_t option,
                                  uint16_t* record, uint32_t* word) {
    return Reply("SOrvFindRecord", {{"context", context},
                                    {"kind", kind},
                                    {"key", searchKey(kind, key)},
                                    {"option", option}})
        .number("record", record)
        .number("word", word)
        .status();
}

OrvResult ORV_CALL OrvReadUFBlock(OrvContext context, uint16_t classCode, uint32_t offset,
                                  void* buffer, uint32_t length, uint32_t option, uint32_t* count) {
    return Reply("OrvReadUFBlock", {{"context", context},
                                    {"classCode", classCode},
                                    {"offset", offset},
                                    {"length", length},
                                    {"option", option},
                                    {"count", *count}})
        .buffer("buffer", buffer, length)
        .number("count", count, 1)
        .result();
}

OrvResult ORV_CALL OrvWriteUFBlock(OrvContext context, uint16_t classCode, const void* buffer,
                                   uint32_t length, uint32_t option) {
    return Reply("OrvWriteUFBlock", {{"context", context},
                                     {"classCode", classCode},
                                     {"buffer", bytes(buffer, length)},
                                     {"option", option}})
        .result();
}
