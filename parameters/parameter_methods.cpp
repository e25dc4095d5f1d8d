#include "parameters/parameter_methods.h"

#include <string>

#include "environment/suite_environment.h"
#include "module/binding/text_conversion.h"
#include "module/interface/orv.h"
#include "parameters/data_type.h"
#include "parameters/dictionary.h"
#include "parameters/parameter.h"

namespace pyORV3 {

using Tarsel::Datasources::QAR::findValueType;
using Tarsel::Datasources::QAR::Parameter;
using Tarsel::Datasources::QAR::parameterNameToCode;
using Tarsel::Utility::ByteStream;

namespace {

// Returns a tuple of a name, a string, two numbers and a type name.
Status metadataTuple(const char* name, const std::string& text, std::uint32_t code,
                     std::uint32_t classCode, const char* typeName, PythonReference& metadata) {
    PythonReference tuple(PyTuple_New(5));
    if (!tuple) {
        PyErr_Clear();
        return outOfMemory;
    }
    // Scripts see codes as signed 32-bit ints.
    PythonReference items[] = {
        textFromUtf8(name), textFromUtf8(text),
        PythonReference(PyLong_FromLong(static_cast<std::int32_t>(code))),
        PythonReference(PyLong_FromLong(static_cast<std::int32_t>(classCode))),
        PythonReference(PyUnicode_FromString(typeName))};
    Py_ssize_t next = 0;
    for (PythonReference& item : items) {
        if (!item) {
            PyErr_Clear();
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
    const auto* valueType = findValueType(parameter.type());
    return metadataTuple(
        parameter.name(),
        parameter.descriptionHasHighBytes() ? parameter.name() : parameter.description(),
        parameter.code(), parameter.classCode(), valueType != nullptr ? valueType->typeName : "",
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

Outcome getParameter(std::int32_t handle, std::int32_t code, std::int32_t record,
                     std::int32_t entry, PythonReference& value) {
    const auto parameterCode = static_cast<std::uint32_t>(code);
    const Parameter parameter(parameterCode);
    ByteStream stream(parameter.size() + 1);
    if (const OrvStatus status =
            SOrvGetParam(handle, parameterCode, static_cast<std::uint16_t>(record),
                         static_cast<std::uint16_t>(entry), stream.data(), stream.size());
        status != 0) {
        return {status, "SOrvGetParam() failed"};
    }
    return {parameter.deserialize(stream, value), "Parameter deserialization failed"};
}

Outcome setParameter(std::int32_t handle, std::int32_t code, PyObject* value, std::int32_t record,
                     std::int32_t entry) {
    const auto parameterCode = static_cast<std::uint32_t>(code);
    const Parameter parameter(parameterCode);
    ByteStream stream;
    if (const Status status = parameter.serialize(value, stream); status != success) {
        return {status, "Parameter serialization failed"};
    }
    return {SOrvPutParam(handle, parameterCode, record, entry, stream.data(), stream.size()),
            "SOrvPutParam() failed"};
}

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
