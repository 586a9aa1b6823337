#pragma once

#include <pybind11/pybind11.h>

#include <exception>
#include <stdexcept>
#include <string>

#include "basekit/qtString.h"
#include "hpack/HioErrors.h"
#include "system/SystemError.h"

namespace vantry_python {

/// A registry operation that failed; the text says why.
class RegistryFailure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A file that could not be locked, created or replaced: a StreamError, a BusyError or, for a file
/// that must not exist, a FileExistsError.
struct FileFailure {
    HioErrors::Number number;
    qtString name;
    std::string text;
    int reason;  ///< errno
};

/// Throws the failure to open (number 0) or to replace (number 1) a file. A lock that somebody else
/// holds is reported as such.
[[noreturn]] void FailFile(const vantry_internal::SystemError& error, HioErrors::Number number,
                           const qtString& name);

/// Sets the Python exception for what a call of the library has thrown; rethrows what is not known.
/// errno has to be what the failing call left.
void Translate(std::exception_ptr thrown);

/// What a function written for the interpreter's own interface returns: work(), or null with a
/// Python exception set.
template <class Work>
PyObject* Translated(Work work) {
    try {
        return work();
    } catch (pybind11::error_already_set& error) {
        error.restore();
    } catch (pybind11::builtin_exception& error) {
        error.set_error();
    } catch (const std::bad_alloc&) {
        PyErr_NoMemory();
    } catch (...) {
        Translate(std::current_exception());
    }
    return nullptr;
}

}  // namespace vantry_python
