// The double's data sources: opening, creating, closing, state, copies of a whole source.
#include "tests/double/reply.h"

namespace {

using recording::Reply;
using recording::text;

Reply openSource(const char* function, OrvContext context, const char* name, uint16_t sourceType,
                 uint32_t accessMode, uint32_t option, const char* auxiliary) {
    return {function,
            {{"context", context},
             {"name", text(name)},
             {"sourceType", sourceType},
             {"accessMode", accessMode},
             {"option", option},
             {"auxiliary", text(auxiliary)}}};
}

Reply createFile(const char* function, OrvContext context, const char* fileName,
                 uint16_t sourceType, uint16_t first, uint16_t second, uint16_t third) {
    return {function,
            {{"context", context},
             {"fileName", text(fileName)},
             {"sourceType", sourceType},
             {"first", first},
             {"second", second},
             {"third", third}}};
}

}  // namespace

OrvStatus ORV_CALL SOrvOpenDataSource(OrvContext context, const char* sourceName,
                                      uint16_t sourceType, uint32_t accessMode, uint32_t option,
                                      const char* auxiliary) {
    return openSource("SOrvOpenDataSource", context, sourceName, sourceType, accessMode, option,
                      auxiliary)
        .status();
}

OrvResult ORV_CALL OrvDataSourceOpening(OrvContext context, const char* fileName,
                                        uint16_t sourceType, uint32_t accessMode, uint32_t option,
                                        const char* auxiliary) {
    return openSource("OrvDataSourceOpening", context, fileName, sourceType, accessMode, option,
                      auxiliary)
        .result();
}

OrvStatus ORV_CALL SOrvCreateFile(OrvContext context, const char* fileName, uint16_t sourceType,
                                  uint16_t first, uint16_t second, uint16_t third) {
    return createFile("SOrvCreateFile", context, fileName, sourceType, first, second, third)
        .status();
}

OrvResult ORV_CALL OrvFileCreation(OrvContext context, const char* fileName, uint16_t sourceType,
                                   uint16_t first, uint16_t second, uint16_t third) {
    return createFile("OrvFileCreation", context, fileName, sourceType, first, second, third)
        .result();
}

OrvStatus ORV_CALL SOrvCloseDataSource(OrvContext context) {
    return Reply("SOrvCloseDataSource", {{"context", context}}).status();
}

OrvResult ORV_CALL OrvDataSourceClosing(OrvContext context) {
    return Reply("OrvDataSourceClosing", {{"context", context}}).result();
}

OrvStatus ORV_CALL SOrvFlush(OrvContext context) {
    return Reply("SOrvFlush", {{"context", context}}).status();
}

OrvResult ORV_CALL OrvDataSourceFlush(OrvContext context) {
    return Reply("OrvDataSourceFlush", {{"context", context}}).result();
}

OrvStatus ORV_CALL SOrvSaveAs(OrvContext source, OrvContext destination) {
    return Reply("SOrvSaveAs", {{"source", source}, {"destination", destination}}).status();
}

OrvResult ORV_CALL OrvDataSourceDuplication(OrvContext source, OrvContext destination) {
    return Reply("OrvDataSourceDuplication", {{"source", source}, {"destination", destination}})
        .result();
}

OrvStatus ORV_CALL SOrvQueryDataSource(OrvContext context, int32_t item, uint32_t* word) {
    return Reply("SOrvQueryDataSource", {{"context", context}, {"item", item}, {"word", *word}})
        .number("word", word)
        .status();
}

OrvStatus ORV_CALL SOrvControlDSC(OrvContext context, int32_t first, int32_t second) {
    return Reply("SOrvControlDSC", {{"context", context}, {"first", first}, {"second", second}})
        .status();
}

OrvStatus ORV_CALL SOrvReVerify(OrvContext context) {
    return Reply("SOrvReVerify", {{"context", context}}).status();
}
