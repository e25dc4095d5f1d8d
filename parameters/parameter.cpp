#include "parameters/parameter.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "module/binding/argument_format.h"
#include "module/binding/text_conversion.h"
#include "module/status/trace.h"
#include "parameters/data_type.h"
#include "parameters/dictionary.h"
#include "parameters/timestamp.h"

namespace Tarsel::Datasources::QAR {

using pyORV3::badArguments;
using pyORV3::PythonReference;
using pyORV3::Status;
using pyORV3::success;
using Utility::ByteStream;
using Utility::readLittleEndian;
using Utility::Timestamp;
using Utility::writeLittleEndian;

namespace {

std::string_view withoutTrailingWhiteSpace(std::string_view text) {
    const std::size_t last = text.find_last_not_of(" \t\n\v\f\r");
    return text.substr(0, last == std::string_view::npos ? 0 : last + 1);
}

// Returns the longest prefix of at most `limit` bytes that does not split a UTF-8 sequence.
std::string_view cutText(std::string_view text, std::size_t limit) {
    if (text.size() <= limit) {
        return text;
    }
    const auto continuesSequence = [](char byte) {
        return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
    };
    constexpr std::size_t maxContinuation = 3;
    std::size_t end = limit;
    while (end > limit - maxContinuation && continuesSequence(text[end])) {
        --end;
    }
    return text.substr(0, end);
}

// Fills a NUL-terminated character field; cuts a string that is too long.
template <std::size_t fieldSize>
void store(std::array<char, fieldSize>& field, std::string_view text) {
    text = cutText(withoutTrailingWhiteSpace(text), fieldSize - 1);
    field.fill('\0');
    std::ranges::copy(text, field.begin());
}

}  // namespace

Parameter::Parameter(std::uint32_t code) {
    if (const Status status = load(code); status != success) {
        throw static_cast<long>(codeOf(status));
    }
}

Status Parameter::load(std::uint32_t code) {
    if (code == 0) {
        return pyORV3::parameterUnknown;
    }
    code_ = code;
    classCode_ = classCodeOf(code);
    type_ = 0;
    size_ = 0;
    attributes_.fill(0);
    reserved_ = 0;
    name_.fill('\0');
    description_.fill('\0');

    ParameterInfo info;
    if (const Status status = getParameterInfo(code, info); status != success) {
        return trace("Parameter::load", pyORV3::failureLevel, "The dictionary has no description",
                     status);
    }
    constexpr std::uint32_t low16 = 0xFFFF;
    type_ = info.type;
    size_ = (isText(info.type) ? info.length + 1 : info.size) & low16;
    attributes_ = {info.output7, info.length, info.output6 & low16, info.output12};
    output11_ = info.output11;
    store(name_, info.name.data());
    store(description_, info.description.data());
    return success;
}

bool Parameter::descriptionHasHighBytes() const noexcept {
    return std::ranges::any_of(description_,
                               [](char byte) { return static_cast<unsigned char>(byte) >= 0x80; });
}

// ---- The conversions of a value between bytes and Python objects ----

namespace {

// Returns the bytes up to the first NUL or the end of the stream.
std::string textOf(const ByteStream& stream) {
    const auto* text = reinterpret_cast<const char*>(stream.data());
    return {text, strnlen(text, stream.size())};
}

PyObject* dateObject(const std::uint8_t* bytes) {
    Timestamp timestamp;
    timestamp.fromDouble(readLittleEndian<double>(bytes));
    return PyUnicode_FromString(timestamp.format(true, 0, {}).c_str());
}

// Parses a number with the unit and writes its low bytes as Stored.
template <typename Stored, pyORV3::FixedText unit, typename Parsed>
Status serializeNumber(PyObject* object, ByteStream& stream) {
    Parsed number{};
    if (!pyORV3::parseObject<unit>(object, number)) {
        return badArguments;
    }
    stream.grow(sizeof(Stored));
    writeLittleEndian(stream.data(), static_cast<Stored>(number));
    return success;
}

Status serializeText(PyObject* object, ByteStream& stream) {
    if ((PyType_GetFlags(Py_TYPE(object)) & Py_TPFLAGS_UNICODE_SUBCLASS) == 0) {
        return badArguments;
    }
    const std::string ansi = pyORV3::ansiFromText(object);
    stream.grow(static_cast<std::uint32_t>(ansi.size()) + 1);
    std::memcpy(stream.data(), ansi.data(), ansi.size());
    return success;
}

Status serializeDate(PyObject* object, ByteStream& stream) {
    const char* text = nullptr;
    Timestamp timestamp;
    if (!pyORV3::parseObject<"s">(object, text) || !timestamp.parse(text)) {
        return badArguments;
    }
    stream.grow(sizeof(double));
    writeLittleEndian(stream.data(), timestamp.toDouble());
    return success;
}

}  // namespace

Status Parameter::deserialize(const ByteStream& stream, PythonReference& object) const {
    const ValueType* valueType = findValueType(type_);
    if (valueType == nullptr || stream.size() < valueType->width) {
        return badArguments;
    }
    const std::uint8_t* bytes = stream.data();
    switch (valueType->layout) {
        case ValueLayout::byteFlag:
            object = PythonReference(PyBool_FromLong(*bytes));
            break;
        case ValueLayout::shortInteger:
            object = PythonReference(PyLong_FromLong(readLittleEndian<std::uint16_t>(bytes)));
            break;
        case ValueLayout::longInteger:
            object = PythonReference(PyLong_FromLong(readLittleEndian<std::int32_t>(bytes)));
            break;
        case ValueLayout::longLong:
            object = PythonReference(PyLong_FromLongLong(readLittleEndian<std::int64_t>(bytes)));
            break;
        case ValueLayout::singleNumber:
            object = PythonReference(
                PyFloat_FromDouble(static_cast<double>(readLittleEndian<float>(bytes))));
            break;
        case ValueLayout::text:
            object = pyORV3::textFromAnsi(textOf(stream));
            break;
        case ValueLayout::doubleNumber:
            object = PythonReference(PyFloat_FromDouble(readLittleEndian<double>(bytes)));
            break;
        case ValueLayout::date:
            object = PythonReference(dateObject(bytes));
            break;
    }
    return success;
}

Status Parameter::serialize(PyObject* object, ByteStream& stream) const {
    stream.clear();
    const ValueType* valueType = findValueType(type_);
    if (valueType == nullptr) {
        return badArguments;
    }
    switch (valueType->layout) {
        case ValueLayout::byteFlag:
            return serializeNumber<std::uint8_t, "l", std::int32_t>(object, stream);
        case ValueLayout::shortInteger:
            return serializeNumber<std::uint16_t, "l", std::int32_t>(object, stream);
        case ValueLayout::longInteger:
            return serializeNumber<std::int32_t, "l", std::int32_t>(object, stream);
        case ValueLayout::longLong:
            return serializeNumber<std::int64_t, "L", long long>(object, stream);
        case ValueLayout::singleNumber:
            return serializeNumber<float, "f", float>(object, stream);
        case ValueLayout::text:
            return serializeText(object, stream);
        case ValueLayout::doubleNumber:
            return serializeNumber<double, "d", double>(object, stream);
        case ValueLayout::date:
            return serializeDate(object, stream);
    }
    return badArguments;
}

}  // namespace Tarsel::Datasources::QAR
