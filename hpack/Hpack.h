#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "QtInclude/SegBuf.h"
#include "basekit/qtBuffer.h"
#include "basekit/qtPtr.h"
#include "basekit/qtString.h"
#include "hpack/Generic32.h"
#include "hpack/HpackErrors.h"
#include "hpack/qtPtrLight.h"

namespace vantry_internal {
class PackageCore;
}

/// How the bytes of a package are used. All figures are bytes.
struct HpackLayout {
    /// Bytes that neither the header nor the index block nor a record occupies. 0 if, in a damaged
    /// package, records overlap so that they add up to more than the size.
    std::uint64_t DeadSpace() const {
        const std::uint64_t live = std::uint64_t{headerSize} + indexSize + recordBytes;
        return live < size ? size - live : 0;
    }

    std::uint32_t size = 0;         ///< of the stream
    std::uint32_t headerSize = 0;   ///< 16, or 8 in an old format
    std::uint32_t indexOffset = 0;  ///< of the index block in the stream; 0 if there is none
    std::uint32_t indexSize = 0;    ///< of that block
    std::uint64_t recordBytes = 0;  ///< of all records that the index leads to
};

/// A package: any number of named items (opaque byte strings) in one file or one memory buffer, and
/// an index from the item's name (the key) to the item.
///
///     Hpack package;
///     package.Open("letters.hpk", 'w');
///     package.AddOrUpdate("alpha", "the first letter");
///     package.Close();
///
///     package.Open("letters.hpk", 'u');
///     qtString body;
///     package.GetItem("alpha", body);
///     package.Rename("alpha", "a");
///     package.Close();
///
/// Keys and bodies are any bytes, including none and NUL. A package never moves what it holds: a
/// new version of an item overwrites the old one if it fits, and is appended otherwise. GetLayout()
/// and CalculateDeadSpace() report how many bytes are lost to that. hpack/HpackFormat.h has the
/// layout.
///
/// What is easy to get wrong:
/// - Changes reach the index in the stream only by Close(), SaveIndex() and CalculateDeadSpace(). A
///   package that is destroyed without Close() keeps the index of its last save. One that was
///   created with mode 'w' and never closed has no index: its items are lost to readers.
/// - A file that is created with mode 'w' is open for writing only. Adding a key a second time has
///   to read the first version and fails there with stream error 3. Collect the bodies first, or
///   close the package and open it with mode 'u'.
/// - The errors derive from qtxAll, not from std::exception: `catch (const std::exception&)` does
///   not catch them.
/// - The destructor throws if closing a file fails. A class that holds a Hpack and derives from one
///   with a destructor that does not throw must declare its own destructor noexcept; a failure then
///   ends the process, as it does in a std::unique_ptr<Hpack> or a container. Call Close() first.
///
/// Errors are qtX<Hpack> (hpack/HpackErrors.h has numbers and texts) and, passed through from the
/// stream, qtX<HioErr> (hpack/HioErrors.h). Every function may throw std::bad_alloc; then nothing
/// has changed. A lookup or read that fails changes nothing but the stream's offset. Functions that
/// write change the index only after the record is complete in the stream.
///
/// A package object serves one thread at a time, and const functions are no exception: lookups
/// update caches. Several objects may read one file at once. The library takes no lock.
///
/// Outside of Open() and Close(), functions fail as on a closed stream, or with error 5.
class VANTRY_EXPORT Hpack {
public:
    /// A closed package.
    Hpack();
    /// Takes the package over from `other`, which is then a closed package.
    Hpack(Hpack&& other) noexcept;
    /// Closes the stream without saving. Throws if that fails, unless another exception is
    /// propagating.
    ~Hpack() noexcept(false);
    Hpack(const Hpack&) = delete;
    Hpack& operator=(const Hpack&) = delete;

    /// @name Opening and closing
    /// Modes: 'r' reads an existing package; 'u' reads and changes one; 'w' creates one and
    /// replaces an existing file or the former bytes of a buffer. An open package is closed first,
    /// without saving.
    /// @throws qtX<Hpack> 0 "Input file does not have an index" (mode 'u'),
    ///         1 "Cannot read file index: NAME", 2 "Invalid open mode" (not a file),
    ///         3 "Input file is not in expected format: NAME"
    /// @throws qtX<HioErr> what opening and reading the stream throws; 5 "Invalid open mode" (a
    ///         file). If the file cannot be opened the object is unchanged. If the former stream
    ///         fails to close, both streams are closed. After any other failure IsOpen() is false,
    ///         and Close() releases the new stream.
    /// @{

    /// Opens the file of this name.
    void Open(const qtString& fileName, char mode);
    /// Opens a package in the caller's buffer, which is shared until Close(). After a failure the
    /// buffer is not shared, and never touched again.
    /// @throws qtX<HioErr> 0 "Cannot open file: qtBuffer" for an empty pointer
    void Open(qtPtr<qtBuffer>& buffer, char mode);
    /// Opens a package on any stream that stands at offset 0; in mode 'w' it must be empty.
    /// @throws qtX<HioErr> 0 "Cannot open file: " for an empty pointer
    void Open(const qtPtrLight<Generic32>& stream, char mode);

    /// Saves a changed index, closes the stream and clears the index. Does nothing if the package
    /// is not open.
    /// @throws what SaveIndex() throws. The package then stays open, in mode 'u', with its changes.
    ///         Close() may be called again, and succeeds only once the stream holds everything.
    /// @throws qtX<HioErr> what closing the stream throws; the package is closed nevertheless
    void Close();

    /// Whether Open() has succeeded and Close() has not been called since.
    bool IsOpen() const;

    /// The step of opening that reads or creates header and index; Open() calls it.
    void VerifyOpen(char mode);
    /// Reads the header at the stream's current offset.
    /// @throws qtX<Hpack> 3; what the stream throws
    void ReadMagic();
    /// Reads the index. @return its offset, 0 if there is none
    /// @throws qtX<Hpack> 1; what the stream throws for an entry. The entries before it are then in
    ///         the index.
    unsigned int ReadIndex();
    /// @}

    /// @name Finding and reading items
    /// @throws qtX<Hpack> 4 "Missing key in index: KEY", "Key points to invalid item: KEY" or "Key
    ///         points to wrong item: KEY", with the stream's name and the key as arguments
    /// @throws qtX<HioErr> 3 if the record is cut, and for every record of a file that is open in
    ///         mode 'w'. The destination may then be filled in part.
    /// @{

    /// Checks the key's record and leaves the stream at the length of its body.
    void PositionOnKey(const qtString& key);
    /// Returns the record's offset and the body's length in bytes, or 0 for both if the key is
    /// absent. Compares only the length of the key in the record.
    void GetKeyInfo(const qtString& key, unsigned int& offset, unsigned int& size);
    /// Reads the body into `value`, which it replaces.
    /// @{
    void GetItem(const qtString& key, qtString& value);
    void GetItem(const qtString& key, qtBuffer& value);
    /// @}
    /// Reads the body to offset 0 of `value`, which grows as SegBuf::Grow() does. A larger one
    /// keeps its size, and its bytes after the body.
    void GetItem(const qtString& key, SegBuf& value);
    /// Reads `count` bytes of the body, from byte `from` on, into `data`, which has room for them.
    /// A large body can so be read in pieces.
    /// @throws qtX<HioErr> 3, before anything is read, if the body has fewer than `from` + `count`
    ///         bytes
    void GetPart(const qtString& key, unsigned int from, char* data, unsigned int count);

    /// Whether the index has the key. Works in every mode and reads no record.
    bool Contains(const qtString& key) const;
    /// The number of items in the index.
    unsigned int Count() const;
    /// Replaces `keys` by all keys, in ascending byte order.
    void GetIndex(std::vector<qtString>& keys) const;

    /// Called with a key, which is valid during the call. It may read items, but not change the
    /// package. What it throws ends the walk and is passed on.
    using KeyVisit = std::function<void(std::string_view key)>;
    /// Calls `visit` for every key, in ascending byte order, without a copy of the keys.
    void ForEach(const KeyVisit& visit) const;
    /// Calls `visit` for every key that starts with `prefix`.
    void ForEach(std::string_view prefix, const KeyVisit& visit) const;
    /// Calls `visit` for every key from `from`, included, to `to`, excluded.
    void ForEach(std::string_view from, std::string_view to, const KeyVisit& visit) const;

    /// The key of a number: 4 bytes, big-endian, so that keys ascend as their numbers do.
    static qtString MakeStringKey(unsigned int number);
    /// @}

    /// @name Changing items
    /// @throws qtX<HioErr> what the stream's reading and writing throw. A record is refused, before
    ///         anything is written, with number 4 and the text of a failed write, if it leaves no
    ///         room below 2^31 - 1 bytes for itself and the index. The same error reports a stream
    ///         that drops writes because an earlier one has failed.
    /// @{

    /// Writes a record. Offset 0 appends it. Any other offset is trusted: it is meant for the key's
    /// own former record, if the new one is not longer. `data` may not be the buffer that holds the
    /// package.
    /// @{
    void AddAtOffset(const qtString& key, const qtBuffer& data, unsigned int offset);
    void AddAtOffset(const qtString& key, const qtString& data, unsigned int offset);
    void AddAtOffset(const qtString& key, const SegBuf& data, unsigned int offset);
    /// @}
    /// Adds or replaces an item: in place if the new body is not longer than the old one, otherwise
    /// at the end. A write that fails in place leaves that one record damaged.
    /// HpackItemWriter adds a body in pieces.
    /// @throws qtX<Hpack> 4 "Key points to invalid item: KEY"
    /// @throws qtX<HioErr> 3 if the former record is cut
    /// @{
    void AddOrUpdate(const qtString& key, const qtString& data);
    void AddOrUpdate(const qtString& key, const qtBuffer& data);
    void AddOrUpdate(const qtString& key, const SegBuf& data);
    /// @}
    /// Removes the key from the index; an absent key is no error.
    /// @throws qtX<Hpack> 5 "File is not open in update mode"
    void Delete(const qtString& key);
    /// Moves an item to another key: in place if the new key is not longer, otherwise at the end.
    /// Replaces an item that the new key has. Keeps at most a small part of the body in memory. The
    /// old key stays in the index until the new record is complete.
    /// @throws qtX<Hpack> 5 "File is not open in update mode"; 4 as for reading
    void Rename(const qtString& oldKey, const qtString& newKey);
    /// @}

    /// @name The index in the stream
    /// @{

    /// The size in bytes of an index block for the current index.
    unsigned int GetIndexSpace();
    /// Writes an index block at `offset` (0: at the end), then its offset into the header.
    /// @throws qtX<HioErr> 4, before anything is written, if the block would exceed 2^31 - 1 bytes,
    ///         or would leave no room for a save that is due
    void WriteIndex(unsigned int offset);
    /// Writes a changed index: over the last one if it fits, otherwise at the end. If items were
    /// only replaced in place, the index in the stream is right and stays untouched. When this
    /// returns, the system has all bytes of the package.
    /// @throws qtX<Hpack> 5 "File is not open in update mode"
    /// @throws qtX<HioErr> what writing and positioning throw; 4 if the stream drops writes because
    ///         an earlier one has failed. The former index is then intact unless it was being
    ///         overwritten, and saving may be tried again.
    void SaveIndex();
    /// Saves the index, then returns the length of the stream and how many bytes of it are dead.
    /// Trusts the index: in a damaged package the number may wrap.
    /// @throws what SaveIndex() throws; qtX<HioErr> 3 if a record is cut
    void CalculateDeadSpace(unsigned int& fileSize, unsigned int& deadSpace);
    /// Returns how the bytes of the package are used, in every mode in which records can be read.
    /// Saves nothing: the index block is the one that the stream holds. Reads the head of each
    /// record.
    /// @throws qtX<HioErr> 3 if a record is cut
    HpackLayout GetLayout();
    /// @}

    /// @name Identity and state
    /// Owner-defined values that the library does not interpret. They are written to the stream at
    /// once, in every mode whose stream accepts writes, and need no change of the index.
    /// @throws qtX<HioErr> what the stream throws. SetFileID() and SetState() have then stored
    ///         their values in the object; SetOldID() has not.
    /// @{

    /// Sets the identity.
    /// @throws qtX<Hpack> 6 "Old file format - ID cannot be set"
    void SetFileID(unsigned int id, unsigned short word, unsigned char flags);
    /// Returns the identity. In an old format it is 0, 0, and 0x80 for Unicode or 0 for ASCII.
    void GetFileID(unsigned int& id, unsigned short& word, unsigned char& flags) const;
    /// Returns the identity, and in `old` whether the package has an old header of 8 bytes.
    void GetFileID(unsigned int& id, unsigned short& word, unsigned char& flags, bool& old) const;
    /// Sets the state.
    /// @throws qtX<Hpack> 6 "Old file format - state cannot be set"
    void SetState(unsigned char state);
    /// Returns the state; 0 in a package that was opened in an old format.
    void GetState(unsigned char& state) const;
    /// Makes this a package of the old Unicode or the old ASCII format, permanently: its identity
    /// is lost and can no longer be set.
    void SetOldID(bool unicode);
    /// @}

private:
    friend class vantry_internal::PackageCore;

    VANTRY_LOCAL vantry_internal::PackageCore& Core() const;

    // Created when it is first needed.
    mutable std::unique_ptr<vantry_internal::PackageCore> core;
};

extern template class VANTRY_EXPORT qtX<Hpack>;
