#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "basekit/qtBuffer.h"
#include "basekit/qtPtr.h"
#include "basekit/qtString.h"
#include "hpack/Hio.h"
#include "hpack/Hpack.h"
#include "hpack/HpackCodec.h"
#include "hpack/HpackErrors.h"
#include "hpack/HpackIndex.h"

namespace vantry_internal {

/// The state of a package object, and the steps that Hpack and HpackItemWriter share: finding a
/// record, writing one, saving the index. Their contracts are those of hpack/Hpack.h.
class PackageCore {
public:
    static PackageCore& Of(const Hpack& package) { return package.Core(); }

    /// Closed, on a closed stream: every operation then fails as the stream does.
    PackageCore();

    /// Closes, without saving, and uses `stream` from now on. Throws what closing the former stream
    /// throws; `stream` is then closed, too.
    void Replace(const qtPtrLight<Generic32>& stream);
    /// Forgets what belongs to one opening, all but the stream and its header.
    void Reset(char mode);

    /// @name Reading
    /// @{
    void SeekTo(std::uint64_t offset);
    /// Whether the stream has at least `end` bytes. The stream is asked only if that is not known.
    bool Holds(std::uint64_t end);
    void PositionOnKey(const qtString& key);
    /// Finds a body and leaves the stream at its start.
    /// @return its record; the body length is the stored one
    HpackRecord FindBody(const qtString& key);
    /// The same, for a caller that allocates the length: at most one byte more than the stream has.
    /// Reading that fails just as well as reading the stored length.
    unsigned int FindBodyToAllocate(const qtString& key);
    /// Reads all of a body, in pieces, to see that it can be read. The stream stands at its start.
    /// @return the last piece, which is the entire body if that is not larger than a piece
    std::string ReadThrough(const HpackRecord& record);
    /// Reads the body length of a record whose other fields are set.
    /// @throws the stream's reading error if it lies beyond the end
    void ReadBodyLength(HpackRecord& record);
    HpackBlockStart ReadBlockStart();
    /// @}

    /// @name Writing a record
    /// @{

    /// A record that is to be written.
    struct NewRecord {
        const qtString& key;
        std::uint64_t bodyLength;
        unsigned int offset;           ///< 0: at the end
        bool keepsEntry = false;       ///< known to have an entry in the index
        std::uint64_t freedIndex = 0;  ///< what the same change removes from the index, in bytes
    };
    /// Writes a record: the head, then what writeBody() writes. Then the index has its key.
    template <class WriteBody>
    void WriteRecord(const NewRecord& record, WriteBody writeBody) {
        try {
            const std::uint64_t at = BeginRecord(record);
            writeBody();
            EndRecord(record, at);
        } catch (...) {
            writeFailed = true;
            throw;
        }
    }
    /// Writes the head. @return the record's offset
    std::uint64_t BeginRecord(const NewRecord& record);
    /// Enters the key, once the record is complete.
    void EndRecord(const NewRecord& record, std::uint64_t at);
    /// Appends the room for a head, without marking a record there. @return its offset
    std::uint64_t ReserveRecord(const NewRecord& record);
    /// Writes the head into that room, once the body is complete, and enters the key.
    void CompleteRecord(const NewRecord& record, std::uint64_t at);
    /// Refuses what the stream has not written up to `end`: it drops writes.
    void RequireWrittenTo(std::uint64_t end) const;
    /// Refuses a record that ends at `end` if the index then does not fit below the last offset.
    /// @param reservationLost the index may no longer go where it was reserved
    void RequireRoom(const NewRecord& record, std::uint64_t end, bool reservationLost);
    /// Writes the body of `record` at the current offset, which is not after the body's own.
    /// Allocates nothing.
    /// @param piece what ReadThrough() returned
    void CopyBody(const HpackRecord& record, std::string& piece);
    /// @}

    /// Transfers bytes at the stream's current offset; without a call of the stream for no bytes.
    /// @{
    void Read(char* data, std::size_t count);
    void Write(const char* data, std::size_t count);
    /// @}

    /// @name The index
    /// @{
    std::uint64_t IndexSize() const { return HpackFormat::indexOverhead + index.Bytes(); }
    unsigned int ReadIndex();
    /// Writes an index block at `at`, then its offset into the header.
    void WriteIndexAt(std::uint64_t at);
    void WriteIndex(unsigned int offset);
    void SaveIndex();
    /// The size of all records that the index leads to.
    std::uint64_t RecordBytes();
    /// @}

    std::uint64_t Size() { return io.stream->SeekEnd(); }

    /// @name Errors
    /// @{
    void RequireUpdateMode() const;
    [[noreturn]] void FailWithStream(const char* text, HpackErrors::Number number) const;
    [[noreturn]] void FailIndex() const;
    [[noreturn]] void FailKey(const char* text, const qtString& key) const;
    /// As the stream refuses what it cannot write, or fails to read.
    /// @{
    [[noreturn]] void RefuseWrite() const;
    [[noreturn]] void FailRead() const;
    /// @}
    /// @}

    Hio<Generic32> io;
    HpackHeader header;            // its index offset is where the next save writes if it fits
    std::uint64_t indexSpace = 0;  // bytes reserved there
    std::uint64_t savedAt = 0;  // the header leads there, to the index as last read or saved; or 0
    std::uint64_t savedSize = 0;
    HpackIndex index;
    bool writeFailed = false;  // since the last save: the stream may drop writes and not say so
    bool modified = false;
    bool isOpen = false;
    char openMode = 0;          // as last asked for; 0: closed
    unsigned int openings = 0;  // changes when another stream is opened or this one closed
    qtPtr<qtBuffer> sharedBuffer;

private:
    std::uint64_t PositionForRecord(const NewRecord& record);
    void EnterRecord(const NewRecord& record, std::uint64_t at);
    void WriteHead(const NewRecord& record);
    bool IsIndexSaved();
    bool SaveMovesIndex() const;
    [[noreturn]] void FailAsStream(HioErrors::Number number, const char* ofBuffer,
                                   const char* ofFile) const;

    std::string recordHead;  // the part of a record before the body, read or about to be written
    std::uint64_t knownSize = 0;  // the stream has been seen to be at least this long
};

}  // namespace vantry_internal
