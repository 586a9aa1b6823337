#include "hpack/Hfile32.h"

#include <fcntl.h>
#include <stdio_ext.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <exception>

// No single call of the system transfers more, whatever the count.
static constexpr unsigned int maxChunk = 100000;

static constexpr std::size_t writeBufferSize = 65536;

// What is read at a new place is mostly one record: little more than its head is fetched ahead.
// What is read on from there gets twice as much each time.
static constexpr std::size_t firstFetch = 2048;
static constexpr std::size_t maxFetch = 65536;
static constexpr std::int64_t noPlace = -1;

Hfile32::~Hfile32() noexcept(false) {
    if (std::uncaught_exceptions() == 0) {
        Hfile32::Close();
        return;
    }
    try {
        Hfile32::Close();
    } catch (...) {
        // The exception on its way says what went wrong first.
    }
}

void Hfile32::Open(const qtString& fileName, char mode) {
    Close();
    name = fileName;
    writeFailed = false;
    if (mode != 'r' && mode != 'w' && mode != 'u') {
        Fail(HioErrors::mode, HioErrors::invalidMode);
    }
    if (mode != 'r') {
        writeBuffer.reset(new char[writeBufferSize]);
    }
    const int flags = mode == 'r' ? O_RDONLY : mode == 'u' ? O_RDWR : O_WRONLY | O_CREAT | O_TRUNC;
    // A FIFO without a peer is to fail, not to wait for one; files do not mind.
    const int descriptor = open(name.c_str(), flags | O_CLOEXEC | O_NONBLOCK, 0666);
    // The C library only writes: where it may read it does so at every positioning.
    file = descriptor < 0 ? nullptr : fdopen(descriptor, mode == 'r' ? "rb" : "wb");
    if (file == nullptr) {
        if (descriptor >= 0) {
            close(descriptor);
        }
        FailNamed(HioErrors::open, HioErrors::cannotOpen);
    }
    // A stream has one thread; the C library need not lock its own for each call.
    __fsetlocking(file, FSETLOCKING_BYCALLER);
    if (mode != 'r') {
        std::setvbuf(file, writeBuffer.get(), _IOFBF, writeBufferSize);
    }
    readOnly = mode == 'r';
    position = 0;
    written = 0;
    unflushed = false;
    atEnd = mode == 'w';
    ForgetFetched();
}

unsigned int Hfile32::Tell() {
    if (file == nullptr) {
        FailNamed(HioErrors::position, HioErrors::seekFailed);
    }
    return static_cast<unsigned int>(position);
}

void Hfile32::Seek(int offset) {
    if (file == nullptr || offset < 0) {
        FailNamed(HioErrors::position, HioErrors::seekFailed);
    }
    if (offset != position) {
        position = offset;
        atEnd = false;
    }
}

unsigned int Hfile32::SeekEnd() {
    if (file == nullptr || (!atEnd && !MoveToEnd()) || position > std::int64_t{UINT32_MAX}) {
        FailNamed(HioErrors::position, HioErrors::seekEndFailed);
    }
    return static_cast<unsigned int>(position);
}

unsigned int Hfile32::GetFileSize() {
    const unsigned int former = Tell();
    const unsigned int size = SeekEnd();
    Seek(static_cast<int>(former));
    return size;
}

void Hfile32::Write(char* data, unsigned int count) {
    if (writeFailed) {
        return;
    }
    if (readOnly) {
        writeFailed = true;
        Fail(HioErrors::write, HioErrors::notOpenForWriting);
    }
    if (position != written && fseeko(file, position, SEEK_SET) != 0) {
        WriteFailed();
    }
    ForgetFetched();
    unflushed = true;
    while (count != 0) {
        const unsigned int chunk = std::min(count, maxChunk);
        if (std::fwrite(data, 1, chunk, file) != chunk) {
            WriteFailed();
        }
        position += chunk;
        data += chunk;
        count -= chunk;
    }
    written = position;
}

void Hfile32::Read(char* data, unsigned int count) {
    if (file == nullptr) {
        Fail(HioErrors::read, HioErrors::notOpenForReading);
    }
    Flush();
    while (count != 0) {
        const unsigned int chunk = std::min(count, maxChunk);
        ReadChunk(data, chunk);
        data += chunk;
        count -= chunk;
    }
}

void Hfile32::Close() {
    if (file == nullptr) {
        return;
    }
    const bool closed = std::fclose(file) == 0;
    file = nullptr;
    writeBuffer.reset();
    readOnly = true;
    if (!closed && !writeFailed) {
        FailNamed(HioErrors::close, HioErrors::closeFailed);
    }
}

void Hfile32::FailNamed(HioErrors::Number number, const char* text) const {
    Fail(number, (text + name).c_str());
}

// The C library forgets what it could not write out, and nothing may be written behind a gap: the
// stream takes no more writes.
void Hfile32::WriteFailed() {
    writeFailed = true;
    unflushed = false;
    atEnd = false;
    FailNamed(HioErrors::write, HioErrors::writeFailed);
}

void Hfile32::Flush() {
    if (unflushed && std::fflush(file) != 0) {
        WriteFailed();
    }
    unflushed = false;
}

void Hfile32::ForgetFetched() {
    fetchedStart = noPlace;
    fetchedEnd = noPlace;
}

bool Hfile32::MoveToEnd() {
    Flush();
    if (fseeko(file, 0, SEEK_END) != 0) {
        return false;
    }
    written = ftello(file);
    position = written;
    atEnd = true;
    return true;
}

void Hfile32::ReadChunk(char* data, std::size_t count) {
    while (count != 0) {
        std::size_t taken = TakeFetched(data, count);
        if (taken == 0) {
            const bool onward = position == fetchedEnd;
            fetchSize = onward ? std::min(2 * fetchSize, maxFetch) : firstFetch;
            if (count >= fetchSize) {
                taken = ReadAt(data, count);
                fetchedStart = position + static_cast<std::int64_t>(taken);
                fetchedEnd = fetchedStart;
            } else {
                Fetch();
                continue;
            }
        }
        position += static_cast<std::int64_t>(taken);
        atEnd = false;
        data += taken;
        count -= taken;
    }
}

std::size_t Hfile32::TakeFetched(char* data, std::size_t count) const {
    if (position < fetchedStart || position >= fetchedEnd) {
        return 0;
    }
    const std::size_t taken = std::min(count, static_cast<std::size_t>(fetchedEnd - position));
    std::memcpy(data, readBuffer.get() + (position - fetchedStart), taken);
    return taken;
}

void Hfile32::Fetch() {
    if (readBuffer == nullptr) {
        readBuffer.reset(new char[maxFetch]);
    }
    ForgetFetched();
    const std::size_t length = ReadAt(readBuffer.get(), fetchSize);
    fetchedStart = position;
    fetchedEnd = position + static_cast<std::int64_t>(length);
}

// Reads at the current offset, but does not move. @return how many bytes, at least 1
std::size_t Hfile32::ReadAt(char* data, std::size_t count) const {
    ssize_t length = 0;
    do {
        length = pread(fileno(file), data, count, position);
    } while (length < 0 && errno == EINTR);
    if (length <= 0) {
        FailNamed(HioErrors::read, HioErrors::readFailed);
    }
    return static_cast<std::size_t>(length);
}
