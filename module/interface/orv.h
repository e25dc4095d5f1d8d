/* The native interfaces that pyORV3 calls, declared for C and C++:
 *
 *   1. the data-access library, ORV.dll or libORV.so: 44 functions;
 *   2. the parameter dictionary, pqar.dll or pqar.so: two entry points, looked up at run time;
 *   3. analysis engines: one kind of entry point, looked up at run time.
 *
 * To replace one of the three, include this header and meet the contracts below. Define
 * ORV_BUILDING_LIBRARY first if you define the functions of section 1 instead of calling them. All
 * numbers are little-endian; strings are NUL-terminated.
 */
#ifndef PYORV3_MODULE_INTERFACE_ORV_H
#define PYORV3_MODULE_INTERFACE_ORV_H

/* NOLINTBEGIN(modernize-deprecated-headers, modernize-use-using): C reads this file too. */
#include <stdint.h>

/* Calling conventions on 32-bit Windows, set by the build. Other systems have only one. */
#if defined(_WIN32)
#ifndef ORV_CALL
#define ORV_CALL __cdecl
#endif
#ifndef ORV_DICTIONARY_CALL
#define ORV_DICTIONARY_CALL __cdecl
#endif
#ifndef ORV_ENGINE_CALL
#define ORV_ENGINE_CALL __cdecl
#endif
#else
#define ORV_CALL
#define ORV_DICTIONARY_CALL
#define ORV_ENGINE_CALL
#endif

#if defined(_WIN32)
#if defined(ORV_BUILDING_LIBRARY)
#define ORV_FUNCTION __declspec(dllexport)
#else
#define ORV_FUNCTION __declspec(dllimport)
#endif
#define ORV_EXPORT __declspec(dllexport)
#else
#define ORV_FUNCTION __attribute__((visibility("default")))
#define ORV_EXPORT __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Types ------------------------------------------------------------------------------- */

/* A data source context of the library; 0 means none. */
typedef int32_t OrvContext;

/* Result of the SOrv functions: 0 is success, anything else a failure code. */
typedef uint32_t OrvStatus;

/* Result of the Orv functions: 0 is success; ORV_RESULT_ASK_ERROR_QUERY is a failure whose code
 * OrvErrorQuery returns; any other value is a failure number. */
typedef int16_t OrvResult;

/* A node, from the node enumeration to context creation; the caller zero-fills it. */
typedef struct OrvNodeRecord {
    uint8_t identity[514]; /* defined by the library */
    char refusal[538];     /* NUL-terminated; a node with a nonempty string cannot be used */
} OrvNodeRecord;

/* The question of OrvParameterDescriptionQuery. */
typedef struct OrvParameterDescriptionKey {
    char name[13]; /* all zero: query by code */
    uint8_t unused;
    uint16_t codeLow;  /* low 16 bits of the parameter code */
    uint16_t codeHigh; /* high 16 bits of the parameter code */
} OrvParameterDescriptionKey;

/* The answer of OrvParameterDescriptionQuery; the caller zero-fills it. */
typedef struct OrvParameterDescription {
    uint8_t reserved[4];
    uint16_t type; /* data type code */
    uint16_t size; /* value size in bytes; for a string, its length without the terminator */
    char name[13]; /* NUL-terminated, at most 12 characters */
    char text[33]; /* NUL-terminated second string */
    uint8_t unused[2];
} OrvParameterDescription;

/* Numbers with a meaning in the interface. */
enum {
    ORV_NODE_SELECTOR = 0x42,       /* node enumeration, first try */
    ORV_NODE_SELECTOR_RETRY = 0x46, /* node enumeration, second try */

    ORV_SOURCE_FILE = 1,    /* source type: a file by its name */
    ORV_SOURCE_INPUT = 769, /* source type: an input of the node */

    ORV_ACCESS_READ = 0x80, /* access mode; 0x1 and 0x2 read and write as well */
    ORV_ACCESS_CREATE = 0x400,

    ORV_CREATION_FIRST = 65535, /* file creation: always these three */
    ORV_CREATION_SECOND = 1,
    ORV_CREATION_THIRD = 32768,

    ORV_SOURCE_STATE_ITEM = 1,  /* SOrvQueryDataSource: the state of the source */
    ORV_CONTEXT_STATE_ITEM = 3, /* SOrvQueryDSC: a buffer that begins with the state word */
    ORV_STATE_UNUSABLE = 0x200, /* bit of the state word: the source cannot be used */

    ORV_SEARCH_BY_NAME = 2,   /* kind of search: the key is a name */
    ORV_SEARCH_BY_ENERGY = 4, /* kind of search: the key is two floats */

    ORV_SPECTRUM_CLASS = 0x2005,             /* the class of the channel contents */
    ORV_CHANNEL_COUNT_PARAMETER = 0x20000007 /* QAR_L_CHANNELS, a signed 32-bit number */
};

/* Statuses with a meaning in the interface. */
enum {
    ORV_STATUS_NOT_A_SOURCE = 0x300022,       /* opening: not a data source */
    ORV_STATUS_OPENED_WITH_REMARK = 0x500001, /* opening: see the state word */
    ORV_STATUS_RETRY_SELECTOR = 0x500002      /* node enumeration: a second try is necessary */
};

/* 16-bit results with a meaning in the interface. */
enum {
    ORV_RESULT_NOTHING_CREATED = -2,  /* context creation: there is no context to delete */
    ORV_RESULT_ASK_ERROR_QUERY = -1,  /* OrvErrorQuery returns the code */
    ORV_RESULT_RETRY_SELECTOR = 2,    /* node enumeration: a second try is necessary */
    ORV_RESULT_SOURCE_FAILED = 3,     /* class copy: query the error of the source */
    ORV_RESULT_DESTINATION_FAILED = 4 /* class copy: query the error of the destination */
};

/* Sizes of the caller's plain buffers. */
enum {
    ORV_STATE_BUFFER_SIZE = 260, /* ORV_CONTEXT_STATE_ITEM of SOrvQueryDSC */
    ORV_INPUT_NAME_SIZE = 512,   /* SOrvFirstInput and SOrvNextInput */
    ORV_BLOCK_CHUNK_SIZE = 512   /* OrvReadUFBlock and OrvWriteUFBlock */
};

/* ---- 1. The data-access library ----------------------------------------------------------- */
/* On Windows 31 functions are imported by name and 13 by ordinal (the number after each). */

/* Contexts and nodes.
 * node: may be null in context creation (a context bound to no node).
 * The second context creation sets the handle even if it reports a failure that leaves the context
 * usable. Enumeration: count is 1 on entry; selector is ORV_NODE_SELECTOR, or
 * ORV_NODE_SELECTOR_RETRY for the second try after ORV_STATUS_RETRY_SELECTOR (in the 16-bit form:
 * ORV_RESULT_RETRY_SELECTOR). */
ORV_FUNCTION OrvStatus ORV_CALL SOrvCreateDSC(const OrvNodeRecord* node, OrvContext* context,
                                              uint16_t access, uint32_t option);
ORV_FUNCTION OrvStatus ORV_CALL SOrvCreateDSC2(const OrvNodeRecord* node, OrvContext* context,
                                               uint16_t access, uint32_t option);
ORV_FUNCTION OrvResult ORV_CALL OrvCreateDSC2(const OrvNodeRecord* node, OrvContext* context,
                                              uint16_t access, uint32_t option);
ORV_FUNCTION OrvStatus ORV_CALL SOrvEnumNodes(OrvContext context, OrvNodeRecord* node,
                                              uint32_t* count, uint32_t selector);
ORV_FUNCTION OrvResult ORV_CALL OrvNodeEnumeration(OrvContext context, OrvNodeRecord* node,
                                                   uint16_t* count, uint16_t selector); /* 3 */
ORV_FUNCTION OrvStatus ORV_CALL SOrvDeleteDSC(OrvContext context);
ORV_FUNCTION OrvResult ORV_CALL OrvContextDeletion(OrvContext context); /* 4 */

/* The library's 32-bit code for the last failed call on the context, in the first word; the
 * library defines the other two. Result 0: the words are valid. */
ORV_FUNCTION OrvResult ORV_CALL OrvErrorQuery(OrvContext context, uint32_t* code, uint32_t* second,
                                              uint32_t* third); /* 5 */

/* Opening, creating, closing.
 * sourceType: 1 a file, 769 an input of the node. accessMode: 0x1 reads, 0x2 writes, 0x80 reads.
 * auxiliary: a string or null. The numbers of the creation are always 1, 65535, 1, 32768. */
ORV_FUNCTION OrvStatus ORV_CALL SOrvOpenDataSource(OrvContext context, const char* sourceName,
                                                   uint16_t sourceType, uint32_t accessMode,
                                                   uint32_t option, const char* auxiliary);
ORV_FUNCTION OrvResult ORV_CALL OrvDataSourceOpening(OrvContext context, const char* fileName,
                                                     uint16_t sourceType, uint32_t accessMode,
                                                     uint32_t option,
                                                     const char* auxiliary); /* 6 */
ORV_FUNCTION OrvStatus ORV_CALL SOrvCreateFile(OrvContext context, const char* fileName,
                                               uint16_t sourceType, uint16_t first, uint16_t second,
                                               uint16_t third);
ORV_FUNCTION OrvResult ORV_CALL OrvFileCreation(OrvContext context, const char* fileName,
                                                uint16_t sourceType, uint16_t first,
                                                uint16_t second, uint16_t third); /* 17 */
ORV_FUNCTION OrvStatus ORV_CALL SOrvCloseDataSource(OrvContext context);
ORV_FUNCTION OrvResult ORV_CALL OrvDataSourceClosing(OrvContext context); /* 16 */
ORV_FUNCTION OrvStatus ORV_CALL SOrvFlush(OrvContext context);
ORV_FUNCTION OrvResult ORV_CALL OrvDataSourceFlush(OrvContext context); /* 40 */

/* ORV_CONTEXT_STATE_ITEM: a buffer of ORV_STATE_BUFFER_SIZE zero bytes; ORV_STATE_UNUSABLE in its
 * first 32-bit word means that a source opened with ORV_STATUS_OPENED_WITH_REMARK cannot be used.
 */
ORV_FUNCTION OrvStatus ORV_CALL SOrvQueryDSC(OrvContext context, int32_t item, void* buffer);

/* Parameters: one value in the layout of its data type. record and entry count from 1; entry 0 is
 * the whole record. bufferSize and valueSize: bytes. */
ORV_FUNCTION OrvStatus ORV_CALL SOrvGetParam(OrvContext context, uint32_t code, uint16_t record,
                                             uint16_t entry, void* buffer, uint32_t bufferSize);
ORV_FUNCTION OrvResult ORV_CALL OrvParameterRead(OrvContext context, uint32_t code, uint16_t record,
                                                 uint16_t entry, void* buffer,
                                                 uint16_t bufferSize); /* 15 */
/* record and entry: the caller's full 32-bit numbers. */
ORV_FUNCTION OrvStatus ORV_CALL SOrvPutParam(OrvContext context, uint32_t code, int32_t record,
                                             int32_t entry, const void* value, uint32_t valueSize);
ORV_FUNCTION OrvResult ORV_CALL OrvParameterWrite(OrvContext context, uint32_t code,
                                                  uint16_t record, uint16_t entry,
                                                  const void* value, uint16_t valueSize); /* 23 */
ORV_FUNCTION OrvResult ORV_CALL
OrvParameterDescriptionQuery(OrvContext context, const OrvParameterDescriptionKey* key,
                             OrvParameterDescription* description); /* 43 */

/* Spectra: signed 32-bit channel contents. firstChannel counts from 1; channels: address
 * of the first channel. At most 2,048 channels in a reading and 256 in a writing call. */
ORV_FUNCTION OrvStatus ORV_CALL SOrvGetSpectrum(OrvContext context, uint16_t firstChannel,
                                                uint16_t channelCount, uint32_t option,
                                                int32_t* channels);
ORV_FUNCTION OrvStatus ORV_CALL SOrvPutSpectrum(OrvContext context, uint16_t firstChannel,
                                                uint16_t channelCount, const int32_t* channels);

/* Classes, records and entries. classCode: the 16-bit class number.
 * OrvCreateBlock: size in the unit of the class (class 0x2005: channels); option 0, or -1 for an
 * unformatted block that is about to be filled.
 * SOrvEntryCount: the class argument of the caller, a class number or a code whose high half is
 * one. SOrvInsertOne: record and entry of the caller, signed. */
ORV_FUNCTION OrvResult ORV_CALL OrvCreateBlock(OrvContext context, uint16_t classCode, int32_t size,
                                               int32_t option);
ORV_FUNCTION OrvStatus ORV_CALL SOrvClassCount(OrvContext context, uint16_t classCode,
                                               uint16_t* count);
ORV_FUNCTION OrvResult ORV_CALL OrvRecordCount(OrvContext context, uint16_t classCode,
                                               uint16_t* count); /* 24 */
ORV_FUNCTION OrvStatus ORV_CALL SOrvEntryCount(OrvContext context, int32_t classArgument,
                                               uint16_t record, uint16_t* count);
ORV_FUNCTION OrvStatus ORV_CALL SOrvInsertOne(OrvContext context, uint16_t classCode,
                                              int16_t record, int16_t entry);
ORV_FUNCTION OrvStatus ORV_CALL SOrvDeleteOne(OrvContext context, uint16_t classCode,
                                              uint16_t record, uint16_t entry);
ORV_FUNCTION OrvStatus ORV_CALL SOrvDeleteLevel(OrvContext context, int32_t level);

/* Copies. The 16-bit class copy reports ORV_RESULT_SOURCE_FAILED or ORV_RESULT_DESTINATION_FAILED;
 * the code is then that context's. */
ORV_FUNCTION OrvStatus ORV_CALL SOrvClassCopy(OrvContext source, OrvContext destination,
                                              uint16_t classCode);
ORV_FUNCTION OrvResult ORV_CALL OrvClassCopy(OrvContext source, OrvContext destination,
                                             uint16_t classCode); /* 39 */
ORV_FUNCTION OrvStatus ORV_CALL SOrvSaveAs(OrvContext source, OrvContext destination);
ORV_FUNCTION OrvResult ORV_CALL OrvDataSourceDuplication(OrvContext source,
                                                         OrvContext destination); /* 38 */
ORV_FUNCTION OrvStatus ORV_CALL SOrvCopyRecord(OrvContext source, uint16_t classCode,
                                               uint16_t sourceRecord, OrvContext destination,
                                               uint16_t destinationRecord, uint32_t option);

/* Search for a nuclide record. kind: ORV_SEARCH_BY_NAME or ORV_SEARCH_BY_ENERGY. record: set
 * to the number of the record; word: defined by the library. */
ORV_FUNCTION OrvStatus ORV_CALL SOrvFindRecord(OrvContext context, int32_t kind, const void* key,
                                               int32_t option, uint16_t* record, uint32_t* word);

/* Unformatted block data, moved in chunks of ORV_BLOCK_CHUNK_SIZE bytes: read at a byte offset,
 * written by appending. count: a 32-bit word that the caller sets to 1 before the first call. */
ORV_FUNCTION OrvResult ORV_CALL OrvReadUFBlock(OrvContext context, uint16_t classCode,
                                               uint32_t offset, void* buffer, uint32_t length,
                                               uint32_t option, uint32_t* count);
ORV_FUNCTION OrvResult ORV_CALL OrvWriteUFBlock(OrvContext context, uint16_t classCode,
                                                const void* buffer, uint32_t length,
                                                uint32_t option);

/* Status, control and inputs. ORV_SOURCE_STATE_ITEM: the low 16 bits of the word are the state.
 * name: a buffer of ORV_INPUT_NAME_SIZE bytes. */
ORV_FUNCTION OrvStatus ORV_CALL SOrvQueryDataSource(OrvContext context, int32_t item,
                                                    uint32_t* word);
ORV_FUNCTION OrvStatus ORV_CALL SOrvControlDSC(OrvContext context, int32_t first, int32_t second);
ORV_FUNCTION OrvStatus ORV_CALL SOrvReVerify(OrvContext context);
ORV_FUNCTION OrvStatus ORV_CALL SOrvFirstInput(OrvContext context, uint32_t option, char* name);
ORV_FUNCTION OrvStatus ORV_CALL SOrvNextInput(OrvContext context, char* name);

/* ---- 2. The parameter dictionary ---------------------------------------------------------- */
/* Both entry points return a status in which bit 0 set means success. */

/* "pqar_util_getpinfo". one and zero: always 1 and 0. name and description: 256 bytes each.
 * length: characters of a string without the terminator; type: data type code; size: value size in
 * bytes. The dictionary defines the other outputs. */
typedef uint32_t(ORV_DICTIONARY_CALL* OrvParameterInfoFunction)(
    uint32_t code, uint32_t one, uint32_t zero, char* name, char* description, uint32_t* output6,
    uint32_t* output7, uint32_t* length, uint32_t* type, uint32_t* size, uint32_t* output11,
    uint32_t* output12);

/* "pqar_util_pname2code". area: 260 bytes that the caller does not read. */
typedef uint32_t(ORV_DICTIONARY_CALL* OrvParameterNameFunction)(const char* name, uint32_t* code,
                                                                void* area);

/* ---- 3. Analysis engines ------------------------------------------------------------------- */

/* The entry point of an engine: two values from the script, then 0 and 0; returns a status, of the
 * family of engines if bits 23-16 are 0x61. */
typedef uint32_t(ORV_ENGINE_CALL* OrvEngineFunction)(int32_t first, int32_t second, int32_t third,
                                                     int32_t fourth);

#ifdef __cplusplus
}

static_assert(sizeof(OrvNodeRecord) == 1052);
static_assert(sizeof(OrvParameterDescriptionKey) == 18);
static_assert(sizeof(OrvParameterDescription) == 56);
#endif

/* NOLINTEND(modernize-deprecated-headers, modernize-use-using) */

#endif
