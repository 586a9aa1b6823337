#include "hpack/Hfile32.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <exception>
#include <utility>

namespace {

// No single call of the system transfers more, whatever the count.
constexpr std::size_t maxChunk = 100000;

constexpr std::size_t writeBufferSize = 65536;

// What is read at a new offset is mostly one record: little more than its head is fetched ahead.
// Reading on from there fetches twice as much each time.
constexpr std::size_t firstFetch = 2048;
constexpr std::size_t maxFetch = 65536;
constexpr std::int64_t nothingFetched = -1;

}  // namespace

// The open file and its two buffers. Where the system fails, functions return false or a smaller
// count; Hfile32 knows which error that is.
class VANTRY_LOCAL Hfile32::Impl {
public:
    ~Impl() { Close(); }

    bool Open(const char* path, char mode);
    bool IsOpen() const { return descriptor >= 0; }
    bool CanSeek() const { return seekable; }
    bool Close();

    std::int64_t Position() const { return position; }
    bool MoveTo(std::int64_t offset);
    bool MoveToEnd();
    bool Write(const char* data, std::size_t count);
    bool Read(char* data, std::size_t count);

    bool readOnly = true;
    bool writeFailed = false;
    // The error number of the system call that made the last operation fail; 0 if there is none.
    mutable int failure = 0;

private:
    bool Flush();
    std::size_t WriteAt(const char* data, std::size_t count, std::int64_t at) const;
    bool Append(const char* data, std::size_t count);
    bool ReadChunk(char* data, std::size_t count);
    std::size_t CopyFetched(char* data, std::size_t count) const;
    std::size_t Fetch();
    std::size_t ReadAt(char* data, std::size_t count) const;
    void ForgetFetched();

    int descriptor = -1;
    bool seekable = false;
    bool atEnd = false;         // position is known to be the end of the file
    std::int64_t position = 0;  // of the next transfer
    std::unique_ptr<char[]> writeBuffer;
    std::size_t pending = 0;             // bytes in writeBuffer, those before position
    std::unique_ptr<char[]> readBuffer;  // the file's bytes from fetchedStart to fetchedEnd
    std::int64_t fetchedStart = nothingFetched;
    std::int64_t fetchedEnd = nothingFetched;
    std::size_t fetchSize = 0;
};

bool Hfile32::Impl::Open(const char* path, char mode) {
    if (mode != 'r') {
        writeBuffer.reset(new char[writeBufferSize]);
    }
    const int flags = mode == 'r' ? O_RDONLY : mode == 'u' ? O_RDWR : O_WRONLY | O_CREAT | O_TRUNC;
    descriptor = open(path, flags | O_CLOEXEC, 0666);
    if (descriptor < 0) {
        failure = errno;
        return false;
    }
    failure = 0;
    seekable = lseek(descriptor, 0, SEEK_CUR) >= 0;
    readOnly = mode == 'r';
    position = 0;
    pending = 0;
    atEnd = mode == 'w';
    ForgetFetched();
    return true;
}

bool Hfile32::Impl::Close() {
    if (descriptor < 0) {
        return true;
    }
    const bool flushed = Flush();
    const bool closed = close(std::exchange(descriptor, -1)) == 0;
    if (!closed && flushed) {
        failure = errno;
    }
    readOnly = true;
    pending = 0;
    writeBuffer.reset();
    readBuffer.reset();
    return flushed && closed;
}

bool Hfile32::Impl::MoveTo(std::int64_t offset) {
    if (offset == position) {
        return true;
    }
    if (!Flush()) {
        return false;
    }
    position = offset;
    atEnd = false;
    return true;
}

bool Hfile32::Impl::MoveToEnd() {
    if (!atEnd) {
        const off_t end = Flush() ? lseek(descriptor, 0, SEEK_END) : -1;
        if (end < 0 && pending == 0) {
            failure = errno;
        }
        if (end < 0 || end > std::int64_t{UINT32_MAX}) {
            return false;
        }
        position = end;
        atEnd = true;
    }
    return position <= std::int64_t{UINT32_MAX};
}

// After a failure nothing may be written beyond the gap, so what waits is dropped as well.
bool Hfile32::Impl::Write(const char* data, std::size_t count) {
    const std::int64_t start = position;
    ForgetFetched();
    if (!Append(data, count)) {
        position = start;
        pending = 0;
        atEnd = false;
        return false;
    }
    return true;
}

bool Hfile32::Impl::Append(const char* data, std::size_t count) {
    while (count != 0) {
        const bool directly = pending == 0 && count >= writeBufferSize;
        const std::size_t chunk = std::min(count, directly ? maxChunk : writeBufferSize - pending);
        if (directly) {
            if (WriteAt(data, chunk, position) != chunk) {
                return false;
            }
        } else {
            std::memcpy(writeBuffer.get() + pending, data, chunk);
            pending += chunk;
        }
        position += static_cast<std::int64_t>(chunk);
        data += chunk;
        count -= chunk;
        if (pending == writeBufferSize && !Flush()) {
            return false;
        }
    }
    return true;
}

// Keeps what the system does not accept, so that a later call can try again.
bool Hfile32::Impl::Flush() {
    if (pending != 0) {
        char* const bytes = writeBuffer.get();
        const auto start = position - static_cast<std::int64_t>(pending);
        const std::size_t written = WriteAt(bytes, pending, start);
        pending -= written;
        std::memmove(bytes, bytes + written, pending);
    }
    return pending == 0;
}

std::size_t Hfile32::Impl::WriteAt(const char* data, std::size_t count, std::int64_t at) const {
    std::size_t done = 0;
    while (done < count) {
        const ssize_t length =
            seekable ? pwrite(descriptor, data + done, count - done, at + static_cast<off_t>(done))
                     : write(descriptor, data + done, count - done);
        if (length > 0) {
            done += static_cast<std::size_t>(length);
        } else if (length == 0 || errno != EINTR) {
            failure = length == 0 ? 0 : errno;
            break;
        }
    }
    return done;
}

bool Hfile32::Impl::Read(char* data, std::size_t count) {
    if (count != 0 && !Flush()) {
        return false;
    }
    while (count != 0) {
        const std::size_t chunk = std::min(count, maxChunk);
        if (!ReadChunk(data, chunk)) {
            return false;
        }
        data += chunk;
        count -= chunk;
    }
    return true;
}

bool Hfile32::Impl::ReadChunk(char* data, std::size_t count) {
    while (count != 0) {
        std::size_t length = CopyFetched(data, count);
        if (length == 0) {
            const bool onward = position == fetchedEnd;
            fetchSize = onward ? std::min(2 * fetchSize, maxFetch) : firstFetch;
            if (seekable && count < fetchSize) {
                if (Fetch() == 0) {
                    return false;
                }
                continue;
            }
            length = ReadAt(data, count);
            if (length == 0) {
                return false;
            }
            fetchedStart = position + static_cast<std::int64_t>(length);
            fetchedEnd = fetchedStart;
        }
        position += static_cast<std::int64_t>(length);
        atEnd = false;
        data += length;
        count -= length;
    }
    return true;
}

std::size_t Hfile32::Impl::CopyFetched(char* data, std::size_t count) const {
    if (position < fetchedStart || position >= fetchedEnd) {
        return 0;
    }
    const std::size_t length = std::min(count, static_cast<std::size_t>(fetchedEnd - position));
    std::memcpy(data, readBuffer.get() + (position - fetchedStart), length);
    return length;
}

std::size_t Hfile32::Impl::Fetch() {
    if (readBuffer == nullptr) {
        readBuffer.reset(new char[maxFetch]);
    }
    ForgetFetched();
    const std::size_t length = ReadAt(readBuffer.get(), fetchSize);
    fetchedStart = position;
    fetchedEnd = position + static_cast<std::int64_t>(length);
    return length;
}

// Reads at the current offset, but does not move. @return 0 at the end and where the system fails
std::size_t Hfile32::Impl::ReadAt(char* data, std::size_t count) const {
    ssize_t length = 0;
    do {
        length =
            seekable ? pread(descriptor, data, count, position) : read(descriptor, data, count);
    } while (length < 0 && errno == EINTR);
    failure = length < 0 ? errno : 0;
    return static_cast<std::size_t>(std::max<ssize_t>(length, 0));
}

void Hfile32::Impl::ForgetFetched() {
    fetchedStart = nothingFetched;
    fetchedEnd = nothingFetched;
}

Hfile32::Hfile32() : impl(std::make_unique<Impl>()) {}

Hfile32::~Hfile32() noexcept(false) {
    if (std::uncaught_exceptions() == 0) {
        Hfile32::Close();
    }
}

void Hfile32::Open(const qtString& fileName, char mode) {
    Close();
    name = fileName;
    impl->writeFailed = false;
    if (mode != 'r' && mode != 'w' && mode != 'u') {
        Fail(HioErrors::mode, HioErrors::invalidMode);
    }
    if (!impl->Open(name.c_str(), mode)) {
        FailNamed(HioErrors::open, HioErrors::cannotOpen);
    }
}

unsigned int Hfile32::Tell() {
    if (!impl->IsOpen()) {
        FailNamed(HioErrors::position, HioErrors::seekFailed);
    }
    return impl->CanSeek() ? static_cast<unsigned int>(impl->Position()) : UINT32_MAX;
}

void Hfile32::Seek(int offset) {
    if (!impl->IsOpen() || !impl->CanSeek() || offset < 0 || !impl->MoveTo(offset)) {
        FailNamed(HioErrors::position, HioErrors::seekFailed);
    }
}

unsigned int Hfile32::SeekEnd() {
    if (!impl->IsOpen() || !impl->CanSeek() || !impl->MoveToEnd()) {
        FailNamed(HioErrors::position, HioErrors::seekEndFailed);
    }
    return static_cast<unsigned int>(impl->Position());
}

unsigned int Hfile32::GetFileSize() {
    const unsigned int former = Tell();
    const unsigned int size = SeekEnd();
    Seek(static_cast<int>(former));
    return size;
}

void Hfile32::Write(char* data, unsigned int count) {
    if (impl->writeFailed) {
        return;
    }
    if (impl->readOnly) {
        impl->writeFailed = true;
        Fail(HioErrors::write, HioErrors::notOpenForWriting);
    }
    if (!impl->Write(data, count)) {
        impl->writeFailed = true;
        FailNamed(HioErrors::write, HioErrors::writeFailed);
    }
}

void Hfile32::Read(char* data, unsigned int count) {
    if (!impl->IsOpen()) {
        Fail(HioErrors::read, HioErrors::notOpenForReading);
    }
    if (!impl->Read(data, count)) {
        FailNamed(HioErrors::read, HioErrors::readFailed);
    }
}

void Hfile32::Close() {
    if (!impl->Close() && !impl->writeFailed) {
        FailNamed(HioErrors::close, HioErrors::closeFailed);
    }
}

void Hfile32::FailNamed(HioErrors::Number number, const char* text) const {
    qtX<HioErr> error((text + name).c_str(), number, name);
    error.SystemNumber(std::exchange(impl->failure, 0));
    throw error;
}
