#pragma once

#include <fcntl.h>

#include <cstring>

#include "bench/stores/Store.h"
#include "hpack/HpackFormat.h"

namespace stores {

/// What the system's own calls need for the same bytes, with the index known beforehand: what
/// nothing that keeps these promises can undercut by much.
class Floor : public InOneFile {
public:
    static constexpr const char* name = "floor";

    void Create(const Items& items) {
        const int out = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        std::string buffer;
        const auto flush = [&] {
            Require(write(out, buffer.data(), buffer.size()) == static_cast<ssize_t>(buffer.size()),
                    "write");
            buffer.clear();
        };
        entries.clear();
        std::size_t at = 0;
        for (const auto& [key, body] : items.all) {
            entries.push_back({key, at, body.size()});
            buffer.append(HpackFormat::recordOverhead, '\0').append(key).append(body);
            at += HpackFormat::recordOverhead + key.size() + body.size();
            if (buffer.size() >= 1 << 18) {
                flush();
            }
        }
        std::sort(entries.begin(), entries.end(),
                  [](const Entry& a, const Entry& b) { return a.key < b.key; });
        indexAt = at;
        for (const Entry& entry : entries) {
            const auto length = static_cast<std::uint32_t>(entry.key.size());
            buffer.append(reinterpret_cast<const char*>(&length), sizeof length);
            buffer.append(entry.key).append(HpackFormat::wordSize, '\0');
            if (buffer.size() >= 1 << 18) {
                flush();
            }
        }
        flush();
        close(out);
    }
    std::size_t ReadOne(const std::string& key) {
        const int in = open(file.c_str(), O_RDONLY);
        const std::string index = ReadIndex(in);
        const Entry* found = nullptr;
        std::size_t at = 0;
        // All of it: only the lengths locate an entry, and a later one would count.
        for (const Entry& entry : entries) {
            std::uint32_t length = 0;
            std::memcpy(&length, index.data() + at, sizeof length);
            at += HpackFormat::wordSize;
            if (length == key.size() && index.compare(at, length, key) == 0) {
                found = &entry;
            }
            at += length + HpackFormat::wordSize;
        }
        std::string body(found->length, '\0');
        Require(pread(in, body.data(), body.size(), static_cast<off_t>(found->offset)) >= 0,
                "read");
        close(in);
        return body.size();
    }
    /// Reads the index and walks it.
    std::size_t Open() {
        const int in = open(file.c_str(), O_RDONLY);
        const std::string index = ReadIndex(in);
        std::size_t entriesSeen = 0;
        for (std::size_t at = 0; at < index.size(); ++entriesSeen) {
            std::uint32_t length = 0;
            std::memcpy(&length, index.data() + at, sizeof length);
            at += HpackFormat::entryOverhead + length;
        }
        close(in);
        return entriesSeen;
    }
    std::size_t List() {
        const int in = open(file.c_str(), O_RDONLY);
        const std::string index = ReadIndex(in);
        std::vector<std::string> keys;
        keys.reserve(entries.size());
        std::size_t at = 0;
        for (const Entry& entry : entries) {
            keys.emplace_back(index, at + HpackFormat::wordSize, entry.key.size());
            at += HpackFormat::entryOverhead + entry.key.size();
        }
        close(in);
        return keys.size();
    }
    std::size_t ReadAll(const Items& items) {
        const int in = open(file.c_str(), O_RDONLY);
        std::vector<const Entry*> order(items.all.size());
        std::size_t bytes = 0;
        std::string body;
        for (const std::size_t i : items.randomOrder) {
            const auto& [key, content] = items.all[i];
            const auto found = std::lower_bound(
                entries.begin(), entries.end(), key,
                [](const Entry& entry, const std::string& wanted) { return entry.key < wanted; });
            body.resize(HpackFormat::recordOverhead + key.size() + content.size());
            Require(pread(in, body.data(), body.size(), static_cast<off_t>(found->offset)) >= 0,
                    "read");
            bytes += body.size();
        }
        close(in);
        return bytes;
    }
    void Replace(const Items& items, std::size_t count) {
        const int both = open(file.c_str(), O_RDWR);
        const std::string index = ReadIndex(both);
        std::string record;
        for (std::size_t i = 0; i < count; ++i) {
            const auto& [key, body] = items.all[items.randomOrder[i]];
            const auto found = std::lower_bound(
                entries.begin(), entries.end(), key,
                [](const Entry& entry, const std::string& wanted) { return entry.key < wanted; });
            record.assign(HpackFormat::recordOverhead, '\0').append(key).append(body);
            Require(pread(both, record.data(), HpackFormat::recordOverhead,
                          static_cast<off_t>(found->offset)) >= 0,
                    "read");
            Require(
                pwrite(both, record.data(), record.size(), static_cast<off_t>(found->offset)) >= 0,
                "write");
        }
        close(both);
    }

private:
    struct Entry {
        std::string key;
        std::size_t offset;
        std::size_t length;
    };

    std::string ReadIndex(int in) const {
        struct stat status;
        Require(fstat(in, &status) == 0, "fstat");
        std::string index(static_cast<std::size_t>(status.st_size) - indexAt, '\0');
        Require(pread(in, index.data(), index.size(), static_cast<off_t>(indexAt)) >= 0, "read");
        return index;
    }

    std::vector<Entry> entries;
    std::size_t indexAt = 0;
};

}  // namespace stores
