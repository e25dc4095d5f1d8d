#include "embedded/orv/files/process.h"

#include <pthread.h>

#include <atomic>

namespace embedded {
namespace {

std::atomic<std::uint32_t> generation = 0;

}  // namespace

std::uint32_t processGeneration() {
    // Fails only for lack of memory; every fork of so starved a process fails as well.
    [[maybe_unused]] static const int registered =
        pthread_atfork(nullptr, nullptr, [] { ++generation; });
    return generation;
}

}  // namespace embedded
