// The extension behind the Python module: a thin layer that vantry/__init__.py gives its shape.
#include <string>
#include <string_view>

#include "QtInclude/Poly_Hash.h"
#include "Vantry/VantryVersion.h"
#include "basekit/qtEncryptor.h"
#include "hpack/Hpack.h"
#include "lpstring/LpString.h"
#include "lpstring/LpStringHash.h"
#include "python/Convert.h"
#include "python/Guarded.h"

// Raises the exception of that name of vantry.errors.
static void Raise(const char* name, long number, const char* text,
                  const std::vector<qtString>& arguments = {}, py::object reason = py::none()) {
    const py::object type = py::module_::import("vantry.errors").attr(name);
    // Texts contain keys and file names, which are any bytes.
    std::string_view line = text;
    if (!line.empty() && line.back() == '\n') {
        line.remove_suffix(1);
    }
    const auto shown = py::reinterpret_steal<py::object>(PyUnicode_DecodeUTF8(
        line.data(), static_cast<Py_ssize_t>(line.size()), "backslashreplace"));
    const py::tuple involved = py::cast(arguments);
    const py::object error = type.attr("make")(number, shown, involved, reason);
    PyErr_SetObject(py::type::of(error).ptr(), error.ptr());
}

static const char* PackageErrorName(const qtX<Hpack>& error) {
    const bool missing = std::string_view(error.Text()).rfind(HpackErrors::missingKey, 0) == 0;
    return missing ? "MissingKeyError" : "PackageError";
}

static void Translate(std::exception_ptr thrown) {
    const int systemError = errno;
    try {
        if (thrown) {
            std::rethrow_exception(std::move(thrown));
        }
    } catch (const qtX<Hpack>& error) {
        Raise(PackageErrorName(error), error.Number(), error.SpecificString(), error.Arguments());
    } catch (const qtX<HioErr>& error) {
        Raise("StreamError", error.Number(), error.SpecificString(), error.Arguments(),
              systemError == 0 ? py::object(py::none()) : py::int_(systemError));
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

static Poly_Hash<32> NewHash(int degree, std::optional<unsigned int> polynomial,
                             unsigned int initialValue) {
    // Init refuses other degrees.
    const unsigned int known = degree >= 0 && degree <= 32 ? Hash_primitive_seed[degree] : 0;
    Poly_Hash<32> hash;
    hash.Init(degree, polynomial.value_or(known), initialValue);
    return hash;
}

static unsigned int Extend(const Poly_Hash<32>& hash, unsigned int start, py::handle data) {
    const View view(data);
    const py::gil_scoped_release others;
    return hash.Extend(start, view.Data(), view.Size());
}

static py::list Tokens(const Text& text, const std::optional<Text>& separators) {
    std::vector<LpCString> tokens;
    if (separators) {
        LpTokenize(text, tokens, *separators);
    } else {
        LpTokenize(text, tokens);
    }
    py::list result;
    for (const LpCString& token : tokens) {
        result.append(py::bytes(token.Data(), token.Length()));
    }
    return result;
}

static constexpr char polyHashText[] =
    R"(A hash by division of polynomials, the same on every machine.

    >>> import vantry
    >>> hash = vantry.PolyHash()
    >>> hash.hash(b"Vantry") == hash.extend(hash.hash(b"Van"), b"try")
    True

    degree: the bits of a value, 8 to 32; others are a HashError. polynomial: without its highest
    term; a primitive one of that degree unless given. initial_value: where a hash begins. It tells
    strings apart, but keeps no secret.)";

static constexpr char tokenizeText[] =
    R"(Splits a text at white space, or at any byte of `separators`. There are no empty tokens.

    >>> import vantry
    >>> vantry.tokenize(b" to be  or not "), vantry.tokenize("a,b;;c", ",;")
    ([b'to', b'be', b'or', b'not'], [b'a', b'b', b'c']))";

PYBIND11_MODULE(_vantry, module) {
    py::register_exception_translator(Translate);
    ForkGate::Install();
    DefinePackage(module);
    DefineRepair(module);
    DefineRegistry(module);

    py::class_<Poly_Hash<32>>(module, "PolyHash", polyHashText)
        .def(py::init(&NewHash), py::arg("degree") = 32, py::arg("polynomial") = py::none(),
             py::arg("initial_value") = 1)
        .def_property_readonly("degree", &Poly_Hash<32>::Degree)
        .def_property_readonly("initial_value", &Poly_Hash<32>::InitialValue)
        .def("extend", &Extend, py::arg("hash"), py::arg("data"),
             "The hash of a longer string: `hash` is that of its beginning, `data` the rest.")
        .def(
            "hash",
            [](const Poly_Hash<32>& hash, py::handle data) {
                return Extend(hash, hash.InitialValue(), data);
            },
            py::arg("data"), "The hash of bytes.");
    module.def("tokenize", &Tokens, tokenizeText, py::arg("text"),
               py::arg("separators") = py::none());
    module.def("version", [] {
        char text[11];
        GetVantryVersion(text);
        return std::string(text);
    });
}
