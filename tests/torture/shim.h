// What the torture tests ask of the shim, a library that stands between a program and the C
// library: linked first or preloaded, it makes chosen calls fail and counts what is allocated.
// With the environment variables TORTURE_LOG (a file) and TORTURE_FOLDER it also records what the
// program does to the files of the folder (shim.cpp says how).
#ifndef PYORV3_TESTS_TORTURE_SHIM_H
#define PYORV3_TESTS_TORTURE_SHIM_H

extern "C" {

// The kinds of calls that can fail, by number: 0 allocations, and those that shim.cpp lists.
// The name of a kind; null behind the last.
const char* tortureKind(int kind);

// From now on the nth call of the kind fails (counted from 1) and those after it, `times` in all.
// Calls of all kinds are counted from 0 again.
void tortureArm(int kind, long nth, long times);
// No call fails any more; returns how many did.
long tortureDisarm();
// The calls of the kind since the last arming, until its end.
long tortureCalls(int kind);

// Bytes that are allocated and not freed.
long tortureLiveBytes();

// Writes a line "mark TEXT" to the record.
void tortureMark(const char* text);
}

#endif
