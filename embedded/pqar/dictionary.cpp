// The two entry points of the dictionary library.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string_view>

#include "embedded/pqar/dictionary_extension.h"
#include "embedded/pqar/parameter_table.h"
#include "module/interface/orv.h"

namespace {

using embedded::ParameterScope;

constexpr std::size_t maxQueriedNameLength = 55;

void copyText(std::string_view text, char* area) {
    std::ranges::copy(text, area);
    area[text.size()] = '\0';
}

// If the extension cannot be used, the parameter may be in it, so it is not reported as unknown.
std::uint32_t unknownParameter() {
    return embedded::DictionaryExtension::ofProcess().isUnusable()
               ? embedded::dictionaryExtensionUnusable
               : embedded::dictionaryUnknownParameter;
}

}  // namespace

// output6: the class number. output7: 1 if each entry of a record has a value, 0 if each record has
// one. output11 and output12: 0.
extern "C" ORV_EXPORT std::uint32_t pqar_util_getpinfo(
    std::uint32_t code, std::uint32_t /*one*/, std::uint32_t /*zero*/, char* name,
    char* description, std::uint32_t* output6, std::uint32_t* output7, std::uint32_t* length,
    std::uint32_t* type, std::uint32_t* size, std::uint32_t* output11, std::uint32_t* output12) {
    const std::initializer_list<const void*> areas = {name, description, output6,  output7, length,
                                                      type, size,        output11, output12};
    if (std::ranges::find(areas, nullptr) != areas.end()) {
        return embedded::dictionaryNullPointer;
    }
    const auto* const parameter = embedded::findParameter(code);
    if (parameter == nullptr) {
        return unknownParameter();
    }
    copyText(parameter->name, name);
    copyText(parameter->description, description);
    *output6 = parameter->classCode();
    *output7 = parameter->scope == ParameterScope::Entry ? 1 : 0;
    *length = parameter->textLength;
    *type = static_cast<std::uint32_t>(parameter->type);
    *size = parameter->size();
    *output11 = 0;
    *output12 = 0;
    return embedded::dictionarySuccess;
}

// area: not used.
extern "C" ORV_EXPORT std::uint32_t pqar_util_pname2code(const char* name, std::uint32_t* code,
                                                         void* /*area*/) {
    if (name == nullptr || code == nullptr) {
        return embedded::dictionaryNullPointer;
    }
    const std::size_t length = strnlen(name, maxQueriedNameLength + 1);
    if (length > maxQueriedNameLength) {
        return embedded::dictionaryNameTooLong;
    }
    const auto* const parameter = embedded::findParameter(std::string_view(name, length));
    if (parameter == nullptr) {
        return unknownParameter();
    }
    *code = parameter->code;
    return embedded::dictionarySuccess;
}
