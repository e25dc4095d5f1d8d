// The stable ABI of Python 3, on which the module builds, and PythonReference, which owns one
// reference to a Python object.
#ifndef PYORV3_MODULE_BINDING_PYTHON_REFERENCE_H
#define PYORV3_MODULE_BINDING_PYTHON_REFERENCE_H

#include <Python.h>

#include <utility>

// Part of the stable ABI since Python 3.3; the headers hide it from modules built for 3.2.
extern "C" PyAPI_FUNC(Py_ssize_t) PyUnicode_GetLength(PyObject* unicode);

namespace pyORV3 {

// Owns one reference or nothing. REQUIRES: the interpreter lock.
class PythonReference {
  public:
    PythonReference() noexcept = default;

    // Takes ownership of a new reference, as constructors of Python return it; null owns nothing.
    explicit PythonReference(PyObject* newReference) noexcept : object_(newReference) {}

    PythonReference(PythonReference&& other) noexcept : object_(other.release()) {}
    PythonReference& operator=(PythonReference&& other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    PythonReference(const PythonReference&) = delete;
    PythonReference& operator=(const PythonReference&) = delete;
    ~PythonReference() { Py_XDECREF(object_); }

    explicit operator bool() const noexcept { return object_ != nullptr; }
    [[nodiscard]] PyObject* get() const noexcept { return object_; }

    // Releases the reference to the caller.
    [[nodiscard]] PyObject* release() noexcept { return std::exchange(object_, nullptr); }

  private:
    PyObject* object_ = nullptr;
};

}  // namespace pyORV3

#endif
