// Prevents a fork during a call of the library.
#ifndef PYORV3_EMBEDDED_ORV_FILES_FORK_GATE_H
#define PYORV3_EMBEDDED_ORV_FILES_FORK_GATE_H

namespace embedded {

// One call of the library. A fork waits until no call is active: only the forking thread exists in
// a forked process, so a mutex held by another thread would remain locked there. Must not be
// nested: a nested call would deadlock with a fork that waits for the outer one.
class LibraryCall {
  public:
    LibraryCall();
    ~LibraryCall();
    LibraryCall(const LibraryCall&) = delete;
    LibraryCall& operator=(const LibraryCall&) = delete;
    LibraryCall(LibraryCall&&) = delete;
    LibraryCall& operator=(LibraryCall&&) = delete;
};

// Registers the function that a forked process calls first. It must neither allocate nor wait.
// Called once. Throws std::bad_alloc.
void callInForkedProcess(void (*action)());

}  // namespace embedded

#endif
