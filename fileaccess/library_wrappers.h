// Library calls of the file access object with statuses as results, and its temporary contexts.
//
// Except createContext, the functions return 0, the code of the error query for a result of -1, or
// any other result sign-extended with 0x60 ORed in (module/status/status.h). The statuses are not
// normalised.
#ifndef PYORV3_FILEACCESS_LIBRARY_WRAPPERS_H
#define PYORV3_FILEACCESS_LIBRARY_WRAPPERS_H

#include <cstdint>

#include "module/interface/orv.h"
#include "module/status/status.h"

namespace Tarsel::Datasources::QAR {

// Owns a library context; the destructor deletes it, whatever its handle.
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

// Selects the nodes of an enumeration: the second choice is for the result that asks for it.
enum class NodeSelector : std::uint16_t {
    first = ORV_NODE_SELECTOR,
    second = ORV_NODE_SELECTOR_RETRY,
};

// Enumerates one node on the context into the record; returns the result of the library.
[[nodiscard]] OrvResult enumerateNode(OrvContext context, OrvNodeRecord& node,
                                      NodeSelector selector);

// Creates a context bound to the node; access and option are passed to the library. `handle` is set
// only after success. Returns success, noTemporaryContext, noNode, nodeWithRefusal or
// noBoundContext.
[[nodiscard]] pyORV3::Status createContext(OrvContext& handle, std::uint16_t access,
                                           std::uint32_t option);

// Bit 0 of the flags of closeDataSource and FileAccess::close: do not save unsaved changes.
inline constexpr std::uint32_t closeWithoutFlush = 1;

// Flushes (unless the flags prevent it) and closes the data source and deletes its context. After a
// failed flush the data source is not closed; the context is always deleted. Returns the first
// failure.
[[nodiscard]] pyORV3::Status closeDataSource(OrvContext handle, std::uint32_t flags);

// Deletes the context.
[[nodiscard]] pyORV3::Status releaseContext(OrvContext handle);

// Copies one class; the destination must have its block. Queries the error of the side that the
// library reports as failed.
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
