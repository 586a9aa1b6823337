#include "hpack/HpackRecover.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/support/Attempts.h"
#include "tests/support/FaultyStream.h"

namespace {

using Random = std::mt19937;

struct Recovery {
    explicit Recovery(Generic32& stream, bool unlisted = false) {
        Opened target(Recovered(stream, report, unlisted));
        items = Items(target);
        EXPECT_EQ(report.items, items.size());
        unsigned short word = 0;
        unsigned char flags = 0;
        bool old = false;
        target.GetFileID(id, word, flags, old);
        target.GetState(state);
    }

    bool Notes(HpackRecoverNote::Kind kind, const qtString& key) const {
        return std::any_of(report.notes.begin(), report.notes.end(),
                           [&](const auto& note) { return note.kind == kind && note.key == key; });
    }

    HpackRecoverReport report;
    Contents items;
    unsigned int id = 0;
    unsigned char state = 0;
};

Recovery Recover(const qtString& bytes, bool unlisted = false) {
    Reading stream(bytes);
    return Recovery(stream, unlisted);
}

/// A package after random operations, and every record that is whole in it.
struct Sample {
    explicit Sample(Random& random, bool nested = true) {
        Opened package("", 'w');
        const auto sessions = random() % 3;
        for (std::size_t session = 0; session <= sessions; ++session) {
            for (auto count = random() % 15; count-- > 0;) {
                Do(package, RandomChange(random, live, [&] { return Body(random, nested); }),
                   session == 0);
            }
            package.SetFileID(7, 8, 9);
            package.SetState(3);
            package.Close();
            package.Open(package.buffer, 'u');
        }
        bytes = Bytes(*package.buffer);
        for (const auto& [key, body] : live) {
            offsets[key] = Place(package, key).first;
        }
    }

    static qtString Body(Random& random, bool nested) {
        if (nested && random() % 5 == 0) {
            return Sample(random, false).bytes;  // keys are the same as those outside
        }
        qtString body(random() % 60, '\0');
        std::generate(body.begin(), body.end(), [&] { return static_cast<char>(random()); });
        return body;
    }
    void Do(Hpack& package, Change change, bool creating) {
        if (creating && change.kind != Change::adding) {
            return;
        }
        const auto former = live.find(change.key);
        if (change.kind == Change::adding && former != live.end() &&
            former->second.size() > change.with.size()) {
            packageRests |= former->second.find(Hex("4a5b6c73")) != qtString::npos;
        }
        change.Do(package);
        change.Do(live);
        if (change.kind != Change::removing) {
            const qtString& key = change.kind == Change::adding ? change.key : change.with;
            written[Place(package, key).first] = {key, live.at(key)};
        }
    }

    qtString bytes;
    bool packageRests = false;  // records of a package are left behind a shorter body
    Contents live;
    std::map<qtString, std::size_t> offsets;
    std::map<std::size_t, std::pair<qtString, qtString>> written;  // key and body, by offset
};

qtString Damage(qtString bytes, Random& random) {
    const auto at = random() % bytes.size();
    const std::uint32_t index = HpackFormat::Word(bytes.data() + HpackFormat::indexOffsetAt);
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
        case 3:
        case 4: {  // a block of zeros or of noise
            const auto mask = random() % 2 == 0 ? 0 : 255;
            for (auto end = std::min(bytes.size(), at + random() % 200); end-- > at;) {
                bytes[end] = static_cast<char>(random() & mask);
            }
            break;
        }
        case 5:  // no index, or a wrong one
            bytes.replace(HpackFormat::indexOffsetAt, 4, Word(random() % 2 * at));
            break;
        default:  // the index is half written
            bytes.resize(index + random() % (bytes.size() - index));
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
        const Recovery usual = Recover(damaged);
        const Recovery all = Recover(damaged, true);
        const bool good = usual.report.index == HpackRecoverReport::good;
        for (const auto& [key, body] : sample.live) {
            const std::size_t offset = sample.offsets.at(key);
            const std::size_t length = HpackFormat::recordOverhead + key.size() + body.size();
            if (damaged.size() < offset + length ||
                damaged.compare(offset, length, sample.bytes, offset, length) != 0) {
                continue;
            }
            SCOPED_TRACE("seed " + std::to_string(seed) + ", key " + key);
            ++wholeItems;
            const auto found = all.items.find(key);
            ASSERT_NE(found, all.items.end());
            const bool told = good && usual.items.count(key) != 0;
            // Without an index the last version counts, even one that lost its key to another item.
            const bool later = std::any_of(
                sample.written.upper_bound(offset), sample.written.end(),
                [&](const auto& record) { return record.second == std::pair(key, found->second); });
            if (found->second != body && !(!told && (later || sample.packageRests))) {
                // What lay in an item's former body may be taken for a version of this one.
                ASSERT_FALSE(told);
                ++older;
            }
            ASSERT_TRUE(usual.items.count(key) != 0 ||
                        usual.Notes(HpackRecoverNote::unlisted, key));
        }
    }
    EXPECT_GT(wholeItems, 20000);
    EXPECT_LE(older, 3);
}

TEST(HpackRecover, AnIndexThatStrayedIsFound) {
    for (unsigned int seed = 1; seed <= 300; ++seed) {
        Random random(seed);
        const Sample sample(random);
        const Recovery same = Recover(sample.bytes);
        EXPECT_EQ(std::tuple(same.report.index, same.id, same.state),
                  std::tuple(HpackRecoverReport::good, 7U, 3));
        qtString strayed = sample.bytes;
        strayed.replace(0, HpackFormat::headerSize, HpackFormat::headerSize, '\0');
        const Recovery found = Recover(strayed);
        EXPECT_EQ(found.report.index == HpackRecoverReport::strayed, !sample.live.empty());
        EXPECT_FALSE(found.report.header);
        for (const auto& [key, body] : sample.live) {
            EXPECT_EQ(found.items.count(key), 1U) << "seed " << seed << " " << key;
        }
    }
}

class HpackRecoverCase : public testing::Test {
protected:
    static qtString WithoutIndex(qtString bytes) {
        for (std::size_t at = 0; (at = bytes.find(Hex("4a5b6c72"), at)) != qtString::npos;) {
            bytes[at] = 0;
        }
        return bytes.replace(HpackFormat::indexOffsetAt, 4, 4, '\0');
    }

    const Contents three = {{"a", "a1"}, {"b", "b1"}, {"c", "c1"}};
    const Contents two = {{"b", "b1"}, {"c", "c1"}};
    qtString saved = Package(three);
};

TEST_F(HpackRecoverCase, NeverClosed) {
    const qtString open = WithoutIndex(saved.substr(0, saved.size() - 35));
    const Recovery all = Recover(open + Record("a", "a2") + Record("d", "cut").substr(0, 15));
    EXPECT_EQ(all.report.index, HpackRecoverReport::none);
    EXPECT_EQ(all.items, (Contents{{"a", "a2"}, {"b", "b1"}, {"c", "c1"}}));
    EXPECT_EQ(all.report.superseded, 1U);
    EXPECT_TRUE(all.Notes(HpackRecoverNote::cut, "d"));
}

TEST_F(HpackRecoverCase, DamagedRecords) {
    saved = Updated(saved, [](Hpack& package) { package.AddOrUpdate("b", "longer"); });
    saved[saved.find(Record("a", "a1"))] = 'x';
    saved[saved.find(Record("b", "longer"))] = 'x';
    const Recovery found = Recover(saved);
    EXPECT_EQ(found.items, two);
    EXPECT_TRUE(found.Notes(HpackRecoverNote::lost, "a"));
    EXPECT_TRUE(found.Notes(HpackRecoverNote::older, "b"));
}

TEST_F(HpackRecoverCase, LengthsThatReachIntoOtherRecords) {
    const std::size_t first = saved.find(Record("a", "a1"));
    saved[first + 12] = 20;  // into b and c
    EXPECT_EQ(Recover(saved).items, two);
    EXPECT_TRUE(Recover(WithoutIndex(saved)).Notes(HpackRecoverNote::doubtful, "a"));
}

// Found by the fuzz target: records in each other's keys made a package larger than its source.
TEST_F(HpackRecoverCase, RecordsInKeysAreDoubtful) {
    qtString nest = Record("x", "");
    for (int depth = 0; depth < 20; ++depth) {
        nest = Record(nest + Hex("00"), "") + "..";
    }
    EXPECT_LT(Recover(WithoutIndex(saved) + nest).report.items, 12U);  // of 23
}

// It ends nowhere in particular then, and what it holds gives way.
TEST_F(HpackRecoverCase, BodyOfRecordsThatIsShortenedInPlace) {
    const qtString shortened = Updated(saved, [&](Hpack& package) {
        package.AddOrUpdate("a", "the last one");
        package.AddOrUpdate("b", saved + qtString(30, '-'));
        package.AddOrUpdate("b", saved);
    });
    const Contents scanned = Recover(WithoutIndex(shortened)).items;
    EXPECT_EQ(scanned.at("b").size(), saved.size());
    EXPECT_EQ(scanned.at("a"), "the last one");
}

TEST_F(HpackRecoverCase, NoPackageAtAll) {
    for (const qtString& bytes : {qtString(), qtString("x"), qtString(100000, '\x4a')}) {
        EXPECT_EQ(Recover(bytes).report.items, 0U);
    }
}

TEST_F(HpackRecoverCase, DiskWithABadSector) {
    const qtPtr<qtBuffer> buffer = NewBuffer(saved);
    for (long calls = 0; calls < 60; ++calls) {
        FaultyStream stream(*buffer);
        stream.FailAfter(calls, false);
        try {
            const Contents items = Recovery(stream, true).items;
            EXPECT_TRUE(std::includes(three.begin(), three.end(), items.begin(), items.end()));
            EXPECT_GE(items.size(), 2U) << calls;
        } catch (const qtX<HioErr>&) {
            EXPECT_EQ(calls, 0);  // the length is not known
        }
    }
}

}  // namespace
