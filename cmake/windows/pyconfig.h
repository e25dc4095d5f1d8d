/* Properties of 32-bit Windows with which the headers of Python declare the stable ABI. */
#ifndef Py_PYCONFIG_H
#define Py_PYCONFIG_H

#define MS_WINDOWS 1
#define MS_WIN32 1
#define PLATFORM "win32"
#define HAVE_DECLSPEC_DLL 1
#define Py_ENABLE_SHARED 1
#define HAVE_WCHAR_H 1

#define SIZEOF_VOID_P 4
#define SIZEOF_SIZE_T 4
#define SIZEOF_SHORT 2
#define SIZEOF_INT 4
#define SIZEOF_LONG 4
#define SIZEOF_LONG_LONG 8
#define SIZEOF_WCHAR_T 2
#define SIZEOF_TIME_T 4
#define SIZEOF_PID_T 4
#define ALIGNOF_MAX_ALIGN_T 8

#define HAVE_PY_SSIZE_T 1
#define PY_SSIZE_T_MAX 0x7fffffff
typedef int Py_ssize_t;

#endif
