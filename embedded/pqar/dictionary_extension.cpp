#include "embedded/pqar/dictionary_extension.h"

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>

#include "embedded/pqar/parameter_codes.h"

namespace embedded {
namespace {

using Json = nlohmann::json;

constexpr const char* variable = "ORV_DICTIONARY";
constexpr std::size_t maxBytes = std::size_t{4} << 20U;
constexpr std::size_t maxParameters = 10000;
constexpr std::size_t maxDescriptionLength = 255;
constexpr std::uint32_t maxTextLength = 4096;
constexpr unsigned unformattedNibble = 4;  // the highest hexadecimal digit of classes of bytes

void require(bool condition) {
    if (!condition) {
        throw std::invalid_argument("an extension of the dictionary that cannot be used");
    }
}

std::uint32_t numberIn(const Json& item, const char* key, std::uint32_t max) {
    const Json& number = item.at(key);
    require(number.is_number_unsigned() && number.get<std::uint64_t>() <= max);
    return number.get<std::uint32_t>();
}

bool isPrintable(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; });
}

std::string nameIn(const Json& item) {
    auto name = item.at("name").get<std::string>();
    require(name.size() > parameterNamePrefixLength && name.size() <= maxParameterNameLength &&
            name.starts_with("QAR_") && name[parameterNamePrefixLength - 1] == '_' &&
            isPrintable(name));
    return name;
}

std::string descriptionIn(const Json& item) {
    auto description = item.at("description").get<std::string>();
    require(description.size() <= maxDescriptionLength && isPrintable(description));
    return description;
}

// The class must be one with parameters: not channel contents and not unformatted bytes.
std::uint32_t codeIn(const Json& item) {
    const std::uint32_t code = numberIn(item, "code", UINT32_MAX);
    const auto classCode = static_cast<std::uint16_t>(code >> 16U);
    require(classCode != 0 && classCode != QAR_CLS_SPECTRUM &&
            classCode >> 12U != unformattedNibble);
    return code;
}

DataType typeIn(const Json& item) {
    const auto name = item.at("type").get<std::string>();
    // Several types have the name "byte", "short", "double" or "str"; the first is the plain one.
    const auto* const type = std::ranges::find(dataTypes, name, &DataTypeProperties::typeName);
    require(type != dataTypes.end());
    return type->type;
}

ParameterScope scopeIn(const Json& item) {
    const auto scope = item.at("scope").get<std::string>();
    require(scope == "record" || scope == "entry");
    return scope == "entry" ? ParameterScope::Entry : ParameterScope::Record;
}

// Returns the content of a file, or nullopt if it cannot be read, is too large or is not a regular
// file: the opening of a pipe would not return.
std::optional<std::string> contentOf(const char* path) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error)) {
        return std::nullopt;
    }
    std::ifstream file(path, std::ios::binary);
    std::string content(maxBytes + 1, '\0');
    file.read(content.data(), static_cast<std::streamsize>(content.size()));
    content.resize(static_cast<std::size_t>(file.gcount()));
    if (file.bad() || content.empty() || content.size() > maxBytes) {
        return std::nullopt;
    }
    return content;
}

}  // namespace

DictionaryExtension::DictionaryExtension(std::string_view json) {
    const Json document = Json::parse(json);
    require(document.is_object() && numberIn(document, "qar_dictionary", 1) == 1);
    const Json& items = document.at("parameters");
    require(items.is_array() && items.size() <= maxParameters);
    for (const Json& item : items) {
        ParameterDescription parameter{
            .code = codeIn(item),
            .name = texts_.emplace_back(nameIn(item)),
            .type = typeIn(item),
            .textLength = 0,
            .scope = scopeIn(item),
            .description = texts_.emplace_back(descriptionIn(item)),
        };
        if (parameter.isText()) {
            parameter.textLength =
                static_cast<std::uint16_t>(numberIn(item, "length", maxTextLength));
            require(parameter.textLength > 0);
        }
        parameters_.push_back(parameter);
    }
    std::ranges::sort(parameters_, {}, &ParameterDescription::code);
    require(std::ranges::adjacent_find(parameters_, {}, &ParameterDescription::code) ==
            parameters_.end());
}

DictionaryExtension DictionaryExtension::unusable() {
    DictionaryExtension extension;
    extension.unusable_ = true;
    return extension;
}

const DictionaryExtension& DictionaryExtension::ofProcess() {
    static const DictionaryExtension extension = [] {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): read once at the first lookup
        const char* path = std::getenv(variable);
        if (path == nullptr || *path == '\0') {
            return DictionaryExtension();
        }
        try {
            const auto content = contentOf(path);
            return content ? DictionaryExtension(*content) : unusable();
        } catch (const std::exception&) {
            return unusable();
        }
    }();
    return extension;
}

}  // namespace embedded
