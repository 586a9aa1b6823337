#pragma once

#include <random>

#include "tests/support/Items.h"

/// A writer of packages that is independent of the library, and remembers what it wrote where. It
/// writes the same bytes as the library, and is the oracle of the tests of recovery.
class PackageModel {
public:
    using Random = std::mt19937;

    struct Written {
        qtString key;
        qtString body;
        int order;     // of writing
        bool inPlace;  // over a former record
        std::size_t Size() const { return 12 + key.size() + body.size(); }
    };
    using Live = std::map<qtString, std::size_t>;  // key, offset

    PackageModel() : bytes(Word(0x4a5b6c66)) { bytes.resize(16); }

    /// A package after up to three sessions of random changes, and maybe changes that it never
    /// saved. `depth`: how deep packages may be nested in bodies.
    explicit PackageModel(Random& random, int depth = 1) : PackageModel() {
        const auto sessions = 1 + random() % 3;
        for (std::size_t session = 0; session < sessions; ++session) {
            for (auto count = random() % 15; count-- > 0;) {
                Change(random, depth, session != 0);
            }
            Save();
            OpenForUpdate();
        }
        bytes.replace(8, 8, qtString("\1\2\3\4\7\3\0\5", 8));
        saved = index;
        if (random() % 4 == 0) {
            for (auto count = random() % 4; count-- > 0;) {
                Change(random, depth, true);
            }
        }
    }

    const qtString& Bytes() const { return bytes; }
    /// The items of the last save, and the extent of its index.
    const Live& Saved() const { return saved; }
    std::size_t IndexOffset() const { return indexOffset; }
    std::size_t IndexSize() const { return BlockSize(saved); }
    /// The records as they are now, by offset, live or dead.
    const std::map<std::size_t, Written>& Records() const { return records; }
    /// The offsets of the items as they are now.
    const Live& Items() const { return index; }
    /// The bytes that an index of the items as they are now takes.
    std::size_t IndexSpace() const { return BlockSize(index); }
    /// The bytes that nothing uses, once it is saved.
    std::size_t Dead() const {
        std::size_t live = 16 + IndexSpace();
        for (const auto& item : index) {
            live += records.at(item.second).Size();
        }
        return bytes.size() - live;
    }

    void AddOrUpdate(const qtString& key, const qtString& body) {
        const auto former = index.find(key);
        const bool fits =
            former != index.end() && body.size() <= records.at(former->second).body.size();
        Put(key, body, fits ? former->second : 0);
    }
    void Delete(const qtString& key) {
        index.erase(key);
        modified = true;
    }
    void Rename(const qtString& key, const qtString& other) {
        const std::size_t offset = index.at(key);
        const qtString body = records.at(offset).body;
        index.erase(key);
        Put(other, body, other.size() <= key.size() ? offset : 0);
    }
    /// Writes a record: over that at `offset`, or at the end for 0.
    void Put(const qtString& key, const qtString& body, std::size_t offset) {
        const bool over = offset != 0;
        offset = over ? offset : bytes.size();
        Overwrite(offset, Word(0x4a5b6c73) + Word(key.size()) + key + Word(body.size()) + body);
        records[offset] = {key, body, ++writes, over};
        index[key] = offset;
        modified = true;
    }
    void OpenForUpdate() {
        indexSpace = BlockSize(index);
        modified = false;
    }
    void Save() {
        if (!modified) {
            return;
        }
        if (BlockSize(index) > indexSpace) {
            indexOffset = bytes.size();
            indexSpace = BlockSize(index);
        }
        qtString block = Word(0x4a5b6c72) + Word(index.size());
        for (const auto& [key, offset] : index) {
            block += Word(key.size()) + key + Word(offset);
        }
        Overwrite(indexOffset, block);
        Overwrite(4, Word(indexOffset));
        saved = index;
        modified = false;
    }

private:
    static std::size_t BlockSize(const Live& live) {
        std::size_t size = 8;
        for (const auto& entry : live) {
            size += 8 + entry.first.size();
        }
        return size;
    }

    void Overwrite(std::size_t offset, const qtString& with) {
        bytes.resize(std::max(bytes.size(), offset + with.size()), '\0');
        bytes.replace(offset, with.size(), with);
    }

    void Change(Random& random, int depth, bool reopened) {
        const qtString key = RandomKey(random);
        const auto kind = reopened ? random() % 5 : 4;
        if (kind == 0) {
            Delete(key);
        } else if (kind == 1 && index.count(key) != 0) {
            Rename(key, RandomKey(random));
        } else {
            AddOrUpdate(key, Body(random, depth));
        }
    }

    static qtString Body(Random& random, int depth) {
        if (depth > 0 && random() % 6 == 0) {
            return PackageModel(random, depth - 1).Bytes();
        }
        if (depth > 0 && random() % 12 == 0) {
            return Hostile(random() % 3, 300);
        }
        // Equal lengths meet: a flipped bit in a length then ends at another record.
        qtString body(random() % 3 == 0 ? 20 : random() % 60, '\0');
        for (char& byte : body) {
            byte = static_cast<char>(random());
        }
        return body;
    }

public:
    static constexpr int hostileKinds = 6;
    /// Bytes that make a naive recovery slow or large.
    static qtString Hostile(std::size_t kind, std::size_t size) {
        qtString text;
        if (kind == 3) {  // an index with a key per byte after a torn start
            text = Word(0x4a5b6c72) + Word(size);
            while (text.size() < size) {
                text += qtString(2, '\0') + qtString(1, static_cast<char>(text.size() % 64)) + 'x';
            }
        }
        while (text.size() < size) {
            const std::size_t left = size - text.size();
            const qtString marker = Word(0x4a5b6c73);
            switch (kind) {
                case 0:  // bodies that reach to the end
                    text += marker + Word(1) + "k" + Word(left > 13 ? left - 13 : 0);
                    break;
                case 1:  // keys that reach far: records in each other's keys
                    text += marker + Word(left > 16 ? left - 16 : 0) + Word(0);
                    break;
                case 2:  // one key over and over
                    text += marker + Word(1) + "k" + Word(2) + "..";
                    break;
                case 4:  // nothing but indexes, each as long as the rest
                    text += Word(8) + Word(0x4a5b6c72) + Word(left / 16) + Word(8);
                    break;
                default:  // headers that lead to indexes
                    text += Word(0x4a5b6c66) + Word(16) + qtString(8, '\0') + Word(0x4a5b6c72) +
                            Word(left / 24);
            }
        }
        text.resize(size);
        return text;
    }

private:
    qtString bytes;
    Live index;
    Live saved;
    std::size_t indexOffset = 0;
    std::size_t indexSpace = 0;
    std::map<std::size_t, Written> records;
    int writes = 0;
    bool modified = true;
};
