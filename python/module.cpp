// The extension that the Python module is built on: a thin layer that vantry/__init__.py shapes.
#include <optional>
#include <string>
#include <vector>

#include "QtInclude/Poly_Hash.h"
#include "lpstring/LpString.h"
#include "lpstring/LpStringHash.h"
#include "python/Convert.h"
#include "python/Errors.h"
#include "python/Guarded.h"

namespace vantry_python {

static Poly_Hash<32> NewHash(int degree, std::optional<unsigned int> polynomial,
                             unsigned int initialValue) {
    // Init() rejects other degrees.
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

    degree: the number of bits of a value, 8 to 32; others are a HashError. polynomial: without its
    highest term; by default a primitive one of that degree. initial_value: the hash of nothing. It is
    not cryptographic.)";

static constexpr char tokenizeText[] =
    R"(Splits a text at white space, or at any byte of `separators`. There are no empty tokens.

    >>> import vantry
    >>> vantry.tokenize(b" to be  or not "), vantry.tokenize("a,b;;c", ",;")
    ([b'to', b'be', b'or', b'not'], [b'a', b'b', b'c']))";

}  // namespace vantry_python

PYBIND11_MODULE(_vantry, module) {
    using namespace vantry_python;
    py::register_exception_translator(Translate);
    ForkGate::Install();
    DefineReader(module);
    DefineWriter(module);
    DefineSource(module);
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
    module.attr("version") = VANTRY_VERSION;
}
