#pragma once

#include <fcntl.h>
#include <sys/mman.h>

#include <unordered_map>

#include "bench/stores/Floor.h"

namespace stores {

/// What mapping the same bytes needs, with the index known beforehand: a hash table of the C++
/// library for lookups, the sorted keys for walks.
class MappedFloor : public InOneFile {
public:
    static constexpr const char* name = "mapped_floor";

    void Create(const Items& items) {
        bodies.clear();
        sorted.clear();
        std::string content;
        for (const auto& [key, body] : items.all) {
            content.append(HpackFormat::recordOverhead, '\0').append(key);
            bodies[key] = {content.size(), body.size()};
            sorted.push_back(key);
            content.append(body);
        }
        std::sort(sorted.begin(), sorted.end());
        const int out = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        for (std::size_t at = 0; at < content.size(); at += 1 << 20) {
            const std::size_t length = std::min<std::size_t>(1 << 20, content.size() - at);
            Require(write(out, content.data() + at, length) == static_cast<ssize_t>(length),
                    "write");
        }
        close(out);
    }

    class Opened {
    public:
        explicit Opened(const MappedFloor& floor)
            : store(floor), size(std::filesystem::file_size(floor.file)) {
            const int in = open(floor.file.c_str(), O_RDONLY);
            void* const mapped = mmap(nullptr, size, PROT_READ, MAP_SHARED, in, 0);
            Require(mapped != MAP_FAILED, "mmap");
            close(in);
            bytes = static_cast<const char*>(mapped);
        }
        ~Opened() { munmap(const_cast<char*>(bytes), size); }
        Opened(const Opened&) = delete;
        Opened& operator=(const Opened&) = delete;

        const MappedFloor& store;
        std::size_t size;
        const char* bytes;
    };
    class Session {
    public:
        explicit Session(const Opened& newOpened) : opened(newOpened) {}
        std::string_view Get(const std::string& key) {
            const Extent& extent = opened.store.bodies.find(key)->second;
            return {opened.bytes + extent.offset, extent.length};
        }
        template <class Visit>
        void ForEach(std::string_view prefix, Visit visit) {
            const auto& keys = opened.store.sorted;
            for (auto at = std::lower_bound(keys.begin(), keys.end(), prefix);
                 at != keys.end() && at->compare(0, prefix.size(), prefix) == 0; ++at) {
                visit(*at);
            }
        }

    private:
        const Opened& opened;
    };

private:
    struct Extent {
        std::size_t offset;
        std::size_t length;
    };
    std::unordered_map<std::string_view, Extent> bodies;
    std::vector<std::string_view> sorted;
};

}  // namespace stores
