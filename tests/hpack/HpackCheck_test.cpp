#include "hpack/HpackCheck.h"

#include <gtest/gtest.h>

#include "tests/support/Attempts.h"
#include "tests/support/FaultyStream.h"

namespace {

// Header 0, "a" 16, "b" 30, index 44: "a" at 52, "b" at 61; both end at 70.
const qtString twoItems = Package({{"a", "1"}, {"b", "2"}});

struct Case {
    HpackFault::Kind kind;
    const char* key;
    std::uint32_t items;
    std::function<void(qtString&)> damage;
};

auto PutAt(std::size_t at, std::uint32_t word) {
    return [=](qtString& bytes) { HpackFormat::PutWord(bytes.data() + at, word); };
}

TEST(HpackCheck, FindsEachKindOfFault) {
    const Case cases[] = {
        {HpackFault::headerCut, "", 0, [](qtString& bytes) { bytes.resize(7); }},
        {HpackFault::headerCut, "", 0, [](qtString& bytes) { bytes.resize(15); }},
        {HpackFault::headerMagic, "", 0, PutAt(0, 7)},
        {HpackFault::noIndex, "", 0, PutAt(4, 0)},
        {HpackFault::indexOffset, "", 0, PutAt(4, 63)},
        {HpackFault::indexOffset, "", 0, PutAt(4, 0xffffffff)},
        {HpackFault::indexMarker, "", 0, PutAt(44, 1)},
        {HpackFault::indexCut, "", 2, PutAt(48, 3)},
        {HpackFault::indexCut, "", 1, PutAt(61, 0xfffffff0)},
        {HpackFault::keyOrder, "a", 2, [](qtString& bytes) { bytes[56] = 'b', bytes[65] = 'a'; }},
        {HpackFault::keyTwice, "a", 1, [](qtString& bytes) { bytes[65] = 'a'; }},
        {HpackFault::recordOffset, "b", 2, PutAt(66, 0xffffffff)},
        {HpackFault::recordMarker, "b", 2, PutAt(30, 1)},
        {HpackFault::recordKey, "b", 2, [](qtString& bytes) { bytes[38] = 'c'; }},
        {HpackFault::recordKey, "b", 2, PutAt(66, 16)},
        {HpackFault::recordCut, "b", 2, PutAt(39, 1000)},
        {HpackFault::recordCut, "b", 2, PutAt(34, 0xffffffff)},
        {HpackFault::overlapsItem, "b", 2, PutAt(25, 4)},
        {HpackFault::overlapsIndex, "b", 2, PutAt(39, 2)},
        {HpackFault::overlapsHeader, "", 0,
         [](qtString& bytes) {
             bytes.replace(4, 12, Word(8) + Word(HpackFormat::IndexMagic) + Word(0));
         }},
        {HpackFault::overlapsHeader, "a", 2,
         [](qtString& bytes) {
             bytes.replace(8, 13, bytes.substr(16, 13));
             HpackFormat::PutWord(bytes.data() + 57, 8);
         }},
    };
    for (const Case& fault : cases) {
        SCOPED_TRACE(HpackFault::Name(fault.kind));
        qtString bytes = twoItems;
        fault.damage(bytes);
        const HpackCheckReport report = Check(bytes);
        EXPECT_TRUE(std::any_of(report.faults.begin(), report.faults.end(), [&](const auto& found) {
            return found.kind == fault.kind && found.key == fault.key;
        }));
        EXPECT_EQ(report.items, fault.items);
        EXPECT_NE(std::string(HpackFault::Text(fault.kind)), "");
    }
}

// All after the length, after the header, and after the head of the record.
TEST(HpackCheck, WhatCanNotBeReadIsNotTakenForOther) {
    const qtPtr<qtBuffer> buffer = NewBuffer(Package({{"a", qtString(100000, 'a')}}));
    const std::pair<long, std::uint32_t> cases[] = {{1, 0}, {3, 100029}, {7, 16}};
    for (const auto& [calls, offset] : cases) {
        FaultyStream stream(*buffer);
        stream.FailAfter(calls, true);
        const std::vector<HpackFault> faults = HpackCheck(stream).faults;
        ASSERT_EQ(faults.size(), 1U);
        EXPECT_EQ(faults[0].kind, HpackFault::unreadable);
        EXPECT_EQ(faults[0].offset, offset);
    }
    // An index of which only a part is read at first.
    Contents many;
    for (unsigned int number = 0; number < 2000; ++number) {
        many[Hpack::MakeStringKey(number)] = "";
    }
    const qtPtr<qtBuffer> large = NewBuffer(Package(many));
    FaultyStream stream(*large);
    stream.FailAfter(5, true);
    const std::vector<HpackFault> faults = HpackCheck(stream).faults;
    EXPECT_GT(faults.size(), 1000U);
    for (const HpackFault& fault : faults) {
        EXPECT_EQ(fault.kind, HpackFault::unreadable);
    }
}

TEST(HpackCompact, KeepsAllButDeadSpace) {
    const qtString bytes = Updated(Package({{"c", qtString(50000, 'c')}, {"", ""}, {"b", "body"}}),
                                   [&](Hpack& package) {
                                       package.AddOrUpdate("c", qtString(60000, 'd'));
                                       package.Rename("b", "a");
                                       package.AddOrUpdate("a", "behind c");
                                       package.SetFileID(1, 2, 3);
                                       package.SetState(4);
                                   });
    Opened package(bytes);
    for (const HpackOrder order : {HpackOrder::key, HpackOrder::offset}) {
        const auto fill = [&](Hpack& target) { HpackCompact(package, target, order); };
        const qtString compact = Updated("", fill, 'w');
        EXPECT_TRUE(Check(compact).Good());
        Opened copy(compact, 'u');
        EXPECT_TRUE(HpackSame(package, copy));
        EXPECT_EQ(DeadSpace(copy).second, 0U);
        const bool ascends = Place(copy, "a") < Place(copy, "c");
        EXPECT_EQ(ascends, order == HpackOrder::key);
        EXPECT_LT(Place(copy, ""), std::min(Place(copy, "a"), Place(copy, "c")));
        for (const std::function<void(Hpack&)>& change : std::vector<std::function<void(Hpack&)>>{
                 [](Hpack& changed) { changed.AddOrUpdate("c", qtString(60000, 'e')); },
                 [](Hpack& changed) { changed.AddOrUpdate("c", "d"); },
                 [](Hpack& changed) { changed.Rename("c", "d"); },
                 [](Hpack& changed) { changed.Delete("a"); },
                 [](Hpack& changed) { changed.SetState(9); },
                 [](Hpack& changed) { changed.SetOldID(true); },
             }) {
            Opened changed(Updated(compact, change));
            EXPECT_FALSE(HpackSame(package, changed));
        }
    }
}

}  // namespace
