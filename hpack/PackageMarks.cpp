#include "hpack/PackageMarks.h"

#include <algorithm>
#include <cstring>

#include "hpack/HpackFormat.h"

using namespace HpackFormat;

PackageMarks::PackageMarks(RawPackage& package) {
    constexpr std::uint32_t pieceSize = 1 << 18;
    constexpr std::uint32_t overlap = wordSize - 1;
    std::vector<char> piece(std::min(pieceSize, package.Size()));
    for (std::uint32_t at = 0; package.Size() - at > overlap;) {
        const std::uint32_t count = std::min(pieceSize, package.Size() - at);
        package.ReadOrZero(at, piece.data(), count);
        Find(piece.data(), count, at);
        at += count - overlap;
    }
    FindTelling(package);
}

// All five magics differ in the last byte alone.
void PackageMarks::Find(const char* bytes, std::size_t count, std::uint32_t at) {
    const char first = static_cast<char>(ItemMagic >> 24);
    const char* const end = bytes + count - (wordSize - 1);
    for (const char* place = bytes; place < end; ++place) {
        place = static_cast<const char*>(
            std::memchr(place, first, static_cast<std::size_t>(end - place)));
        if (place == nullptr) {
            return;
        }
        const std::uint32_t magic = Word(place);
        if (magic == ItemMagic || magic == IndexMagic || magic == PackMagic ||
            magic == OldUnicodeMagic || magic == OldAsciiMagic) {
            marks.push_back({at + static_cast<std::uint32_t>(place - bytes), magic, 0});
        }
    }
}

void PackageMarks::FindTelling(RawPackage& package) {
    auto next = static_cast<std::uint32_t>(marks.size());
    for (std::size_t i = marks.size(); i-- > 0;) {
        RawPackage::Record record;
        if (marks[i].magic == ItemMagic ? package.Measure(marks[i].offset, record)
                                        : marks[i].magic != IndexMagic) {
            next = static_cast<std::uint32_t>(i);
        }
        marks[i].nextTelling = next;
    }
}

PackageMarks::Iterator PackageMarks::From(std::uint64_t offset) const {
    return std::lower_bound(
        marks.begin(), marks.end(), offset,
        [](const Mark& left, std::uint64_t right) { return left.offset < right; });
}

PackageMarks::Iterator PackageMarks::TellingFrom(std::uint64_t offset) const {
    const Iterator mark = From(offset);
    return mark != end() ? begin() + mark->nextTelling : mark;
}

PackageMarks::Iterator PackageMarks::At(std::uint64_t offset) const {
    const Iterator mark = From(offset);
    return mark != end() && mark->offset == offset ? mark : end();
}
