#include "tests/double/recorder.h"

#include <algorithm>
#include <cstring>
#include <memory>

namespace recording {
namespace {

bool fits(const Answer& answer, const Call& call) {
    return std::ranges::all_of(answer.when, [&call](const auto& condition) {
        return std::ranges::find(call.arguments, condition) != call.arguments.end();
    });
}

void write(const char* function, const Argument& output, const Value& value) {
    const auto* const number = std::get_if<std::int64_t>(&value);
    const std::size_t width = output.kind == Argument::Kind::number ? output.size : 4;
    const std::string bytes = number != nullptr
                                  ? std::string(reinterpret_cast<const char*>(number), width)
                                  : std::get<std::string>(value);
    if (bytes.size() > output.size) {
        throw std::length_error(std::string(function) + ": too many bytes for " + output.name);
    }
    std::memcpy(output.destination, bytes.data(), bytes.size());
}

}  // namespace

Recorder& Recorder::instance() {
    // Never destroyed: an engine may still run in a thread while the process ends.
    static auto& recorder = *std::make_unique<Recorder>().release();
    return recorder;
}

void Recorder::reset() {
    const std::scoped_lock lock(mutex_);
    nextContext_ = firstContext;
    calls_.clear();
    answers_.clear();
}

void Recorder::answer(const std::string& function, Answer answer) {
    if (!answer.thrown.empty()) {
        static_cast<void>(raisers.at(answer.thrown));
    }
    const std::scoped_lock lock(mutex_);
    std::deque<Answer>& answers = answers_[function];
    // Permanent answers come after the counted ones, the newest first.
    const auto place = std::ranges::find(answers, forEver, &Answer::times);
    answers.insert(place, std::move(answer));
}

std::vector<Call> Recorder::calls() const {
    const std::scoped_lock lock(mutex_);
    return calls_;
}

std::vector<std::string> Recorder::unusedAnswers() const {
    const std::scoped_lock lock(mutex_);
    std::vector<std::string> functions;
    for (const auto& [function, answers] : answers_) {
        if (!answers.empty() && answers.front().times != forEver) {
            functions.push_back(function);
        }
    }
    return functions;
}

bool Recorder::findAnswer(const Call& call, Answer& answer) {
    const std::scoped_lock lock(mutex_);
    calls_.push_back(call);
    std::deque<Answer>& answers = answers_[call.function];
    const auto found =
        std::ranges::find_if(answers, [&call](const Answer& each) { return fits(each, call); });
    if (found == answers.end()) {
        return false;
    }
    answer = *found;
    if (found->times != forEver && --found->times == 0) {
        answers.erase(found);
    }
    return true;
}

Answer Recorder::take(const char* function, const Arguments& arguments, std::int64_t result) {
    Call call{function, {}};
    for (const Argument& argument : arguments) {
        if (argument.kind == Argument::Kind::input) {
            call.arguments.emplace_back(argument.name, argument.value);
        }
    }
    Answer answer{.result = result};
    const bool isScripted = findAnswer(call, answer);
    Values outputs = answer.outputs;
    for (const Argument& argument : arguments) {
        const auto named = std::ranges::find(outputs, argument.name, &Values::value_type::first);
        const bool isNamed = named != outputs.end();
        if (argument.kind == Argument::Kind::input || (isScripted && !isNamed)) {
            continue;
        }
        if (argument.destination != nullptr) {
            write(function, argument, isNamed ? named->second : argument.value);
        }
        if (isNamed) {
            outputs.erase(named);
        }
    }
    if (!outputs.empty()) {
        throw std::invalid_argument(std::string(function) + " has no output " + outputs[0].first);
    }
    return answer;
}

OrvContext Recorder::nextContext() {
    const std::scoped_lock lock(mutex_);
    return nextContext_++;
}

std::int64_t reply(const char* function, const Arguments& arguments, std::int64_t result) {
    return Recorder::instance().take(function, arguments, result).end();
}

std::atomic<bool>& isMapped(std::string_view library) {
    static std::atomic<bool> dictionary;
    static std::atomic<bool> engine;
    return library == "pqar" ? dictionary : engine;
}

}  // namespace recording
