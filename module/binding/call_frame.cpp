#include "module/binding/call_frame.h"

#include "module/status/trace.h"

namespace pyORV3 {

namespace {

// Reports a result that cannot be created.
PyObject* noResult(const char* method) {
    trace(method, failureLevel, "The result cannot be made", outOfMemory);
    return PyErr_Occurred() != nullptr ? nullptr : PyErr_NoMemory();
}

}  // namespace

PyObject* integerObject(std::int32_t integer) {
    return Py_BuildValue("l", static_cast<long>(integer));
}

PyObject* bareResult(const char* method, Outcome outcome) {
    if (outcome.isFailure()) {
        trace(method, failureLevel, outcome.failedStep, outcome.status);
    }
    // A failed conversion has become a status; Python must not also get its error.
    if (PyErr_Occurred() != nullptr) {
        PyErr_Clear();
    }
    return integerObject(static_cast<std::int32_t>(codeOf(mapStatus(outcome.status))));
}

PyObject* tupleResult(PythonReference tuple, const char* method, Outcome outcome,
                      PythonReference value, PythonReference (*valueOnFailure)()) {
    if (!value && outcome.isFailure() && PyErr_Occurred() == nullptr) {
        value = valueOnFailure();
    }
    if (!value) {
        return noResult(method);
    }
    PythonReference status(bareResult(method, outcome));
    if (!status) {
        return noResult(method);
    }
    PyTuple_SetItem(tuple.get(), 0, status.release());
    PyTuple_SetItem(tuple.get(), 1, value.release());
    return tuple.release();
}

PythonReference zero() {
    return PythonReference(integerObject(0));
}

PythonReference tupleOfZero() {
    return PythonReference(Py_BuildValue("(l)", 0L));
}

PythonReference emptyText() {
    return PythonReference(Py_BuildValue("s", ""));
}

}  // namespace pyORV3
