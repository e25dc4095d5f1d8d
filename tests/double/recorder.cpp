#include "tests/double/recorder.h"

#include <algorithm>
#include <stdexcept>

#include "tests/double/thrown.h"

namespace recording {
namespace {

bool fits(const Answer& answer, const Call& call) {
    return std::ranges::all_of(answer.when, [&call](const auto& condition) {
        return std::ranges::find(call.arguments, condition) != call.arguments.end();
    });
}

}  // namespace

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
    if (!answer.thrown.empty() && !isKnown(answer.thrown)) {
        throw std::invalid_argument("cannot throw a " + answer.thrown);
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

void Recorder::setChannels(std::vector<std::int32_t> channels) {
    const std::scoped_lock lock(mutex_);
    channels_ = std::move(channels);
}

void Recorder::readChannels(std::uint16_t firstChannel, std::uint16_t count,
                            std::int32_t* destination) const {
    const std::scoped_lock lock(mutex_);
    const std::size_t begin = firstChannel - std::size_t{1};
    const std::size_t end = std::min(begin + count, channels_.size());
    for (std::size_t channel = begin; channel < end; ++channel) {
        *destination++ = channels_[channel];
    }
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
