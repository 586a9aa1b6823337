#include <optional>

#include "VexUnix/VexRegistryUnix.h"
#include "basekit/UnixRegistry.h"
#include "basekit/qtEncryptor.h"
#include "python/Convert.h"
#include "python/Errors.h"
#include "python/Guarded.h"

namespace vantry_python {

namespace {

using Registry = Guarded<UnixRegistry>;
using Change = std::pair<Key, std::optional<Body>>;

[[noreturn]] void Fail() {
    throw RegistryFailure(UnixRegistry::LastError());
}

std::unique_ptr<Registry> OpenRegistry(bool readWrite) {
    auto registry = std::make_unique<Registry>();
    registry->Use([&](UnixRegistry& store) {
        if (!store.Open(readWrite)) {
            Fail();
        }
    });
    return registry;
}

std::optional<qtString> Get(UnixRegistry& store, const qtString& key) {
    const char* data = nullptr;
    unsigned int length = 0;
    if (store.GetKey(key, data, length)) {
        return qtString(length == 0 ? "" : data, length);
    }
    if (!UnixRegistry::LastError().empty()) {
        Fail();
    }
    return std::nullopt;
}

// @return false if a key to be removed does not exist; nothing has then changed
bool Apply(UnixRegistry& store, const std::vector<Change>& changes) {
    UnixRegistry::Update update(store);
    for (const auto& [key, value] : changes) {
        if (value ? update.Set(key, value->data(), value->size()) : update.Remove(key)) {
            continue;
        }
        if (!value && UnixRegistry::LastError().empty()) {
            return false;
        }
        Fail();
    }
    if (!update.Commit()) {
        Fail();
    }
    return true;
}

std::vector<std::pair<qtString, qtString>> Records(UnixRegistry& store) {
    std::vector<std::pair<qtString, qtString>> records;
    const auto take = [&](const qtString& key, const char* data, unsigned int length) {
        records.emplace_back(key, qtString(length == 0 ? "" : data, length));
    };
    if (!store.ForEach(take)) {
        Fail();
    }
    return records;
}

// The password is the copy that the conversion from Python made.
void SetPassword(Text& password, const Text& kesh) {
    const py::gil_scoped_release others;
    CvexRegEdit editor;
    const bool stored = editor.SetPassword(password.c_str(), kesh.c_str());
    qtEncryptor::Wipe(password);
    if (!stored) {
        const qtString& cause = UnixRegistry::LastError();
        throw RegistryFailure(editor.m_strMessage + (cause.empty() ? "" : ": " + cause));
    }
}

}  // namespace

void DefineRegistry(py::module_& module) {
    py::class_<Registry>(module, "Registry")
        .def(py::init(&OpenRegistry))
        .def("close", [](Registry& self) { self.Use([](UnixRegistry& store) { store.Close(); }); })
        .def("get",
             [](Registry& self, const Key& key) {
                 return self.Use([&](UnixRegistry& store) { return Get(store, key); });
             })
        .def("apply",
             [](Registry& self, const std::vector<Change>& changes) {
                 return self.Use([&](UnixRegistry& store) { return Apply(store, changes); });
             })
        .def("records", [](Registry& self) { return self.Use(&Records); });
    module.def("registry_path", &UnixRegistry::DatabasePath);
    module.def("set_password", &SetPassword);
    // The first process to encrypt creates the key, and others wait for that.
    const py::call_guard<py::gil_scoped_release> others;
    module.def(
        "encrypt", [](const Text& plain) { return qtEncryptor().Encrypt(plain); }, others,
        py::arg("plain"),
        R"(Encrypts with the key that is stored next to the registry, and created on first use.

    >>> import vantry
    >>> vantry.decrypt(vantry.encrypt("open sesame"))
    b'open sesame'

    If the key can be neither read nor created, an EncryptionError is raised.)");
    module.def(
        "decrypt", [](const Text& data) { return qtEncryptor().Decrypt(data); }, others,
        py::arg("data"),
        "Returns the text that encrypt() was given. Raises an EncryptionError if the key or the "
        "data "
        "differs.");
}

}  // namespace vantry_python
