#pragma once

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <utility>
#include <vector>

/// What the stores are filled with: keys and bodies, in the order they are added.
struct Items {
    std::vector<std::pair<std::string, std::string>> all;
    std::vector<std::size_t> randomOrder;  ///< indices into all, shuffled, the same in every run

    std::size_t Bytes() const {
        std::size_t bytes = 0;
        for (const auto& [key, body] : all) {
            bytes += key.size() + body.size();
        }
        return bytes;
    }
};

inline void Shuffle(Items& items) {
    items.randomOrder.resize(items.all.size());
    for (std::size_t i = 0; i < items.all.size(); ++i) {
        items.randomOrder[i] = i;
    }
    std::shuffle(items.randomOrder.begin(), items.randomOrder.end(), std::mt19937(1));
}

/// Every regular file below a folder, by its path relative to that.
inline const Items& FileItems() {
    static const Items items = [] {
        const char* const chosen = std::getenv("VANTRY_BENCH_TREE");
        const std::filesystem::path root(chosen != nullptr ? chosen : "/usr/include");
        Items found;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
            if (entry.is_regular_file() && !entry.is_symlink()) {
                std::ifstream file(entry.path(), std::ios::binary);
                found.all.emplace_back(std::filesystem::relative(entry.path(), root).string(),
                                       std::string(std::istreambuf_iterator<char>(file), {}));
            }
        }
        Shuffle(found);
        return found;
    }();
    return items;
}

/// A million items of 16 + 100 bytes, their keys in random order.
inline const Items& SmallItems() {
    static const Items items = [] {
        Items made;
        std::mt19937_64 random(2);
        static constexpr char digits[] = "0123456789abcdef";
        for (int i = 0; i < 1000000; ++i) {
            std::string key(16, '0');
            auto bits = random();
            for (char& digit : key) {
                digit = digits[bits % 16];
                bits /= 16;
            }
            made.all.emplace_back(std::move(key), std::string(100, static_cast<char>(random())));
        }
        Shuffle(made);
        return made;
    }();
    return items;
}

/// The prefix of a thousand items of GroupedItems().
inline std::string Group(unsigned int number) {
    return std::to_string(1000 + number) + '/';
}

/// A million items of 16 + 100 bytes, in a thousand groups, added in random order.
inline const Items& GroupedItems() {
    static const Items items = [] {
        Items made;
        for (unsigned int i = 0; i < 1000000; ++i) {
            made.all.emplace_back(Group(i / 1000) + std::to_string(10000000000 + i * 2654435761u),
                                  std::string(100, static_cast<char>(i)));
        }
        std::shuffle(made.all.begin(), made.all.end(), std::mt19937(3));
        Shuffle(made);
        return made;
    }();
    return items;
}

/// A hundred items of 10 MB.
inline const Items& LargeItems() {
    static const Items items = [] {
        Items made;
        for (int i = 0; i < 100; ++i) {
            made.all.emplace_back("item" + std::to_string(i),
                                  std::string(10000000, static_cast<char>('a' + i % 26)));
        }
        Shuffle(made);
        return made;
    }();
    return items;
}
