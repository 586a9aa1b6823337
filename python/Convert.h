#pragma once

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <string>
#include <utility>

#include "basekit/qtString.h"

namespace py = pybind11;

namespace vantry_python {

/// The contiguous bytes of a Python object. They stay in place until the view is destroyed, which
/// requires the interpreter's lock.
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

/// An item's key, as an argument: bytes, bytearray, memoryview, or str as UTF-8.
struct Key : qtString {
    static bool Accepts(PyObject* object) {
        return PyBytes_Check(object) || PyByteArray_Check(object) || PyMemoryView_Check(object);
    }
    static constexpr const char* expected = "a key is bytes or str";
};

/// An item's body, as an argument: any object with contiguous bytes, or str as UTF-8.
struct Body : qtString {
    static bool Accepts(PyObject* object) { return PyObject_CheckBuffer(object) != 0; }
    static constexpr const char* expected = "a body is bytes, str or a buffer";
};

/// Other bytes, as an argument, as for a body.
struct Text : qtString {
    static bool Accepts(PyObject* object) { return PyObject_CheckBuffer(object) != 0; }
    static constexpr const char* expected = "bytes, str or a buffer is expected";
};

/// Parts of the module.
void DefineReader(py::module_& module);
void DefineWriter(py::module_& module);
void DefineSource(py::module_& module);
void DefineRepair(py::module_& module);
void DefineRegistry(py::module_& module);

}  // namespace vantry_python

namespace pybind11::detail {

/// Results are `bytes`. Arguments have one of the types above, so that a wrong one is reported in
/// the terms of this module.
template <>
struct type_caster<qtString> {
    PYBIND11_TYPE_CASTER(qtString, const_name("bytes"));

    bool load(handle source, bool) {
        if (!PyBytes_Check(source.ptr())) {
            return false;
        }
        value.assign(PyBytes_AS_STRING(source.ptr()),
                     static_cast<std::size_t>(PyBytes_GET_SIZE(source.ptr())));
        return true;
    }

    static handle cast(const qtString& text, return_value_policy, handle) {
        return bytes(text).release();
    }
};

template <class Argument>
struct argument_caster {
    PYBIND11_TYPE_CASTER(Argument, const_name("bytes"));

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
        if (!Argument::Accepts(source.ptr())) {
            throw type_error(std::string(Argument::expected) + ", not " +
                             Py_TYPE(source.ptr())->tp_name);
        }
        const vantry_python::View view(source);
        value.assign(view.Data(), view.Size());
        return true;
    }

    static handle cast(const qtString& text, return_value_policy, handle) {
        return bytes(text).release();
    }
};

template <>
struct type_caster<vantry_python::Key> : argument_caster<vantry_python::Key> {};
template <>
struct type_caster<vantry_python::Body> : argument_caster<vantry_python::Body> {};
template <>
struct type_caster<vantry_python::Text> : argument_caster<vantry_python::Text> {};

}  // namespace pybind11::detail
