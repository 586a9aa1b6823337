#pragma once

#include <sys/types.h>

#include <cstdio>

#include "hpack/Generic32.h"

/// A stream over a file, through the C library's buffered I/O.
///
/// After the first write that fails the stream stops writing and stops reporting, so that one
/// fault gives one exception even where the caller's clean-up goes on to write and close. Written
/// bytes may wait in the buffer: a full disk can show as late as at the next positioning call,
/// which then fails and counts as the failed write, or at Close(). Nothing is synced to the disk.
///
/// Errors are qtX<HioErr> with the file name as the argument and, but for those that say the file
/// is not open, at the end of the text. Offsets up to 2^31 - 1 can be reached.
class VANTRY_EXPORT Hfile32 : public Generic32 {
public:
    Hfile32() = default;
    /// Closes the file. What Close() throws comes out, except while another exception is on its
    /// way; then it is dropped.
    ~Hfile32() noexcept(false) override;

    /// Opens a file: 'r' an existing one for reading, 'w' a new or emptied one for writing only,
    /// 'u' an existing one for both. In mode 'u' reads and writes may follow one another in any
    /// order. A file that is still open is closed first.
    /// @throws qtX<HioErr> 5 "Invalid open mode"; 0 "Cannot open file: NAME"; the stream is then
    ///         closed and has the name already
    void Open(const qtString& fileName, char mode);

    /// @throws qtX<HioErr> 2 when no file is open
    unsigned int Tell() override;
    /// Offsets beyond the end can be reached.
    /// @throws qtX<HioErr> 2 "Invalid file offset in file NAME"
    void Seek(int offset) override;
    /// @throws qtX<HioErr> 2 "SeekEnd error in file NAME", also for files of 4 GiB or more
    unsigned int SeekEnd() override;
    /// @throws what SeekEnd() and Seek() throw
    unsigned int GetFileSize() override;
    /// @throws qtX<HioErr> 4 "File is not open for writing" or "Write error in file NAME", for the
    ///         first write that fails since Open(); later ones do nothing
    void Write(char* data, unsigned int count) override;
    /// @throws qtX<HioErr> 3 "File is not open for reading"; or "Read error in file NAME" when
    ///         fewer than `count` bytes were there, which have then been read
    void Read(char* data, unsigned int count) override;
    /// Closes the file; does nothing when none is open.
    /// @throws qtX<HioErr> 1 "Close error in file NAME", unless a write has failed before; the file
    ///         is closed then, too
    void Close() override;

private:
    enum class Last { positioning, reading, writing, failure };

    [[noreturn]] void FailNamed(HioErrors::Number number, const char* text) const;
    bool MoveTo(off_t offset, int whence);
    bool TurnTo(Last next);
    [[noreturn]] void WriteFailed();
    void Lost();

    bool readOnly = true;
    bool writeFailed = false;
    std::FILE* file = nullptr;
    // Where the next transfer goes. Positioning makes the C library give up its buffer, so a call
    // whose result is known is not made.
    off_t position = 0;
    bool atEnd = false;  // position is the end of the file
    Last last = Last::positioning;
};
