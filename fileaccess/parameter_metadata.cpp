#include "fileaccess/parameter_metadata.h"

#include <algorithm>
#include <charconv>

#include "environment/suite_environment.h"
#include "fileaccess/library_wrappers.h"
#include "parameters/data_type.h"
#include "variant/parameter_serialisation.h"

namespace Tarsel::Datasources::QAR {

using com::tarsel::utility::Variant;
using pyORV3::Status;
using pyORV3::success;

namespace {

// Returns the node for a temporary context; zero if the library has none.
OrvNodeRecord findNode(OrvContext context) {
    OrvNodeRecord node{};
    if (enumerateNode(context, node, NodeSelector::first) == ORV_RESULT_RETRY_SELECTOR) {
        node = {};
        // Ignored: without a node, the creation of the context fails and reports the reason.
        static_cast<void>(enumerateNode(context, node, NodeSelector::second));
    }
    return node;
}

OrvParameterDescriptionKey keyOf(std::uint32_t code) {
    OrvParameterDescriptionKey key{};
    key.codeLow = static_cast<std::uint16_t>(code);
    key.codeHigh = static_cast<std::uint16_t>(code >> 16);
    return key;
}

}  // namespace

Status ParameterMetadata::lookup(std::uint32_t code) {
    code_ = code;
    if (handle_ != 0) {
        return queryDescription(handle_);
    }
    return pyORV3::signExtended(lookupThroughTemporaryContext());
}

OrvResult ParameterMetadata::lookupThroughTemporaryContext() {
    pyORV3::loadSuiteEnvironment();
    OrvContext handle = 0;
    if (OrvCreateDSC2(nullptr, &handle, 0, 0) != 0) {
        type_ = 0;
        size_ = 0;
        length_ = 0;
        return 0;
    }
    OrvNodeRecord node{};
    {
        const OwnedContext unbound(handle);
        node = findNode(unbound.handle());
    }
    handle = 0;
    const OrvResult creation = OrvCreateDSC2(&node, &handle, 0, 0);
    const OwnedContext bound(handle);
    return creation != 0 ? creation
                         : static_cast<OrvResult>(codeOf(queryDescription(bound.handle())));
}

Status ParameterMetadata::queryDescription(OrvContext context) {
    const OrvParameterDescriptionKey key = keyOf(code_);
    OrvParameterDescription description{};
    const OrvResult result = OrvParameterDescriptionQuery(context, &key, &description);
    if (result != 0) {
        return pyORV3::libraryStatus(static_cast<std::uint16_t>(result));
    }
    name_.fill('\0');
    // The last byte is a terminator, even if the library wrote none.
    std::copy(std::begin(description.name), std::end(description.name) - 1, name_.begin());
    constexpr std::uint32_t reportedByteFlag = 1;
    constexpr std::uint32_t byteFlag = 2;
    type_ = description.type == reportedByteFlag ? byteFlag : description.type;
    size_ = description.size;
    length_ = description.size;
    return size_ == 0 ? pyORV3::parameterUnknown : success;
}

std::uint32_t ParameterMetadata::valueSize() const noexcept {
    return isText(type_) ? length_ + 1 : size_;
}

Status ParameterMetadata::serialize(const Variant& value, Utility::ByteStream& out) const {
    return serializeValue(type_, valueSize(), value, out);
}

Status ParameterMetadata::deserialize(const Utility::ByteStream& in, Variant& out) const {
    return deserializeValue(type_, in, out);
}

std::string describeParameterCode(std::uint32_t code) {
    ParameterMetadata metadata(0);
    if (metadata.lookup(code) == success) {
        return metadata.name();
    }
    constexpr int hexadecimal = 16;
    std::array<char, 8> digits{};
    const auto [end, error] =
        std::to_chars(digits.data(), digits.data() + digits.size(), code, hexadecimal);
    const std::string text(digits.data(), end);
    return text.size() < 2 ? "0" + text : text;
}

}  // namespace Tarsel::Datasources::QAR
