// The maths functions with the oldest symbol versions. The newest ones need version 2.29 of the C
// library; their results are the same, they only leave out an old kind of error handling.

#ifdef __x86_64__
#define OLDEST "GLIBC_2.2.5"
#else
#define OLDEST "GLIBC_2.17"
#endif

#define BIND(name, parameters, arguments)                    \
    double oldest_##name parameters;                         \
    __asm__(".symver oldest_" #name "," #name "@" OLDEST);   \
    double name parameters { return oldest_##name arguments; }

BIND(exp, (double x), (x))
BIND(exp2, (double x), (x))
BIND(log, (double x), (x))
BIND(log2, (double x), (x))
BIND(pow, (double x, double y), (x, y))
