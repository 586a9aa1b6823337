#pragma once

#include <memory>

#include "hpack/Generic32.h"

/// A stream over a file, buffered.
///
///     Hfile32 file;
///     file.Open("numbers.bin", 'u');
///     char bytes[4];
///     file.Seek(8);
///     file.Read(bytes, sizeof bytes);
///     file.Close();                            // throws if written bytes did not reach the file
///
/// Written bytes may wait in a buffer. They stay there until the system accepts them, so a full
/// disk may be reported by a later positioning call or by Close(), and each of these tries again.
/// After the first Write() that fails the stream drops all further writes and reports nothing more:
/// one fault causes one exception even if the cleanup of the caller writes more and closes.
/// Nothing is synced to the disk.
///
/// Errors are qtX<HioErr> with the file name as the argument. The file name also ends their texts,
/// except in those that say that the file is not open. Offsets up to 2^31 - 1 can be reached.
///
/// A stream serves one thread at a time; several streams may read one file at once.
class VANTRY_EXPORT Hfile32 : public Generic32 {
public:
    /// A closed stream without a name. @throws std::bad_alloc
    Hfile32();
    /// Closes the file. Throws what Close() throws, unless another exception is propagating.
    ~Hfile32() noexcept(false) override;

    /// Opens a file. Mode 'r' reads an existing file; 'w' creates or empties a file and only
    /// writes; 'u' reads and writes an existing file, in any order. A file that is still open is
    /// closed first. Opening a FIFO waits for its other end. A file that cannot be positioned, as a
    /// FIFO, is read or written from one end to the other.
    /// @throws qtX<HioErr> 5 "Invalid open mode"; 0 "Cannot open file: NAME"; 1 if closing the
    ///         former file fails. The stream is then closed. After 5 and 0 it has the new name.
    void Open(const qtString& fileName, char mode);

    /// Returns the current offset in bytes, or 0xFFFFFFFF if the file cannot be positioned.
    /// @throws qtX<HioErr> 2 "Invalid file offset in file NAME" if no file is open
    unsigned int Tell() override;
    /// Moves to an offset from the start. Offsets beyond the end can be reached.
    /// @throws qtX<HioErr> 2 "Invalid file offset in file NAME" if the offset is negative, if the
    ///         file cannot be positioned, or if buffered bytes cannot be written. The offset is
    ///         then unchanged, and the bytes stay in the buffer.
    void Seek(int offset) override;
    /// Moves to the end. @return the offset there
    /// @throws qtX<HioErr> 2 "SeekEnd error in file NAME" for the reasons that Seek() has, and if
    ///         the file has 4 GiB or more. The offset is then unchanged.
    unsigned int SeekEnd() override;
    /// Returns the size in bytes; the offset stays where it is.
    /// @throws what SeekEnd() and Seek() throw
    unsigned int GetFileSize() override;
    /// Writes `count` bytes and moves past them.
    /// @throws qtX<HioErr> 4 "File is not open for writing" or "Write error in file NAME" for the
    ///         first write that fails since Open(). The offset is then unchanged, but some of the
    ///         bytes may be in the file. Later writes do nothing.
    void Write(char* data, unsigned int count) override;
    /// Reads `count` bytes and moves past them.
    /// @throws qtX<HioErr> 3 "File is not open for reading"; "Read error in file NAME" if fewer
    ///         than `count` bytes could be read, which are then in `data` and passed,
    ///         or if buffered bytes cannot be written
    void Read(char* data, unsigned int count) override;
    /// Closes the file; does nothing if none is open.
    /// @throws qtX<HioErr> 1 "Close error in file NAME" if buffered bytes cannot be written or the
    ///         system reports an error, unless a write has failed before. The file is closed even
    ///         then.
    void Close() override;

private:
    class VANTRY_LOCAL Impl;

    [[noreturn]] VANTRY_LOCAL void FailNamed(HioErrors::Number number, const char* text) const;

    std::unique_ptr<Impl> impl;
};
