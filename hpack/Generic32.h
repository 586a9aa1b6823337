#pragma once

#include "QtInclude/qtX.h"
#include "hpack/HioErrors.h"

/// The tag of stream errors, which are thrown as qtX<HioErr>.
class VANTRY_EXPORT HioErr {};

extern template class VANTRY_EXPORT qtX<HioErr>;

/// A stream of bytes with 32-bit offsets. Packages are read from streams and written to them.
///
///     package.Open(qtPtrLight<Generic32>(new MyStream), 'w');       // MyStream is a Generic32
///
/// Hmemory and Hfile32 implement it. Reads and writes are all or nothing: either all bytes are
/// transferred or qtX<HioErr> is thrown (hpack/HioErrors.h). The functions of this base class do
/// nothing and return 0. A stream serves one thread at a time.
///
/// A stream that drops writes after one has failed must leave its offset where it is: that is how
/// Hpack notices.
class VANTRY_EXPORT Generic32 {
public:
    Generic32();
    virtual ~Generic32() noexcept(false);
    Generic32(const Generic32&) = delete;
    Generic32& operator=(const Generic32&) = delete;

    /// Returns the current offset in bytes.
    virtual unsigned int Tell();
    /// Moves to an offset from the start, taken as unsigned.
    virtual void Seek(int offset);
    /// Moves to the end. @return the offset there, which is the size of the stream.
    virtual unsigned int SeekEnd();
    /// Returns the size in bytes; the current offset stays where it is.
    virtual unsigned int GetFileSize();
    /// Writes `count` bytes at the current offset and moves past them; `data` is only read.
    virtual void Write(char* data, unsigned int count);
    /// Reads exactly `count` bytes from the current offset into `data` and moves past them.
    virtual void Read(char* data, unsigned int count);
    /// Ends the use of the stream.
    virtual void Close();

    /// Returns the file name, or "qtBuffer"; empty before the stream was opened.
    const qtString& Name() const { return name; }

protected:
    /// Throws qtX<HioErr> with this number and text, and the name as its argument.
    [[noreturn]] void Fail(HioErrors::Number number, const char* text) const;

    qtString name;  ///< returned by Name()
};
