// The library calls of the file access object with their results as statuses, and the contexts it
// needs for a moment.
//
// But for createContext every function that gives a status gives 0, the code that the error query
// gives for a result of -1, or any other result sign-extended with 0x60 ORed in
// (module/status/status.h). None of the statuses is normalised.
#ifndef PYORV3_FILEACCESS_LIBRARY_WRAPPERS_H
#define PYORV3_FILEACCESS_LIBRARY_WRAPPERS_H

#include <cstdint>

#include "module/interface/orv.h"
#include "module/status/status.h"

namespace Tarsel::Datasources::QAR {

// Deletes a library context at the end of its life, whatever handle it was given.
class OwnedContext {
  public:
    explicit OwnedContext(OrvContext handle) noexcept : handle_(handle) {}
    ~OwnedContext() { OrvContextDeletion(handle_); }
    OwnedContext(const OwnedContext&) = delete;
    OwnedContext& operator=(const OwnedContext&) = delete;
    OwnedContext(OwnedContext&&) = delete;
    OwnedContext& operator=(OwnedContext&&) = delete;

    [[nodiscard]] OrvContext handle() const noexcept { return handle_; }

  private:
    OrvContext handle_;
};

// Which nodes an enumeration looks at: the second choice is for the result that asks for it.
enum class NodeSelector : std::uint16_t {
    first = ORV_NODE_SELECTOR,
    second = ORV_NODE_SELECTOR_RETRY,
};

// Enumerates one node on the context into the record; the result is the library's.
[[nodiscard]] OrvResult enumerateNode(OrvContext context, OrvNodeRecord& node,
                                      NodeSelector selector);

// Creates a context bound to the node; access and option go to its creation. `handle` is written
// on success only. success, noTemporaryContext, noNode, nodeWithRefusal or noBoundContext.
[[nodiscard]] pyORV3::Status createContext(OrvContext& handle, std::uint16_t access,
                                           std::uint32_t option);

// Bit 0 of the flags of closeDataSource and FileAccess::close: what was not flushed is not saved.
inline constexpr std::uint32_t closeWithoutFlush = 1;

// Flushes (unless the flags say otherwise) and closes the data source and deletes its context. A
// failed flush leaves the data source unclosed; the context is deleted in every case. The first
// failure is returned.
[[nodiscard]] pyORV3::Status closeDataSource(OrvContext handle, std::uint32_t flags);

// Deletes the context.
[[nodiscard]] pyORV3::Status releaseContext(OrvContext handle);

// Copies one class; the destination must hold the class's block. The error query goes to the side
// that the library names as the failing one.
[[nodiscard]] pyORV3::Status copyClass(OrvContext source, OrvContext destination,
                                       std::uint16_t classCode);

// Reads one parameter value of bufferSize bytes into the buffer.
[[nodiscard]] pyORV3::Status readParameter(OrvContext handle, std::uint32_t code,
                                           std::uint16_t record, std::uint16_t entry, void* buffer,
                                           std::uint16_t bufferSize);

// Writes one parameter value of bufferSize bytes from the buffer.
[[nodiscard]] pyORV3::Status writeParameter(OrvContext handle, std::uint32_t code,
                                            std::uint16_t record, std::uint16_t entry,
                                            const void* buffer, std::uint16_t bufferSize);

}  // namespace Tarsel::Datasources::QAR

#endif
