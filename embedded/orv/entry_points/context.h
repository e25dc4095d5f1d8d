// A data source context, which a handle of the interface refers to, and the contexts of the
// process.
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

// Returns the code of the exception that is being handled: that of a Failure, outOfMemory for
// std::bad_alloc, internalFailure for others.
std::uint32_t codeOfCurrentException() noexcept;

// Calls body and returns its code, success if it returns none, or the code of its exception.
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

// Owns at most one open data source. run serves one call at a time; the other functions are called
// within it.
class Context {
  public:
    // Bits of the state word, of the last opening and of the source.
    static constexpr std::uint32_t writtenElsewhereBit = 0x100;       // another process writes it
    static constexpr std::uint32_t unusableBit = ORV_STATE_UNUSABLE;  // it is damaged
    static constexpr std::uint32_t openBit = 0x1;
    static constexpr std::uint32_t changedBit = 0x2;
    static constexpr std::uint32_t readOnlyBit = 0x4;

    // Calls body and returns its code or that of its exception; stores the code of a failure for
    // the error query.
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

    // Opens a file, or creates one and opens it for writing. A damaged file gives the code
    // openedWithRemark and sets unusableBit in the state. Throws Failure: alreadyOpen, and as
    // OpenFiles.
    void open(const std::string& path, bool writing);
    void create(const std::string& path);
    // Saves and closes. If saving fails, the source stays open. Succeeds once after a creation
    // that was refused, so that a caller who closes before deleting a context can delete it.
    void close();
    // Closes the source even if saving fails; throws Failure then.
    void abandon();

    [[nodiscard]] std::uint32_t openingState() const { return openingState_; }
    [[nodiscard]] std::uint32_t sourceState() const;

    // Return the open source. Throw Failure: noSourceOpen; readOnly if it was not opened for
    // writing.
    [[nodiscard]] DataFile& source() const;
    [[nodiscard]] DataFile& writableSource() const;

    // Makes copies of single records salvage damaged classes, until the source is closed.
    void startSalvage();
    // Returns a record of the open source as a block with a single record.
    [[nodiscard]] Block record(std::uint16_t classCode, std::size_t record) const;

    // Start and continue the enumeration of the inputs; nullopt at the end.
    void beginInputs();
    std::optional<std::string> nextInput();

  private:
    std::mutex mutex_;
    std::uint32_t lastFailure_ = codes::success;
    std::uint32_t openingState_ = 0;
    std::shared_ptr<DataFile> file_;
    bool writing_ = false;
    bool salvaging_ = false;
    bool creationRefused_ = false;  // by the last call that opens or creates
    std::vector<std::string> inputs_;
    std::size_t inputIndex_ = 0;  // of the next input
};

// Safe for concurrent use by multiple threads. Handles are positive and ascend; a handle is never
// reused.
class Contexts {
  public:
    // Throws Failure(noHandleLeft) after 2,147,483,647 contexts.
    OrvContext create();
    // Returns the context, which lives as long as the result, even if it is removed meanwhile.
    // Throws Failure(unknownContext).
    std::shared_ptr<Context> find(OrvContext handle) const;
    std::shared_ptr<Context> remove(OrvContext handle);

  private:
    mutable std::shared_mutex mutex_;
    OrvContext last_ = 0;
    std::unordered_map<OrvContext, std::shared_ptr<Context>> contexts_;
};

// The contexts of this process.
Contexts& contexts();

}  // namespace embedded

#endif
