// The data-access library of the double: all 44 functions.
#include <algorithm>
#include <cstring>

#include "tests/double/recorder.h"

namespace {

using recording::area;
using recording::Argument;
using recording::input;
using recording::output;

// Logs a fixed field without the zero bytes at its end, so that a zero-filled field is an empty
// string, and a field of a null record as a null value.
Argument field(const char* name, const void* data, std::size_t size) {
    const auto* const bytes = static_cast<const char*>(data);
    while (data != nullptr && size > 0 && bytes[size - 1] == '\0') {
        --size;
    }
    return input(name, data, size);
}

Argument identity(const OrvNodeRecord* node) {
    return field("identity", node != nullptr ? node->identity : nullptr, sizeof node->identity);
}

Argument refusal(const OrvNodeRecord* node) {
    return field("refusal", node != nullptr ? node->refusal : nullptr, sizeof node->refusal);
}

// A search key: a string with its NUL, or two floats.
Argument searchKey(std::int32_t kind, const void* key) {
    const bool isName = kind == ORV_SEARCH_BY_NAME;
    return input("key", key,
                 isName ? std::strlen(static_cast<const char*>(key)) + 1 : 2 * sizeof(float));
}

// Argument lists of several functions, some with integers of other widths. Without a scripted
// answer a new context gets the next number.
#define CONTEXT_CREATION                                                                \
    (const OrvNodeRecord* node, OrvContext* context, uint16_t access, uint32_t option), \
        identity(node), refusal(node), INPUT(access), INPUT(option),                    \
        output("context", context, recording::Recorder::instance().nextContext())
#define OPENING                                                                           \
    (OrvContext context, const char* name, uint16_t sourceType, uint32_t accessMode,      \
     uint32_t option, const char* auxiliary),                                             \
        INPUT(context), INPUT(name), INPUT(sourceType), INPUT(accessMode), INPUT(option), \
        INPUT(auxiliary)
#define FILE_CREATION                                                                    \
    (OrvContext context, const char* fileName, uint16_t sourceType, uint16_t first,      \
     uint16_t second, uint16_t third),                                                   \
        INPUT(context), INPUT(fileName), INPUT(sourceType), INPUT(first), INPUT(second), \
        INPUT(third)
// NOLINTBEGIN(bugprone-macro-parentheses): Word is a type
#define NODE_ENUMERATION(Word)                                                               \
    (OrvContext context, OrvNodeRecord * node, Word * count, Word selector), INPUT(context), \
        identity(node), refusal(node), input("count", *count), INPUT(selector),              \
        area("identity", node->identity, sizeof node->identity),                             \
        area("refusal", node->refusal, sizeof node->refusal), output("count", count, 1)
// NOLINTEND(bugprone-macro-parentheses)
#define READING(Size)                                                                  \
    (OrvContext context, uint32_t code, uint16_t record, uint16_t entry, void* buffer, \
     Size bufferSize),                                                                 \
        INPUT(context), INPUT(code), INPUT(record), INPUT(entry), INPUT(bufferSize),   \
        area("buffer", buffer, bufferSize)
#define WRITING(Place, Size)                                                          \
    (OrvContext context, uint32_t code, Place record, Place entry, const void* value, \
     Size valueSize),                                                                 \
        INPUT(context), INPUT(code), INPUT(record), INPUT(entry), input("value", value, valueSize)
#define CLASS_COPY                                                                  \
    (OrvContext source, OrvContext destination, uint16_t classCode), INPUT(source), \
        INPUT(destination), INPUT(classCode)

constexpr std::int64_t noMoreInputs = 0x00500003;

}  // namespace

// ---- Contexts, nodes and inputs ----

FUNCTION(OrvStatus, SOrvCreateDSC, CONTEXT_CREATION)
FUNCTION(OrvStatus, SOrvCreateDSC2, CONTEXT_CREATION)
FUNCTION(OrvResult, OrvCreateDSC2, CONTEXT_CREATION)
FUNCTION(OrvStatus, SOrvEnumNodes, NODE_ENUMERATION(uint32_t))
FUNCTION(OrvResult, OrvNodeEnumeration, NODE_ENUMERATION(uint16_t))
FUNCTION(OrvStatus, SOrvDeleteDSC, (OrvContext context), INPUT(context))
FUNCTION(OrvResult, OrvContextDeletion, (OrvContext context), INPUT(context))
FUNCTION(OrvResult, OrvErrorQuery,
         (OrvContext context, uint32_t* code, uint32_t* second, uint32_t* third), INPUT(context),
         OUTPUT(code), OUTPUT(second), OUTPUT(third))
FUNCTION(OrvStatus, SOrvQueryDSC, (OrvContext context, int32_t item, void* buffer), INPUT(context),
         INPUT(item), field("buffer", buffer, ORV_STATE_BUFFER_SIZE),
         area("buffer", buffer, ORV_STATE_BUFFER_SIZE))

FUNCTION_OR(OrvStatus, SOrvFirstInput, noMoreInputs,
            (OrvContext context, uint32_t option, char* name), INPUT(context), INPUT(option),
            area("name", name, ORV_INPUT_NAME_SIZE))
FUNCTION_OR(OrvStatus, SOrvNextInput, noMoreInputs, (OrvContext context, char* name),
            INPUT(context), area("name", name, ORV_INPUT_NAME_SIZE))

// ---- Sources ----

FUNCTION(OrvStatus, SOrvOpenDataSource, OPENING)
FUNCTION(OrvResult, OrvDataSourceOpening, OPENING)
FUNCTION(OrvStatus, SOrvCreateFile, FILE_CREATION)
FUNCTION(OrvResult, OrvFileCreation, FILE_CREATION)
FUNCTION(OrvStatus, SOrvCloseDataSource, (OrvContext context), INPUT(context))
FUNCTION(OrvResult, OrvDataSourceClosing, (OrvContext context), INPUT(context))
FUNCTION(OrvStatus, SOrvFlush, (OrvContext context), INPUT(context))
FUNCTION(OrvResult, OrvDataSourceFlush, (OrvContext context), INPUT(context))
FUNCTION(OrvStatus, SOrvQueryDataSource, (OrvContext context, int32_t item, uint32_t* word),
         INPUT(context), INPUT(item), input("word", *word), OUTPUT(word))
FUNCTION(OrvStatus, SOrvControlDSC, (OrvContext context, int32_t first, int32_t second),
         INPUT(context), INPUT(first), INPUT(second))
FUNCTION(OrvStatus, SOrvReVerify, (OrvContext context), INPUT(context))

// ---- Parameters and spectra ----

FUNCTION(OrvStatus, SOrvGetParam, READING(uint32_t))
FUNCTION(OrvResult, OrvParameterRead, READING(uint16_t))
FUNCTION(OrvStatus, SOrvPutParam, WRITING(int32_t, uint32_t))
FUNCTION(OrvResult, OrvParameterWrite, WRITING(uint16_t, uint16_t))
FUNCTION(OrvResult, OrvParameterDescriptionQuery,
         (OrvContext context, const OrvParameterDescriptionKey* key,
          OrvParameterDescription* description),
         INPUT(context), input("name", key->name, sizeof key->name), input("codeLow", key->codeLow),
         input("codeHigh", key->codeHigh), output("type", &description->type),
         output("size", &description->size),
         area("name", description->name, sizeof description->name),
         area("text", description->text, sizeof description->text))
FUNCTION(OrvStatus, SOrvGetSpectrum,
         (OrvContext context, uint16_t firstChannel, uint16_t channelCount, uint32_t option,
          int32_t* channels),
         INPUT(context), INPUT(firstChannel), INPUT(channelCount), INPUT(option),
         area("channels", channels, channelCount * sizeof *channels))
FUNCTION(OrvStatus, SOrvPutSpectrum,
         (OrvContext context, uint16_t firstChannel, uint16_t channelCount,
          const int32_t* channels),
         INPUT(context), INPUT(firstChannel), INPUT(channelCount),
         input("channels", channels, channelCount * sizeof *channels))

// ---- Classes, records and entries ----

FUNCTION(OrvResult, OrvCreateBlock,
         (OrvContext context, uint16_t classCode, int32_t size, int32_t option), INPUT(context),
         INPUT(classCode), INPUT(size), INPUT(option))
FUNCTION(OrvStatus, SOrvClassCount, (OrvContext context, uint16_t classCode, uint16_t* count),
         INPUT(context), INPUT(classCode), OUTPUT(count))
FUNCTION(OrvResult, OrvRecordCount, (OrvContext context, uint16_t classCode, uint16_t* count),
         INPUT(context), INPUT(classCode), OUTPUT(count))
FUNCTION(OrvStatus, SOrvEntryCount,
         (OrvContext context, int32_t classArgument, uint16_t record, uint16_t* count),
         INPUT(context), INPUT(classArgument), INPUT(record), OUTPUT(count))
FUNCTION(OrvStatus, SOrvInsertOne,
         (OrvContext context, uint16_t classCode, int16_t record, int16_t entry), INPUT(context),
         INPUT(classCode), INPUT(record), INPUT(entry))
FUNCTION(OrvStatus, SOrvDeleteOne,
         (OrvContext context, uint16_t classCode, uint16_t record, uint16_t entry), INPUT(context),
         INPUT(classCode), INPUT(record), INPUT(entry))
FUNCTION(OrvStatus, SOrvDeleteLevel, (OrvContext context, int32_t level), INPUT(context),
         INPUT(level))
FUNCTION(OrvStatus, SOrvClassCopy, CLASS_COPY)
FUNCTION(OrvResult, OrvClassCopy, CLASS_COPY)
FUNCTION(OrvStatus, SOrvSaveAs, (OrvContext source, OrvContext destination), INPUT(source),
         INPUT(destination))
FUNCTION(OrvResult, OrvDataSourceDuplication, (OrvContext source, OrvContext destination),
         INPUT(source), INPUT(destination))
FUNCTION(OrvStatus, SOrvCopyRecord,
         (OrvContext source, uint16_t classCode, uint16_t sourceRecord, OrvContext destination,
          uint16_t destinationRecord, uint32_t option),
         INPUT(source), INPUT(classCode), INPUT(sourceRecord), INPUT(destination),
         INPUT(destinationRecord), INPUT(option))
FUNCTION(OrvStatus, SOrvFindRecord,
         (OrvContext context, int32_t kind, const void* key, int32_t option, uint16_t* record,
          uint32_t* word),
         INPUT(context), INPUT(kind), searchKey(kind, key), INPUT(option), OUTPUT(record),
         OUTPUT(word))
FUNCTION(OrvResult, OrvReadUFBlock,
         (OrvContext context, uint16_t classCode, uint32_t offset, void* buffer, uint32_t length,
          uint32_t option, uint32_t* count),
         INPUT(context), INPUT(classCode), INPUT(offset), INPUT(length), INPUT(option),
         input("count", *count), area("buffer", buffer, length), output("count", count, 1))
FUNCTION(OrvResult, OrvWriteUFBlock,
         (OrvContext context, uint16_t classCode, const void* buffer, uint32_t length,
          uint32_t option),
         INPUT(context), INPUT(classCode), input("buffer", buffer, length), INPUT(option))
