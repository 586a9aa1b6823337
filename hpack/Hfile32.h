#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>

#include "hpack/Generic32.h"

/// A stream over a file, buffered.
///
///     Hfile32 file;
///     file.Open("numbers.bin", 'u');
///     char bytes[4];
///     file.Seek(8);
///     file.Read(bytes, sizeof bytes);
///     file.Close();                            // throws when what was written has not arrived
///
/// After the first write that fails the stream stops writing and stops reporting, so that one
/// fault gives one exception even where the caller's clean-up goes on to write and close. Written
/// bytes may wait in the buffer: a full disk can show as late as at the next positioning call,
/// which then fails and counts as the failed write, or at Close(). Nothing is synced to the disk.
///
/// Errors are qtX<HioErr> with the file name as the argument and, but for those that say the file
/// is not open, at the end of the text. Offsets up to 2^31 - 1 can be reached. A stream serves one
/// thread at a time; several may read one file at once.
class VANTRY_EXPORT Hfile32 : public Generic32 {
public:
    Hfile32() = default;
    /// Closes the file. What Close() throws comes out, except while another exception is on its
    /// way; then it is dropped.
    ~Hfile32() noexcept(false) override;

    /// Opens a file: 'r' an existing one for reading, 'w' a new or emptied one for writing only,
    /// 'u' an existing one for both. In mode 'u' reads and writes may follow one another in any
    /// order. A file that is still open is closed first. Opening never waits; what can not be
    /// positioned, as a FIFO, fails when it is first read.
    /// @throws qtX<HioErr> 5 "Invalid open mode"; 0 "Cannot open file: NAME"; the stream is then
    ///         closed and has the name already
    void Open(const qtString& fileName, char mode);

    /// The current offset in bytes.
    /// @throws qtX<HioErr> 2 when no file is open
    unsigned int Tell() override;
    /// Offsets beyond the end can be reached.
    /// @throws qtX<HioErr> 2 "Invalid file offset in file NAME" for a negative one
    void Seek(int offset) override;
    /// Moves to the end, and gives the offset there.
    /// @throws qtX<HioErr> 2 "SeekEnd error in file NAME", also for files of 4 GiB or more; 4 when
    ///         what waited can not be written
    unsigned int SeekEnd() override;
    /// The size in bytes; the offset stays where it is.
    /// @throws what SeekEnd() and Seek() throw
    unsigned int GetFileSize() override;
    /// Writes `count` bytes and moves past them.
    /// @throws qtX<HioErr> 4 "File is not open for writing" or "Write error in file NAME", for the
    ///         first write that fails since Open(); later ones do nothing
    void Write(char* data, unsigned int count) override;
    /// Reads `count` bytes and moves past them.
    /// @throws qtX<HioErr> 3 "File is not open for reading"; or "Read error in file NAME" when
    ///         fewer than `count` bytes were there, which have then been read; 4 when what waited
    ///         can not be written
    void Read(char* data, unsigned int count) override;
    /// Closes the file; does nothing when none is open.
    /// @throws qtX<HioErr> 1 "Close error in file NAME", unless a write has failed before; the file
    ///         is closed then, too
    void Close() override;

private:
    [[noreturn]] VANTRY_LOCAL void FailNamed(HioErrors::Number number, const char* text) const;
    [[noreturn]] VANTRY_LOCAL void WriteFailed();
    VANTRY_LOCAL void Flush();
    VANTRY_LOCAL bool MoveToEnd();
    VANTRY_LOCAL void ReadChunk(char* data, std::size_t count);
    VANTRY_LOCAL std::size_t TakeFetched(char* data, std::size_t count) const;
    VANTRY_LOCAL void Fetch();
    VANTRY_LOCAL std::size_t ReadAt(char* data, std::size_t count) const;
    VANTRY_LOCAL void ForgetFetched();

    // The C library holds the file and buffers what is written; what is read passes it by, since
    // it would fill its buffer anew at every positioning. Offsets have one width whatever a
    // program that includes this has chosen for its own.
    bool readOnly = true;
    bool writeFailed = false;
    bool unflushed = false;  // written bytes may wait in the C library's buffer
    bool atEnd = false;      // position is known to be the end of the file
    std::FILE* file = nullptr;
    std::int64_t position = 0;  // where the next transfer goes
    std::int64_t written = 0;   // where the C library is
    std::unique_ptr<char[]> writeBuffer;
    std::unique_ptr<char[]> readBuffer;  // the file's bytes from fetchedStart to fetchedEnd
    std::int64_t fetchedStart = 0;
    std::int64_t fetchedEnd = 0;
    std::size_t fetchSize = 0;
};
