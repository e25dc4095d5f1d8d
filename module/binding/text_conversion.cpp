#include "module/binding/text_conversion.h"

#include <new>

#include "platform/platform.h"

namespace pyORV3 {

namespace {

// Converts an ANSI string to a wide one. If the code page is UTF-8, the system refuses the flag.
void widen(const std::string& text, std::wstring& wide) {
    const auto size = static_cast<int>(wide.size());
    if (MultiByteToWideChar(CP_ACP, MB_PRECOMPOSED, text.c_str(), -1, wide.data(), size) == 0) {
        MultiByteToWideChar(CP_ACP, 0, text.c_str(), -1, wide.data(), size);
    }
}

}  // namespace

PythonReference textFromAnsi(const std::string& text) {
    // No byte of an ANSI string becomes more than one wide character.
    std::wstring wide(text.size() + 1, L'\0');
    widen(text, wide);
    wide.resize(wide.find(L'\0'));
    return PythonReference(
        PyUnicode_FromWideChar(wide.data(), static_cast<Py_ssize_t>(wide.size())));
}

PythonReference textFromUtf8(const std::string& text) {
    PythonReference unicode(PyUnicode_FromString(text.c_str()));
    if (unicode) {
        return unicode;
    }
    PyErr_Clear();
    return textFromAnsi(text);
}

std::string ansiFromText(PyObject* text) {
    // One more wide character than the str has, for characters that need two 16-bit units.
    std::wstring wide(2 * static_cast<std::size_t>(PyUnicode_GetLength(text)) + 1, L'\0');
    if (PyUnicode_AsWideChar(text, wide.data(), static_cast<Py_ssize_t>(wide.size() - 1)) < 0) {
        PyErr_Clear();
        throw std::bad_alloc();  // the only possible failure for a str
    }
    const int size = WideCharToMultiByte(CP_ACP, 0, wide.c_str(), -1, nullptr, 0, nullptr, nullptr);
    if (size <= 0) {
        throw std::bad_alloc();  // longer than the function of the system accepts
    }
    std::string ansi(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CP_ACP, 0, wide.c_str(), -1, ansi.data(), size, nullptr, nullptr);
    ansi.resize(ansi.size() - 1);  // without the converted terminator
    return ansi;
}

}  // namespace pyORV3
