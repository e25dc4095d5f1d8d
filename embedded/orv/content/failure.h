// How a failure travels inside the library, and the checks of arguments that throw it.
#ifndef PYORV3_EMBEDDED_ORV_CONTENT_FAILURE_H
#define PYORV3_EMBEDDED_ORV_CONTENT_FAILURE_H

#include <cstdint>
#include <exception>

#include "embedded/orv/content/codes.h"

namespace embedded {

// Thrown by every operation that fails; nothing has been changed then.
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
