#include "tests/double/reply.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "tests/double/thrown.h"

namespace recording {
namespace {

std::string word(std::int64_t value) {
    std::string little(sizeof(std::uint32_t), '\0');
    for (std::size_t index = 0; index < little.size(); ++index) {
        little[index] = static_cast<char>(value >> (8 * index));
    }
    return little;
}

}  // namespace

Value text(const char* characters) {
    return characters == nullptr ? Value() : Value(std::string(characters));
}

Value bytes(const void* data, std::size_t length) {
    return data == nullptr ? Value() : Value(std::string(static_cast<const char*>(data), length));
}

Reply::Reply(const char* function, Values arguments, std::int64_t defaultResult)
    : function_(function),
      result_(defaultResult),
      answer_(Recorder::instance().record({function, std::move(arguments)})) {}

Reply& Reply::buffer(const char* name, void* destination, std::size_t size,
                     std::string_view fallback) {
    const std::optional<Value> scripted = takeOutput(name);
    if (destination == nullptr || (answer_ && !scripted)) {
        return *this;
    }
    std::string content(fallback);
    if (scripted) {
        const auto* const number = std::get_if<std::int64_t>(&*scripted);
        content = number != nullptr ? word(*number) : std::get<std::string>(*scripted);
    }
    if (content.size() > size) {
        throw std::length_error(function_ + ": too many bytes for " + name);
    }
    std::memcpy(destination, content.data(), content.size());
    return *this;
}

std::optional<Value> Reply::takeOutput(std::string_view name) {
    if (!answer_) {
        return std::nullopt;
    }
    const auto found = std::ranges::find(answer_->outputs, name, &Values::value_type::first);
    if (found == answer_->outputs.end()) {
        return std::nullopt;
    }
    Value value = std::move(found->second);
    answer_->outputs.erase(found);
    return value;
}

std::int64_t Reply::finish() {
    if (!answer_) {
        return result_;
    }
    if (!answer_->outputs.empty()) {
        throw std::invalid_argument(function_ + " has no output " + answer_->outputs[0].first);
    }
    if (!answer_->thrown.empty()) {
        raise(answer_->thrown, answer_->result);
    }
    return answer_->result;
}

}  // namespace recording
