// A data source context: what a handle of the interface stands for; and the contexts of the process
// by their handles.
#ifndef PYORV3_EMBEDDED_ORV_ENTRY_POINTS_CONTEXT_H
#define PYORV3_EMBEDDED_ORV_ENTRY_POINTS_CONTEXT_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "embedded/orv/content/failure.h"
#include "embedded/orv/files/data_file.h"
#include "module/interface/orv.h"

namespace embedded {

// The code of the exception that is being handled: that of a Failure, outOfMemory for
// std::bad_alloc, internalFailure for any other.
std::uint32_t codeOfCurrentException() noexcept;

// The code that the call returns, or success where it returns none, or the code of what it throws.
template <typename Call>
std::uint32_t codeOfCall(Call call) noexcept {
    try {
        if constexpr (std::is_void_v<decltype(call())>) {
            call();
            return codes::success;
        } else {
            return call();
        }
    } catch (...) {
        return codeOfCurrentException();
    }
}

// Has at most one data source open. run serves one call at a time; the other functions are called
// within it.
class Context {
  public:
    // Bits of the state word: of the last opening, and of the source.
    static constexpr std::uint32_t writtenElsewhereBit = 0x100;       // another process writes it
    static constexpr std::uint32_t unusableBit = ORV_STATE_UNUSABLE;  // it is damaged
    static constexpr std::uint32_t openBit = 0x1;
    static constexpr std::uint32_t changedBit = 0x2;
    static constexpr std::uint32_t readOnlyBit = 0x4;

    // Calls body and returns the code that it returns, if it returns one, or throws. That of a
    // failure is kept as the last one.
    template <typename Body>
    std::uint32_t run(Body body) noexcept {
        try {
            const std::lock_guard guard(mutex_);
            const std::uint32_t code = codeOfCall([&] { return body(*this); });
            if (code != codes::success) {
                lastFailure_ = code;
            }
            return code;
        } catch (...) {  // the mutex
            return codeOfCurrentException();
        }
    }

    [[nodiscard]] std::uint32_t lastFailure() const { return lastFailure_; }

    // Opens a file, or makes one and opens it for writing. A damaged file is refused with the
    // code openedWithRemark and leaves unusableBit in the opening's state.
    // Throw Failure: alreadyOpen, and as OpenFiles.
    void open(const std::string& path, bool writing);
    void create(const std::string& path);
    // Saves and closes. When saving fails, the source stays open. Succeeds once after a creation
    // that was refused, so that a caller who closes before deleting a context can delete it.
    void close();
    // Closes in any case what is open; throws Failure when it could not be saved.
    void abandon();

    [[nodiscard]] std::uint32_t openingState() const { return openingState_; }
    [[nodiscard]] std::uint32_t sourceState() const;

    // The open source. Throw Failure: noSourceOpen; readOnly when it was not opened for writing.
    [[nodiscard]] DataFile& source() const;
    [[nodiscard]] DataFile& writableSource() const;

    // Begins the enumeration of the inputs; goes on with it, nothing at its end.
    void beginInputs();
    std::optional<std::string> nextInput();

  private:
    std::mutex mutex_;
    std::uint32_t lastFailure_ = codes::success;
    std::uint32_t openingState_ = 0;
    std::shared_ptr<DataFile> file_;
    bool writing_ = false;
    bool creationRefused_ = false;  // by the last call that opens or creates
    std::vector<std::string> inputs_;
    std::size_t inputsGiven_ = 0;
};

// Any thread may call any function. Handles are positive and ascend, and no handle is given twice:
// one that was kept after its context went names nothing.
class Contexts {
  public:
    // Throws Failure(noHandleLeft) after 2,147,483,647 contexts.
    OrvContext create();
    // The context; it lives as long as the result, also when it is removed meanwhile.
    // Throws Failure(unknownContext).
    std::shared_ptr<Context> find(OrvContext handle) const;
    std::shared_ptr<Context> remove(OrvContext handle);

  private:
    mutable std::shared_mutex mutex_;
    OrvContext last_ = 0;
    std::unordered_map<OrvContext, std::shared_ptr<Context>> contexts_;
};

// The ones of this process.
Contexts& contexts();

}  // namespace embedded

#endif
