#include "tests/double/recorder.h"

#include <algorithm>
#include <new>
#include <stdexcept>

namespace recording {
namespace {

bool fits(const Answer& answer, const Call& call) {
    return std::ranges::all_of(answer.when, [&call](const auto& condition) {
        return std::ranges::find(call.arguments, condition) != call.arguments.end();
    });
}

template <typename Integer>
void raiseInteger(std::int64_t value) {
    throw static_cast<Integer>(value);
}

struct Unexpected {};

}  // namespace

const std::map<std::string, void (*)(std::int64_t)> raisers{
    {"short", raiseInteger<short>},
    {"int", raiseInteger<int>},
    {"long", raiseInteger<long>},
    {"unsigned int", raiseInteger<unsigned int>},
    {"unsigned long", raiseInteger<unsigned long>},
    {"bad_alloc", [](std::int64_t) { throw std::bad_alloc(); }},
    {"runtime_error", [](std::int64_t) { throw std::runtime_error("scripted"); }},
    {"text", [](std::int64_t) { throw "scripted"; }},
    {"struct", [](std::int64_t) { throw Unexpected(); }},
};

Recorder& Recorder::instance() {
    static Recorder recorder;
    return recorder;
}

void Recorder::reset() {
    const std::scoped_lock lock(mutex_);
    engineReleased_ = false;
    nextContext_ = firstContext;
    channels_.clear();
    calls_.clear();
    answers_.clear();
}

void Recorder::answer(const std::string& function, Answer answer) {
    if (!answer.thrown.empty()) {
        static_cast<void>(raisers.at(answer.thrown));
    }
    const std::scoped_lock lock(mutex_);
    std::deque<Answer>& answers = answers_[function];
    // What stands for ever lies behind the counted answers, the newest first.
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

std::optional<Answer> Recorder::record(Call call) {
    const std::scoped_lock lock(mutex_);
    calls_.push_back(std::move(call));
    std::deque<Answer>& answers = answers_[calls_.back().function];
    const auto found = std::ranges::find_if(
        answers, [this](const Answer& answer) { return fits(answer, calls_.back()); });
    if (found == answers.end()) {
        return std::nullopt;
    }
    Answer answer = *found;
    if (found->times != forEver && --found->times == 0) {
        answers.erase(found);
    }
    return answer;
}

void Recorder::setChannels(std::string words) {
    const std::scoped_lock lock(mutex_);
    channels_ = std::move(words);
}

std::string Recorder::channels(std::uint16_t firstChannel, std::uint16_t count) const {
    const std::scoped_lock lock(mutex_);
    const std::size_t begin = (firstChannel - std::size_t{1}) * sizeof(std::int32_t);
    return begin < channels_.size() ? channels_.substr(begin, count * sizeof(std::int32_t)) : "";
}

OrvContext Recorder::nextContext() {
    const std::scoped_lock lock(mutex_);
    return nextContext_++;
}

void Recorder::releaseEngine() {
    const std::scoped_lock lock(mutex_);
    engineReleased_ = true;
    released_.notify_all();
}

bool Recorder::waitForRelease(std::chrono::milliseconds patience) {
    std::unique_lock lock(mutex_);
    return released_.wait_for(lock, patience, [this] { return engineReleased_; });
}

}  // namespace recording
