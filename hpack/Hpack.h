#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "QtInclude/SegBuf.h"
#include "basekit/qtBuffer.h"
#include "basekit/qtPtr.h"
#include "basekit/qtString.h"
#include "hpack/Hio.h"
#include "hpack/HpackErrors.h"

class HpackIndex;

/// A package: any number of named items, opaque byte strings, in one file or one memory buffer, and
/// an index from name (the key) to item.
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
/// Keys and bodies are any bytes, NUL and nothing included. A package never moves what it holds: a
/// new version is written over the old one where it fits and else behind everything;
/// CalculateDeadSpace() tells how many bytes are lost to that. hpack/HpackFormat.h has the layout.
///
/// Changes reach the index in the stream by SaveIndex() and Close() alone, or by
/// CalculateDeadSpace(), which saves. Destroying an open package saves nothing: the stream keeps
/// the index of the last save, and a package created and never closed has none.
///
/// Errors are qtX<Hpack> (hpack/HpackErrors.h, with numbers and texts) and, passed through from the
/// stream, qtX<HioErr> (hpack/HioErrors.h). Lookups and reads that fail change nothing but the
/// stream's position. Adding, updating, deleting and renaming change the index only after the
/// record has been written whole.
///
/// A package object serves one thread at a time; several objects may read one file at once. The
/// operations work between Open() and Close(); outside of that they fail as on a stream that is
/// closed, or with error 5.
class VANTRY_EXPORT Hpack {
public:
    Hpack();
    /// Lets go of the stream without saving. A close error of a file comes out of here, except
    /// while another exception is on its way.
    ~Hpack() noexcept(false);
    Hpack(const Hpack&) = delete;
    Hpack& operator=(const Hpack&) = delete;

    /// @name Opening and closing
    /// Modes: 'r' reads an existing package; 'u' also changes it; 'w' creates one, over whatever
    /// was there, and a file can then only be written. Open what is closed: opening again without
    /// Close() lets go of the former stream and saves nothing.
    /// @throws qtX<Hpack> 0 "Input file does not have an index" (mode 'u'),
    ///         1 "Cannot read file index: NAME", 2 "Invalid open mode" (a buffer),
    ///         3 "Input file is not in expected format: NAME"
    /// @throws qtX<HioErr> what opening and reading the stream throws; 5 "Invalid open mode" (a
    ///         file). When a file can not be opened the object stays as it was. When the former
    ///         stream fails to close the package is closed. After any other failure it holds the
    ///         new stream, and Close() lets go of it.
    /// @{

    /// Opens the file of this path.
    void Open(const qtString& fileName, char mode);
    /// Opens in the caller's buffer, which is shared until Close(). When opening fails it is not
    /// shared and not touched again.
    /// @throws qtX<HioErr> 0 "Cannot open file: qtBuffer" for an empty pointer
    void Open(qtPtr<qtBuffer>& buffer, char mode);
    /// Opens on any stream that stands at offset 0; in mode 'w' it must be empty.
    void Open(const qtPtrLight<Generic32>& stream, char mode);

    /// Saves a changed index, closes the stream and forgets the index. Does nothing on a package
    /// that is not open. When saving fails the package stays open, in mode 'u', with its changes,
    /// and Close() may be called again; when the stream's closing fails the package is closed.
    void Close();

    /// The step of opening that reads or creates header and index; Open() calls it.
    void VerifyOpen(char mode);
    /// Reads the header at the stream's current offset. @throws qtX<Hpack> 3
    void ReadMagic();
    /// Reads the index. @return its offset, 0 when there is none
    /// @throws qtX<Hpack> 1, and what the stream throws for an entry; the entries before it are
    ///         then in the index
    unsigned int ReadIndex();
    /// @}

    /// @name Finding and reading items
    /// A package created in a file can not be read before it is closed: its stream is open for
    /// writing only.
    /// @throws qtX<Hpack> 4 "Missing key in index: KEY", "Key points to invalid item: KEY" or "Key
    ///         points to wrong item: KEY", with stream name and key
    /// @throws qtX<HioErr> 3 when the record is cut; the destination may then be partly filled
    /// @{

    /// Checks the key's record and leaves the stream at the length of its body.
    void PositionOnKey(const qtString& key);
    /// Gives the offset of the key's record and the length of its body in bytes, both 0 when there
    /// is no such key. The key in the record is not compared, only its length.
    void GetKeyInfo(const qtString& key, unsigned int& offset, unsigned int& size);
    /// Reads the body into `value`, which it replaces.
    void GetItem(const qtString& key, qtString& value);
    /// Reads the body into `value`, which it replaces.
    void GetItem(const qtString& key, qtBuffer& value);
    /// Reads the body to offset 0 of `value`, which grows as SegBuf::Grow says; a larger one keeps
    /// its size, and its bytes behind the body.
    void GetItem(const qtString& key, SegBuf& value);
    /// Whether there is an item of that name: by the index alone, so this works in every mode and
    /// does not fail. Not for several threads at once, const as it is: looking up may sort and
    /// count.
    bool Contains(const qtString& key) const;
    /// How many items there are, likewise.
    unsigned int Count() const;
    /// All keys, ascending byte by byte. Never fails but for lack of memory.
    void GetIndex(std::vector<qtString>& keys) const;
    /// The key of a number: 4 bytes, big-endian, so that keys ascend as their numbers do.
    static qtString MakeStringKey(unsigned int number);
    /// @}

    /// @name Changing items
    /// @throws qtX<HioErr> what writing throws. A record that would leave no room below 2^31 - 1
    ///         bytes for itself and the index is refused before anything is written, with number 4
    ///         and the text of a failed write.
    /// @{

    /// Writes a record. Offset 0 appends it; any other is trusted, whatever lies there, and meant
    /// for the key's own former record where the new one is not longer. The data may not be the
    /// buffer that the package is in.
    void AddAtOffset(const qtString& key, const qtBuffer& data, unsigned int offset);
    /// As for a qtBuffer.
    void AddAtOffset(const qtString& key, const qtString& data, unsigned int offset);
    /// As for a qtBuffer, without a copy of the body in one piece.
    void AddAtOffset(const qtString& key, const SegBuf& data, unsigned int offset);
    /// Adds an item or replaces it: in place if the new body is no longer than the old one, else at
    /// the end. A write that fails in place leaves that one record damaged.
    /// @throws qtX<Hpack> 4 "Key points to invalid item: KEY"
    /// @throws qtX<HioErr> 3 when the former record is cut
    void AddOrUpdate(const qtString& key, const qtString& data);
    /// Takes the key out of the index; one that is not there is no error.
    /// @throws qtX<Hpack> 5 "File is not open in update mode"
    void Delete(const qtString& key);
    /// Moves an item to a new key, whose former item is lost. The old key stays until the record
    /// has been written: in place if the new key is no longer than the old one, else at the end.
    /// @throws qtX<Hpack> 5 "File is not open in update mode", and what GetItem() throws
    void Rename(const qtString& oldKey, const qtString& newKey);
    /// @}

    /// @name The index in the stream
    /// @{

    /// The size in bytes of an index block for the index as it is.
    unsigned int GetIndexSpace();
    /// Writes an index block at `offset` (0: at the end), and then its offset into the header.
    /// @throws qtX<HioErr> 4 before anything is written, where the block would pass 2^31 - 1 bytes
    void WriteIndex(unsigned int offset);
    /// Writes a changed index: where the last one is if it fits, else at the end. One that failed
    /// may be tried again. Where items were only replaced in place the index in the stream is right
    /// as it is, and stays untouched.
    /// @throws qtX<Hpack> 5 "File is not open in update mode"
    void SaveIndex();
    /// Saves the index; gives the length of the stream and how many bytes of it nothing uses.
    /// Records are trusted to be where the index says: in a damaged package the number may wrap.
    /// @throws qtX<Hpack> 5 "File is not open in update mode"
    /// @throws qtX<HioErr> 3 when a record is cut
    void CalculateDeadSpace(unsigned int& fileSize, unsigned int& deadSpace);
    /// @}

    /// @name Identity and state
    /// Values of the package's owner, without meaning here. They are written at once, in every mode
    /// whose stream takes writes. When writing fails, SetFileID() and SetState() have stored their
    /// values in the object; SetOldID() has not.
    /// @{

    /// Sets the identity.
    /// @throws qtX<Hpack> 6 "Old file format - ID cannot be set"
    void SetFileID(unsigned int id, unsigned short word, unsigned char flags);
    /// Gives the identity; in an old format 0, 0, and 0x80 for Unicode or 0 for ASCII.
    void GetFileID(unsigned int& id, unsigned short& word, unsigned char& flags) const;
    /// `old` tells whether the package has an old header of 8 bytes.
    void GetFileID(unsigned int& id, unsigned short& word, unsigned char& flags, bool& old) const;
    /// Sets the state.
    /// @throws qtX<Hpack> 6 "Old file format - state cannot be set"
    void SetState(unsigned char state);
    /// Gives the state; 0 in a package that was opened in an old format.
    void GetState(unsigned char& state) const;
    /// Makes it a package of the old Unicode or the old ASCII format, for good: its identity is
    /// gone and can not be set any more.
    void SetOldID(bool unicode);
    /// @}

private:
    VANTRY_LOCAL void Replace(const qtPtrLight<Generic32>& stream);
    VANTRY_LOCAL void Create();
    VANTRY_LOCAL void TakeOldFormat(unsigned int magic);
    VANTRY_LOCAL unsigned int FindBody(const qtString& key);
    VANTRY_LOCAL void ReadBodyLengthAt(std::uint64_t place, unsigned int& length);
    VANTRY_LOCAL void AddRecord(const qtString& key, std::string_view body, unsigned int offset);
    VANTRY_LOCAL unsigned int BeginRecord(const qtString& key, std::uint64_t bodyLength,
                                          unsigned int offset);
    VANTRY_LOCAL void EndRecord(const qtString& key, std::uint64_t bodyLength, unsigned int at);
    VANTRY_LOCAL void RequireRoomForEntry(const qtString& key, unsigned int offset);
    VANTRY_LOCAL void RequireRoom(const qtString& key, std::uint64_t end);
    VANTRY_LOCAL void SeekTo(unsigned int offset);
    VANTRY_LOCAL bool Holds(std::uint64_t end);
    VANTRY_LOCAL bool IsIndexSaved();
    VANTRY_LOCAL void RequireUpdateMode() const;
    [[noreturn]] VANTRY_LOCAL void FailWithStream(const char* text,
                                                  HpackErrors::Number number) const;
    [[noreturn]] VANTRY_LOCAL void FailIndex() const;
    [[noreturn]] VANTRY_LOCAL void FailKey(const char* text, const qtString& key) const;
    [[noreturn]] VANTRY_LOCAL void RefuseWrite() const;

    Hio<Generic32> io;
    unsigned int indexSpace = 0;
    unsigned int indexOffset = 0;
    unsigned int savedAt = 0;  // the header leads there, to the index as last read or saved; or 0
    std::unique_ptr<HpackIndex> index;
    unsigned int fileID = 0;
    unsigned short fileIDWord = 0;
    bool modified = false;
    bool oldFormat = false;
    unsigned char fileIDFlags = 0;
    unsigned char state = 0;
    char openMode = 0;  // 0: not open
    qtPtr<qtBuffer> sharedBuffer;
    std::string recordHead;       // what stands before a body, on its way
    std::uint64_t knownSize = 0;  // the stream has been seen to be at least this long
};

extern template class VANTRY_EXPORT qtX<Hpack>;
