#include "variant/parameter_serialisation.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "module/status/caught_failure.h"
#include "module/status/trace.h"
#include "parameters/byte_stream.h"
#include "parameters/data_type.h"
#include "parameters/timestamp.h"

namespace Tarsel::Datasources::QAR {

using com::tarsel::utility::Variant;
using pyORV3::Status;
using Utility::ByteStream;
using Utility::readLittleEndian;
using Utility::Timestamp;
using Utility::writeLittleEndian;

namespace {

constexpr std::string_view serializeContext = "ParameterMetadata::serialize";
constexpr std::string_view deserializeContext = "ParameterMetadata::deserialize";

Status reportInvalidSize(std::string_view context) {
    return pyORV3::trace(context, pyORV3::failureLevel, "Invalid stream size",
                         pyORV3::invalidArgument);
}

void writeText(const Variant& value, ByteStream& out) {
    const std::string text = value.toString();
    std::copy_n(text.data(), std::min<std::size_t>(text.size(), out.size() - 1), out.data());
}

std::string readText(const ByteStream& in) {
    const std::uint8_t* const end = in.data() + in.size();
    return {in.data(), std::find(in.data(), end, std::uint8_t{0})};
}

double libraryDate(const Variant& value) {
    return value.getDataType() == Variant::DataType::Double ? value.toDouble()
                                                            : value.toDateTime().toDouble();
}

Timestamp timestampOf(double libraryDate) {
    Timestamp timestamp;
    timestamp.fromDouble(libraryDate);
    return timestamp;
}

// out: at least the bytes of the layout.
void writeValue(ValueLayout layout, const Variant& value, ByteStream& out) {
    switch (layout) {
        case ValueLayout::byteFlag:
            return writeLittleEndian(out.data(), static_cast<std::uint8_t>(value.toBoolean()));
        case ValueLayout::shortInteger:
            return writeLittleEndian(out.data(), value.toInt16());
        case ValueLayout::longInteger:
            return writeLittleEndian(out.data(), value.toInt32());
        case ValueLayout::longLong:
            return writeLittleEndian(out.data(), value.toInt64());
        case ValueLayout::singleNumber:
            return writeLittleEndian(out.data(), value.toFloat());
        case ValueLayout::text:
            return writeText(value, out);
        case ValueLayout::doubleNumber:
            return writeLittleEndian(out.data(), value.toDouble());
        case ValueLayout::date:
            return writeLittleEndian(out.data(), libraryDate(value));
    }
}

// in: at least the bytes of the layout.
Variant& readValue(ValueLayout layout, const ByteStream& in, Variant& out) {
    switch (layout) {
        case ValueLayout::byteFlag:
            return out = in.data()[0] != 0;
        case ValueLayout::shortInteger:
            return out = readLittleEndian<std::uint16_t>(in.data());
        case ValueLayout::longInteger:
            return out = readLittleEndian<std::uint32_t>(in.data());
        case ValueLayout::longLong:
            return out = readLittleEndian<std::int64_t>(in.data());
        case ValueLayout::singleNumber:
            return out = readLittleEndian<float>(in.data());
        case ValueLayout::text:
            return out = readText(in).c_str();
        case ValueLayout::doubleNumber:
            return out = readLittleEndian<double>(in.data());
        case ValueLayout::date:
            return out = timestampOf(readLittleEndian<double>(in.data()));
    }
    return out;
}

}  // namespace

Status serializeValue(std::uint32_t type, std::uint32_t bufferSize, const Variant& value,
                      ByteStream& out) {
    out.clear();
    const ValueType* const valueType = findValueType(type);
    if (valueType != nullptr && bufferSize < valueType->width) {
        return reportInvalidSize(serializeContext);
    }
    try {
        out.allocate(bufferSize);
    } catch (...) {
        return pyORV3::reportCaught(serializeContext);
    }
    if (valueType != nullptr) {
        writeValue(valueType->layout, value, out);
    }
    return pyORV3::success;
}

Status deserializeValue(std::uint32_t type, const ByteStream& in, Variant& out) {
    out.clear();
    const ValueType* const valueType = findValueType(type);
    if (valueType == nullptr) {
        return pyORV3::success;
    }
    // A text may fill its buffer without a terminator and therefore has no min size.
    if (valueType->layout != ValueLayout::text && in.size() < valueType->width) {
        return reportInvalidSize(deserializeContext);
    }
    readValue(valueType->layout, in, out);
    return pyORV3::success;
}

}  // namespace Tarsel::Datasources::QAR
