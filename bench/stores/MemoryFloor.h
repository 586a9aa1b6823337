#pragma once

#include <algorithm>
#include <cstring>
#include <memory>

#include "bench/stores/Store.h"
#include "hpack/HpackFormat.h"

namespace stores {

/// What copying the same bytes needs, into one piece of memory whose size is known beforehand.
class MemoryFloor {
public:
    static constexpr const char* name = "memory_floor";

    void Create(const Items& items) {
        size = items.Bytes() + items.all.size() * HpackFormat::recordOverhead;
        bytes.reset(new char[size]);
        entries.clear();
        char* out = bytes.get();
        for (const auto& [key, body] : items.all) {
            out += HpackFormat::recordOverhead;
            entries.push_back({std::string_view(out, key.size()), {out + key.size(), body.size()}});
            out = std::copy(key.begin(), key.end(), out);
            out = std::copy(body.begin(), body.end(), out);
        }
        std::sort(entries.begin(), entries.end());
    }
    std::size_t ReadOne(const std::string& key) {
        std::string body;
        Get(key, body);
        return body.size();
    }
    std::size_t List() {
        std::vector<std::string> keys;
        keys.reserve(entries.size());
        for (const auto& [key, body] : entries) {
            keys.emplace_back(key);
        }
        return keys.size();
    }
    std::size_t ReadAll(const Items& items) {
        std::size_t read = 0;
        std::string body;
        for (const std::size_t i : items.randomOrder) {
            Get(items.all[i].first, body);
            read += body.size();
        }
        return read;
    }
    void Replace(const Items& items, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            const auto& [key, body] = items.all[items.randomOrder[i]];
            std::memcpy(const_cast<char*>(Find(key).data()), body.data(), body.size());
        }
    }
    std::uint64_t DiskBytes() const { return size; }

private:
    std::string_view Find(std::string_view key) const {
        return std::lower_bound(
                   entries.begin(), entries.end(), key,
                   [](const auto& entry, std::string_view wanted) { return entry.first < wanted; })
            ->second;
    }
    void Get(std::string_view key, std::string& body) const { body = Find(key); }

    std::size_t size = 0;
    std::unique_ptr<char[]> bytes;
    std::vector<std::pair<std::string_view, std::string_view>> entries;
};

}  // namespace stores
