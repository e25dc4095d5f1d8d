#include "module/frame/call_frame.h"

namespace pyORV3 {

PyObject* mappedStatus(Outcome outcome) {
    return integerObject(static_cast<std::int32_t>(mapStatus(outcome.status)));
}

PyObject* integerObject(std::int32_t integer) {
    return Py_BuildValue("l", static_cast<long>(integer));
}

PyObject* tupleResult(Outcome outcome, PythonReference value) {
    PythonReference tuple(PyTuple_New(2));
    PythonReference status(mappedStatus(outcome));
    if (!tuple || !status || !value) {
        return nullptr;
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
