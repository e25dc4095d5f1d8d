// Functions that the C++ library of the compiler expects in the C library, and older ones lack.

#include <stdint.h>
#include <sys/random.h>

// With 0 the C++ library always uses atomic operations for its reference counts.
char __libc_single_threaded = 0;

uint32_t arc4random(void) {
    uint32_t number = 0;
    while (getrandom(&number, sizeof number, 0) != (ssize_t)sizeof number) {}
    return number;
}
