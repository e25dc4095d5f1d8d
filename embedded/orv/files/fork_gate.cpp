#include "embedded/orv/files/fork_gate.h"

#include <pthread.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <new>

namespace embedded {
namespace {

class ForkGate {
  public:
    void enter() {
        const std::lock_guard guard(entrance_);
        ++inside_;
    }
    void leave() {
        if (--inside_ == 0) {
            inside_.notify_all();
        }
    }

    // Called by the thread that forks. The entrance stays locked until that thread calls open, both
    // in the parent and in the forked process.
    void close() {
        entrance_.lock();
        for (int inside = inside_; inside != 0; inside = inside_) {
            inside_.wait(inside);
        }
    }
    void open() { entrance_.unlock(); }

    void (*inForkedProcess)() = nullptr;

  private:
    std::mutex entrance_;
    std::atomic<int> inside_ = 0;
};

ForkGate& gate() {
    // Never destroyed: threads may still run while the process ends.
    static auto& gate = *std::make_unique<ForkGate>().release();
    return gate;
}

}  // namespace

LibraryCall::LibraryCall() {
    gate().enter();
}

LibraryCall::~LibraryCall() {
    gate().leave();
}

void callInForkedProcess(void (*action)()) {
    gate().inForkedProcess = action;
    const int result = pthread_atfork([] { gate().close(); }, [] { gate().open(); },
                                      [] {
                                          gate().inForkedProcess();
                                          gate().open();
                                      });
    if (result != 0) {
        throw std::bad_alloc();
    }
}

}  // namespace embedded
