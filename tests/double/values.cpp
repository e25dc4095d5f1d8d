// The double's parameters and spectra.
#include "tests/double/reply.h"

namespace {

using recording::bytes;
using recording::Recorder;
using recording::Reply;

}  // namespace

OrvStatus ORV_CALL SOrvGetParam(OrvContext context, uint32_t code, uint16_t record, uint16_t entry,
                                void* buffer, uint32_t bufferSize) {
    return Reply("SOrvGetParam", {{"context", context},
                                  {"code", code},
                                  {"record", record},
                                  {"entry", entry},
                                  {"bufferSize", bufferSize}})
        .buffer("buffer", buffer, bufferSize)
        .status();
}

OrvResult ORV_CALL OrvParameterRead(OrvContext context, uint32_t code, uint16_t record,
                                    uint16_t entry, void* buffer, uint16_t bufferSize) {
    return Reply("OrvParameterRead", {{"context", context},
                                      {"code", code},
                                      {"record", record},
                                      {"entry", entry},
                                      {"bufferSize", bufferSize}})
        .buffer("buffer", buffer, bufferSize)
        .result();
}

OrvStatus ORV_CALL SOrvPutParam(OrvContext context, uint32_t code, int32_t record, int32_t entry,
                                const void* value, uint32_t valueSize) {
    return Reply("SOrvPutParam", {{"context", context},
                                  {"code", code},
                                  {"record", record},
                                  {"entry", entry},
                                  {"value", bytes(value, valueSize)}})
        .status();
}

OrvResult ORV_CALL OrvParameterWrite(OrvContext context, uint32_t code, uint16_t record,
                                     uint16_t entry, const void* value, uint16_t valueSize) {
    return Reply("OrvParameterWrite", {{"context", context},
                                       {"code", code},
                                       {"record", record},
                                       {"entry", entry},
                                       {"value", bytes(value, valueSize)}})
        .result();
}

OrvResult ORV_CALL OrvParameterDescriptionQuery(OrvContext context,
                                                const OrvParameterDescriptionKey* key,
                                                OrvParameterDescription* description) {
    return Reply("OrvParameterDescriptionQuery", {{"context", context},
                                                  {"name", bytes(key->name, sizeof key->name)},
                                                  {"codeLow", key->codeLow},
                                                  {"codeHigh", key->codeHigh}})
        .number("type", &description->type)
        .number("size", &description->size)
        .buffer("name", description->name, sizeof description->name)
        .buffer("text", description->text, sizeof description->text)
        .result();
}

OrvStatus ORV_CALL SOrvGetSpectrum(OrvContext context, uint16_t firstChannel, uint16_t channelCount,
                                   uint32_t option, int32_t* channels) {
    Reply reply("SOrvGetSpectrum", {{"context", context},
                                    {"firstChannel", firstChannel},
                                    {"channelCount", channelCount},
                                    {"option", option}});
    reply.buffer("channels", channels, channelCount * sizeof *channels);
    if (!reply.isScripted()) {
        Recorder::instance().readChannels(firstChannel, channelCount, channels);
    }
    return reply.status();
}

OrvStatus ORV_CALL SOrvPutSpectrum(OrvContext context, uint16_t firstChannel, uint16_t channelCount,
                                   const int32_t* channels) {
    return Reply("SOrvPutSpectrum",
                 {{"context", context},
                  {"firstChannel", firstChannel},
                  {"channelCount", channelCount},
                  {"channels", bytes(channels, channelCount * sizeof *channels)}})
        .status();
}
