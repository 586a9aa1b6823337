#include "hpack/Hfile32.h"

#include <stdio_ext.h>

#include <algorithm>
#include <cstdint>
#include <exception>

// No single call of the C library transfers more, whatever the count.
static constexpr unsigned int maxChunk = 100000;

static const char* StandardMode(char mode) {
    switch (mode) {
        case 'r':
            return "rbe";
        case 'w':
            return "wbe";
        case 'u':
            return "r+be";
        default:
            return nullptr;
    }
}

Hfile32::~Hfile32() noexcept(false) {
    if (std::uncaught_exceptions() == 0) {
        Close();
        return;
    }
    try {
        Close();
    } catch (const qtX<HioErr>&) {
        // The exception on its way says what went wrong first.
    }
}

void Hfile32::Open(const qtString& fileName, char mode) {
    Close();
    name = fileName;
    writeFailed = false;
    const char* const standardMode = StandardMode(mode);
    if (standardMode == nullptr) {
        Fail(HioErrors::mode, HioErrors::invalidMode);
    }
    file = std::fopen(name.c_str(), standardMode);
    if (file == nullptr) {
        FailNamed(HioErrors::open, HioErrors::cannotOpen);
    }
    // A stream has one thread; the C library need not lock its own for each call.
    __fsetlocking(file, FSETLOCKING_BYCALLER);
    readOnly = mode == 'r';
    position = 0;
    atEnd = mode == 'w';
    last = Last::positioning;
}

unsigned int Hfile32::Tell() {
    if (file == nullptr) {
        FailNamed(HioErrors::position, HioErrors::seekFailed);
    }
    return static_cast<unsigned int>(position);
}

void Hfile32::Seek(int offset) {
    if (file == nullptr) {
        FailNamed(HioErrors::position, HioErrors::seekFailed);
    }
    if (offset == position && last != Last::failure) {
        return;
    }
    if (!MoveTo(offset, SEEK_SET)) {
        FailNamed(HioErrors::position, HioErrors::seekFailed);
    }
}

unsigned int Hfile32::SeekEnd() {
    if (file == nullptr || (!atEnd && !MoveTo(0, SEEK_END)) || position > off_t{UINT32_MAX}) {
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
    if (!TurnTo(Last::writing)) {
        WriteFailed();
    }
    while (count != 0) {
        const unsigned int chunk = std::min(count, maxChunk);
        if (std::fwrite(data, 1, chunk, file) != chunk) {
            WriteFailed();
        }
        position += chunk;
        data += chunk;
        count -= chunk;
    }
}

void Hfile32::Read(char* data, unsigned int count) {
    if (file == nullptr) {
        Fail(HioErrors::read, HioErrors::notOpenForReading);
    }
    if (!TurnTo(Last::reading)) {
        FailNamed(HioErrors::read, HioErrors::readFailed);
    }
    while (count != 0) {
        const unsigned int chunk = std::min(count, maxChunk);
        if (std::fread(data, 1, chunk, file) != chunk) {
            Lost();
            FailNamed(HioErrors::read, HioErrors::readFailed);
        }
        position += chunk;
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
    readOnly = true;
    if (!closed && !writeFailed) {
        FailNamed(HioErrors::close, HioErrors::closeFailed);
    }
}

void Hfile32::FailNamed(HioErrors::Number number, const char* text) const {
    Fail(number, (text + name).c_str());
}

void Hfile32::WriteFailed() {
    writeFailed = true;
    Lost();
    FailNamed(HioErrors::write, HioErrors::writeFailed);
}

bool Hfile32::MoveTo(off_t offset, int whence) {
    // The C library forgets what it could not write out. Nothing may be written after a gap, so a
    // flush that fails counts as a failed write.
    const bool flushed = last != Last::writing || std::fflush(file) == 0;
    writeFailed = writeFailed || !flushed;
    if (!flushed || fseeko(file, offset, whence) != 0) {
        Lost();
        return false;
    }
    position = whence == SEEK_SET ? offset : ftello(file);
    atEnd = whence == SEEK_END;
    last = Last::positioning;
    return true;
}

bool Hfile32::TurnTo(Last next) {
    // The C library wants a positioning call between reading and writing.
    if (last != next && last != Last::positioning && !MoveTo(position, SEEK_SET)) {
        return false;
    }
    last = next;
    return true;
}

void Hfile32::Lost() {
    const off_t where = ftello(file);
    if (where >= 0) {
        position = where;
    }
    atEnd = false;
    last = Last::failure;
}
