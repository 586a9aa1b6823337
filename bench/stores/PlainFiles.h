#pragma once

#include <fcntl.h>

#include "bench/stores/Store.h"

namespace stores {

/// A file for each item, in folders where the keys have slashes.
class PlainFiles {
public:
    static constexpr const char* name = "plain_files";

    void Create(const Items& items) {
        std::filesystem::remove_all(root);
        for (const auto& [key, body] : items.all) {
            const std::string path = Path(key);
            int out = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            if (out < 0) {
                std::filesystem::create_directories(std::filesystem::path(path).parent_path());
                out = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            }
            Write(out, body);
        }
    }
    std::size_t ReadOne(const std::string& key) {
        std::string body;
        Read(key, body);
        return body.size();
    }
    std::size_t List() {
        std::vector<std::string> keys;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
            if (entry.is_regular_file()) {
                keys.push_back(entry.path().string().substr(root.size() + 1));
            }
        }
        std::sort(keys.begin(), keys.end());
        return keys.size();
    }
    std::size_t ReadAll(const Items& items) {
        std::size_t bytes = 0;
        std::string body;
        for (const std::size_t i : items.randomOrder) {
            Read(items.all[i].first, body);
            bytes += body.size();
        }
        return bytes;
    }
    void Replace(const Items& items, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            const auto& [key, body] = items.all[items.randomOrder[i]];
            Write(open(Path(key).c_str(), O_WRONLY | O_TRUNC), body);
        }
    }
    std::uint64_t DiskBytes() const { return folder.DiskBytes(); }

private:
    std::string Path(const std::string& key) const { return root + '/' + key; }
    static void Write(int out, const std::string& body) {
        Require(out >= 0, "open");
        Require(write(out, body.data(), body.size()) == static_cast<ssize_t>(body.size()), "write");
        close(out);
    }
    void Read(const std::string& key, std::string& body) const {
        const int in = open(Path(key).c_str(), O_RDONLY);
        struct stat status;
        Require(in >= 0 && fstat(in, &status) == 0, "open");
        body.resize(static_cast<std::size_t>(status.st_size));
        Require(read(in, body.data(), body.size()) == static_cast<ssize_t>(body.size()), "read");
        close(in);
    }

    Folder folder;
    std::string root = (folder.path / "items").string();
};

}  // namespace stores
