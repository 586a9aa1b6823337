// Packages that are not well: what is whole in them is got out, whatever the damage.
#include "hpack/HpackRecover.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <random>

#include "hpack/Hmemory.h"
#include "hpack/Hpack.h"
#include "hpack/HpackFormat.h"
#include "tests/support/Bytes.h"
#include "tests/support/FaultyStream.h"
#include "tests/support/Recovered.h"

namespace {

using Random = std::mt19937;

/// A package after random operations, and every record that is whole in it.
struct Sample {
    struct Written {
        qtString key;
        qtString body;
    };

    explicit Sample(Random& random, bool nested = true) {
        qtPtr<qtBuffer> buffer = NewBuffer();
        Hpack package;
        package.Open(buffer, 'w');
        for (auto count = 3 + random() % 12; count-- > 0;) {
            Put(package, RandomKey(random), RandomBody(random, nested));
        }
        package.SetFileID(7, 8, 9);
        package.SetState(3);
        package.Close();
        for (auto sessions = random() % 3; sessions-- > 0;) {
            package.Open(buffer, 'u');
            for (auto count = random() % 15; count-- > 0;) {
                Change(package, random, nested);
            }
            package.Close();
        }
        bytes = Bytes(*buffer);
        package.Open(buffer, 'r');
        live = Items(package);
        for (const auto& [key, body] : live) {
            unsigned int size = 0;
            package.GetKeyInfo(key, offsets[key], size);
        }
    }

    static qtString RandomKey(Random& random) {
        return qtString(random() % 5, static_cast<char>('a' + random() % 5));
    }
    static qtString RandomBody(Random& random, bool nested) {
        if (nested && random() % 5 == 0) {
            return Sample(random, false).bytes;  // keys are the same as those outside
        }
        qtString body(random() % 60, '\0');
        std::generate(body.begin(), body.end(), [&] { return static_cast<char>(random()); });
        return body;
    }
    void Put(Hpack& package, const qtString& key, const qtString& body) {
        const Contents now = Items(package);
        const auto former = now.find(key);
        if (former != now.end() && former->second.size() > body.size()) {
            packageRests |= former->second.find(Hex("4a5b6c73")) != qtString::npos;
        }
        package.AddOrUpdate(key, body);
        Record(package, key, body);
    }
    void Record(Hpack& package, const qtString& key, const qtString& body) {
        unsigned int offset = 0;
        unsigned int size = 0;
        package.GetKeyInfo(key, offset, size);
        written[offset] = {key, body};
    }
    void Change(Hpack& package, Random& random, bool nested) {
        const qtString key = RandomKey(random);
        const Contents now = Items(package);
        switch (random() % 4) {
            case 0:
                package.Delete(key);
                break;
            case 1:
                if (now.count(key) != 0) {
                    const qtString other = RandomKey(random);
                    package.Rename(key, other);
                    Record(package, other, now.at(key));
                }
                break;
            default:
                Put(package, key, RandomBody(random, nested));
        }
    }

    qtString bytes;
    bool packageRests = false;  // records of a package are left behind a shorter body
    Contents live;
    std::map<qtString, unsigned int> offsets;
    std::map<unsigned int, Written> written;  // by offset
};

qtString Damage(const qtString& whole, Random& random) {
    qtString bytes = whole;
    const auto at = random() % bytes.size();
    switch (random() % 7) {
        case 0:
            bytes.resize(at);
            break;
        case 1:
            for (auto count = 1 + random() % 4; count-- > 0;) {
                bytes[random() % bytes.size()] = static_cast<char>(random());
            }
            break;
        case 2:
            bytes[at] = static_cast<char>(bytes[at] ^ 1 << random() % 8);
            break;
        case 3: {  // a block of zeros
            const auto count = std::min<std::size_t>(bytes.size() - at, 1 + random() % 200);
            bytes.replace(at, count, count, '\0');
            break;
        }
        case 4: {  // a block of noise
            const auto end = std::min<std::size_t>(bytes.size(), at + random() % 100);
            std::generate(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                          bytes.begin() + static_cast<std::ptrdiff_t>(end),
                          [&] { return static_cast<char>(random()); });
            break;
        }
        case 5:  // no index, or a wrong one
            HpackFormat::PutWord(
                bytes.data() + HpackFormat::indexOffsetAt,
                static_cast<std::uint32_t>(random() % 2 * random() % whole.size()));
            break;
        default: {  // the index is half written
            const std::uint32_t index =
                HpackFormat::Word(bytes.data() + HpackFormat::indexOffsetAt);
            bytes.resize(index + random() % (bytes.size() - index));
        }
    }
    return bytes;
}

TEST(HpackRecover, WhatIsWholeIsThereAfterAnyDamage) {
    int wholeItems = 0;
    int older = 0;
    for (unsigned int seed = 1; seed <= 6000; ++seed) {
        Random random(seed);
        const Sample sample(random);
        const qtString damaged = Damage(sample.bytes, random);
        const Recovered usual = Recover(damaged);
        const Recovered all = Recover(damaged, true);
        const bool good = usual.report.index == HpackRecoverReport::good;
        for (const auto& [key, body] : sample.live) {
            const unsigned int offset = sample.offsets.at(key);
            const std::size_t length = HpackFormat::recordOverhead + key.size() + body.size();
            if (damaged.size() < offset + length ||
                damaged.compare(offset, length, sample.bytes, offset, length) != 0) {
                continue;
            }
            ++wholeItems;
            const auto found = all.items.find(key);
            ASSERT_NE(found, all.items.end()) << "seed " << seed << ", key " << key;
            const bool told = good && usual.items.count(key) != 0;
            // Without an index the last version counts, even one that lost its key to another item.
            const bool later = std::any_of(
                sample.written.upper_bound(offset), sample.written.end(), [&](const auto& record) {
                    return record.second.key == key && record.second.body == found->second;
                });
            if (found->second != body && !(!told && (later || sample.packageRests))) {
                // What lay in an item's former body may be taken for a version of this one.
                ASSERT_FALSE(told) << "seed " << seed << " " << key;
                ++older;
            }
            ASSERT_TRUE(usual.items.count(key) != 0 || usual.Notes(HpackRecoverNote::unlisted, key))
                << "seed " << seed << ", key " << key;
        }
    }
    EXPECT_GT(wholeItems, 20000);
    EXPECT_LE(older, 3);
    RecordProperty("wholeItems", wholeItems);
}

TEST(HpackRecover, AWholePackageStaysAsItIs) {
    for (unsigned int seed = 1; seed <= 300; ++seed) {
        Random random(seed);
        const Sample sample(random);
        const Recovered same = Recover(sample.bytes);
        EXPECT_EQ(same.report.index, HpackRecoverReport::good) << "seed " << seed;
        EXPECT_EQ(same.items, sample.live) << "seed " << seed;
        EXPECT_EQ(same.report.listed, sample.live.size());
        EXPECT_EQ(same.id, 7U);
        EXPECT_EQ(same.state, 3);

        // Only the header has lost it: the index is found and tells as much.
        qtString strayed = sample.bytes;
        strayed.replace(0, HpackFormat::headerSize, HpackFormat::headerSize, '\0');
        const Recovered found = Recover(strayed);
        if (!sample.live.empty()) {
            EXPECT_EQ(found.report.index, HpackRecoverReport::strayed) << "seed " << seed;
            EXPECT_FALSE(found.report.header);
            for (const auto& [key, body] : sample.live) {
                EXPECT_EQ(found.items.count(key), 1U) << "seed " << seed << " " << key;
            }
        }
    }
}

// Cases made by hand, each with what comes out and what is said.
class HpackRecoverCase : public testing::Test {
protected:
    HpackRecoverCase() {
        package.Open(buffer, 'w');
        for (const char* const key : {"a", "b", "c"}) {
            package.AddOrUpdate(key, qtString(key) + "1");
        }
        package.Close();
    }
    ~HpackRecoverCase() noexcept override = default;

    void Update(const std::function<void(Hpack&)>& change) {
        package.Open(buffer, 'u');
        change(package);
        package.Close();
    }
    qtString Saved() const { return Bytes(*buffer); }
    static qtString Record(const qtString& key, const qtString& body) {
        return Hex("4a5b6c73") + Hpack::MakeStringKey(static_cast<unsigned int>(key.size())) + key +
               Hpack::MakeStringKey(static_cast<unsigned int>(body.size())) + body;
    }
    static qtString WithoutIndex(qtString bytes) {
        for (std::size_t at = 0; (at = bytes.find(Hex("4a5b6c72"), at)) != qtString::npos;) {
            bytes[at] = 0;
        }
        return bytes.replace(HpackFormat::indexOffsetAt, 4, 4, '\0');
    }

    const Contents three = {{"a", "a1"}, {"b", "b1"}, {"c", "c1"}};
    qtPtr<qtBuffer> buffer = NewBuffer();
    Hpack package;
};

TEST_F(HpackRecoverCase, DeletedItemsComeBackOnlyWhenAskedFor) {
    Update([](Hpack& changed) {
        changed.Delete("b");
        changed.Rename("c", "longer");
    });
    const Contents live = {{"a", "a1"}, {"longer", "c1"}};
    const Recovered usual = Recover(Saved());
    EXPECT_EQ(usual.items, live);
    EXPECT_TRUE(usual.Notes(HpackRecoverNote::unlisted, "b"));
    EXPECT_EQ(Recover(Saved(), true).items.size(), 4U);
    EXPECT_EQ(Recover(WithoutIndex(Saved())).items.size(), 4U);
}

TEST_F(HpackRecoverCase, NeverClosed) {
    const qtString open = WithoutIndex(Saved().substr(0, Saved().size() - 35));
    const Recovered all = Recover(open + Record("a", "a2") + Record("d", "cut").substr(0, 15));
    EXPECT_EQ(all.report.index, HpackRecoverReport::none);
    EXPECT_EQ(all.items, (Contents{{"a", "a2"}, {"b", "b1"}, {"c", "c1"}}));
    EXPECT_EQ(all.report.superseded, 1U);
    EXPECT_TRUE(all.Notes(HpackRecoverNote::cut, "d"));
}

TEST_F(HpackRecoverCase, DamagedRecords) {
    Update([](Hpack& changed) { changed.AddOrUpdate("b", "longer"); });
    qtString bytes = Saved();
    bytes[bytes.find(Record("a", "a1"))] = 'x';
    bytes[bytes.find(Record("b", "longer"))] = 'x';
    const Recovered found = Recover(bytes);
    EXPECT_EQ(found.items, (Contents{{"b", "b1"}, {"c", "c1"}}));
    EXPECT_TRUE(found.Notes(HpackRecoverNote::lost, "a"));
    EXPECT_TRUE(found.Notes(HpackRecoverNote::older, "b"));
}

TEST_F(HpackRecoverCase, LengthsThatReachIntoOtherRecords) {
    qtString bytes = Saved();
    bytes[bytes.find(Record("a", "a1")) + 12] = 20;  // into b and c
    EXPECT_EQ(Recover(bytes).items, (Contents{{"b", "b1"}, {"c", "c1"}}));
    const Recovered scanned = Recover(WithoutIndex(bytes));
    EXPECT_TRUE(scanned.Notes(HpackRecoverNote::doubtful, "a"));
    EXPECT_EQ(scanned.items.at("b"), "b1");
    EXPECT_EQ(scanned.items.at("c"), "c1");
    // The key reaches to the length of the body of b.
    bytes = Saved();
    bytes[bytes.find(Record("a", "a1")) + 7] = 16;
    EXPECT_EQ(Recover(WithoutIndex(bytes)).items.at("b"), "b1");
    EXPECT_EQ(Recover(WithoutIndex(bytes)).items.at("c"), "c1");
}

// Found by the fuzz target: records in each other's keys made a package much larger than its
// source.
TEST_F(HpackRecoverCase, RecordsInKeysAreDoubtful) {
    qtString nest = Record("x", "");
    for (int depth = 0; depth < 20; ++depth) {
        nest = Record(nest + Hex("00"), "") + "..";
    }
    EXPECT_LT(Recover(WithoutIndex(Saved()) + nest).report.items, 12U);  // of 23
}

TEST_F(HpackRecoverCase, BodiesThatLookLikeRecords) {
    const qtString inner = Saved();
    Update([&](Hpack& changed) {
        changed.AddOrUpdate("b", inner);
        changed.AddOrUpdate("a", "the last of the three");
        changed.AddOrUpdate("z", Record("a", "not an item"));
        changed.AddOrUpdate("y", "end");
    });
    const Contents live = {{"a", "the last of the three"},
                           {"b", inner},
                           {"c", "c1"},
                           {"y", "end"},
                           {"z", Record("a", "not an item")}};
    EXPECT_EQ(Recover(Saved()).items, live);
    EXPECT_EQ(Recover(WithoutIndex(Saved())).items.at("a"), live.at("a"));

    // Shortened in place: the record ends nowhere in particular, and what it holds gives way.
    Update([&](Hpack& changed) {
        changed.AddOrUpdate("b", inner + qtString(30, '-'));
        changed.AddOrUpdate("b", inner);
        changed.Delete("c");
    });
    const Recovered scanned = Recover(WithoutIndex(Saved()));
    EXPECT_EQ(scanned.items.at("b").size(), inner.size());
    EXPECT_EQ(scanned.items.at("a"), live.at("a"));
}

TEST_F(HpackRecoverCase, OldHeadersAndNoPackageAtAll) {
    Update([](Hpack& changed) { changed.SetOldID(true); });
    const Recovered old = Recover(Saved());
    EXPECT_TRUE(old.old);
    EXPECT_EQ(old.items, three);
    for (const qtString& bytes : {qtString(), qtString("x"), qtString(100000, '\x4a')}) {
        EXPECT_EQ(Recover(bytes).report.items, 0U);
    }
}

// A disk with a bad sector: what is not in it is got out.
TEST_F(HpackRecoverCase, StreamThatFailsWhileItIsRead) {
    for (long calls = 0; calls < 60; ++calls) {
        FaultyStream stream(*buffer);
        stream.FailAfter(calls, false);
        Contents items;
        try {
            items = RecoverFrom(stream, true).items;
        } catch (const qtX<HioErr>&) {
            EXPECT_EQ(calls, 0);  // the length is not known
            continue;
        }
        EXPECT_TRUE(std::includes(three.begin(), three.end(), items.begin(), items.end()));
        EXPECT_GE(items.size(), 2U) << calls;
    }
}

}  // namespace
