#include <algorithm>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "hpack/Hfile32.h"
#include "hpack/Hmemory.h"
#include "hpack/Hpack.h"
#include "hpack/HpackFormat.h"
#include "python/Buffer.h"
#include "python/Convert.h"
#include "python/Guarded.h"

namespace {

// Nobody is left to be told when the file of a discarded package fails to close.
struct QuietDelete {
    void operator()(Hpack* package) const noexcept {
        try {
            delete package;
        } catch (const qtxAll&) {
        }
    }
};

// A file that errors report by the name that it will have.
class RenamedFile : public Hfile32 {
public:
    void OpenAs(const qtString& shown, const qtString& path, char mode) {
        name = shown;
        try {
            Open(path, mode);
        } catch (const qtX<HioErr>& error) {
            throw qtX<HioErr>((HioErrors::cannotOpen + shown).c_str(), error.Number(), shown);
        }
        name = shown;
    }
};

// An open package, with its stream, so that parts of bodies can be read.
class OpenPackage {
public:
    ~OpenPackage() { Discard(); }

    void OpenFile(const qtString& shown, const qtString& path, char mode) {
        auto file = std::make_unique<RenamedFile>();
        file->OpenAs(shown, path, mode);
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
        if (IsOpen()) {
            Package().Close();
            Discard();
        }
    }

    void Discard() noexcept {
        if (IsOpen() && IsInherited()) {
            // Closing would write what the stream has buffered, which the other process does.
            [[maybe_unused]] const Hpack* const leaked = package.release();
        }
        package.reset();
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

    // For what a package that is being created in a file does not allow: to read, and to change.
    Hpack& Complete() const {
        Hpack& opened = Package();
        if (createsFile) {
            const qtString& name = stream->Name();
            throw qtX<Hpack>((name + " is being created: close it and open it with 'u'").c_str(),
                             HpackErrors::notUpdating, name);
        }
        return opened;
    }

    // For writing the item of this key.
    Hpack& Writable(const qtString& key) const {
        return createsFile && Package().Contains(key) ? Complete() : Package();
    }

    std::size_t ReadPart(const qtString& key, std::uint64_t from, char* data, std::size_t size) {
        Complete().PositionOnKey(key);
        char word[HpackFormat::wordSize];
        stream->Read(word, sizeof word);
        const std::uint32_t length = HpackFormat::Word(word);
        if (from >= length) {
            return 0;
        }
        const auto count = static_cast<unsigned int>(std::min<std::uint64_t>(size, length - from));
        // A damaged length may lead beyond the end.
        const std::uint64_t start = stream->Tell() + from;
        stream->Seek(static_cast<int>(std::min<std::uint64_t>(start, HpackFormat::maxStreamSize)));
        stream->Read(data, count);
        return count;
    }

private:
    // A child of the process that changes a file would write to it at the same offsets.
    bool IsInherited() const { return changesFile && generation != ForkGate::Generation(); }

    void Open(Generic32* opened, char mode) {
        const qtPtrLight<Generic32> shared(opened);
        std::unique_ptr<Hpack, QuietDelete> opening(new Hpack);
        opening->Open(shared, mode);
        stream = opened;
        package = std::move(opening);
    }

    std::shared_ptr<Buffer> buffer;
    Generic32* stream = nullptr;  // the package's
    std::unique_ptr<Hpack, QuietDelete> package;
    bool changesFile = false;
    bool createsFile = false;
    const unsigned int generation = ForkGate::Generation();
};

using Package = Guarded<OpenPackage>;

unsigned int BodySize(Hpack& package, const qtString& key) {
    unsigned int offset = 0;
    unsigned int size = 0;
    package.GetKeyInfo(key, offset, size);
    if (offset == 0) {
        package.PositionOnKey(key);  // throws
    }
    return size;
}

void WriteSegments(Hpack& package, const qtString& key, const SegBuf& body) {
    unsigned int offset = 0;
    unsigned int size = 0;
    package.GetKeyInfo(key, offset, size);
    package.AddAtOffset(key, body, body.size <= size ? offset : 0);
}

void AppendSegment(SegBuf& body, py::handle data) {
    const View view(data);
    const unsigned int start = body.size;
    const std::uint64_t end = std::uint64_t{start} + view.Size();
    if (end > HpackFormat::maxStreamSize) {
        throw py::value_error("A package ends below 2^31 bytes");
    }
    body.Grow(static_cast<unsigned int>(end));
    const char* next = view.Data();
    for (unsigned int at = start, run = 0; at < body.size; at += run, next += run) {
        char* where = nullptr;
        body.Locate(at, body.size, where, run);
        std::copy(next, next + run, where);
    }
}

// A member that is called with the open package, and what it returns.
template <class Work>
auto OnPackage(Work work) {
    return [work](Package& self) {
        return self.Use([&](OpenPackage& open) { return work(open.Package()); });
    };
}

// A member that is called with the package and a key, and reads or changes the item.
template <class Work>
auto OnItem(Work work) {
    return [work](Package& self, const Key& key) {
        return self.Use([&](OpenPackage& open) { return work(open.Complete(), key); });
    };
}

}  // namespace

void DefinePackage(py::module_& module) {
    py::class_<Buffer, std::shared_ptr<Buffer>>(module, "Buffer")
        .def(py::init([](const Body& content) { return std::make_shared<Buffer>(content); }))
        .def("content",
             [](const Buffer& self) {
                 return py::bytes(self.Content().Data(), self.Content().Length());
             })
        .def("size", [](const Buffer& self) { return self.Content().Length(); });

    py::class_<SegBuf>(module, "Segments").def(py::init<>()).def("append", &AppendSegment);

    py::class_<Package>(module, "Package")
        .def(py::init([](const std::shared_ptr<Buffer>& buffer, char mode) {
            auto package = std::make_unique<Package>();
            buffer->Begin(mode);
            package->Prepare([&](OpenPackage& open) { open.OpenBuffer(buffer, mode); });
            return package;
        }))
        .def(py::init([](const qtString& shown, const qtString& path, char mode) {
            auto package = std::make_unique<Package>();
            package->Prepare([&](OpenPackage& open) { open.OpenFile(shown, path, mode); });
            return package;
        }))
        .def("close", [](Package& self) { self.Use([](OpenPackage& open) { open.Close(); }); })
        .def("discard", [](Package& self) { self.Use([](OpenPackage& open) { open.Discard(); }); })
        .def(
            "is_open",
            [](Package& self) { return self.Use([](OpenPackage& open) { return open.IsOpen(); }); })
        .def("save", OnPackage([](Hpack& package) { package.SaveIndex(); }))
        .def("count", OnPackage([](Hpack& package) { return package.Count(); }))
        .def("keys", OnPackage([](Hpack& package) {
                 std::vector<qtString> keys;
                 package.GetIndex(keys);
                 return keys;
             }))
        .def("contains",
             [](Package& self, const Key& key) {
                 return self.Use([&](OpenPackage& open) { return open.Package().Contains(key); });
             })
        .def("get", OnItem([](Hpack& package, const qtString& key) {
                 qtString body;
                 package.GetItem(key, body);
                 return body;
             }))
        .def("size", OnItem(&BodySize))
        .def("delete", OnItem([](Hpack& package, const qtString& key) {
                 if (!package.Contains(key)) {
                     package.PositionOnKey(key);  // throws
                 }
                 package.Delete(key);
             }))
        .def("put",
             [](Package& self, const Key& key, const Body& body) {
                 self.Use([&](OpenPackage& open) { open.Writable(key).AddOrUpdate(key, body); });
             })
        .def("put_segments",
             [](Package& self, const Key& key, const SegBuf& body) {
                 self.Use([&](OpenPackage& open) { WriteSegments(open.Writable(key), key, body); });
             })
        .def("read_into",
             [](Package& self, const Key& key, std::uint64_t from, py::handle into) {
                 const View view(into, PyBUF_WRITABLE);
                 return self.Use([&](OpenPackage& open) {
                     return open.ReadPart(key, from, view.Data(), view.Size());
                 });
             })
        .def("rename",
             [](Package& self, const Key& from, const Key& to) {
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
             [](Package& self, unsigned int id, unsigned short word, unsigned char flags) {
                 self.Use([&](OpenPackage& open) { open.Package().SetFileID(id, word, flags); });
             })
        .def("state", OnPackage([](Hpack& package) {
                 unsigned char state = 0;
                 package.GetState(state);
                 return static_cast<unsigned int>(state);
             }))
        .def("set_state", [](Package& self, unsigned char state) {
            self.Use([&](OpenPackage& open) { open.Package().SetState(state); });
        });
}
