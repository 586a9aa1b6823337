#include "hpack/HpackCheck.h"

#include <gtest/gtest.h>

#include "tests/support/Allocations.h"
#include "tests/support/Attempts.h"
#include "tests/support/FaultyStream.h"

namespace {

// Header 0, "a" 16, "b" 30, index 44: "a" at 52, "b" at 61; both end at 70.
const qtString twoItems = Package({{"a", "1"}, {"b", "2"}});

auto PutAt(std::size_t at, std::uint32_t word) {
    return [=](qtString& bytes) { HpackFormat::PutWord(bytes.data() + at, word); };
}

/// All that a report says.
std::string Text(const HpackCheckReport& report) {
    std::string text = std::to_string(report.wholeItems) + '/' + std::to_string(report.items);
    for (const HpackFault& fault : report.faults) {
        text +=
            std::string("; ") + HpackFault::Name(fault.kind) + ' ' + std::to_string(fault.offset);
        text += fault.ofItem ? ' ' + fault.key.substr(0, 4) : std::string();
        text += fault.other.empty() ? std::string() : " over " + fault.other;
    }
    return text;
}

TEST(HpackCheck, FindsEachKindOfFault) {
    const struct {
        const char* expected;
        std::function<void(qtString&)> damage;
    } cases[] = {
        {"2/2", [](qtString&) {}},
        {"0/0; header-cut 0", [](qtString& bytes) { bytes.resize(7); }},
        {"0/0; header-cut 0", [](qtString& bytes) { bytes.resize(15); }},
        {"0/0; header-magic 0", PutAt(0, 7)},
        {"0/0; no-index 0", PutAt(4, 0)},
        {"0/0; index-offset 63", PutAt(4, 63)},
        {"0/0; index-offset 4294967295", PutAt(4, 0xffffffff)},
        {"0/0; index-marker 44", PutAt(44, 1)},
        {"2/2; index-cut 44", PutAt(48, 3)},
        {"1/1; index-cut 44", PutAt(61, 0xfffffff0)},
        {"0/2; key-order 30 a; record-key 16 b; record-key 30 a",
         [](qtString& bytes) { bytes[56] = 'b', bytes[65] = 'a'; }},
        {"0/1; key-twice 16 a; record-key 30 a", [](qtString& bytes) { bytes[65] = 'a'; }},
        {"1/2; record-offset 4294967295 b", PutAt(66, 0xffffffff)},
        {"1/2; record-marker 30 b", PutAt(30, 1)},
        {"1/2; record-key 30 b", [](qtString& bytes) { bytes[38] = 'c'; }},
        {"1/2; record-key 16 b", PutAt(66, 16)},
        {"1/2; record-cut 30 b", PutAt(39, 1000)},
        {"1/2; record-cut 30 b", PutAt(34, 0xffffffff)},
        {"1/2; overlaps-item 30 b over a", PutAt(25, 4)},
        {"1/2; overlaps-index 30 b", PutAt(39, 2)},
        {"0/0; overlaps-header 8",
         [](qtString& bytes) {
             bytes.replace(4, 12, Word(8) + Word(HpackFormat::IndexMagic) + Word(0));
         }},
        {"1/2; overlaps-header 8 a",
         [](qtString& bytes) {
             bytes.replace(8, 13, bytes.substr(16, 13));
             HpackFormat::PutWord(bytes.data() + 57, 8);
         }},
        // The record that reaches furthest is named; of two with one end the first.
        {"1/3; overlaps-item 29 b over a; overlaps-item 42 c over a",
         [](qtString& bytes) {
             const qtString c = Record("c", "");
             const qtString b = Record("b", c);
             bytes = Package({{"a", b}});
             const std::size_t index = bytes.size() - 17;
             bytes.resize(index);
             bytes += Word(HpackFormat::IndexMagic) + Word(3);
             for (const auto& [key, offset] : {std::pair("a", 16), {"b", 29}, {"c", 42}}) {
                 bytes += Word(1) + key + Word(static_cast<std::size_t>(offset));
             }
         }},
        // A key beyond the size of a piece that is compared at once.
        {"0/1; record-key 16 kkkk",
         [](qtString& bytes) {
             bytes = Package({{qtString(1500, 'k'), ""}});
             bytes[16 + 8 + 1400] = 'x';
         }},
        // A record that is cut in its key, and one that is empty and ends with the stream.
        {"1/2; record-cut 55 b",
         [](qtString& bytes) {
             bytes = Hex("4a5b6c66 00000010 00000000 00000000") + bytes.substr(44) +
                     Record("a", "") + Record("bbb", "").substr(0, 12);
             HpackFormat::PutWord(bytes.data() + 29, 42);
             HpackFormat::PutWord(bytes.data() + 38, 55);
         }},
    };
    for (const auto& [expected, damage] : cases) {
        qtString bytes = twoItems;
        damage(bytes);
        EXPECT_EQ(Text(Check(bytes)), expected);
    }
}

/// A stream of zeros after the given bytes.
class LongStream : public Hmemory {
public:
    explicit LongStream(unsigned int streamLength) : length(streamLength) {}
    void Seek(int offset) override { position = static_cast<unsigned int>(offset); }
    unsigned int SeekEnd() override { return length; }
    void Read(char* data, unsigned int count) override {
        for (; count-- > 0; ++position) {
            *data++ = position < twoItems.size() ? twoItems[position] : '\0';
        }
    }

private:
    const unsigned int length;
    unsigned int position = 0;
};

TEST(HpackCheck, TheLongestPackage) {
    LongStream longest(0x7fffffff);
    EXPECT_EQ(Text(HpackCheck(longest)), "2/2");
    LongStream tooLong(0x80000000);
    EXPECT_EQ(Text(HpackCheck(tooLong)), "2/2; too-long 2147483647");
}

TEST(HpackCheck, DistinguishesUnreadableFromDamaged) {
    const qtPtr<qtBuffer> buffer = NewBuffer(Package({{"a", qtString(100000, 'a')}}));
    for (const auto& [calls, expected] :
         std::initializer_list<std::pair<long, const char*>>{{1, "0/0; unreadable 0"},
                                                             {3, "0/0; unreadable 100029"},
                                                             {8, "0/1; unreadable 16 a"}}) {
        FaultyStream stream(*buffer);
        stream.FailAfter(calls, true);
        EXPECT_EQ(Text(HpackCheck(stream)), expected);
    }
    // An index of which a part can be read.
    Contents many;
    for (unsigned int number = 0; number < 2000; ++number) {
        many[Hpack::MakeStringKey(number)] = "";
    }
    const qtPtr<qtBuffer> large = NewBuffer(Package(many));
    FaultyStream stream(*large);
    stream.FailAfter(7, true);
    const HpackCheckReport report = HpackCheck(stream);
    ASSERT_GT(report.items, 100U);
    ASSERT_EQ(report.faults.size(), report.items - report.wholeItems + 1);
    for (const HpackFault& fault : report.faults) {
        EXPECT_EQ(fault.kind, HpackFault::unreadable);
    }
}

TEST(HpackCheck, MemoryIsBoundedByTheSize) {
    const std::size_t count = 200000;
    qtString bytes = Hex("4a5b6c66 00000010 00000000 00000000 4a5b6c72") + Word(count);
    bytes.append(8 * count, '\0');
    Allocations::largest = 0;
    const HpackCheckReport report = Check(bytes);
    EXPECT_EQ(report.faults.size(), 65536U);
    EXPECT_EQ(report.unlisted, count - 1 - 65536 + 1);
    EXPECT_LE(Allocations::largest, 16 * bytes.size());
}

// The tables of the documents list kinds and texts in their order.
TEST(HpackCheck, TextsAreThoseOfTheDocuments) {
    const std::string page = FileBytes(DOCUMENTS "errors.md");
    const auto compare = [&](const char* heading, auto kinds, auto name, auto text) {
        std::string table = "| kind | text |\n|---|---|\n";
        for (int kind = 0; kind <= kinds; ++kind) {
            table += std::string("| `") + name(kind) + "` | " + text(kind) + " |\n";
        }
        const std::size_t at = page.find(heading);
        ASSERT_NE(at, std::string::npos);
        EXPECT_EQ(page.substr(page.find("| kind", at), table.size()), table);
    };
    compare(
        "HpackCheck`", HpackFault::unreadable,
        [](int kind) { return HpackFault::Name(static_cast<HpackFault::Kind>(kind)); },
        [](int kind) { return HpackFault::Text(static_cast<HpackFault::Kind>(kind)); });
    compare(
        "HpackRecover`", HpackRecoverNote::setAside,
        [](int kind) { return HpackRecoverNote::Name(static_cast<HpackRecoverNote::Kind>(kind)); },
        [](int kind) { return HpackRecoverNote::Text(static_cast<HpackRecoverNote::Kind>(kind)); });
}

}  // namespace
