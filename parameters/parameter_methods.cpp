#include "parameters/parameter_methods.h"

#include "module/interface/orv.h"
#include "parameters/parameter.h"

namespace pyORV3 {

using Tarsel::Datasources::QAR::Parameter;
using Tarsel::Utility::ByteStream;

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

}  // namespace pyORV3
