// Interface of the shim, a library that overrides functions of the C library if it is linked first
// or preloaded. It makes selected calls fail and counts allocated bytes. If the environment
// variables TORTURE_LOG (a file) and TORTURE_FOLDER are set, it also records the program's changes
// to files of the folder; shim.cpp describes the format.
#ifndef PYORV3_TESTS_TORTURE_SHIM_H
#define PYORV3_TESTS_TORTURE_SHIM_H

extern "C" {

// Returns the name of a kind of call that can fail, or null after the last one. Kind 0 is an
// allocation; shim.cpp lists the others.
const char* tortureKind(int kind);

// Resets the counts of all kinds and makes `times` calls of the kind fail, beginning with the nth
// (counted from 1).
void tortureArm(int kind, long nth, long times);
// Ends the failures and the counting; returns the number of calls that failed.
long tortureDisarm();
// Returns the number of calls of the kind between the last arming and disarming.
long tortureCalls(int kind);

// Returns the number of bytes that are allocated and not freed.
long tortureLiveBytes();

// Writes a line "mark TEXT" to the record.
void tortureMark(const char* text);
}

#endif
