#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "basekit/qtString.h"
#include "hpack/Generic32.h"
#include "hpack/HpackCodec.h"

namespace vantry_internal {

/// Calls the user's function once per `interval` units of work, so that long work can be canceled.
/// A unit is about a comparison, or a few bytes read.
class Poll {
public:
    explicit Poll(std::function<void()> userFunction = {}) : function(std::move(userFunction)) {}

    void operator()(std::uint64_t cost = 1) {
        work += cost;
        if (work >= interval) {
            work = 0;
            if (function) {
                function();
            }
        }
    }

private:
    static constexpr std::uint64_t interval = 1 << 18;

    std::function<void()> function;
    std::uint64_t work = 0;
};

/// Reads the bytes of a package without trusting them: lengths and offsets are compared with the
/// stream's length before anything is read or allocated. Unreadable bytes are reported, not thrown;
/// only std::bad_alloc and the exceptions of `Poll` are thrown.
class RawPackage {
public:
    struct Header : HpackHeader {
        /// The size in bytes; 0 if the header is cut or its magic is unknown. The index offset is
        /// set nevertheless.
        std::uint32_t size = 0;
    };

    /// A record whose lengths stay within the stream.
    using Record = HpackRecord;

    struct Entry {
        std::uint32_t keyAt;  ///< in Index::keys
        std::uint32_t keyLength;
        std::uint32_t offset;
    };

    /// The entries of an index block, as many as can be read.
    struct Index {
        std::string_view Key(const Entry& entry) const {
            return std::string_view(keys).substr(entry.keyAt, entry.keyLength);
        }

        bool marked = false;    ///< it begins with the marker
        bool complete = false;  ///< it has as many entries as it counts
        std::uint32_t offset = 0;
        std::uint32_t end = 0;  ///< the offset after the last entry
        std::string keys;
        std::vector<Entry> entries;
    };

    enum class State { complete, beyondEnd, noMarker, otherKey, cut, unreadable };

    /// The stream must outlive the object.
    /// @throws what SeekEnd() of the stream throws
    explicit RawPackage(Generic32& stream, Poll poll = Poll());

    /// The stream's length, limited to that of the largest package.
    std::uint32_t Size() const { return size; }
    bool TooLong() const { return tooLong; }
    Poll& Polled() { return poll; }

    /// @return false if the bytes do not exist or cannot be read
    bool Read(std::uint64_t offset, char* data, std::uint32_t count);
    bool Word(std::uint64_t offset, std::uint32_t& word);
    /// Sets `text` to nothing if it cannot be read.
    bool ReadText(std::uint64_t offset, std::uint32_t length, qtString& text);
    bool ReadKey(const Record& record, qtString& key);
    /// Reads what it can and sets unreadable sectors to zeros. The bytes must exist.
    void ReadOrZero(std::uint32_t offset, char* data, std::uint32_t count);

    Header ReadHeader();
    /// Reads a block, whether it has its marker or not.
    Index ReadIndex(std::uint32_t offset);
    /// Examines the record of `key` at `offset`. `record` is set if the record is complete; for
    /// `otherKey` its offset and key length are.
    State Look(std::uint32_t offset, std::string_view key, Record& record);
    /// Reads the lengths of the record that is marked at `offset`. @return false if it is cut
    bool Measure(std::uint32_t offset, Record& record);
    bool HasKey(std::uint64_t keyAt, std::string_view key);

private:
    bool ReadDirectly(std::uint32_t offset, char* data, std::uint32_t count);
    const char* Page(std::uint32_t number);

    static constexpr std::uint32_t noPage = 0xffffffff;

    Generic32& stream;
    Poll poll;
    std::uint32_t size = 0;
    bool tooLong = false;
    std::vector<char> pages;                 // direct-mapped: hostile lengths lead anywhere
    std::vector<std::uint32_t> pageNumbers;  // of each slot, or noPage
};

}  // namespace vantry_internal
