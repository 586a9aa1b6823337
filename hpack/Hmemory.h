#pragma once

#include <memory>

#include "basekit/qtBuffer.h"
#include "hpack/Generic32.h"

/// A stream over a caller's byte buffer.
///
///     qtBuffer buffer;
///     Hmemory stream;
///     stream.Open(buffer, 'w');
///     stream.Write(bytes, count);
///     stream.Close();                          // the buffer has `count` bytes now
///
/// The buffer grows ahead of need while the stream writes, and is cut to the stream's size when a
/// writable stream is closed or destroyed. The caller owns the buffer, must keep it until Close()
/// has returned or the stream is destroyed, and must not resize it until then. A closed stream
/// never touches the buffer again.
///
/// Errors are qtX<HioErr> with the argument "qtBuffer"; a call that fails changes nothing. A stream
/// serves one thread at a time; several streams may read one buffer at once.
class VANTRY_EXPORT Hmemory : public Generic32 {
public:
    /// A closed stream without a name. @throws std::bad_alloc
    Hmemory();
    /// Cuts the buffer of a writable stream to the size.
    ~Hmemory() noexcept(false) override;

    /// Opens over `buffer` at offset 0. Mode 'r' refuses writes; 'w' starts with size 0 and
    /// overwrites the buffer's former bytes; any other mode keeps the bytes and accepts writes.
    /// @throws qtX<HioErr> 0 "Cannot open file: qtBuffer" if the buffer has 4 GiB or more
    void Open(qtBuffer& buffer, char mode);

    /// Returns the current offset in bytes.
    unsigned int Tell() override;
    /// Moves to an offset from the start.
    /// @throws qtX<HioErr> 2 "Invalid seek in Hio buffer" beyond the size
    void Seek(int offset) override;
    /// Moves to the end. @return the offset there, which is the size
    unsigned int SeekEnd() override;
    /// Returns the size in bytes.
    unsigned int GetFileSize() override;
    /// Writes `count` bytes and moves past them. `data` may not point into the stream's buffer,
    /// which moves when it grows.
    /// @throws qtX<HioErr> 4 "Hio buffer is not open for writing" in mode 'r', on a closed stream,
    ///         and if the size would exceed 2^32 - 1 bytes
    /// @throws std::bad_alloc if there is no memory for the buffer to grow
    void Write(char* data, unsigned int count) override;
    /// Reads `count` bytes and moves past them.
    /// @throws qtX<HioErr> 3 "Read error in Hio buffer" if fewer than `count` bytes are left
    void Read(char* data, unsigned int count) override;
    /// Cuts the buffer of a writable stream to the size. Afterwards the size is 0 and writes are
    /// refused.
    void Close() override;

private:
    struct VANTRY_LOCAL Impl;

    VANTRY_LOCAL void Trim();

    std::unique_ptr<Impl> impl;
};
