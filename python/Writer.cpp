#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "hpack/Hmemory.h"
#include "hpack/Hpack.h"
#include "hpack/HpackFormat.h"
#include "hpack/HpackItemWriter.h"
#include "python/Buffer.h"
#include "python/Convert.h"
#include "python/Errors.h"
#include "python/Guarded.h"
#include "python/RenamedFile.h"
#include "system/AtomicFile.h"
#include "system/FileLock.h"

// Packages that are changed or created.

using namespace vantry_internal;

namespace vantry_python {

namespace {

// Discarding reports nothing, not even a file that fails to close.
struct QuietDelete {
    void operator()(Hpack* package) const noexcept {
        try {
            delete package;
        } catch (const qtxAll&) {
        }
    }
};

unsigned int BodySize(Hpack& package, const qtString& key) {
    unsigned int offset = 0;
    unsigned int size = 0;
    package.GetKeyInfo(key, offset, size);
    if (offset == 0) {
        package.PositionOnKey(key);  // throws
    }
    return size;
}

// An open package, with its lock, its new file and the item that is being written.
class OpenPackage {
public:
    ~OpenPackage() { Discard(); }

    // Acquires the lock without waiting. A new package is built next to its file, unless that is a
    // device or a FIFO.
    void OpenFile(const qtString& path, char mode) {
        try {
            struct stat status;
            const bool exists = stat(path.c_str(), &status) == 0;
            const bool replaces = mode == 'w' && exists && S_ISREG(status.st_mode);
            if (mode == 'u' || replaces) {
                lock.emplace(path, LockWait{std::chrono::milliseconds(0), nullptr, nullptr});
            }
            if (replaces) {
                created.emplace(*lock);
            } else if (mode == 'w' && !exists) {
                created.emplace(path, AtomicFile::Existing::replace);
            }
        } catch (const SystemError& error) {
            FailFile(error, HioErrors::open, path);
        }
        auto file = std::make_unique<RenamedFile>();
        file->OpenAs(path, created ? qtString(created->Path()) : path, mode);
        Open(file.release(), mode);
        changesFile = mode != 'r';
        createsFile = mode == 'w';
    }

    void OpenBuffer(const std::shared_ptr<Buffer>& memory, char mode) {
        buffer = memory;  // Begin() has been called
        auto memoryStream = std::make_unique<Hmemory>();
        memoryStream->Open(buffer->bytes, mode);
        Open(memoryStream.release(), mode);
    }

    void Close() {
        if (!IsOpen()) {
            return;
        }
        Package().Close();
        try {
            if (created) {
                created->Commit();
            }
        } catch (const SystemError& error) {
            const qtString closing = name;
            Discard();
            FailFile(error, HioErrors::close, closing);
        }
        Discard();
    }

    void Discard() noexcept {
        if (IsOpen() && IsInherited()) {
            // Closing would write the stream's buffer a second time, after the parent.
            [[maybe_unused]] const Hpack* const leaked = package.release();
            [[maybe_unused]] const HpackItemWriter* const leakedItem = item.release();
        }
        item.reset();
        package.reset();
        created.reset();
        lock.reset();
        if (const std::shared_ptr<Buffer> used = std::move(buffer)) {
            used->End();
        }
    }

    bool IsOpen() const { return package != nullptr; }

    Hpack& Package() const {
        if (!IsOpen()) {
            throw py::value_error("The package is closed");
        }
        if (IsInherited()) {
            throw py::value_error("The package was opened for changes by another process");
        }
        return *package;
    }

    // For operations that a package that is being created in a file does not allow.
    Hpack& Complete() const {
        Hpack& opened = Package();
        if (createsFile) {
            throw qtX<Hpack>((name + " is being created: close it and open it with 'u'").c_str(),
                             HpackErrors::notUpdating, name);
        }
        return opened;
    }

    // For writing the item with this key.
    Hpack& Writable(const qtString& key) const {
        return createsFile && Package().Contains(key) ? Complete() : Package();
    }

    std::size_t ReadPart(const qtString& key, std::uint64_t from, char* data, std::size_t size) {
        const unsigned int length = BodySize(Complete(), key);
        if (from >= length) {
            return 0;
        }
        const auto count = static_cast<unsigned int>(std::min<std::uint64_t>(size, length - from));
        package->GetPart(key, static_cast<unsigned int>(from), data, count);
        return count;
    }

    // Writes an item in pieces; one item at a time.
    void BeginItem(const qtString& key) {
        Hpack& opened = Writable(key);
        if (item) {
            throw py::value_error("Another item is being written");
        }
        item = std::make_unique<HpackItemWriter>(opened, key);
    }
    void WriteItem(const char* data, std::size_t size) {
        Package();
        if (size > HpackFormat::maxStreamSize) {
            throw qtX<HioErr>((HioErrors::writeFailed + name).c_str(), HioErrors::write, name);
        }
        item->Write(data, static_cast<unsigned int>(size));
    }
    void FinishItem() {
        Package();
        item->Finish();
        item.reset();
    }
    void AbandonItem() {
        if (!IsInherited()) {
            item.reset();
        }
    }

private:
    // Parent and child of a fork would write to the file at the same offsets.
    bool IsInherited() const { return changesFile && generation != ForkGate::Generation(); }

    void Open(Generic32* opened, char mode) {
        const qtPtrLight<Generic32> shared(opened);
        std::unique_ptr<Hpack, QuietDelete> opening(new Hpack);
        opening->Open(shared, mode);
        name = opened->Name();
        package = std::move(opening);
    }

    std::shared_ptr<Buffer> buffer;
    std::optional<FileLock> lock;
    std::optional<AtomicFile> created;
    qtString name;  // the stream's
    std::unique_ptr<Hpack, QuietDelete> package;
    std::unique_ptr<HpackItemWriter> item;
    bool changesFile = false;
    bool createsFile = false;
    const unsigned int generation = ForkGate::Generation();
};

using Writer = Guarded<OpenPackage>;

// Makes a member function from a function of the open package.
template <class Work>
auto OnPackage(Work work) {
    return [work](Writer& self) {
        return self.Use([&](OpenPackage& open) { return work(open.Package()); });
    };
}

// Makes a member function from one that reads or changes an item.
template <class Work>
auto OnItem(Work work) {
    return [work](Writer& self, const Key& key) {
        return self.Use([&](OpenPackage& open) { return work(open.Complete(), key); });
    };
}

// @return false if the file exists
bool CreateEmpty(const qtString& name) {
    const py::gil_scoped_release others;
    try {
        AtomicFile created(name, AtomicFile::Existing::refuse);
        Hpack package;
        package.Open(created.Path(), 'w');
        package.Close();
        created.Commit();
        return true;
    } catch (const SystemError& error) {
        if (error.Number() == EEXIST) {
            return false;
        }
        FailFile(error, HioErrors::open, name);
    }
}

}  // namespace

void DefineWriter(py::module_& module) {
    py::class_<Writer>(module, "Writer")
        .def(py::init([](const std::shared_ptr<Buffer>& buffer, char mode) {
            auto writer = std::make_unique<Writer>();
            buffer->Begin(mode);
            writer->Prepare([&](OpenPackage& open) { open.OpenBuffer(buffer, mode); });
            return writer;
        }))
        .def(py::init([](const qtString& name, char mode) {
            auto writer = std::make_unique<Writer>();
            writer->Prepare([&](OpenPackage& open) { open.OpenFile(name, mode); });
            return writer;
        }))
        .def("close", [](Writer& self) { self.Use([](OpenPackage& open) { open.Close(); }); })
        .def("discard", [](Writer& self) { self.Use([](OpenPackage& open) { open.Discard(); }); })
        .def("is_open",
             [](Writer& self) { return self.Use([](OpenPackage& open) { return open.IsOpen(); }); })
        .def("save", OnPackage([](Hpack& package) { package.SaveIndex(); }))
        .def("count", OnPackage([](Hpack& package) { return package.Count(); }))
        .def("keys",
             [](Writer& self, const Key& from, const std::optional<Key>& to) {
                 return self.Use([&](OpenPackage& open) {
                     std::vector<qtString> keys;
                     const auto append = [&](std::string_view key) { keys.emplace_back(key); };
                     if (to) {
                         open.Package().ForEach(from, *to, append);
                     } else {
                         open.Package().ForEach([&](std::string_view key) {
                             if (key >= std::string_view(from)) {
                                 append(key);
                             }
                         });
                     }
                     return keys;
                 });
             })
        .def("contains",
             [](Writer& self, const Key& key) {
                 return self.Use([&](OpenPackage& open) { return open.Package().Contains(key); });
             })
        .def("get", OnItem([](Hpack& package, const qtString& key) {
                 qtString body;
                 package.GetItem(key, body);
                 return body;
             }))
        .def("get_or",
             [](Writer& self, const Key& key, const py::object& fallback) {
                 const auto body = self.Use([&](OpenPackage& open) -> std::optional<qtString> {
                     if (!open.Package().Contains(key)) {
                         return std::nullopt;
                     }
                     qtString found;
                     open.Complete().GetItem(key, found);
                     return found;
                 });
                 return body ? py::cast(*body) : fallback;
             })
        .def("size", OnItem(&BodySize))
        .def("delete", OnItem([](Hpack& package, const qtString& key) {
                 if (!package.Contains(key)) {
                     package.PositionOnKey(key);  // throws
                 }
                 package.Delete(key);
             }))
        .def("put",
             [](Writer& self, const Key& key, const Body& body) {
                 self.Use([&](OpenPackage& open) { open.Writable(key).AddOrUpdate(key, body); });
             })
        .def("begin_item",
             [](Writer& self, const Key& key) {
                 self.Use([&](OpenPackage& open) { open.BeginItem(key); });
             })
        .def("write_item",
             [](Writer& self, py::handle piece) {
                 const View view(piece);
                 self.Use([&](OpenPackage& open) { open.WriteItem(view.Data(), view.Size()); });
             })
        .def("finish_item",
             [](Writer& self) { self.Use([](OpenPackage& open) { open.FinishItem(); }); })
        .def("abandon_item",
             [](Writer& self) { self.Use([](OpenPackage& open) { open.AbandonItem(); }); })
        .def("read_into",
             [](Writer& self, const Key& key, std::uint64_t from, py::handle into) {
                 const View view(into, PyBUF_WRITABLE);
                 return self.Use([&](OpenPackage& open) {
                     return open.ReadPart(key, from, view.Data(), view.Size());
                 });
             })
        .def("rename",
             [](Writer& self, const Key& from, const Key& to) {
                 self.Use([&](OpenPackage& open) { open.Complete().Rename(from, to); });
             })
        .def("space", OnPackage([](Hpack& package) {
                 unsigned int size = 0;
                 unsigned int dead = 0;
                 package.CalculateDeadSpace(size, dead);
                 return std::make_tuple(size, dead);
             }))
        .def("identity", OnPackage([](Hpack& package) {
                 std::tuple<unsigned int, unsigned short, unsigned char, bool> result;
                 auto& [id, word, flags, old] = result;
                 package.GetFileID(id, word, flags, old);
                 return result;
             }))
        .def("set_identity",
             [](Writer& self, unsigned int id, unsigned short word, unsigned char flags) {
                 self.Use([&](OpenPackage& open) { open.Package().SetFileID(id, word, flags); });
             })
        .def("state", OnPackage([](Hpack& package) {
                 unsigned char state = 0;
                 package.GetState(state);
                 return static_cast<unsigned int>(state);
             }))
        .def("set_state", [](Writer& self, unsigned char state) {
            self.Use([&](OpenPackage& open) { open.Package().SetState(state); });
        });
    module.def("create_empty", &CreateEmpty);
}

}  // namespace vantry_python
