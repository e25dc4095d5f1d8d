// The double's data-access library: all 44 functions.
#include <algorithm>
#include <cstring>

#include "tests/double/recorder.h"

namespace {

using recording::area;
using recording::Argument;
using recording::input;
using recording::output;

// A fixed field without the zero bytes at its end, so that a zero-filled field is an empty text in
// the log; a null value for the field of a null record.
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

// A search key: a text with its NUL, or two floats.
Argument searchKey(std::int32_t kind, const void* key) {
    const bool isName = kind == ORV_SEARCH_BY_NAME;
    return input("key", key,
                 isName ? std::strlen(static_cast<const char*>(key)) + 1 : 2 * sizeof(float));
}

// The outputs of a node enumeration.
#define NODE_OUTPUTS                                         \
    area("identity", node->identity, sizeof node->identity), \
        area("refusal", node->refusal, sizeof node->refusal), output("count", count, 1)

// Lists that several functions have. Where no answer is scripted a new context has the next number.
#define CONTEXT_CREATION                                                                \
    (const OrvNodeRecord* node, OrvContext* context, uint16_t access, uint32_t option), \
        identity(node), refusal(node), IN(access), IN(option),                          \
        output("context", context, recording::Recorder::instance().nextContext())
#define OPENING                                                                      \
    (OrvContext context, const char* name, uint16_t sourceType, uint32_t accessMode, \
     uint32_t option, const char* auxiliary),                                        \
        IN(context), IN(name), IN(sourceType), IN(accessMode), IN(option), IN(auxiliary)
#define FILE_CREATION                                                               \
    (OrvContext context, const char* fileName, uint16_t sourceType, uint16_t first, \
     uint16_t second, uint16_t third),                                              \
        IN(context), IN(fileName), IN(sourceType), IN(first), IN(second), IN(third)
#define CLASS_COPY                                                                                \
    (OrvContext source, OrvContext destination, uint16_t classCode), IN(source), IN(destination), \
        IN(classCode)

constexpr std::int64_t noMoreInputs = 0x00500003;

}  // namespace

// ---- Contexts, nodes and inputs ----

FUNCTION(OrvStatus, SOrvCreateDSC, CONTEXT_CREATION)
FUNCTION(OrvStatus, SOrvCreateDSC2, CONTEXT_CREATION)
FUNCTION(OrvResult, OrvCreateDSC2, CONTEXT_CREATION)
FUNCTION(OrvStatus, SOrvEnumNodes,
         (OrvContext context, OrvNodeRecord* node, uint32_t* count, uint32_t selector), IN(context),
         identity(node), refusal(node), input("count", *count), IN(selector), NODE_OUTPUTS)
FUNCTION(OrvResult, OrvNodeEnumeration,
         (OrvContext context, OrvNodeRecord* node, uint16_t* count, uint16_t selector), IN(context),
         identity(node), refusal(node), input("count", *count), IN(selector), NODE_OUTPUTS)
FUNCTION(OrvStatus, SOrvDeleteDSC, (OrvContext context), IN(context))
FUNCTION(OrvResult, OrvContextDeletion, (OrvContext context), IN(context))
FUNCTION(OrvResult, OrvErrorQuery,
         (OrvContext context, uint32_t* code, uint32_t* second, uint32_t* third), IN(context),
         OUT(code), OUT(second), OUT(third))
FUNCTION(OrvStatus, SOrvQueryDSC, (OrvContext context, int32_t item, void* buffer), IN(context),
         IN(item), field("buffer", buffer, ORV_STATE_BUFFER_SIZE),
         area("buffer", buffer, ORV_STATE_BUFFER_SIZE))

FUNCTION_OR(OrvStatus, SOrvFirstInput, noMoreInputs,
            (OrvContext context, uint32_t option, char* name), IN(context), IN(option),
            area("name", name, ORV_INPUT_NAME_SIZE))
FUNCTION_OR(OrvStatus, SOrvNextInput, noMoreInputs, (OrvContext context, char* name), IN(context),
            area("name", name, ORV_INPUT_NAME_SIZE))

// ---- Sources ----

FUNCTION(OrvStatus, SOrvOpenDataSource, OPENING)
FUNCTION(OrvResult, OrvDataSourceOpening, OPENING)
FUNCTION(OrvStatus, SOrvCreateFile, FILE_CREATION)
FUNCTION(OrvResult, OrvFileCreation, FILE_CREATION)
FUNCTION(OrvStatus, SOrvCloseDataSource, (OrvContext context), IN(context))
FUNCTION(OrvResult, OrvDataSourceClosing, (OrvContext context), IN(context))
FUNCTION(OrvStatus, SOrvFlush, (OrvContext context), IN(context))
FUNCTION(OrvResult, OrvDataSourceFlush, (OrvContext context), IN(context))
FUNCTION(OrvStatus, SOrvQueryDataSource, (OrvContext context, int32_t item, uint32_t* word),
         IN(context), IN(item), input("word", *word), OUT(word))
FUNCTION(OrvStatus, SOrvControlDSC, (OrvContext context, int32_t first, int32_t second),
         IN(context), IN(first), IN(second))
FUNCTION(OrvStatus, SOrvReVerify, (OrvContext context), IN(context))

// ---- Parameters and spectra ----

FUNCTION(OrvStatus, SOrvGetParam,
         (OrvContext context, uint32_t code, uint16_t record, uint16_t entry, void* buffer,
          uint32_t bufferSize),
         IN(context), IN(code), IN(record), IN(entry), IN(bufferSize),
         area("buffer", buffer, bufferSize))
FUNCTION(OrvResult, OrvParameterRead,
         (OrvContext context, uint32_t code, uint16_t record, uint16_t entry, void* buffer,
          uint16_t bufferSize),
         IN(context), IN(code), IN(record), IN(entry), IN(bufferSize),
         area("buffer", buffer, bufferSize))
FUNCTION(OrvStatus, SOrvPutParam,
         (OrvContext context, uint32_t code, int32_t record, int32_t entry, const void* value,
          uint32_t valueSize),
         IN(context), IN(code), IN(record), IN(entry), input("value", value, valueSize))
FUNCTION(OrvResult, OrvParameterWrite,
         (OrvContext context, uint32_t code, uint16_t record, uint16_t entry, const void* value,
          uint16_t valueSize),
         IN(context), IN(code), IN(record), IN(entry), input("value", value, valueSize))
FUNCTION(OrvResult, OrvParameterDescriptionQuery,
         (OrvContext context, const OrvParameterDescriptionKey* key,
          OrvParameterDescription* description),
         IN(context), input("name", key->name, sizeof key->name), input("codeLow", key->codeLow),
         input("codeHigh", key->codeHigh), output("type", &description->type),
         output("size", &description->size),
         area("name", description->name, sizeof description->name),
         area("text", description->text, sizeof description->text))
FUNCTION(OrvStatus, SOrvGetSpectrum,
         (OrvContext context, uint16_t firstChannel, uint16_t channelCount, uint32_t option,
          int32_t* channels),
         IN(context), IN(firstChannel), IN(channelCount), IN(option),
         area("channels", channels, channelCount * sizeof *channels))
FUNCTION(OrvStatus, SOrvPutSpectrum,
         (OrvContext context, uint16_t firstChannel, uint16_t channelCount,
          const int32_t* channels),
         IN(context), IN(firstChannel), IN(channelCount),
         input("channels", channels, channelCount * sizeof *channels))

// ---- Classes, records and entries ----

FUNCTION(OrvResult, OrvCreateBlock,
         (OrvContext context, uint16_t classCode, int32_t size, int32_t option), IN(context),
         IN(classCode), IN(size), IN(option))
FUNCTION(OrvStatus, SOrvClassCount, (OrvContext context, uint16_t classCode, uint16_t* count),
         IN(context), IN(classCode), OUT(count))
FUNCTION(OrvResult, OrvRecordCount, (OrvContext context, uint16_t classCode, uint16_t* count),
         IN(context), IN(classCode), OUT(count))
FUNCTION(OrvStatus, SOrvEntryCount,
         (OrvContext context, int32_t classArgument, uint16_t record, uint16_t* count), IN(context),
         IN(classArgument), IN(record), OUT(count))
FUNCTION(OrvStatus, SOrvInsertOne,
         (OrvContext context, uint16_t classCode, int16_t record, int16_t entry), IN(context),
         IN(classCode), IN(record), IN(entry))
FUNCTION(OrvStatus, SOrvDeleteOne,
         (OrvContext context, uint16_t classCode, uint16_t record, uint16_t entry), IN(context),
         IN(classCode), IN(record), IN(entry))
FUNCTION(OrvStatus, SOrvDeleteLevel, (OrvContext context, int32_t level), IN(context), IN(level))
FUNCTION(OrvStatus, SOrvClassCopy, CLASS_COPY)
FUNCTION(OrvResult, OrvClassCopy, CLASS_COPY)
FUNCTION(OrvStatus, SOrvSaveAs, (OrvContext source, OrvContext destination), IN(source),
         IN(destination))
FUNCTION(OrvResult, OrvDataSourceDuplication, (OrvContext source, OrvContext destination),
         IN(source), IN(destination))
FUNCTION(OrvStatus, SOrvCopyRecord,
         (OrvContext source, uint16_t classCode, uint16_t sourceRecord, OrvContext destination,
          uint16_t destinationRecord, uint32_t option),
         IN(source), IN(classCode), IN(sourceRecord), IN(destination), IN(destinationRecord),
         IN(option))
FUNCTION(OrvStatus, SOrvFindRecord,
         (OrvContext context, int32_t kind, const void* key, int32_t option, uint16_t* record,
          uint32_t* word),
         IN(context), IN(kind), searchKey(kind, key), IN(option), OUT(record), OUT(word))
FUNCTION(OrvResult, OrvReadUFBlock,
         (OrvContext context, uint16_t classCode, uint32_t offset, void* buffer, uint32_t length,
          uint32_t option, uint32_t* count),
         IN(context), IN(classCode), IN(offset), IN(length), IN(option), input("count", *count),
         area("buffer", buffer, length), output("count", count, 1))
FUNCTION(OrvResult, OrvWriteUFBlock,
         (OrvContext context, uint16_t classCode, const void* buffer, uint32_t length,
          uint32_t option),
         IN(context), IN(classCode), input("buffer", buffer, length), IN(option))
