// orv_double: the recording double as a Python module.
//
//     answer(function, result, thrown, times, when, outputs)   when and outputs: dicts
//     calls() -> [(function, {argument: value}), ...]
//     unused_answers() -> [function, ...]
//     is_mapped(library) -> bool
//
// Values are ints, bytes, or None for a null pointer. tests/python/double.py is the wrapper.
#include <Python.h>

#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "tests/double/recorder.h"

namespace {

using recording::Recorder;
using recording::Value;
using recording::Values;

void require(bool done) {
    if (!done) {
        throw std::invalid_argument("not done");
    }
}

struct GiveBack {
    void operator()(PyObject* object) const { Py_DECREF(object); }
};
using Reference = std::unique_ptr<PyObject, GiveBack>;

Reference owned(PyObject* newReference) {
    require(newReference != nullptr);
    return Reference(newReference);
}

std::string toBytes(PyObject* object) {
    char* data = nullptr;
    Py_ssize_t length = 0;
    require(PyBytes_AsStringAndSize(object, &data, &length) == 0);
    return {data, static_cast<std::size_t>(length)};
}

Value toValue(PyObject* object) {
    if (object == Py_None) {
        return {};
    }
    if (PyLong_Check(object) == 0) {
        return toBytes(object);
    }
    const std::int64_t number = PyLong_AsLongLong(object);
    require(number != -1 || PyErr_Occurred() == nullptr);
    return number;
}

Values toValues(PyObject* dictionary) {
    Values values;
    PyObject* key = nullptr;
    PyObject* item = nullptr;
    Py_ssize_t position = 0;
    while (PyDict_Next(dictionary, &position, &key, &item) != 0) {
        const Reference name = owned(PyUnicode_AsUTF8String(key));
        values.emplace_back(toBytes(name.get()), toValue(item));
    }
    return values;
}

PyObject* fromValue(const Value& value) {
    if (const auto* const number = std::get_if<std::int64_t>(&value)) {
        return PyLong_FromLongLong(*number);
    }
    if (const auto* const text = std::get_if<std::string>(&value)) {
        return PyBytes_FromStringAndSize(text->data(), static_cast<Py_ssize_t>(text->size()));
    }
    Py_RETURN_NONE;
}

PyObject* fromValues(const Values& values) {
    Reference dictionary = owned(PyDict_New());
    for (const auto& [name, value] : values) {
        const Reference item = owned(fromValue(value));
        require(PyDict_SetItemString(dictionary.get(), name.c_str(), item.get()) == 0);
    }
    return dictionary.release();
}

// Calls a function that may throw; the exception becomes a ValueError unless a Python error is
// pending.
template <PyObject* (*function)(PyObject*)>
PyObject* method(PyObject* /*module*/, PyObject* arguments) {
    try {
        return function(arguments);
    } catch (const std::exception& error) {
        if (PyErr_Occurred() == nullptr) {
            PyErr_SetString(PyExc_ValueError, error.what());
        }
        return nullptr;
    }
}

PyObject* reset(PyObject* /*arguments*/) {
    Recorder::instance().reset();
    Py_RETURN_NONE;
}

PyObject* answer(PyObject* arguments) {
    const char* function = nullptr;
    const char* thrown = nullptr;
    PyObject* when = nullptr;
    PyObject* outputs = nullptr;
    recording::Answer scripted;
    long long result = 0;
    require(PyArg_ParseTuple(arguments, "sLsiO!O!", &function, &result, &thrown, &scripted.times,
                             &PyDict_Type, &when, &PyDict_Type, &outputs) != 0);
    scripted.result = result;
    scripted.thrown = thrown;
    scripted.when = toValues(when);
    scripted.outputs = toValues(outputs);
    Recorder::instance().answer(function, std::move(scripted));
    Py_RETURN_NONE;
}

// Returns a list with the result of the function for each item.
template <typename Items, typename Function>
PyObject* listOf(const Items& items, Function function) {
    Reference list = owned(PyList_New(0));
    for (const auto& item : items) {
        require(PyList_Append(list.get(), owned(function(item)).get()) == 0);
    }
    return list.release();
}

PyObject* calls(PyObject* /*arguments*/) {
    return listOf(Recorder::instance().calls(), [](const recording::Call& call) {
        return Py_BuildValue("(sN)", call.function.c_str(), fromValues(call.arguments));
    });
}

PyObject* unusedAnswers(PyObject* /*arguments*/) {
    return listOf(Recorder::instance().unusedAnswers(), [](const std::string& function) {
        return PyUnicode_FromString(function.c_str());
    });
}

PyObject* isMapped(PyObject* library) {
    const Reference name = owned(PyUnicode_AsUTF8String(library));
    return PyBool_FromLong(recording::isMapped(toBytes(name.get())) ? 1 : 0);
}

PyMethodDef methods[] = {
    {"reset", method<reset>, METH_NOARGS, nullptr},
    {"answer", method<answer>, METH_VARARGS, nullptr},
    {"calls", method<calls>, METH_NOARGS, nullptr},
    {"unused_answers", method<unusedAnswers>, METH_NOARGS, nullptr},
    {"is_mapped", method<isMapped>, METH_O, nullptr},
    {nullptr, nullptr, 0, nullptr},
};

PyModuleDef definition = {
    PyModuleDef_HEAD_INIT, "orv_double", nullptr, -1, methods, nullptr, nullptr, nullptr, nullptr};

}  // namespace

extern "C" ORV_EXPORT PyObject* PyInit_orv_double() {
    return PyModule_Create(&definition);
}
