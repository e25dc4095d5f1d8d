#include "tests/double/reply.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace recording {

namespace {

std::string bytesOf(const Value& value, std::size_t wordSize) {
    if (const auto* const number = std::get_if<std::int64_t>(&value)) {
        return {reinterpret_cast<const char*>(number), wordSize};  // little-endian
    }
    return std::get<std::string>(value);
}

void write(const char* function, const Argument& output, const Value& value) {
    const std::string bytes = bytesOf(value, output.isNumber ? output.size : sizeof(std::uint32_t));
    if (bytes.size() > output.size) {
        throw std::length_error(std::string(function) + ": too many bytes for " + output.name);
    }
    std::memcpy(output.destination, bytes.data(), bytes.size());
}

}  // namespace

Argument input(const char* name, const char* text) {
    return {name, text == nullptr ? Value() : Value(std::string(text))};
}

Argument input(const char* name, const void* data, std::size_t length) {
    return {name,
            data == nullptr ? Value() : Value(std::string(static_cast<const char*>(data), length))};
}

Argument area(const char* name, void* destination, std::size_t size, std::string fallback) {
    return {name, std::move(fallback), true, destination, size, false};
}

std::int64_t reply(const char* function, const std::vector<Argument>& arguments,
                   std::int64_t defaultResult) {
    Call call{function, {}};
    for (const Argument& argument : arguments) {
        if (!argument.isOutput) {
            call.arguments.emplace_back(argument.name, argument.value);
        }
    }
    const std::optional<Answer> scripted = Recorder::instance().record(std::move(call));
    Values outputs = scripted ? scripted->outputs : Values();
    for (const Argument& argument : arguments) {
        if (!argument.isOutput) {
            continue;
        }
        const auto named = std::ranges::find(outputs, argument.name, &Values::value_type::first);
        const bool isNamed = named != outputs.end();
        if (argument.destination != nullptr && (isNamed || !scripted)) {
            const bool isContext = !isNamed && argument.value == Value(nextContext);
            write(function, argument,
                  isContext ? Value(std::int64_t{Recorder::instance().nextContext()})
                  : isNamed ? named->second
                            : argument.value);
        }
        if (isNamed) {
            outputs.erase(named);
        }
    }
    if (!outputs.empty()) {
        throw std::invalid_argument(std::string(function) + " has no output " + outputs[0].first);
    }
    if (scripted && !scripted->thrown.empty()) {
        raisers.at(scripted->thrown)(scripted->result);
    }
    return scripted ? scripted->result : defaultResult;
}

}  // namespace recording
