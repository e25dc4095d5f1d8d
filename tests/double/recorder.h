// The memory of the recording double: what was called, and what the test wants answered.
//
// Every function of the double's data-access library, dictionary and engine logs its name and its
// inputs here and answers as the test scripted it. The one Recorder of the process lives in the
// data-access library and is safe to use from several threads.
#ifndef PYORV3_TESTS_DOUBLE_RECORDER_H
#define PYORV3_TESTS_DOUBLE_RECORDER_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "module/interface/orv.h"

namespace recording {

// A null pointer, an integer of any width of the interface, or the bytes of a text or a buffer.
using Value = std::variant<std::monostate, std::int64_t, std::string>;
// Values by name, in the order of the interface.
using Values = std::vector<std::pair<std::string, Value>>;

struct Call {
    std::string function;
    Values arguments;  // the inputs only
};

constexpr int forEver = -1;

// What one call (or several) of a function does. The outputs are written first, whatever the
// result, and only those that are named here; then the call throws or returns.
struct Answer {
    std::int64_t result = 0;
    std::string thrown = {};  // one of the raisers: thrown with the result as its value
    Values outputs = {};
    Values when = {};  // arguments that the call must have had for this answer to be taken
    int times = 1;     // forEver, or how many calls are answered
};

// By kind, what throws a C++ value: the integers carry the low bits of the argument.
extern const std::map<std::string, void (*)(std::int64_t)> raisers;

class Recorder {
  public:
    ORV_EXPORT static Recorder& instance();

    // Forgets calls, answers, channels and the engine's release; contexts count from 1001 again.
    ORV_EXPORT void reset();
    // Throws std::out_of_range where answer.thrown is no known kind.
    ORV_EXPORT void answer(const std::string& function, Answer answer);
    ORV_EXPORT std::vector<Call> calls() const;
    // The functions for which counted answers are left: calls that the test expected in vain.
    ORV_EXPORT std::vector<std::string> unusedAnswers() const;

    // Logs the call and takes its answer: the oldest counted one that fits, else the newest
    // that stands for ever, else none.
    ORV_EXPORT std::optional<Answer> record(Call call);

    // The words of the spectrum that is served where SOrvGetSpectrum has no answer.
    ORV_EXPORT void setChannels(std::string words);
    // Those of count channels from firstChannel on, counted from 1, as far as the spectrum goes.
    ORV_EXPORT std::string channels(std::uint16_t firstChannel, std::uint16_t count) const;

    ORV_EXPORT OrvContext nextContext();
    ORV_EXPORT void releaseEngine();
    ORV_EXPORT bool waitForRelease(std::chrono::milliseconds patience);  // false: nobody came

  private:
    static constexpr OrvContext firstContext = 1001;

    mutable std::mutex mutex_;
    std::condition_variable released_;
    bool engineReleased_ = false;
    OrvContext nextContext_ = firstContext;
    std::string channels_;
    std::vector<Call> calls_;
    std::map<std::string, std::deque<Answer>> answers_;
};

// Whether a library of the given file name is in the process now; it is not loaded by asking.
bool isMapped(const char* fileName);

}  // namespace recording

#endif
