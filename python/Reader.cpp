#include <cstring>
#include <memory>
#include <optional>
#include <string_view>
#include <tuple>

#include "hpack/Hpack.h"
#include "hpack/HpackShards.h"
#include "hpack/HpackView.h"
#include "python/Buffer.h"
#include "python/Convert.h"
#include "python/Errors.h"

namespace vantry_python {

// Packages that are only read. Calls hold the interpreter's lock, because releasing it costs more
// than a lookup; they release it while they copy long bodies.

namespace {

// Copies of bodies from this size on let other threads run.
constexpr std::size_t longBody = 65536;

// A view, and the buffer that it must not outlive. Readers, walks and exported bodies share it.
struct OpenView {
    OpenView(const qtString& fileName) : view(HpackView::Map(fileName)), name(fileName) {}
    OpenView(const std::shared_ptr<Buffer>& memory)
        : use(memory),
          view(std::string_view(memory->bytes.Data(), memory->bytes.Length())),
          name("qtBuffer") {}

    struct Use {
        Use() = default;
        explicit Use(const std::shared_ptr<Buffer>& memory) : buffer(memory) { buffer->Begin('r'); }
        ~Use() {
            if (buffer) {
                buffer->End();
            }
        }
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;

        std::shared_ptr<Buffer> buffer;
    };

    Use use;
    HpackView view;
    qtString name;
};

[[noreturn]] void FailMissing(const qtString& name, const qtString& key) {
    throw qtX<Hpack>((HpackErrors::missingKey + key).c_str(), HpackErrors::key, name, key);
}

using Shared = std::shared_ptr<const OpenView>;

class Reader {
public:
    explicit Reader(Shared newOpened) : opened(std::move(newOpened)) {}

    const Shared& Opened() const {
        if (!opened) {
            throw py::value_error("The package is closed");
        }
        return opened;
    }
    const HpackView& View() const { return Opened()->view; }
    void Close() { opened = nullptr; }
    bool IsOpen() const { return opened != nullptr; }

    std::string_view Body(std::string_view key) const {
        if (const std::optional<std::string_view> body = View().Find(key)) {
            return *body;
        }
        FailMissing(opened->name, qtString(key));
    }

private:
    Shared opened;
};

py::object NewBytes(std::string_view text) {
    PyObject* const object =
        PyBytes_FromStringAndSize(text.data(), static_cast<Py_ssize_t>(text.size()));
    if (object == nullptr) {
        throw py::error_already_set();
    }
    return py::reinterpret_steal<py::object>(object);
}

// Copies a body of `kept`.
py::object CopyBody(std::string_view body, const Shared& kept) {
    if (body.size() < longBody) {
        return NewBytes(body);
    }
    PyObject* const object =
        PyBytes_FromStringAndSize(nullptr, static_cast<Py_ssize_t>(body.size()));
    if (object == nullptr) {
        throw py::error_already_set();
    }
    const std::shared_ptr<const void> held(kept);  // another thread may close the reader
    const py::gil_scoped_release others;
    std::memcpy(PyBytes_AS_STRING(object), body.data(), body.size());
    return py::reinterpret_steal<py::object>(object);
}

// The items, keys or bodies of a range, in batches: a call for each would cost more than the item.
class Walk {
public:
    enum class What { keys, bodies, items };

    Walk(const Reader& reader, std::string_view from, const std::optional<Key>& to, bool reversed,
         What newWhat)
        : opened(reader.Opened()),
          next(opened->view.LowerBound(from)),
          last(to ? opened->view.LowerBound(*to) : opened->view.end()),
          backwards(reversed),
          what(newWhat) {
        if (to && std::string_view(*to) < from) {
            last = next;
        }
    }

    // The next batch; empty at the end.
    py::list Next() {
        constexpr std::size_t maxItems = 256;
        constexpr std::size_t maxBytes = std::size_t{1} << 20;
        py::list found;
        for (std::size_t bytes = 0; next != last && found.size() < maxItems && bytes < maxBytes;) {
            HpackView::Iterator at = next;
            if (backwards) {
                at = last;
                --at;
            }
            try {
                bytes += Append(found, *at);
            } catch (const qtxAll&) {
                if (found.empty()) {
                    throw;
                }
                break;  // the items before it are returned first
            }
            if (backwards) {
                last = at;
            } else {
                ++next;
            }
        }
        return found;
    }

    std::size_t Count() const { return static_cast<std::size_t>(std::distance(next, last)); }

private:
    // @return the length of the body, or 0 if only the key is wanted
    std::size_t Append(py::list& found, const HpackView::Item& item) const {
        if (what == What::keys) {
            found.append(NewBytes(item.Key()));
            return 0;
        }
        const std::string_view body = item.Body();
        found.append(what == What::bodies ? CopyBody(body, opened) : Pair(item.Key(), body));
        return body.size();
    }

    py::object Pair(std::string_view key, std::string_view body) const {
        PyObject* const pair = PyTuple_New(2);
        if (pair == nullptr) {
            throw py::error_already_set();
        }
        auto owner = py::reinterpret_steal<py::object>(pair);
        PyTuple_SET_ITEM(pair, 0, NewBytes(key).release().ptr());
        PyTuple_SET_ITEM(pair, 1, CopyBody(body, opened).release().ptr());
        return owner;
    }

    Shared opened;
    HpackView::Iterator next;
    HpackView::Iterator last;
    bool backwards;
    What what;
};

// A body that Python reads by the buffer protocol. It keeps the package's bytes alive.
struct Exported {
    Shared opened;
    std::string_view body;
};

py::memoryview Export(const Reader& reader, const Key& key) {
    const std::string_view body = reader.Body(key);
    return py::memoryview(py::cast(Exported{reader.Opened(), body}));
}

// A key without a copy of it.
class KeyArgument {
public:
    explicit KeyArgument(PyObject* object) {
        if (PyBytes_Check(object)) {
            text = {PyBytes_AS_STRING(object), static_cast<std::size_t>(PyBytes_GET_SIZE(object))};
        } else {
            copy = py::cast<Key>(object);
            text = *copy;
        }
    }
    KeyArgument(const KeyArgument&) = delete;
    KeyArgument& operator=(const KeyArgument&) = delete;

    std::string_view Text() const { return text; }

private:
    std::string_view text;
    std::optional<Key> copy;
};

const Reader& Self(PyObject* object) {
    const void* const reader =
        reinterpret_cast<py::detail::instance*>(object)->simple_value_holder[0];
    if (reader == nullptr) {
        throw py::type_error("Reader.__init__() has not been called");
    }
    return *static_cast<const Reader*>(reader);
}

// The most frequent calls use the interpreter's own interface: the binding library's conversions
// would cost more than the lookup.
PyObject* Get(PyObject* self, PyObject* key) {
    return Translated([&] {
        const Reader& reader = Self(self);
        const KeyArgument argument(key);
        return CopyBody(reader.Body(argument.Text()), reader.Opened()).release().ptr();
    });
}

PyObject* GetOr(PyObject* self, PyObject* const* arguments, Py_ssize_t count) {
    return Translated([&] {
        if (count != 2) {
            throw py::type_error("get_or(key, default)");
        }
        const Reader& reader = Self(self);
        const KeyArgument argument(arguments[0]);
        const std::optional<std::string_view> body = reader.View().Find(argument.Text());
        return body ? CopyBody(*body, reader.Opened()).release().ptr()
                    : py::reinterpret_borrow<py::object>(arguments[1]).release().ptr();
    });
}

PyObject* Contains(PyObject* self, PyObject* key) {
    return Translated([&] {
        const HpackView& view = Self(self).View();
        const KeyArgument argument(key);
        const HpackView::Iterator found = view.LowerBound(argument.Text());
        return py::bool_(found != view.end() && (*found).Key() == argument.Text()).release().ptr();
    });
}

PyMethodDef methods[] = {
    {"get", &Get, METH_O, nullptr},
    {"get_or", reinterpret_cast<PyCFunction>(reinterpret_cast<void*>(&GetOr)), METH_FASTCALL,
     nullptr},
    {"contains", &Contains, METH_O, nullptr},
    {nullptr, nullptr, 0, nullptr},
};

std::size_t ReadInto(const Reader& reader, const Key& key, std::uint64_t from, py::handle into) {
    const View view(into, PyBUF_WRITABLE);
    const std::string_view body = reader.Body(key);
    if (from >= body.size()) {
        return 0;
    }
    return body.copy(view.Data(), view.Size(), static_cast<std::size_t>(from));
}

}  // namespace

void DefineReader(py::module_& module) {
    py::class_<Buffer, std::shared_ptr<Buffer>>(module, "Buffer")
        .def(py::init([](const Body& content) { return std::make_shared<Buffer>(content); }))
        .def("content",
             [](const Buffer& self) {
                 return py::bytes(self.Content().Data(), self.Content().Length());
             })
        .def("size", [](const Buffer& self) { return self.Content().Length(); });

    py::class_<Exported>(module, "Exported", py::buffer_protocol()).def_buffer([](Exported& self) {
        return py::buffer_info(reinterpret_cast<const std::uint8_t*>(self.body.data()),
                               static_cast<py::ssize_t>(self.body.size()));
    });

    module.def("shard_of",
               [](const Key& key, unsigned int count) { return HpackShards::ShardOf(key, count); });
    module.def("shard_name", [](const qtString& set, unsigned int number, unsigned int count) {
        return HpackShards::FileName(set, number, count);
    });

    // Errors that the Python files raise.
    const auto failShard = [](const char* text) {
        return [text](const qtString& name) {
            throw qtX<Hpack>((text + name).c_str(), HpackErrors::shard, name);
        };
    };
    module.def("fail_no_shards", failShard(HpackErrors::noShards));
    module.def("fail_missing_shard", failShard(HpackErrors::missingShard));
    module.def("fail_foreign_shard", failShard(HpackErrors::foreignShard));
    module.def("fail_missing", [](const Key& key) { FailMissing(qtString(), key); });
    module.def("fail_not_updating", [](const qtString& name) {
        throw qtX<Hpack>(HpackErrors::notOpenForUpdate, HpackErrors::notUpdating, name);
    });

    py::class_<Walk>(module, "Walk").def("next", &Walk::Next).def("count", &Walk::Count);

    const auto addMethods = [](PyHeapTypeObject* type) { type->ht_type.tp_methods = methods; };
    py::class_<Reader>(module, "Reader", py::custom_type_setup(addMethods))
        .def(py::init([](const std::shared_ptr<Buffer>& buffer) {
            return Reader(std::make_shared<const OpenView>(buffer));
        }))
        .def(py::init([](const qtString& path) {
            const py::gil_scoped_release others;
            errno = 0;
            return Reader(std::make_shared<const OpenView>(path));
        }))
        .def("close", &Reader::Close)
        .def("discard", &Reader::Close)
        .def("is_open", &Reader::IsOpen)
        .def("count", [](const Reader& self) { return self.View().Count(); })
        .def("keys", [](const Reader& self, const Key& from, const std::optional<Key>& to,
                        bool reversed) { return Walk(self, from, to, reversed, Walk::What::keys); })
        .def("bodies",
             [](const Reader& self, const Key& from, const std::optional<Key>& to, bool reversed) {
                 return Walk(self, from, to, reversed, Walk::What::bodies);
             })
        .def("items",
             [](const Reader& self, const Key& from, const std::optional<Key>& to, bool reversed) {
                 return Walk(self, from, to, reversed, Walk::What::items);
             })
        .def("view", &Export)
        .def("size", [](const Reader& self, const Key& key) { return self.Body(key).size(); })
        .def("read_into", &ReadInto)
        .def("identity",
             [](const Reader& self) {
                 std::tuple<unsigned int, unsigned short, unsigned char, bool> result;
                 auto& [id, word, flags, old] = result;
                 self.View().GetFileID(id, word, flags, old);
                 return result;
             })
        .def("state", [](const Reader& self) {
            unsigned char state = 0;
            self.View().GetState(state);
            return static_cast<unsigned int>(state);
        });
}

}  // namespace vantry_python
