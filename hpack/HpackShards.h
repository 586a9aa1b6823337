#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

#include "basekit/qtString.h"
#include "hpack/HpackView.h"

/// A set of packages that is read as one: more than a package holds, or parts for many machines.
///
///     const HpackShards words("words");                // words-00000-of-00004.hpk, and three more
///     if (const auto body = words.Find("alpha")) ...
///
/// A set of N shards consists of the files FileName(set, 0, N) to FileName(set, N - 1, N). The
/// shard of a key is the key's polynomial hash modulo N. Any program can write a set with ShardOf()
/// and FileName(); doc/packages.md has values to test other implementations with.
///
/// Every shard is a mapped HpackView: what holds there about memory, truncated files and damage
/// holds here. Every constant operation may be called from any number of threads at once.
///
/// Errors are qtX<Hpack> (hpack/HpackErrors.h) and qtX<HioErr> (hpack/HioErrors.h) with the name of
/// the file.
class VANTRY_EXPORT HpackShards {
public:
    /// Maps all shards of a set.
    /// @param pattern the set's name, "words"; or the name of a shard, or a pattern for those, in
    ///        which a "*" stands for a number: "words-*-of-00004.hpk"
    /// @throws qtX<Hpack> 7 "No shards: PATTERN"; "Missing shard: NAME"; "Foreign shard: NAME" for
    ///         a file of another number of shards that the pattern matches, for a number too high,
    ///         and for a file whose keys belong to other shards (only some of its keys are looked
    ///         at)
    /// @throws as HpackView::Map()
    explicit HpackShards(const qtString& pattern);

    /// Looks up a key.
    /// @return the item's body, valid as long as this object, or nothing if there is no such key
    /// @throws as HpackView::Find()
    std::optional<std::string_view> Find(std::string_view key) const {
        return shards[ShardOf(key, static_cast<unsigned int>(shards.size()))].Find(key);
    }

    /// The number of items in all shards.
    std::size_t Count() const;

    /// The shards by number; never empty. Their items together are those of the set, in order
    /// within each shard.
    const std::vector<HpackView>& Shards() const { return shards; }

    /// The number of the shard that a key belongs to, in a set of `shardCount` shards, which must
    /// not be 0.
    static unsigned int ShardOf(std::string_view key, unsigned int shardCount);

    /// The file name of a shard: FileName("words", 3, 16) is "words-00003-of-00016.hpk".
    /// @param set the set's name, with its folder if any
    /// @param number the shard's number, from 0
    /// @param shardCount the number of shards in the set
    static qtString FileName(const qtString& set, unsigned int number, unsigned int shardCount);

private:
    std::vector<HpackView> shards;
};
