#pragma once

#include <functional>
#include <map>
#include <vector>

#include "hpack/Hpack.h"
#include "hpack/HpackFormat.h"
#include "tests/support/Bytes.h"

/// What a package holds, and what the same changes make of it.
struct Contents : std::map<qtString, qtString> {
    using map::map;
    void AddOrUpdate(const qtString& key, const qtString& body) { (*this)[key] = body; }
    void Delete(const qtString& key) { erase(key); }
    void Rename(const qtString& key, const qtString& other) {
        const qtString body = at(key);
        erase(key);
        (*this)[other] = body;
    }
};

/// A change of one item: of a package, of its contents, or of what else has these functions.
struct Change {
    enum Kind { adding, removing, renaming };

    template <class Target>
    void Do(Target& target) const {
        if (kind == adding) {
            target.AddOrUpdate(key, with);
        } else if (kind == renaming) {
            target.Rename(key, with);
        } else {
            target.Delete(key);
        }
    }

    Kind kind;
    qtString key;
    qtString with;  ///< the body, or the other key
};

/// One of few keys, so that they meet.
template <class Random>
qtString RandomKey(Random& random) {
    const auto length = random() % 4;
    return qtString(length, "abcd\0\xff"[random() % 6]);
}

/// A change that a package of these items takes.
template <class Random, class Items, class Body>
Change RandomChange(Random& random, const Items& items, const Body& body) {
    const auto kind = random() % 4;
    const qtString key = RandomKey(random);
    if (kind == 0) {
        return {Change::removing, key, ""};
    }
    if (kind == 1 && items.count(key) != 0) {
        return {Change::renaming, key, RandomKey(random)};
    }
    return {Change::adding, key, body()};
}

inline std::vector<qtString> Keys(const Hpack& package) {
    std::vector<qtString> keys{"discarded"};
    package.GetIndex(keys);
    return keys;
}

inline Contents Items(Hpack& package) {
    Contents items;
    for (const qtString& key : Keys(package)) {
        package.GetItem(key, items[key]);
    }
    return items;
}

using Extent = std::pair<std::size_t, std::size_t>;

/// Where an item's record is, and the length of its body.
inline Extent Place(Hpack& package, const qtString& key) {
    unsigned int offset = 0;
    unsigned int size = 0;
    package.GetKeyInfo(key, offset, size);
    return {offset, size};
}

/// The length of a package, and how much of it nothing uses.
inline Extent DeadSpace(Hpack& package) {
    unsigned int size = 0;
    unsigned int dead = 0;
    package.CalculateDeadSpace(size, dead);
    return {size, dead};
}

/// A package that is open in a buffer of its own.
struct Opened : Hpack {
    explicit Opened(const qtString& bytes, char mode = 'r') : buffer(NewBuffer(bytes)) {
        Open(buffer, mode);
    }
    qtPtr<qtBuffer> buffer;
};

/// What a change makes of the bytes of a package, or in mode 'w' of none.
inline qtString Updated(const qtString& bytes, const std::function<void(Hpack&)>& change,
                        char mode = 'u') {
    Opened package(bytes, mode);
    change(package);
    package.Close();
    return Bytes(*package.buffer);
}

/// The bytes of a new package of these items, in their order.
template <class Items = Contents>
qtString Package(const Items& items) {
    const auto add = [&](Hpack& package) {
        for (const auto& [key, body] : items) {
            package.AddOrUpdate(key, body);
        }
    };
    return Updated("", add, 'w');
}

inline qtString Record(const qtString& key, const qtString& body) {
    return Word(HpackFormat::ItemMagic) + Word(key.size()) + key + Word(body.size()) + body;
}
