#pragma once

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
/// The buffer grows ahead of need while the stream writes and is cut to the bytes that are there
/// when a writable stream is closed or destroyed. The stream does not own it: the caller keeps the
/// buffer, and leaves its length alone, until Close() has returned or the stream is gone. A closed
/// stream never touches it again.
///
/// Errors are qtX<HioErr> with the argument "qtBuffer"; a call that fails changes nothing. A stream
/// serves one thread at a time; several may read one buffer at once.
class VANTRY_EXPORT Hmemory : public Generic32 {
public:
    Hmemory() = default;
    ~Hmemory() noexcept(false) override;

    /// Opens over `buffer` at offset 0. Mode 'r' refuses writes; 'w' starts with size 0, over the
    /// buffer's former bytes; any other mode keeps the bytes and takes writes.
    /// @throws qtX<HioErr> 0 "Cannot open file: qtBuffer" when the buffer has 4 GiB or more
    void Open(qtBuffer& buffer, char mode);

    unsigned int Tell() override;
    /// Moves to an offset from the start.
    /// @throws qtX<HioErr> 2 "Invalid seek in Hio buffer" beyond the size
    void Seek(int offset) override;
    unsigned int SeekEnd() override;
    unsigned int GetFileSize() override;
    /// The data may not lie in the stream's own buffer, which moves when it grows.
    /// @throws qtX<HioErr> 4 "Hio buffer is not open for writing" in mode 'r', on a stream that is
    ///         not open, and where the size would pass 2^32 - 1 bytes
    /// @throws std::bad_alloc when there is no memory for the buffer to grow
    void Write(char* data, unsigned int count) override;
    /// Reads `count` bytes and moves past them.
    /// @throws qtX<HioErr> 3 "Read error in Hio buffer" when fewer than `count` bytes are left
    void Read(char* data, unsigned int count) override;
    /// Cuts the buffer of a writable stream to the size. From then on the size is 0, and writes are
    /// refused.
    void Close() override;

private:
    VANTRY_LOCAL void Trim();

    bool readOnly = true;
    qtBuffer* buffer = nullptr;
    unsigned int position = 0;
    unsigned int size = 0;
};
