#include <sys/types.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>
#include <tuple>
#include <vector>

#include "hpack/Hpack.h"
#include "hpack/HpackCodec.h"
#include "python/Convert.h"
#include "python/Guarded.h"

// Packages that are read through a Python file object, where each read may be a request to another
// machine: one for the header, one for the index, and one for each item.

using namespace HpackFormat;
using namespace vantry_internal;

namespace vantry_python {

namespace {

// A file object. Its methods are called with the interpreter's lock, by one thread at a time.
class FileObject {
public:
    FileObject(py::object file, const qtString& fileName)
        : object(std::move(file)), name(fileName) {
        size = py::cast<std::uint64_t>(object.attr("seek")(0, SEEK_END));
    }
    ~FileObject() {
        const py::gil_scoped_acquire interpreter;
        object.release().dec_ref();
    }
    FileObject(const FileObject&) = delete;
    FileObject& operator=(const FileObject&) = delete;

    const qtString& Name() const { return name; }
    std::uint64_t Size() const { return size; }

    // Reads `count` bytes at an offset, in one call unless the object returns less.
    void Read(std::uint64_t offset, char* data, std::uint64_t count) const {
        if (offset + count > size) {
            FailRead();
        }
        const py::gil_scoped_acquire interpreter;
        object.attr("seek")(offset);
        // The object may keep a reference to what it reads into, so Python owns that.
        const auto room = py::reinterpret_steal<py::object>(
            PyByteArray_FromStringAndSize(nullptr, static_cast<Py_ssize_t>(count)));
        if (!room) {
            throw py::error_already_set();
        }
        for (std::uint64_t have = 0; have != count;) {
            const py::object rest = py::memoryview(room)[py::slice(
                static_cast<py::ssize_t>(have), static_cast<py::ssize_t>(count), 1)];
            const py::object read = object.attr("readinto")(rest);
            const std::uint64_t got = read.is_none() ? 0 : py::cast<std::uint64_t>(read);
            if (got == 0 || got > count - have) {
                FailRead();
            }
            have += got;
        }
        const View view(room);
        if (view.Size() != count) {
            FailRead();
        }
        std::memcpy(data, view.Data(), view.Size());
    }

    [[noreturn]] void FailRead() const {
        throw qtX<HioErr>((HioErrors::readFailed + name).c_str(), HioErrors::read, name);
    }

private:
    py::object object;
    qtString name;
    std::uint64_t size = 0;
};

class RemotePackage {
public:
    void Open(const py::object& object, const qtString& name) {
        {
            const py::gil_scoped_acquire interpreter;
            file = std::make_unique<FileObject>(object, name);
        }
        ReadHeader();
        if (header.indexOffset != 0) {
            ReadIndex();
        }
    }

    void Close() {
        file = nullptr;
        entries.clear();
        block.reset();
    }
    bool IsOpen() const { return file != nullptr; }
    const HpackHeader& Header() const {
        RequireOpen();
        return header;
    }

    std::size_t Count() const {
        RequireOpen();
        return entries.size();
    }

    std::vector<qtString> Keys(std::string_view from, const std::optional<Key>& to) const {
        RequireOpen();
        std::vector<qtString> keys;
        for (auto entry = LowerBound(from);
             entry != entries.end() && (!to || entry->key < std::string_view(*to)); ++entry) {
            keys.emplace_back(entry->key);
        }
        return keys;
    }

    bool Contains(std::string_view key) const {
        RequireOpen();
        const auto entry = LowerBound(key);
        return entry != entries.end() && entry->key == key;
    }

    // Returns the length of the body, and stores the body in `body` unless it is null.
    std::uint32_t Read(const qtString& key, qtString* body) const {
        const Entry& entry = Find(key);
        const std::uint64_t headSize = RecordHeadSize(key.size());
        if (entry.offset > maxStreamSize) {
            const qtString& name = file->Name();
            throw qtX<HioErr>((HioErrors::seekFailed + name).c_str(), HioErrors::position, name);
        }
        if (entry.offset + headSize > file->Size()) {
            file->FailRead();
        }
        // Reads up to the next record at once, unless much of that may be dead space.
        constexpr std::uint64_t maxRequest = std::uint64_t{16} << 20;
        const std::uint64_t room = std::max(entry.end, entry.offset) - entry.offset;
        std::vector<char> record(static_cast<std::size_t>(
            body == nullptr || room > maxRequest ? headSize : std::max(room, headSize)));
        file->Read(entry.offset, record.data(), record.size());
        const std::uint32_t length = CheckRecord(key, entry.offset, record.data());
        if (entry.offset + headSize + length > file->Size()) {
            file->FailRead();
        }
        if (body != nullptr) {
            const std::uint64_t present = std::min<std::uint64_t>(record.size() - headSize, length);
            body->resize(length);
            std::copy_n(record.data() + headSize, present, body->data());
            if (present < length) {
                file->Read(entry.offset + headSize + present, body->data() + present,
                           length - present);
            }
        }
        return length;
    }

    std::size_t ReadPart(const qtString& key, std::uint64_t from, char* data, std::size_t count) {
        // Successive parts are mostly of one item: its head is read once.
        if (!checked || checked->first != key) {
            const std::uint32_t found = Read(key, nullptr);
            checked = {key, found};
        }
        const std::uint32_t length = checked->second;
        if (from >= length) {
            return 0;
        }
        const std::uint64_t part = std::min<std::uint64_t>(count, length - from);
        file->Read(Find(key).offset + RecordHeadSize(key.size()) + from, data, part);
        return static_cast<std::size_t>(part);
    }

private:
    struct Entry {
        std::string_view key;
        std::uint64_t offset;
        std::uint64_t end;  // the next record or the index begins there at the earliest
    };

    void RequireOpen() const {
        if (!IsOpen()) {
            throw py::value_error("The package is closed");
        }
    }

    [[noreturn]] void Fail(HpackErrors::Number number, const char* text) const {
        throw qtX<Hpack>((text + file->Name()).c_str(), number, file->Name());
    }
    [[noreturn]] void FailKey(const char* text, const qtString& key) const {
        throw qtX<Hpack>((text + key).c_str(), HpackErrors::key, file->Name(), key);
    }

    void ReadHeader() {
        char bytes[headerSize] = {};
        file->Read(0, bytes, std::min<std::uint64_t>(headerSize, file->Size()));
        header = DecodeHeaderStart(bytes);
        if (file->Size() < oldHeaderSize) {
            file->FailRead();
        }
        if (header.Size() == 0) {
            Fail(HpackErrors::format, HpackErrors::notExpectedFormat);
        }
        if (file->Size() < header.Size()) {
            file->FailRead();
        }
        if (header.IsCurrent()) {
            DecodeIdentity(bytes + fileIDAt, header);
        }
    }

    // The length of the index is unknown; mostly it ends the file. If much data follows it, it is
    // read in pieces, which double the size each time.
    void ReadIndex() {
        constexpr std::uint64_t firstRequest = std::uint64_t{32} << 20;
        const std::uint64_t start = header.indexOffset;
        if (start > maxStreamSize || start + indexOverhead > file->Size()) {
            Fail(HpackErrors::indexUnreadable, HpackErrors::cannotReadIndex);
        }
        const std::uint64_t most = file->Size() - start;
        std::uint64_t have = std::min(most, firstRequest);
        block.reset(new char[static_cast<std::size_t>(have)]);
        file->Read(start, block.get(), have);
        const HpackBlockStart found = DecodeBlockStart(block.get());
        if (found.magic != IndexMagic) {
            Fail(HpackErrors::indexUnreadable, HpackErrors::cannotReadIndex);
        }
        while (!Parse(found.count, have)) {
            if (have == most) {
                file->FailRead();
            }
            const std::uint64_t more = std::min(most, 2 * have);
            std::unique_ptr<char[]> longer(new char[static_cast<std::size_t>(more)]);
            std::memcpy(longer.get(), block.get(), static_cast<std::size_t>(have));
            file->Read(start + have, longer.get() + have, more - have);
            block = std::move(longer);
            have = more;
        }
        SortEntries();
    }

    bool Parse(std::uint32_t count, std::uint64_t have) {
        entries.clear();
        std::uint64_t at = indexOverhead;
        for (HpackIndexEntry entry; count != 0; --count) {
            if (!DecodeIndexEntry(block.get() + at, have - at, entry)) {
                return false;
            }
            entries.push_back({entry.key, entry.offset, 0});
            at += IndexEntrySize(entry.key.size());
        }
        return true;
    }

    // Sorts by key; of equal keys the last one counts.
    void SortEntries() {
        std::vector<std::uint64_t> starts{header.indexOffset, file->Size()};
        for (const Entry& entry : entries) {
            starts.push_back(entry.offset);
        }
        std::sort(starts.begin(), starts.end());
        for (Entry& entry : entries) {
            const auto next = std::upper_bound(starts.begin(), starts.end(), entry.offset);
            entry.end = next == starts.end() ? file->Size() : std::min(*next, file->Size());
        }
        const auto byKey = [](const Entry& a, const Entry& b) { return a.key < b.key; };
        if (!std::is_sorted(entries.begin(), entries.end(), byKey)) {
            std::stable_sort(entries.begin(), entries.end(), byKey);
        }
        const auto sameKey = [](const Entry& a, const Entry& b) { return a.key == b.key; };
        entries.erase(entries.begin(),
                      std::unique(entries.rbegin(), entries.rend(), sameKey).base());
    }

    std::vector<Entry>::const_iterator LowerBound(std::string_view key) const {
        return std::lower_bound(
            entries.begin(), entries.end(), key,
            [](const Entry& entry, std::string_view other) { return entry.key < other; });
    }

    const Entry& Find(const qtString& key) const {
        if (!Contains(key)) {
            FailKey(HpackErrors::missingKey, key);
        }
        return *LowerBound(key);
    }

    // @return the length of the body
    std::uint32_t CheckRecord(const qtString& key, std::uint64_t offset, const char* record) const {
        const HpackBlockStart start = DecodeBlockStart(record);
        if (start.magic != ItemMagic) {
            FailKey(HpackErrors::invalidItem, key);
        }
        if (offset + RecordHeadSize(start.count) - wordSize > file->Size()) {
            file->FailRead();
        }
        if (start.count != key.size() ||
            std::string_view(record + recordKeyAt, key.size()) != std::string_view(key)) {
            FailKey(HpackErrors::wrongItem, key);
        }
        return Word(record + recordKeyAt + key.size());
    }

    std::unique_ptr<FileObject> file;
    HpackHeader header;
    std::optional<std::pair<qtString, std::uint32_t>>
        checked;  // the last key read in parts, and its body's length
    std::unique_ptr<char[]> block;
    std::vector<Entry> entries;  // their keys are in the block
};

using Source = Guarded<RemotePackage>;

// A member that is called with the package and a key.
template <class Work>
auto OnKey(Work work) {
    return [work](Source& self, const Key& key) {
        return self.Use([&](RemotePackage& package) { return work(package, key); });
    };
}

}  // namespace

void DefineSource(py::module_& module) {
    py::class_<Source>(module, "Source")
        .def(py::init([](const py::object& file, const qtString& name) {
            auto source = std::make_unique<Source>();
            source->Prepare([&](RemotePackage& package) { package.Open(file, name); });
            return source;
        }))
        .def("close",
             [](Source& self) { self.Use([](RemotePackage& package) { package.Close(); }); })
        .def("discard",
             [](Source& self) { self.Use([](RemotePackage& package) { package.Close(); }); })
        .def("is_open",
             [](Source& self) {
                 return self.Use([](RemotePackage& package) { return package.IsOpen(); });
             })
        .def("count",
             [](Source& self) {
                 return self.Use([](RemotePackage& package) { return package.Count(); });
             })
        .def("keys",
             [](Source& self, const Key& from, const std::optional<Key>& to) {
                 return self.Use([&](RemotePackage& package) { return package.Keys(from, to); });
             })
        .def("contains", OnKey([](const RemotePackage& package, const qtString& key) {
                 return package.Contains(key);
             }))
        .def("get", OnKey([](const RemotePackage& package, const qtString& key) {
                 qtString body;
                 package.Read(key, &body);
                 return body;
             }))
        .def("get_or",
             [](Source& self, const Key& key, const py::object& fallback) {
                 const auto body =
                     self.Use([&](const RemotePackage& package) -> std::optional<qtString> {
                         if (!package.Contains(key)) {
                             return std::nullopt;
                         }
                         qtString found;
                         package.Read(key, &found);
                         return found;
                     });
                 return body ? py::cast(*body) : fallback;
             })
        .def("size", OnKey([](const RemotePackage& package, const qtString& key) {
                 return package.Read(key, nullptr);
             }))
        .def("read_into",
             [](Source& self, const Key& key, std::uint64_t from, py::handle into) {
                 const View view(into, PyBUF_WRITABLE);
                 return self.Use([&](RemotePackage& package) {
                     return package.ReadPart(key, from, view.Data(), view.Size());
                 });
             })
        .def("identity",
             [](Source& self) {
                 return self.Use([](RemotePackage& package) {
                     const HpackHeader& header = package.Header();
                     return std::make_tuple(header.fileID, header.fileIDWord, header.fileIDFlags,
                                            header.IsOld());
                 });
             })
        .def("state", [](Source& self) {
            return self.Use(
                [](RemotePackage& package) -> unsigned int { return package.Header().state; });
        });
}

}  // namespace vantry_python
