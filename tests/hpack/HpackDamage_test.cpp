// Packages that a reader can not trust: whatever their bytes are, opening and every operation give
// the right result or a documented error, and ask for no more memory than the bytes justify.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>

#include "hpack/Hmemory.h"
#include "hpack/Hpack.h"
#include "hpack/HpackCheck.h"
#include "hpack/HpackFormat.h"
#include "hpack/HpackRecover.h"
#include "tests/support/Allocations.h"
#include "tests/support/Bytes.h"
#include "tests/support/TempFolder.h"

namespace {

constexpr const char* formats[] = {"current", "old-unicode", "old-ascii"};

qtString SmallPackage(const char* format = "current") {
    qtPtr<qtBuffer> buffer = NewBuffer();
    Hpack package;
    package.Open(buffer, 'w');
    package.AddOrUpdate("one", "first body");
    package.AddOrUpdate("", "");
    package.AddOrUpdate("two", "second");
    package.Close();
    package.Open(buffer, 'u');
    package.AddOrUpdate("two", "behind the index");
    package.SetFileID(1, 2, 3);
    if (format != formats[0]) {
        package.SetOldID(format == formats[1]);
    }
    package.Close();
    return Bytes(*buffer);
}

// The files were written once and for all: what changes a byte of them changes the format.
TEST(HpackDamage, GoldenFilesAreWrittenByteForByte) {
    for (const char* const format : formats) {
        EXPECT_EQ(SmallPackage(format), FileBytes(qtString(GOLDEN_FOLDER) + format + ".hpk"));
    }
}

// Runs `action`. @return false when it gave an error; one that is not documented fails the test.
template <class Action>
bool Succeeds(Action action) {
    try {
        action();
        return true;
    } catch (const qtX<Hpack>& error) {
        EXPECT_TRUE(error.Number() >= 0 && error.Number() <= 6) << error.ErrorString();
    } catch (const qtX<HioErr>& error) {
        EXPECT_TRUE(error.Number() >= 2 && error.Number() <= 4) << error.ErrorString();
    }
    return false;
}

// Every operation on the package at `source`, a buffer or a file name.
template <class Source>
void TryEverything(Source& source, std::size_t length) {
    Allocations::largest = 0;
    for (const char mode : {'r', 'u'}) {
        Hpack package;
        if (!Succeeds([&] { package.Open(source, mode); })) {
            package.Close();
            continue;
        }
        std::vector<qtString> keys;
        package.GetIndex(keys);
        EXPECT_TRUE(std::is_sorted(keys.begin(), keys.end()));
        for (const qtString& key : keys) {
            qtString text;
            qtBuffer bytes;
            SegBuf segments;
            const bool readable = Succeeds([&] { package.GetItem(key, text); });
            EXPECT_EQ(Succeeds([&] { package.GetItem(key, bytes); }), readable);
            EXPECT_EQ(Succeeds([&] { package.GetItem(key, segments); }), readable);
            EXPECT_LE(bytes.Length(), length + 1);
            if (readable) {
                EXPECT_EQ(Bytes(bytes), text);
                EXPECT_EQ(segments.size, text.size());
            }
        }
        if (mode == 'u') {
            unsigned int size = 0;
            unsigned int dead = 0;
            Succeeds([&] { package.CalculateDeadSpace(size, dead); });
            Succeeds([&] { package.AddOrUpdate("new", "item"); });
            Succeeds([&] { package.Rename("one", "renamed"); });
            Succeeds([&] { package.Delete("two"); });
        }
        Succeeds([&] { package.Close(); });
    }
    // What is allocated apart from the package: a piece of reading ahead, stream buffers.
    EXPECT_LE(Allocations::largest, 8 * length + 128 * 1024);
}

void TryBytes(const qtString& bytes) {
    qtPtr<qtBuffer> buffer = NewBuffer(bytes);
    TryEverything(buffer, bytes.size());
    // What has no fault is read in full, and what is recovered has none.
    Hmemory stream;
    stream.Open(*buffer, 'r');
    const bool good = HpackCheck(stream).Good();
    qtPtr<qtBuffer> out = NewBuffer();
    Hpack package;
    package.Open(out, 'w');
    const HpackRecoverReport report = HpackRecover(stream, package);
    package.Close();
    Hmemory recovered;
    recovered.Open(*out, 'r');
    EXPECT_TRUE(HpackCheck(recovered).Good());
    if (good) {
        package.Open(buffer, 'r');
        std::vector<qtString> keys;
        package.GetIndex(keys);
        EXPECT_EQ(report.items, keys.size());
        EXPECT_EQ(report.listed, keys.size());
        qtString body;
        for (const qtString& key : keys) {
            package.GetItem(key, body);
        }
    }
    EXPECT_LE(Allocations::largest, 8 * bytes.size() + 384 * 1024);
}

class HpackFormatDamage : public testing::TestWithParam<const char*> {};

INSTANTIATE_TEST_SUITE_P(Formats, HpackFormatDamage, testing::ValuesIn(formats),
                         [](const auto& format) { return std::to_string(format.index); });

TEST_P(HpackFormatDamage, CutAtEveryLength) {
    const qtString bytes = SmallPackage(GetParam());
    const TempFolder folder;
    const qtString name = folder / "cut";
    for (std::size_t length = 0; length <= bytes.size(); ++length) {
        TryBytes(bytes.substr(0, length));
        if (GetParam() == formats[0]) {
            WriteFile(name, bytes.substr(0, length));
            TryEverything(name, length);
        }
    }
}

TEST_P(HpackFormatDamage, EveryBitFlipped) {
    const qtString bytes = SmallPackage(GetParam());
    const TempFolder folder;
    const qtString name = folder / "flipped";
    for (std::size_t bit = 0; bit < 8 * bytes.size(); ++bit) {
        qtString flipped(bytes);
        flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ 1 << bit % 8);
        TryBytes(flipped);
        if (GetParam() == formats[0] && bit % 8 == bit / 8 % 8) {
            WriteFile(name, flipped);
            TryEverything(name, bytes.size());
        }
    }
}

TEST_P(HpackFormatDamage, EveryWordReplaced) {
    const qtString bytes = SmallPackage(GetParam());
    const auto length = static_cast<std::uint32_t>(bytes.size());
    for (std::size_t at = 0; at + 4 <= bytes.size(); ++at) {
        for (const std::uint32_t word :
             {0u, 1u, length - 1, length, 0x7fffffffu, 0x80000000u, 0xfffffff8u, 0xffffffffu}) {
            qtString replaced(bytes);
            HpackFormat::PutWord(replaced.data() + at, word);
            TryBytes(replaced);
        }
    }
}

TEST(HpackDamage, RandomBytesBehindAGoodHeader) {
    std::mt19937 random(11);
    for (int round = 0; round < 20000; ++round) {
        qtString bytes = SmallPackage();
        for (auto i = random() % 8; i-- > 0;) {
            bytes[random() % bytes.size()] = static_cast<char>(random() % 4 == 0 ? random() : 0);
        }
        TryBytes(bytes.substr(0, bytes.size() - random() % 4));
    }
}

// An index block as damage or another writer may leave it: out of order, a key more than once.
TEST(HpackDamage, UnsortedIndexKeepsTheLastOfEqualKeys) {
    std::mt19937 random(5);
    for (int round = 0; round < 200; ++round) {
        qtString bytes = Hex("4a5b6c66 00000010 00000000 00000000 4a5b6c72 00000000");
        const auto count = static_cast<std::uint32_t>(random() % 60);
        HpackFormat::PutWord(bytes.data() + 20, count);
        std::map<qtString, std::uint32_t> model;
        for (std::uint32_t i = 0; i < count; ++i) {
            const qtString key(random() % 12, static_cast<char>('a' + random() % 3));
            char words[8];
            HpackFormat::PutWord(words, static_cast<std::uint32_t>(key.size()));
            HpackFormat::PutWord(words + 4, 16 + i);
            bytes.append(words, 4).append(key).append(words + 4, 4);
            model[key] = 16 + i;
        }
        qtPtr<qtBuffer> buffer = NewBuffer(bytes);
        Hpack package;
        package.Open(buffer, 'u');
        std::vector<qtString> keys;
        package.GetIndex(keys);
        ASSERT_EQ(keys.size(), model.size());
        std::size_t size = 8;
        for (const auto& [key, offset] : model) {
            size += 8 + key.size();
            EXPECT_TRUE(std::binary_search(keys.begin(), keys.end(), key));
        }
        EXPECT_EQ(package.GetIndexSpace(), size);
        package.WriteIndex(16);
        package.Close();
        package.Open(buffer, 'r');
        std::vector<qtString> again;
        package.GetIndex(again);
        EXPECT_EQ(again, keys);
        std::size_t at = 24;
        for (const auto& [key, offset] : model) {
            at += 4 + key.size();
            EXPECT_EQ(HpackFormat::Word(buffer->Data() + at), offset) << key;
            at += 4;
        }
    }
}

}  // namespace
