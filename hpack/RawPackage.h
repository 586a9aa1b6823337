#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "basekit/qtString.h"
#include "hpack/Generic32.h"

/// The bytes of a package, looked at without any trust: lengths and offsets are compared with what
/// the stream has before anything is read or allocated. What can not be read is told, not thrown;
/// only lack of memory throws.
class RawPackage {
public:
    struct Header {
        bool whole = false;  ///< all its bytes are there and the magic is one of the three
        bool current = false;
        std::uint32_t magic = 0;
        std::uint32_t size = 0;         ///< of the header; 0 when it is not whole
        std::uint32_t indexOffset = 0;  ///< also of a header with another magic
        std::uint32_t fileID = 0;
        std::uint16_t fileIDWord = 0;
        std::uint8_t fileIDFlags = 0;
        std::uint8_t state = 0;
    };

    /// A record whose lengths stay within the stream.
    struct Record {
        std::uint32_t offset = 0;
        std::uint32_t keyLength = 0;
        std::uint32_t bodyLength = 0;

        std::uint64_t BodyAt() const;
        std::uint64_t End() const { return BodyAt() + bodyLength; }
    };

    struct Entry {
        std::uint32_t keyAt;  ///< in Index::keys
        std::uint32_t keyLength;
        std::uint32_t offset;
    };

    /// As many entries of an index block as are there.
    struct Index {
        std::string_view Key(const Entry& entry) const {
            return std::string_view(keys).substr(entry.keyAt, entry.keyLength);
        }

        bool marked = false;    ///< it begins with the marker
        bool complete = false;  ///< all entries that it counts are there
        std::uint32_t offset = 0;
        std::uint32_t end = 0;  ///< behind the last entry
        std::string keys;
        std::vector<Entry> entries;
    };

    enum class State { whole, beyondEnd, noMarker, otherKey, cut, unreadable };

    /// The stream must outlive the object. @throws what SeekEnd() of the stream throws
    explicit RawPackage(Generic32& stream);

    /// The stream's length, but never more than a package can have.
    std::uint32_t Size() const { return size; }
    bool TooLong() const { return tooLong; }

    /// @return false when the bytes are not there, or can not be read
    bool Read(std::uint64_t offset, char* data, std::uint32_t count);
    bool Word(std::uint64_t offset, std::uint32_t& word);
    /// `text` is empty where it can not be read.
    bool ReadText(std::uint64_t offset, std::uint32_t length, qtString& text);
    bool ReadKey(const Record& record, qtString& key);
    /// Reads what can be read and puts zeros for the rest; the bytes must be there.
    void ReadOrZero(std::uint32_t offset, char* data, std::uint32_t count);

    Header ReadHeader();
    /// Reads a block, marked or not.
    Index ReadIndex(std::uint32_t offset);
    /// Looks at the record with this key. `record` is set when it is whole, and then and for
    /// `otherKey` has the offset and the length of the key.
    State Look(std::uint32_t offset, std::string_view key, Record& record);
    /// The lengths of the record that is marked at `offset`. @return false when it is cut
    bool Measure(std::uint32_t offset, Record& record);
    bool HasKey(std::uint64_t keyAt, std::string_view key);

private:
    bool ReadDirectly(std::uint32_t offset, char* data, std::uint32_t count);

    Generic32& stream;
    std::uint32_t size = 0;
    bool tooLong = false;
    std::vector<char> window;  // the latest bytes, for reads of a few
    std::uint32_t windowStart = 0;
    std::uint32_t windowLength = 0;
};
