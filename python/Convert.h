#pragma once

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <mutex>
#include <stdexcept>
#include <string_view>

#include "basekit/qtString.h"

namespace py = pybind11;

/// The bytes of a Python object that offers them in one piece; it keeps them where they are until
/// it goes, which has to be with the interpreter's lock held.
class View {
public:
    explicit View(py::handle object, int flags = PyBUF_SIMPLE) {
        if (PyObject_GetBuffer(object.ptr(), &buffer, flags) != 0) {
            throw py::error_already_set();
        }
    }
    ~View() { PyBuffer_Release(&buffer); }
    View(const View&) = delete;
    View& operator=(const View&) = delete;

    char* Data() const { return static_cast<char*>(buffer.buf); }
    std::size_t Size() const { return static_cast<std::size_t>(buffer.len); }

private:
    Py_buffer buffer;
};

/// A registry operation that failed; the text says why.
class RegistryFailure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// An object that any thread may use: the calls wait for each other, and let other threads of the
/// interpreter run meanwhile.
template <class T>
class Guarded {
public:
    /// Calls work(object), which must not touch Python's objects.
    template <class Work>
    auto Use(Work work) {
        const py::gil_scoped_release others;
        const std::lock_guard<std::mutex> alone(mutex);
        return work(object);
    }

private:
    T object;
    std::mutex mutex;
};

/// Parts of the module.
void DefinePackage(py::module_& module);
void DefineRepair(py::module_& module);
void DefineRegistry(py::module_& module);

/// qtString is `bytes` in Python. Any object with bytes in one piece is taken, and text as UTF-8.
template <>
struct py::detail::type_caster<qtString> {
    PYBIND11_TYPE_CASTER(qtString, const_name("bytes"));

    bool load(handle source, bool) {
        if (PyUnicode_Check(source.ptr())) {
            Py_ssize_t length = 0;
            const char* const text = PyUnicode_AsUTF8AndSize(source.ptr(), &length);
            if (text == nullptr) {
                throw error_already_set();
            }
            value.assign(text, static_cast<std::size_t>(length));
            return true;
        }
        if (!PyObject_CheckBuffer(source.ptr())) {
            return false;
        }
        const View view(source);
        value.assign(view.Data(), view.Size());
        return true;
    }

    static handle cast(const qtString& text, return_value_policy, handle) {
        return bytes(text).release();
    }
};
