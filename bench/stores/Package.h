#pragma once

#include "bench/stores/Store.h"
#include "hpack/Hpack.h"

namespace stores {

/// A package at a `Place`: in a file or in memory.
template <class Place>
class PackageAt {
public:
    static constexpr const char* name = Place::name;

    void Create(const Items& items) {
        Hpack package;
        package.Open(place.where, 'w');
        for (const auto& [key, body] : items.all) {
            package.AddOrUpdate(key, body);
        }
        package.Close();
    }
    std::size_t ReadOne(const std::string& key) {
        Hpack package;
        package.Open(place.where, 'r');
        qtString body;
        package.GetItem(key, body);
        return body.size();
    }
    std::size_t List() {
        Hpack package;
        package.Open(place.where, 'r');
        std::vector<qtString> keys;
        package.GetIndex(keys);
        return keys.size();
    }
    std::size_t ReadAll(const Items& items) {
        Hpack package;
        package.Open(place.where, 'r');
        std::size_t bytes = 0;
        qtString body;
        for (const std::size_t i : items.randomOrder) {
            package.GetItem(items.all[i].first, body);
            bytes += body.size();
        }
        return bytes;
    }
    void Replace(const Items& items, std::size_t count) {
        Hpack package;
        package.Open(place.where, 'u');
        for (std::size_t i = 0; i < count; ++i) {
            const auto& [key, body] = items.all[items.randomOrder[i]];
            package.AddOrUpdate(key, body);
        }
        package.Close();
    }

    std::uint64_t DiskBytes() const { return place.Bytes(); }
    const auto& Where() const { return place.where; }

private:
    Place place;
};

struct InFile {
    static constexpr const char* name = "hpack";
    Folder folder;
    qtString where = (folder.path / "store").string();
    std::uint64_t Bytes() const { return folder.DiskBytes(); }
};

struct InMemory {
    static constexpr const char* name = "hpack_memory";
    qtPtr<qtBuffer> where{new qtBuffer};
    std::uint64_t Bytes() const { return where->Length(); }
};

using Package = PackageAt<InFile>;
using Memory = PackageAt<InMemory>;

}  // namespace stores
