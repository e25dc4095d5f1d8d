// How the engine's steps report that the run cannot go on.
#ifndef PYORV3_EMBEDDED_ENGINES_ENGINE_FAILURE_H
#define PYORV3_EMBEDDED_ENGINES_ENGINE_FAILURE_H

#include <cstdint>
#include <exception>

namespace embedded::engines {

// Thrown by the steps, turned into the run's status by the entry point.
class EngineFailure : public std::exception {
  public:
    explicit EngineFailure(std::uint32_t status) : status_(status) {}
    std::uint32_t status() const { return status_; }  // one of engine.h, not 0
    const char* what() const noexcept override { return "analysis engine failure"; }

  private:
    std::uint32_t status_;
};

}  // namespace embedded::engines

#endif
