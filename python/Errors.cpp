#include "python/Errors.h"

#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <vector>

#include "QtInclude/Poly_Hash.h"
#include "basekit/qtEncryptor.h"
#include "hpack/Hpack.h"
#include "python/Convert.h"

namespace vantry_python {

void FailFile(const vantry_internal::SystemError& error, HioErrors::Number number,
              const qtString& name) {
    if (error.Number() == ETIMEDOUT) {
        const std::string holder = error.Reason();
        const bool own = holder.rfind("process " + std::to_string(getpid()) + ' ', 0) == 0;
        const char* const program = own ? "this program: " : "another program: ";
        throw FileFailure{number, name, name + " is being changed by " + program + holder,
                          EWOULDBLOCK};
    }
    const std::string text =
        number == HioErrors::open ? HioErrors::cannotOpen + name : HioErrors::closeFailed + name;
    throw FileFailure{number, name, text, error.Number()};
}

// Texts contain keys and file names, which are any bytes.
static py::object Shown(std::string_view text) {
    return py::reinterpret_steal<py::object>(PyUnicode_DecodeUTF8(
        text.data(), static_cast<Py_ssize_t>(text.size()), "backslashreplace"));
}

static void Set(const py::object& error) {
    PyErr_SetObject(py::type::of(error).ptr(), error.ptr());
}

// Raises the exception of that name of vantry.errors.
static void Raise(const char* name, long number, std::string_view text,
                  const std::vector<qtString>& arguments = {}, int reason = 0) {
    if (!text.empty() && text.back() == '\n') {
        text.remove_suffix(1);
    }
    const py::tuple involved = py::cast(arguments);
    Set(py::module_::import("vantry.errors")
            .attr(name)
            .attr("make")(number, Shown(text), involved,
                          reason == 0 ? py::object(py::none()) : py::int_(reason)));
}

static void RaiseFile(const FileFailure& error) {
    if (error.reason == EEXIST) {
        errno = error.reason;
        PyErr_SetFromErrnoWithFilename(PyExc_OSError, error.name.c_str());
        return;
    }
    Raise("StreamError", error.number, error.text, {error.name}, error.reason);
}

static const char* PackageErrorName(const qtX<Hpack>& error) {
    const bool missing = std::string_view(error.Text()).rfind(HpackErrors::missingKey, 0) == 0;
    return missing ? "MissingKeyError" : "PackageError";
}

void Translate(std::exception_ptr thrown) {
    const int reason = errno;
    try {
        if (thrown) {
            std::rethrow_exception(std::move(thrown));
        }
    } catch (const qtX<Hpack>& error) {
        Raise(PackageErrorName(error), error.Number(), error.SpecificString(), error.Arguments());
    } catch (const qtX<HioErr>& error) {
        Raise("StreamError", error.Number(), error.SpecificString(), error.Arguments(), reason);
    } catch (const FileFailure& error) {
        RaiseFile(error);
    } catch (const RegistryFailure& error) {
        Raise("RegistryError", 0, error.what());
    } catch (const qtxEncryptor& error) {
        Raise("EncryptionError", static_cast<long>(error.ErrorCode()), error.SpecificString());
    } catch (const xPoly_Hash& error) {
        Raise("HashError", static_cast<long>(error.ErrorCode()), error.SpecificString());
    } catch (const qtxAll& error) {
        Raise("Error", static_cast<long>(error.ErrorCode()), error.SpecificString());
    }
}

}  // namespace vantry_python
