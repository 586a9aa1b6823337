#include "tools/hpk/ItemStore.h"

#include <algorithm>

#include "hpack/HpackFormat.h"
#include "tools/hpk/PackageFile.h"

namespace vantry_tools {

ItemStore::ItemStore(const std::string& path, Hpack& openPackage) : package(openPackage) {
    PackageReader reader(path);
    formerSize = reader.Size();
    begins.push_back(reader.IndexOffset());
    for (const qtString& key : reader.Keys()) {
        try {
            begins.push_back(reader.Find(key).offset);
        } catch (const PackageFailure&) {  // no record: nothing to protect
        }
    }
    std::sort(begins.begin(), begins.end());
}

// Whether the key's record is intact and alone in its bytes.
bool ItemStore::IsSound(const qtString& key, unsigned int& bodyLength) {
    unsigned int offset = 0;
    try {
        package.GetKeyInfo(key, offset, bodyLength);
        package.PositionOnKey(key);  // compares the key
    } catch (const qtX<Hpack>&) {
        return false;
    } catch (const qtX<HioErr>&) {
        return false;
    }
    const std::uint64_t end =
        std::uint64_t{offset} + HpackFormat::recordOverhead + key.size() + bodyLength;
    if (offset >= formerSize) {  // appended by this object
        return true;
    }
    const auto next = std::upper_bound(begins.begin(), begins.end(), offset);
    return offset >= HpackFormat::oldHeaderSize && end <= formerSize &&
           (next == begins.end() || *next >= end);
}

void ItemStore::Put(const qtString& key, const SegBuf& body) {
    unsigned int offset = 0;
    unsigned int length = 0;
    if (package.Contains(key) && IsSound(key, length) && body.size <= length) {
        package.GetKeyInfo(key, offset, length);
    }
    package.AddAtOffset(key, body, offset);
}

void ItemStore::Move(const qtString& oldKey, const qtString& newKey) {
    unsigned int length = 0;
    if (newKey.size() > oldKey.size() || IsSound(oldKey, length)) {
        package.Rename(oldKey, newKey);
        return;
    }
    SegBuf body;
    package.GetItem(oldKey, body);
    package.AddAtOffset(newKey, body, 0);
    package.Delete(oldKey);
}

}  // namespace vantry_tools
