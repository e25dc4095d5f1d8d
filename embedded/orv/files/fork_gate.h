// What keeps a fork from meeting the library in the middle of a call.
#ifndef PYORV3_EMBEDDED_ORV_FILES_FORK_GATE_H
#define PYORV3_EMBEDDED_ORV_FILES_FORK_GATE_H

namespace embedded {

// One call of the library. While any lives, the process is not forked: a forked process has its
// parent's memory and only the thread that forked, so that a mutex which another thread held would
// stay locked for ever. Not nested: a call within a call would wait for the fork that waits for it.
class LibraryCall {
  public:
    LibraryCall();
    ~LibraryCall();
    LibraryCall(const LibraryCall&) = delete;
    LibraryCall& operator=(const LibraryCall&) = delete;
    LibraryCall(LibraryCall&&) = delete;
    LibraryCall& operator=(LibraryCall&&) = delete;
};

// Registers what a forked process does first; once. It may neither allocate nor wait.
// Throws std::bad_alloc.
void callInForkedProcess(void (*action)());

}  // namespace embedded

#endif
