#include "hpack/HpackShards.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <map>
#include <numeric>
#include <set>

#include "QtInclude/Poly_Hash.h"
#include "hpack/Hpack.h"

namespace {

/// The parts of a shard's file name.
struct ShardName {
    qtString set;
    unsigned int number = 0;
    unsigned int shardCount = 0;  ///< 0: any
};

[[noreturn]] void FailShard(const char* text, const qtString& name) {
    throw qtX<Hpack>((text + name).c_str(), HpackErrors::shard, name);
}

// Reads a number of five digits or more, or a "*" as 0.
bool ReadNumber(std::string_view text, unsigned int& number) {
    if (text == "*") {
        return true;
    }
    const char* const end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, number);
    return text.size() >= 5 && stopped == end && error == std::errc();
}

// The name of a shard, or a pattern for such names; nothing for other names.
std::optional<ShardName> ParseShardName(std::string_view name) {
    constexpr std::string_view suffix = ".hpk";
    constexpr std::string_view of = "-of-";
    if (name.size() < suffix.size() || name.substr(name.size() - suffix.size()) != suffix) {
        return std::nullopt;
    }
    name.remove_suffix(suffix.size());
    const std::size_t ofAt = name.rfind(of);
    if (ofAt == std::string_view::npos || ofAt == 0) {
        return std::nullopt;
    }
    const std::size_t dashAt = name.rfind('-', ofAt - 1);
    ShardName parsed;
    if (dashAt == std::string_view::npos ||
        !ReadNumber(name.substr(dashAt + 1, ofAt - dashAt - 1), parsed.number) ||
        !ReadNumber(name.substr(ofAt + of.size()), parsed.shardCount)) {
        return std::nullopt;
    }
    parsed.set = qtString(name.substr(0, dashAt));
    return parsed;
}

// The files of the set, of all numbers of shards or the wanted one.
std::vector<ShardName> FindShards(const ShardName& wanted) {
    const std::filesystem::path path(std::string(wanted.set));
    const std::filesystem::path folder = path.has_parent_path() ? path.parent_path() : ".";
    const std::string set = path.filename().string();
    std::error_code error;
    std::vector<ShardName> found;
    for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        const std::optional<ShardName> shard = ParseShardName(name);
        if (shard && name == HpackShards::FileName(set, shard->number, shard->shardCount) &&
            (wanted.shardCount == 0 || wanted.shardCount == shard->shardCount)) {
            found.push_back({wanted.set, shard->number, shard->shardCount});
        }
    }
    if (error) {
        const qtString name(folder.string());
        throw qtX<HioErr>((HioErrors::cannotOpen + name).c_str(), HioErrors::open, name);
    }
    return found;
}

// The number of shards that most files name: the others are foreign.
unsigned int MostFrequentCount(const std::vector<ShardName>& shards) {
    std::map<unsigned int, std::size_t> files;
    for (const ShardName& shard : shards) {
        ++files[shard.shardCount];
    }
    return std::max_element(files.begin(), files.end(),
                            [](const auto& a, const auto& b) { return a.second < b.second; })
        ->first;
}

// Whether the shard's first keys belong to it. A file of another shard or set almost never has so
// many that do.
bool Belongs(const HpackView& shard, unsigned int number, unsigned int shardCount) {
    int left = 32;
    for (const HpackView::Item item : shard) {
        if (HpackShards::ShardOf(item.Key(), shardCount) != number) {
            return false;
        }
        if (--left == 0) {
            break;
        }
    }
    return true;
}

}  // namespace

HpackShards::HpackShards(const qtString& pattern) {
    ShardName wanted{pattern, 0, 0};
    if (const std::optional<ShardName> parsed = ParseShardName(pattern)) {
        wanted = *parsed;
    }
    std::vector<ShardName> found = FindShards(wanted);
    if (found.empty()) {
        FailShard(HpackErrors::noShards, pattern);
    }
    const unsigned int shardCount = MostFrequentCount(found);
    // Not an array by number: a file name may claim any number of shards.
    std::set<unsigned int> present;
    for (const ShardName& shard : found) {
        if (shard.shardCount != shardCount || shard.number >= shardCount) {
            FailShard(HpackErrors::foreignShard,
                      FileName(shard.set, shard.number, shard.shardCount));
        }
        present.insert(shard.number);
    }
    for (unsigned int number = 0; number < shardCount; ++number) {
        const qtString name = FileName(wanted.set, number, shardCount);
        if (present.count(number) == 0) {
            FailShard(HpackErrors::missingShard, name);
        }
        shards.push_back(HpackView::Map(name));
        if (!Belongs(shards.back(), number, shardCount)) {
            FailShard(HpackErrors::foreignShard, name);
        }
    }
}

unsigned int HpackShards::ShardOf(std::string_view key, unsigned int shardCount) {
    // Not LpStringHash::s_polyHash, which has the same values until a program changes it.
    static constexpr Poly_Hash<32> hash(32, Hash_primitive_seed[32], 1);
    return hash.Hash(key.data(), key.size()) % shardCount;
}

qtString HpackShards::FileName(const qtString& set, unsigned int number, unsigned int shardCount) {
    char numbers[40];
    std::snprintf(numbers, sizeof numbers, "-%05u-of-%05u.hpk", number, shardCount);
    return set + numbers;
}

std::size_t HpackShards::Count() const {
    return std::accumulate(
        shards.begin(), shards.end(), std::size_t{0},
        [](std::size_t sum, const HpackView& shard) { return sum + shard.Count(); });
}
