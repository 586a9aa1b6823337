#include "tools/hpk/Bodies.h"

#include <algorithm>

namespace vantry_tools {

PieceReader ReadItem(PackageReader& package, const std::string& shown, const qtString& key) {
    const std::uint32_t size = package.Find(key).size;
    OnPackage(shown, [&] { package.Package().PositionOnKey(key); });  // checks an empty one, too
    std::uint32_t at = 0;
    return [&package, shown, key, size, at](char* data, std::size_t count) mutable {
        const auto part = static_cast<std::uint32_t>(std::min<std::size_t>(count, size - at));
        if (part != 0) {
            OnPackage(shown, [&] { package.Package().GetPart(key, at, data, part); });
        }
        at += part;
        return std::size_t{part};
    };
}

// Readers may return fewer bytes than there are.
static void Fill(const PieceReader& read, std::string& piece) {
    piece.resize(std::size_t{256} * 1024);
    std::size_t length = 0;
    while (const std::size_t count = read(&piece[length], piece.size() - length)) {
        length += count;
    }
    piece.resize(length);
}

bool SameBytes(const PieceReader& left, const PieceReader& right) {
    std::string leftPiece;
    std::string rightPiece;
    do {
        Fill(left, leftPiece);
        Fill(right, rightPiece);
    } while (leftPiece == rightPiece && !leftPiece.empty());
    return leftPiece == rightPiece;
}

static bool SameBody(PackageReader& package, const std::string& shown, const qtString& key,
                     const Source& source, const FileDescriptor& file, CTProgress& progress) {
    return package.Find(key).size == source.size &&
           SameBytes(ReadItem(package, shown, key), ReadFrom(file.Get(), source.path, progress));
}

std::vector<Difference> CompareWithFiles(PackageReader& package, const std::string& shown,
                                         Sources& sources, CTProgress& progress) {
    StartPhase(progress, "comparing", sources.TotalSize(), Unit::bytes);
    const std::vector<qtString> keys = package.Keys();
    std::vector<Difference> differences;
    auto key = keys.begin();
    for (const Source& source : sources.Files()) {
        StopIfInterrupted(progress);
        const FileDescriptor file = sources.Open(source);
        if (!file) {
            continue;
        }
        for (; key != keys.end() && *key < source.key; ++key) {
            differences.push_back({Difference::onlyItem, *key, nullptr});
        }
        if (key == keys.end() || *key != source.key) {
            differences.push_back({Difference::onlyFile, source.key, &source});
        } else {
            if (!SameBody(package, shown, *key, source, file, progress)) {
                differences.push_back({Difference::otherBody, *key, &source});
            }
            ++key;
        }
    }
    for (; key != keys.end(); ++key) {
        differences.push_back({Difference::onlyItem, *key, nullptr});
    }
    return differences;
}

}  // namespace vantry_tools
