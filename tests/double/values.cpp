// The double's parameters and spectra.
#include "tests/double/reply.h"

using recording::bytes;
using recording::named;
using recording::Recorder;
using recording::Reply;

OrvStatus ORV_CALL SOrvGetParam(OrvContext context, uint32_t code, uint16_t record, uint16_t entry,
                                void* buffer, uint32_t bufferSize) {
    return Reply(__func__, {ARG(context), ARG(code), ARG(record), ARG(entry), ARG(bufferSize)})
        .buffer("buffer", buffer, bufferSize)
        .status();
}

OrvResult ORV_CALL OrvParameterRead(OrvContext context, uint32_t code, uint16_t record,
                                    uint16_t entry, void* buffer, uint16_t bufferSize) {
    return Reply(__func__, {ARG(context), ARG(code), ARG(record), ARG(entry), ARG(bufferSize)})
        .buffer("buffer", buffer, bufferSize)
        .result();
}

DEFINE_FUNCTION(OrvStatus, SOrvPutParam,
                (OrvContext context, uint32_t code, int32_t record, int32_t entry,
                 const void* value, uint32_t valueSize),
                ARG(context), ARG(code), ARG(record), ARG(entry),
                named("value", bytes(value, valueSize)))
DEFINE_FUNCTION(OrvResult, OrvParameterWrite,
                (OrvContext context, uint32_t code, uint16_t record, uint16_t entry,
                 const void* value, uint16_t valueSize),
                ARG(context), ARG(code), ARG(record), ARG(entry),
                named("value", bytes(value, valueSize)))

OrvResult ORV_CALL OrvParameterDescriptionQuery(OrvContext context,
                                                const OrvParameterDescriptionKey* key,
                                                OrvParameterDescription* description) {
    return Reply(__func__, {ARG(context), named("name", bytes(key->name, sizeof key->name)),
                            named("codeLow", key->codeLow), named("codeHigh", key->codeHigh)})
        .number("type", &description->type)
        .number("size", &description->size)
        .buffer("name", description->name, sizeof description->name)
        .buffer("text", description->text, sizeof description->text)
        .result();
}

OrvStatus ORV_CALL SOrvGetSpectrum(OrvContext context, uint16_t firstChannel, uint16_t channelCount,
                                   uint32_t option, int32_t* channels) {
    return Reply(__func__, {ARG(context), ARG(firstChannel), ARG(channelCount), ARG(option)})
        .buffer("channels", channels, channelCount * sizeof *channels,
                Recorder::instance().channels(firstChannel, channelCount))
        .status();
}

DEFINE_FUNCTION(OrvStatus, SOrvPutSpectrum,
                (OrvContext context, uint16_t firstChannel, uint16_t channelCount,
                 const int32_t* channels),
                ARG(context), ARG(firstChannel), ARG(channelCount),
                named("channels", bytes(channels, channelCount * sizeof *channels)))
