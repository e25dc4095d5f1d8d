// orv_double: the recording double as a Python module.
//
//     reset()
//     answer(function, result, thrown, times, when, outputs)   when and outputs: dicts
//     calls() -> [(function, {argument: value}), ...]
//     unused_answers() -> [function, ...]
//     set_channels(bytes)                                      32-bit words
//     release_engine()
//     is_mapped(file name) -> bool
//
// Values are ints, bytes, or None for a null pointer. tests/python/double.py makes it comfortable.
#include <Python.h>

#include <cstring>
#include <exception>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/double/mapped.h"
#include "tests/double/recorder.h"

namespace {

using recording::Recorder;
using recording::Value;
using recording::Values;

// An error of Python's that is already set.
struct PythonError : std::exception {};

// A reference that is given back at the end of the scope.
class Reference {
  public:
    explicit Reference(PyObject* object) : object_(object) {
        if (object == nullptr) {
            throw PythonError();
        }
    }
    ~Reference() { Py_XDECREF(object_); }
    Reference(const Reference&) = delete;
    Reference(Reference&&) = delete;
    Reference& operator=(const Reference&) = delete;
    Reference& operator=(Reference&&) = delete;

    PyObject* get() const { return object_; }
    PyObject* release() { return std::exchange(object_, nullptr); }

  private:
    PyObject* object_;
};

void require(bool done) {
    if (!done) {
        throw PythonError();
    }
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
        const Reference name(PyUnicode_AsUTF8String(key));
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
    Reference dictionary(PyDict_New());
    for (const auto& [name, value] : values) {
        const Reference item(fromValue(value));
        require(PyDict_SetItemString(dictionary.get(), name.c_str(), item.get()) == 0);
    }
    return dictionary.release();
}

// A Python function that may throw: PythonError leaves Python's error as it is, any other exception
// becomes a ValueError.
template <PyObject* (*function)(PyObject*)>
PyObject* method(PyObject* /*module*/, PyObject* arguments) {
    try {
        return function(arguments);
    } catch (const PythonError&) {
        return nullptr;
    } catch (const std::exception& error) {
        PyErr_SetString(PyExc_ValueError, error.what());
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

PyObject* calls(PyObject* /*arguments*/) {
    Reference list(PyList_New(0));
    for (const recording::Call& call : Recorder::instance().calls()) {
        const Reference entry(
            Py_BuildValue("(sN)", call.function.c_str(), fromValues(call.arguments)));
        require(PyList_Append(list.get(), entry.get()) == 0);
    }
    return list.release();
}

PyObject* unusedAnswers(PyObject* /*arguments*/) {
    Reference list(PyList_New(0));
    for (const std::string& function : Recorder::instance().unusedAnswers()) {
        const Reference entry(PyUnicode_FromString(function.c_str()));
        require(PyList_Append(list.get(), entry.get()) == 0);
    }
    return list.release();
}

PyObject* setChannels(PyObject* arguments) {
    PyObject* words = nullptr;
    require(PyArg_ParseTuple(arguments, "O", &words) != 0);
    const std::string content = toBytes(words);
    std::vector<std::int32_t> channels;
    for (std::size_t at = 0; at + sizeof(std::int32_t) <= content.size();
         at += sizeof(std::int32_t)) {
        std::memcpy(&channels.emplace_back(), &content[at], sizeof(std::int32_t));
    }
    Recorder::instance().setChannels(std::move(channels));
    Py_RETURN_NONE;
}

PyObject* releaseEngine(PyObject* /*arguments*/) {
    Recorder::instance().releaseEngine();
    Py_RETURN_NONE;
}

PyObject* isMapped(PyObject* arguments) {
    const char* fileName = nullptr;
    require(PyArg_ParseTuple(arguments, "s", &fileName) != 0);
    return PyBool_FromLong(recording::isMapped(fileName) ? 1 : 0);
}

PyMethodDef methods[] = {
    {"reset", method<reset>, METH_NOARGS, nullptr},
    {"answer", method<answer>, METH_VARARGS, nullptr},
    {"calls", method<calls>, METH_NOARGS, nullptr},
    {"unused_answers", method<unusedAnswers>, METH_NOARGS, nullptr},
    {"set_channels", method<setChannels>, METH_VARARGS, nullptr},
    {"release_engine", method<releaseEngine>, METH_NOARGS, nullptr},
    {"is_mapped", method<isMapped>, METH_VARARGS, nullptr},
    {nullptr, nullptr, 0, nullptr},
};

PyModuleDef definition = {
    PyModuleDef_HEAD_INIT, "orv_double", nullptr, -1, methods, nullptr, nullptr, nullptr, nullptr};

}  // namespace

PyMODINIT_FUNC PyInit_orv_double() {
    return PyModule_Create(&definition);
}
