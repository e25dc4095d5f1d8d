// Whether a library of the given file name is in the process now; it is not loaded by asking.
#ifndef PYORV3_TESTS_DOUBLE_MAPPED_H
#define PYORV3_TESTS_DOUBLE_MAPPED_H

namespace recording {

bool isMapped(const char* fileName);

}  // namespace recording

#endif
