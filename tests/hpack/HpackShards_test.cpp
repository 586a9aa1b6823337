#include "hpack/HpackShards.h"

#include <gtest/gtest.h>

#include "tests/support/Errors.h"
#include "tests/support/Items.h"
#include "tests/support/TempFolder.h"

namespace {

// As doc/packages.md shows them to those who write sets by other programs.
TEST(HpackShards, ShardsOfKeysAndNamesAreThoseOfTheDocuments) {
    struct Vector {
        qtString key;
        unsigned int hash;
        unsigned int of3;
        unsigned int of16;
    };
    for (const auto& [key, hash, of3, of16] : {Vector{"", 0x1, 1, 1},
                                               {"a", 0x161, 2, 1},
                                               {"abc", 0x1616263, 1, 3},
                                               {"abcd", 0xa1626765, 1, 5},
                                               {"hello world", 0xdf1a7dd9, 0, 9}}) {
        EXPECT_EQ(HpackShards::ShardOf(key, 0xffffffff), hash);
        EXPECT_EQ(HpackShards::ShardOf(key, 3), of3) << key;
        EXPECT_EQ(HpackShards::ShardOf(key, 16), of16) << key;
        EXPECT_EQ(HpackShards::ShardOf(key, 1), 0u);
    }
    EXPECT_EQ(HpackShards::FileName("a/words", 3, 16), "a/words-00003-of-00016.hpk");
    EXPECT_EQ(HpackShards::FileName("w", 99999, 123456), "w-99999-of-123456.hpk");
}

class HpackShardsSet : public testing::Test {
protected:
    static constexpr unsigned int shardCount = 3;

    // Writes the keys 0 to 999, each in its shard.
    void WriteSet(const qtString& name, unsigned int count) {
        std::vector<Contents> shards(count);
        for (unsigned int number = 0; number < 1000; ++number) {
            const qtString key = std::to_string(number);
            shards[HpackShards::ShardOf(key, count)][key] = "body " + key;
        }
        for (unsigned int number = 0; number < count; ++number) {
            WriteFile(HpackShards::FileName(name, number, count), Package(shards[number]));
        }
    }
    void ExpectRefused(const qtString& pattern, const char* text, const qtString& name) {
        ExpectError<Hpack>([&] { HpackShards{pattern}; }, HpackErrors::shard, text + name, {name});
    }

    TempFolder folder;
    const qtString set = folder / "words";
};

TEST_F(HpackShardsSet, FindsEveryKeyByEveryNameOfTheSet) {
    WriteSet(set, shardCount);
    WriteSet(folder / "words-of", 1);
    WriteSet(folder / "more words", 2);
    WriteFile(folder / "words-00000-of-00003.hpk.tmp", "");
    WriteFile(folder / "words-000007-of-00003.hpk", "");
    WriteFile(folder / "words-0000x-of-00003.hpk", "");
    for (const char* const pattern :
         {"words", "words-*-of-*.hpk", "words-*-of-00003.hpk", "words-00002-of-00003.hpk"}) {
        const HpackShards shards(folder / pattern);
        EXPECT_EQ(shards.Count(), 1000u);
        EXPECT_EQ(shards.Shards().size(), shardCount);
        for (unsigned int number = 0; number < 1000; ++number) {
            const qtString key = std::to_string(number);
            EXPECT_EQ(shards.Find(key), "body " + key);
        }
        EXPECT_EQ(shards.Find("1000"), std::nullopt);
    }
    const std::filesystem::path former = std::filesystem::current_path();
    std::filesystem::current_path(folder.Path());
    EXPECT_EQ(HpackShards("words-of").Count(), 1000u);
    std::filesystem::current_path(former);
}

TEST_F(HpackShardsSet, MissingShardsAreNamed) {
    ExpectRefused(set, HpackErrors::noShards, set);
    WriteSet(set, shardCount);
    for (unsigned int number = 0; number < shardCount; ++number) {
        const qtString name = HpackShards::FileName(set, number, shardCount);
        const qtString bytes = FileBytes(name);
        std::filesystem::remove(std::string(name));
        ExpectRefused(set, HpackErrors::missingShard, name);
        WriteFile(name, bytes);
    }
    for (const char* const other :
         {"words-*-of-00004.hpk", "words-1-of-3.hpk", "words-00001x-of-00003.hpk"}) {
        ExpectRefused(folder / other, HpackErrors::noShards, folder / other);
    }
    ExpectError<HioErr>([&] { HpackShards(folder / "none/words"); }, HioErrors::open,
                        HioErrors::cannotOpen + (folder / "none"), {folder / "none"});
}

TEST_F(HpackShardsSet, ForeignShardsAreNamed) {
    WriteSet(set, shardCount);
    const qtString first = HpackShards::FileName(set, 0, shardCount);
    const auto with = [&](const qtString& name, const qtString& bytes, auto look) {
        const qtString former = FileBytes(name);
        WriteFile(name, bytes);
        look();
        if (former.empty()) {
            std::filesystem::remove(std::string(name));
        } else {
            WriteFile(name, former);
        }
    };
    for (const qtString& foreign :
         {HpackShards::FileName(set, 1, 4), HpackShards::FileName(set, 1, 2),
          HpackShards::FileName(set, shardCount, shardCount)}) {
        with(foreign, FileBytes(first),
             [&] { ExpectRefused(set, HpackErrors::foreignShard, foreign); });
    }
    // A pattern chooses among several sets.
    with(HpackShards::FileName(set, 1, 4), "",
         [&] { EXPECT_EQ(HpackShards(folder / "words-*-of-00003.hpk").Count(), 1000u); });
    with(first, FileBytes(HpackShards::FileName(set, 1, shardCount)),
         [&] { ExpectRefused(set, HpackErrors::foreignShard, first); });
    with(first, "no package", [&] {
        ExpectError<Hpack>([&] { HpackShards{set}; }, HpackErrors::format,
                           HpackErrors::notExpectedFormat + first, {first});
    });
    EXPECT_EQ(HpackShards(set).Count(), 1000u);
}

}  // namespace
