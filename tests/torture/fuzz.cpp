// Feeds arbitrary bytes to the readers of external data: Timestamp::parse, the conversions of
// parameters and variants, and the registry file. The first byte selects the reader. Run by
// libFuzzer (scripts/torture) if Clang is available, otherwise by replay.cpp with the corpus.
#include <Python.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "parameters/byte_stream.h"
#include "parameters/parameter.h"
#include "parameters/timestamp.h"
#include "platform/posix/registry_file.h"
#include "variant/parameter_serialisation.h"
#include "variant/variant.h"

using com::tarsel::utility::Variant;
using Tarsel::Datasources::QAR::Parameter;
using Tarsel::Utility::ByteStream;
using Tarsel::Utility::Timestamp;

namespace {

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// Requires that a parsed date is in range and that its formatted string parses to the same date.
void parseTimestamp(std::string_view text) {
    Timestamp parsed;
    if (parsed.parse(text)) {
        require(parsed.seconds() >= 0 && parsed.seconds() <= 2147483647);
        Timestamp again;
        require(again.parse(parsed.format(true, 0, {})) && again.seconds() == parsed.seconds());
    }
    if (text.size() >= sizeof(double)) {
        Timestamp instant;
        instant.fromDouble(Tarsel::Utility::readLittleEndian<double>(
            reinterpret_cast<const std::uint8_t*>(text.data())));
        require(!instant.format(true, static_cast<std::int32_t>(text.size()), "I").empty());
    }
}

void convertVariant(std::uint32_t type, std::string_view bytes) {
    ByteStream stream(static_cast<std::uint32_t>(bytes.size()));
    if (!bytes.empty()) {
        std::memcpy(stream.data(), bytes.data(), bytes.size());
    }
    Variant value;
    static_cast<void>(Tarsel::Datasources::QAR::deserializeValue(type, stream, value));
    for (const std::uint32_t into : {0U, 1U, 2U, 3U, 7U, 8U, 9U, 10U, type}) {
        ByteStream out;
        static_cast<void>(Tarsel::Datasources::QAR::serializeValue(
            into, static_cast<std::uint32_t>(bytes.size() % 70), value, out));
    }
    Variant text;
    const std::string beforeNul(bytes.substr(0, bytes.find('\0')));
    text = beforeNul.c_str();
    require(text.toString() == beforeNul);
    static_cast<void>(text.toInt16() + text.toInt32() + text.toInt64());
    static_cast<void>(text.toDouble() + static_cast<double>(text.toFloat()));
    static_cast<void>(text.toBoolean() == value.toBoolean());
}

// Converts the bytes to a Python object and back, and the bytes as a Python string to a value.
void convertParameter(std::uint32_t code, std::string_view bytes) {
    Parameter parameter;
    ByteStream stream(static_cast<std::uint32_t>(bytes.size()));
    if (parameter.load(code) != pyORV3::success || bytes.empty()) {
        return;
    }
    std::memcpy(stream.data(), bytes.data(), bytes.size());
    pyORV3::PythonReference object;
    if (parameter.deserialize(stream, object) == pyORV3::success && object) {
        ByteStream again;
        static_cast<void>(parameter.serialize(object.get(), again));
    }
    pyORV3::PythonReference text(
        PyUnicode_DecodeUTF8(bytes.data(), static_cast<Py_ssize_t>(bytes.size()), "surrogatepass"));
    if (text) {
        ByteStream written;
        static_cast<void>(parameter.serialize(text.get(), written));
    }
    PyErr_Clear();
}

void readRegistry(std::string_view content) {
    for (const std::string_view header :
         {std::string_view(),
          std::string_view("REGEDIT4\r\n\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\k]\r\n"),
          std::string_view("Windows Registry Editor Version 5.00\r\n\r\n"
                           "[HKEY_LOCAL_MACHINE\\SOFTWARE\\k]\r\n")}) {
        const auto file = platform::RegistryFile::parse(std::string(header) + std::string(content));
        require(header.empty() || (file && file->find("software\\K") != nullptr));
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argumentCount*/, char*** /*arguments*/) {
    Py_InitializeEx(0);
    require(Parameter().load(0x20000001) == pyORV3::success);  // the dictionary loads
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Parameters that cover all layouts of values.
    constexpr std::array<std::uint32_t, 10> codes = {0x20000001, 0x20000004, 0x20000006, 0x20000007,
                                                     0x20000011, 0x20000012, 0x20000016, 0x20000017,
                                                     0x20000018, 0x2001000D};
    if (size == 0) {
        return 0;
    }
    const std::string_view bytes(reinterpret_cast<const char*>(data + 1), size - 1);
    switch (data[0] % 4U) {
        case 0:
            parseTimestamp(bytes);
            break;
        case 1:
            convertVariant(data[0] / 4U, bytes);
            break;
        case 2:
            convertParameter(codes[data[0] / 4U % codes.size()], bytes);
            break;
        default:
            readRegistry(bytes);
    }
    return 0;
}
