#include "tools/hpk/PackageFile.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstring>

#include "hpack/HpackFormat.h"
#include "tools/common/KeyText.h"
#include "tools/common/System.h"
#include "tools/hpk/KeyArguments.h"

namespace vantry_tools {

static const char* What(int number) {
    switch (number) {
        case HioErrors::open:
            return "cannot open";
        case HioErrors::close:
        case HioErrors::write:
            return "cannot write";
        default:
            return "cannot read";
    }
}

std::string TooLarge() {
    return "no package can have more than " + std::to_string(HpackFormat::maxStreamSize) + " bytes";
}

// The stream or the package has refused without a failed system call.
static std::string OwnReason(int number) {
    switch (number) {
        case HioErrors::write:
            return TooLarge();
        case HioErrors::read:
            return "it ends too soon";
        default:
            return "an offset leads nowhere";
    }
}

PackageFailure Explain(const qtX<HioErr>& error, const std::string& shown, int systemError) {
    const std::string reason =
        systemError == 0 ? OwnReason(error.Number()) : std::strerror(systemError);
    return PackageFailure(std::string(What(error.Number())) + ' ' + shown + ": " + reason);
}

PackageFailure Explain(const qtX<Hpack>& error, const std::string& shown) {
    for (const char* const text :
         {HpackErrors::missingKey, HpackErrors::invalidItem, HpackErrors::wrongItem}) {
        if (error.Number() == HpackErrors::key && std::string_view(error.Text()).find(text) == 0) {
            return PackageFailure(shown + ": " + text + QuoteKey(error.Arguments().at(1)));
        }
    }
    for (const char* const text : {HpackErrors::cannotReadIndex, HpackErrors::notExpectedFormat}) {
        if (std::string_view(error.Text()).find(text) == 0) {
            return PackageFailure(text + shown);
        }
    }
    return PackageFailure(shown + ": " + error.Text());
}

PackageFailure NoSuchItem(const std::string& shown, const qtString& key,
                          const std::vector<qtString>& keys) {
    return PackageFailure(shown + ": " + HpackErrors::missingKey + QuoteKey(key) +
                          FolderHint(keys, key));
}

PackageReader::PackageReader(const std::string& packagePath)
    : path(packagePath), file(OpenRegular(path, O_RDONLY)) {
    OnPackage(path, [&] { package.Open(path, 'r'); });
}

std::vector<qtString> PackageReader::Keys() const {
    std::vector<qtString> keys;
    package.GetIndex(keys);
    return keys;
}

PackageReader::Place PackageReader::Find(const qtString& key) {
    return OnPackage(path, [&] {
        Place place;
        package.GetKeyInfo(key, place.offset, place.size);
        return place;
    });
}

std::uint32_t PackageReader::IndexOffset() const {
    char word[HpackFormat::wordSize];
    if (pread(file.Get(), word, sizeof word, HpackFormat::indexOffsetAt) != ssize_t{sizeof word}) {
        throw SystemError(errno, "cannot read", path);
    }
    return HpackFormat::Word(word);
}

void PackageReader::RequireIndex() const {
    if (IndexOffset() == 0) {
        throw PackageFailure(path +
                             ": there is no index: the package was created but never closed, or "
                             "its header is damaged (hpk recover finds the items)");
    }
}

void PackageReader::RequireNoOverlap() {
    using Extent = std::pair<std::uint64_t, std::uint64_t>;
    std::vector<Extent> extents = {{IndexOffset(), IndexOffset() + package.GetIndexSpace()}};
    for (const qtString& key : Keys()) {
        try {
            const Place place = Find(key);
            extents.emplace_back(place.offset, std::uint64_t{place.offset} + place.size +
                                                   HpackFormat::recordOverhead + key.size());
        } catch (const PackageFailure&) {  // reported when the item is read
        }
    }
    std::sort(extents.begin(), extents.end());
    const auto overlap = std::adjacent_find(
        extents.begin(), extents.end(),
        [](const Extent& left, const Extent& right) { return left.second > right.first; });
    if (overlap != extents.end()) {
        throw PackageFailure(path + ": items overlap: the package is damaged (see hpk check)");
    }
}

std::uint64_t PackageReader::Size() const {
    struct stat status;
    if (fstat(file.Get(), &status) != 0) {
        throw SystemError(errno, "cannot read", path);
    }
    return static_cast<std::uint64_t>(status.st_size);
}

void PackageReader::Read(const qtString& key, Part part,
                         const std::function<void(const char*, std::size_t)>& take) {
    const Place place = Find(key);
    OnPackage(path, [&] { package.PositionOnKey(key); });  // compares the key
    if (std::uint64_t{place.offset} + HpackFormat::recordOverhead + key.size() + place.size >
        Size()) {
        throw PackageFailure(path + ": the body of " + QuoteKey(key) + " is cut");
    }
    constexpr unsigned int pieceSize = 256 * 1024;
    piece.resize(pieceSize);
    unsigned int at = part.StartIn(place.size);
    for (unsigned int left = part.LengthIn(place.size); left != 0;) {
        const unsigned int count = std::min(left, pieceSize);
        OnPackage(path, [&] { package.GetPart(key, at, piece.data(), count); });
        take(piece.data(), count);
        at += count;
        left -= count;
    }
}

}  // namespace vantry_tools
