#include "QtInclude/SegBuf.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <new>

#include "basekit/FileInfo.h"

qtxSegBuf::qtxSegBuf(const qtxSegBuf& other) = default;
qtxSegBuf& qtxSegBuf::operator=(const qtxSegBuf& other) = default;
qtxSegBuf::~qtxSegBuf() = default;

const char* qtxSegBuf::BaseString() const {
    return "qtxSegBuf";
}

SegBuf::~SegBuf() {
    for (const char* segment : segments) {
        delete[] segment;
    }
}

void SegBuf::Locate(unsigned int offset, unsigned int end, char*& where,
                    unsigned int& length) const {
    if (offset >= size) {
        qtxSegBuf error(9, "Locate error in SegBuf", 2);
        error.SetFileInfo(QT_FILE_INFO);
        throw error;
    }
    const unsigned int inside = offset % segmentSize;
    where = segments[offset / segmentSize] + inside;
    length = std::min(segmentSize - inside, end - offset);
}

void SegBuf::Grow(unsigned int length) {
    const std::uint64_t wanted = std::uint64_t{length} + reserve;
    if (wanted > UINT32_MAX) {
        throw std::bad_alloc();
    }
    while (std::uint64_t{segments.size()} * segmentSize < wanted) {
        auto segment = std::unique_ptr<char[]>(new char[segmentSize]);
        segments.push_back(segment.get());
        segment.release();
    }
    size = std::max(size, static_cast<unsigned int>(wanted));
}
