#include "tests/double/reply.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace recording {

Values::value_type named(const char* name, Value value) {
    return {name, std::move(value)};
}

Values::value_type named(const char* name, const char* text) {
    return {name, text == nullptr ? Value() : Value(std::string(text))};
}

Value bytes(const void* data, std::size_t length) {
    return data == nullptr ? Value() : Value(std::string(static_cast<const char*>(data), length));
}

Reply::Reply(const char* function, Values arguments, std::int64_t defaultResult)
    : function_(function) {
    auto scripted = Recorder::instance().record({function, std::move(arguments)});
    isScripted_ = scripted.has_value();
    answer_ = std::move(scripted).value_or(Answer{.result = defaultResult});
}

Reply& Reply::buffer(const char* name, void* destination, std::size_t size,
                     std::string_view fallback) {
    const std::optional<Value> scripted = takeOutput(name);
    if (destination == nullptr || (isScripted_ && !scripted)) {
        return *this;
    }
    std::string content(fallback);
    if (scripted) {
        if (const auto* const number = std::get_if<std::int64_t>(&*scripted)) {
            const auto word = static_cast<std::uint32_t>(*number);
            content.assign(reinterpret_cast<const char*>(&word), sizeof word);
        } else {
            content = std::get<std::string>(*scripted);
        }
    }
    if (content.size() > size) {
        throw std::length_error(function_ + ": too many bytes for " + name);
    }
    std::memcpy(destination, content.data(), content.size());
    return *this;
}

std::optional<Value> Reply::takeOutput(std::string_view name) {
    const auto found = std::ranges::find(answer_.outputs, name, &Values::value_type::first);
    if (found == answer_.outputs.end()) {
        return std::nullopt;
    }
    Value value = std::move(found->second);
    answer_.outputs.erase(found);
    return value;
}

std::int64_t Reply::finish() {
    if (!answer_.outputs.empty()) {
        throw std::invalid_argument(function_ + " has no output " + answer_.outputs[0].first);
    }
    if (!answer_.thrown.empty()) {
        raisers.at(answer_.thrown)(answer_.result);
    }
    return answer_.result;
}

}  // namespace recording
