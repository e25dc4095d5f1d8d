// The Python interface that the module builds on: the stable ABI of Python 3.
#ifndef PYORV3_MODULE_FRAME_PYTHON_H
#define PYORV3_MODULE_FRAME_PYTHON_H

#include <Python.h>

// Part of the stable ABI since Python 3.3; the headers hide it from modules built for 3.2.
extern "C" PyAPI_FUNC(Py_ssize_t) PyUnicode_GetLength(PyObject* unicode);

#endif
