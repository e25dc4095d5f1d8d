#include "parameters/metadata_method.h"

#include <string>

#include "environment/process_variable.h"
#include "environment/suite_environment.h"
#include "module/frame/text_conversion.h"
#include "parameters/data_type.h"
#include "parameters/dictionary.h"
#include "parameters/parameter.h"

namespace pyORV3 {

using Tarsel::Datasources::QAR::findDataType;
using Tarsel::Datasources::QAR::Parameter;
using Tarsel::Datasources::QAR::parameterNameToCode;

namespace {

// A 5-tuple of a name, a text, two numbers and a type name.
Status metadataTuple(const char* name, const std::string& text, std::uint32_t code,
                     std::uint32_t classCode, const char* typeName, PythonReference& metadata) {
    PythonReference tuple(PyTuple_New(5));
    if (!tuple) {
        return outOfMemory;
    }
    // Codes are signed 32-bit ints wherever scripts meet them.
    PythonReference items[] = {
        textFromUtf8(name), textFromUtf8(text),
        PythonReference(PyLong_FromLong(static_cast<std::int32_t>(code))),
        PythonReference(PyLong_FromLong(static_cast<std::int32_t>(classCode))),
        PythonReference(PyUnicode_FromString(typeName))};
    Py_ssize_t next = 0;
    for (PythonReference& item : items) {
        if (!item) {
            return outOfMemory;
        }
        PyTuple_SetItem(tuple.get(), next++, item.release());
    }
    metadata = std::move(tuple);
    return success;
}

Status metadataByCode(Parameter& parameter, std::int32_t handle, std::uint32_t code,
                      PythonReference& metadata) {
    parameter.setHandle(handle);
    if (parameter.load(code) != success) {
        return badArguments;
    }
    const auto* dataType = findDataType(parameter.type());
    return metadataTuple(
        parameter.name(),
        parameter.descriptionHasHighBytes() ? parameter.name() : parameter.description(),
        parameter.code(), parameter.classCode(), dataType != nullptr ? dataType->typeName : "",
        metadata);
}

Status metadataByName(Parameter& parameter, std::int32_t handle, const char* name,
                      PythonReference& metadata) {
    std::uint32_t code = 0;
    if (parameterNameToCode(name, code) != success) {
        return badArguments;
    }
    return metadataByCode(parameter, handle, code, metadata);
}

}  // namespace

Outcome getParameterMetaData(std::int32_t handle, std::int32_t code, const char* name,
                             PythonReference& metadata) {
    constexpr const char* failed = "Failed to get metadata";
    Parameter parameter;
    if (*name == '\0') {
        return {metadataByCode(parameter, handle, static_cast<std::uint32_t>(code), metadata),
                failed};
    }
    const Status status = metadataByName(parameter, handle, name, metadata);
    if (status == success) {
        return success;
    }
    loadSuiteEnvironment();
    if (const auto value = processVariable(name)) {
        return {metadataTuple(name, *value, 0, 0, "str", metadata), "Failed to allocate tuple"};
    }
    return {status, failed};
}

}  // namespace pyORV3
