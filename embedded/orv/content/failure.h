// The codes of the data-access library's failures, how a failure travels inside the library, and
// the check of arguments that throws one.
#ifndef PYORV3_EMBEDDED_ORV_CONTENT_FAILURE_H
#define PYORV3_EMBEDDED_ORV_CONTENT_FAILURE_H

#include <cstdint>
#include <exception>

#include "module/interface/orv.h"

namespace embedded {

// The library's own codes have the high half 0 and a low half in 0x8100 to 0x81FF; scripts see
// them as 0xEBE881xx.
namespace codes {

inline constexpr std::uint32_t success = 0;

// ---- Codes that the interface itself gives a meaning ----------------------------------------

inline constexpr std::uint32_t notADataSource = ORV_STATUS_NOT_A_SOURCE;
inline constexpr std::uint32_t openedWithRemark = ORV_STATUS_OPENED_WITH_REMARK;
inline constexpr std::uint32_t unknownSelector = ORV_STATUS_RETRY_SELECTOR;

// ---- The library's own ----------------------------------------------------------------------

inline constexpr std::uint32_t unknownContext = 0x8100;    // no context has this handle
inline constexpr std::uint32_t noSourceOpen = 0x8101;      // the context has no source open
inline constexpr std::uint32_t noBlock = 0x8102;           // the source has no block of the class
inline constexpr std::uint32_t alreadyOpen = 0x8103;       // the context has a source open
inline constexpr std::uint32_t readOnly = 0x8104;          // the source cannot be written
inline constexpr std::uint32_t inUse = 0x8105;             // another process or program has it
inline constexpr std::uint32_t fileNotFound = 0x8106;      // no file or input has this name
inline constexpr std::uint32_t fileExists = 0x8107;        // creation: the name is taken
inline constexpr std::uint32_t nameRefused = 0x8108;       // empty, too long or not allowed here
inline constexpr std::uint32_t accessDenied = 0x8109;      // the system does not allow the access
inline constexpr std::uint32_t unknownParameter = 0x810A;  // not in the dictionary
inline constexpr std::uint32_t unknownClass = 0x810B;      // no such class, or not of this kind
inline constexpr std::uint32_t noSuchRecord = 0x810C;      // the class has no record of this number
inline constexpr std::uint32_t noSuchEntry = 0x810D;       // the record has no such entry
inline constexpr std::uint32_t sizeRefused = 0x810E;       // a size, offset or range does not fit
inline constexpr std::uint32_t nullPointer = 0x810F;       // a pointer is null that must not be
inline constexpr std::uint32_t notSet = 0x8110;            // the parameter has no value there
inline constexpr std::uint32_t endOfList = 0x8111;         // no further input
inline constexpr std::uint32_t unknownItem = 0x8112;       // item, command, kind, option or type
inline constexpr std::uint32_t storageFailed = 0x8113;     // reading or writing the file failed
inline constexpr std::uint32_t outOfMemory = 0x8114;       // no memory for the call
inline constexpr std::uint32_t notFound = 0x8115;          // no record matches the search
inline constexpr std::uint32_t keyRefused = 0x8116;        // a search key that cannot be searched
inline constexpr std::uint32_t blockFull = 0x8117;         // no room for a record or entry more
inline constexpr std::uint32_t damaged = 0x8118;           // the content does not hold together
inline constexpr std::uint32_t fileMoved = 0x8119;         // the file lost its name while open
inline constexpr std::uint32_t noHandleLeft = 0x811A;      // no further context can be made
inline constexpr std::uint32_t nodeRefused = 0x811B;       // the node record refuses contexts
inline constexpr std::uint32_t internalFailure = 0x811C;   // a failure that has no other code
inline constexpr std::uint32_t tooManyOpen = 0x811D;       // no file descriptor is left
inline constexpr std::uint32_t windowsPath = 0x811E;       // a path of Windows, which is not here

}  // namespace codes

// Thrown by every operation that fails; nothing has been changed then. What callers expect to
// happen (no value there, no match, end of a list) is returned as a code or as nothing instead.
class Failure : public std::exception {
  public:
    explicit Failure(std::uint32_t code) : code_(code) {}

    [[nodiscard]] std::uint32_t code() const { return code_; }
    [[nodiscard]] const char* what() const noexcept override { return "data access failed"; }

  private:
    std::uint32_t code_;
};

// Throws codes::nullPointer when one of the pointers is null.
template <typename... Pointers>
void requirePointers(const Pointers*... pointers) {
    const bool anyIsNull = ((pointers == nullptr) || ...);
    if (anyIsNull) {
        throw Failure(codes::nullPointer);
    }
}

}  // namespace embedded

#endif
