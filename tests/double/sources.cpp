// The double's data sources: opening, creating, closing, state, copies of a whole source.
#include "tests/double/reply.h"

using recording::named;
using recording::Reply;

DEFINE_FUNCTION(OrvStatus, SOrvCloseDataSource, (OrvContext context), ARG(context))
DEFINE_FUNCTION(OrvResult, OrvDataSourceClosing, (OrvContext context), ARG(context))
DEFINE_FUNCTION(OrvStatus, SOrvFlush, (OrvContext context), ARG(context))
DEFINE_FUNCTION(OrvResult, OrvDataSourceFlush, (OrvContext context), ARG(context))
DEFINE_FUNCTION(OrvStatus, SOrvSaveAs, (OrvContext source, OrvContext destination), ARG(source),
                ARG(destination))
DEFINE_FUNCTION(OrvResult, OrvDataSourceDuplication, (OrvContext source, OrvContext destination),
                ARG(source), ARG(destination))
DEFINE_FUNCTION(OrvStatus, SOrvControlDSC, (OrvContext context, int32_t first, int32_t second),
                ARG(context), ARG(first), ARG(second))
DEFINE_FUNCTION(OrvStatus, SOrvReVerify, (OrvContext context), ARG(context))

DEFINE_FUNCTION(OrvStatus, SOrvOpenDataSource,
                (OrvContext context, const char* sourceName, uint16_t sourceType,
                 uint32_t accessMode, uint32_t option, const char* auxiliary),
                ARG(context), named("name", sourceName), ARG(sourceType), ARG(accessMode),
                ARG(option), named("auxiliary", auxiliary))
DEFINE_FUNCTION(OrvResult, OrvDataSourceOpening,
                (OrvContext context, const char* fileName, uint16_t sourceType, uint32_t accessMode,
                 uint32_t option, const char* auxiliary),
                ARG(context), named("name", fileName), ARG(sourceType), ARG(accessMode),
                ARG(option), named("auxiliary", auxiliary))
DEFINE_FUNCTION(OrvStatus, SOrvCreateFile,
                (OrvContext context, const char* fileName, uint16_t sourceType, uint16_t first,
                 uint16_t second, uint16_t third),
                ARG(context), named("fileName", fileName), ARG(sourceType), ARG(first), ARG(second),
                ARG(third))
DEFINE_FUNCTION(OrvResult, OrvFileCreation,
                (OrvContext context, const char* fileName, uint16_t sourceType, uint16_t first,
                 uint16_t second, uint16_t third),
                ARG(context), named("fileName", fileName), ARG(sourceType), ARG(first), ARG(second),
                ARG(third))

OrvStatus ORV_CALL SOrvQueryDataSource(OrvContext context, int32_t item, uint32_t* word) {
    return Reply(__func__, {ARG(context), ARG(item), named("word", *word)})
        .number("word", word)
        .status();
}
