#include "hpack/Hpack.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>

#include "hpack/Hmemory.h"
#include "tests/support/Allocations.h"
#include "tests/support/Errors.h"
#include "tests/support/Items.h"
#include "tests/support/TempFolder.h"

namespace {

// The package of one item that the format's description shows.
const qtString example =
    Hex("4a5b6c66 00000021 00000000 00 00 0000"
        "4a5b6c73 00000002 6162 00000003 78797a"
        "4a5b6c72 00000001 00000002 6162 00000010");

qtString Get(Hpack& package, const qtString& key) {
    qtString body;
    package.GetItem(key, body);
    return body;
}

template <class Action>
void ExpectFailure(Action action, int number, const qtString& text,
                   const std::vector<qtString>& arguments) {
    ExpectError<Hpack>(action, number, text, arguments);
}

class HpackTest : public testing::Test {
protected:
    ~HpackTest() noexcept override = default;

    void Open(const qtString& bytes, char mode) {
        buffer = NewBuffer(bytes);
        package.Open(buffer, mode);
    }
    void Reopen(char mode) {
        package.Close();
        package.Open(buffer, mode);
    }

    qtPtr<qtBuffer> buffer = NewBuffer();
    Hpack package;
};

TEST_F(HpackTest, WritesTheExample) {
    Open(qtString(500, '#'), 'w');
    package.AddOrUpdate("ab", "xyz");
    package.Close();
    EXPECT_EQ(Bytes(*buffer), example);
    EXPECT_EQ(Hpack::MakeStringKey(300), Hex("0000012c"));
}

TEST_F(HpackTest, OpeningFailures) {
    ExpectFailure([&] { Open(example, 'x'); }, 2, "Invalid open mode", {});
    EXPECT_EQ(Bytes(*buffer), example);
    ExpectFailure([&] { Open(Hex("4a5b6c67") + qtString(12, '\0'), 'r'); }, 3,
                  "Input file is not in expected format: qtBuffer", {"qtBuffer"});
    const qtString noIndex = Hex("4a5b6c66") + qtString(12, '\0');
    ExpectFailure([&] { Open(noIndex, 'u'); }, 0, "Input file does not have an index",
                  {"qtBuffer"});
    Open(noIndex, 'r');
    EXPECT_TRUE(Keys(package).empty());
    for (const char mode : {'r', 'u'}) {
        for (const char* indexOffset : {"00000020", "00000100", "ffffffff", "00000033"}) {
            ExpectFailure([&] { Open(qtString(example).replace(4, 4, Hex(indexOffset)), mode); }, 1,
                          "Cannot read file index: qtBuffer", {"qtBuffer"});
        }
    }
    qtPtr<qtBuffer> none;
    ExpectError<HioErr>([&] { package.Open(none, 'w'); }, 0, "Cannot open file: qtBuffer",
                        {"qtBuffer"});
    ExpectError<HioErr>([&] { package.Open(qtPtrLight<Generic32>(), 'r'); }, 0,
                        "Cannot open file: ", {""});

    // A file that cannot be opened leaves the package open that was.
    Open(example, 'r');
    ExpectError<HioErr>([&] { package.Open("/nowhere/p", 'r'); }, 0, "Cannot open file: /nowhere/p",
                        {"/nowhere/p"});
    EXPECT_EQ(Get(package, "ab"), "xyz");
}

// The buffer may go the moment that opening has failed or Close() has returned.
TEST_F(HpackTest, LetsGoOfTheBuffer) {
    for (const char mode : {'r', 'u', 'x'}) {
        EXPECT_THROW(Open("no package", mode), qtxAll);
        buffer = qtPtr<qtBuffer>();
        EXPECT_THROW(Get(package, "a"), qtX<Hpack>);
        package.Close();
    }
    buffer = NewBuffer();
    {
        Hpack open;
        open.Open(buffer, 'w');
        open.AddOrUpdate("a", "1");
        buffer = NewBuffer(example);
        // Neither saved nor closed; the former opening does not disturb the new one.
        open.Open(buffer, 'u');
        open.AddOrUpdate("a", "1");
        open.Open(buffer, 'r');
    }
    EXPECT_EQ(Bytes(*buffer).substr(0, example.size()), example);
}

TEST_F(HpackTest, RefusesWhatItsModeDoesNotAllow) {
    const auto expectNoUpdate = [&](const qtString& name) {
        for (const std::function<void()>& action : std::initializer_list<std::function<void()>>{
                 [&] { package.Delete("ab"); }, [&] { package.Rename("ab", "c"); },
                 [&] { package.SaveIndex(); }, [&] { DeadSpace(package); }}) {
            ExpectFailure(action, 5, "File is not open in update mode", {name});
        }
    };
    for (const qtString& name : {qtString(), qtString("qtBuffer")}) {
        EXPECT_TRUE(Keys(package).empty());
        ExpectFailure([&] { Get(package, "ab"); }, 4, "Missing key in index: ab", {name, "ab"});
        EXPECT_THROW(package.AddOrUpdate("a", "1"), qtX<HioErr>);
        EXPECT_THROW(package.SetState(1), qtX<HioErr>);
        expectNoUpdate(name);
        package.Close();
        Open(example, 'u');
        package.Close();
        EXPECT_EQ(Bytes(*buffer), example);
    }
    for (const char mode : {'w', 'r'}) {
        Open(example, mode);
        expectNoUpdate("qtBuffer");
    }
    ExpectError<HioErr>([&] { package.AddOrUpdate("ab", "1"); }, 4,
                        "Hio buffer is not open for writing", {"qtBuffer"});
    EXPECT_EQ(Get(package, "ab"), "xyz");

    const TempFolder folder;
    package.Open(folder / "p", 'w');
    package.AddOrUpdate("a", "1");
    ExpectError<HioErr>([&] { package.AddOrUpdate("a", "2"); }, 3,
                        "Read error in file " + (folder / "p"), {folder / "p"});
}

TEST_F(HpackTest, ReadsIntoSegments) {
    const qtString large(40000, 'q');
    Open(Package({{"", ""}, {"large", large}}), 'r');
    qtBuffer bytes = *NewBuffer("replaced");
    package.GetItem("", bytes);
    EXPECT_EQ(bytes.Length(), 0u);
    SegBuf segments;
    package.GetItem("", segments);
    EXPECT_EQ(segments.segments.size(), 0u);
    package.GetItem("large", segments);
    ASSERT_EQ(segments.segments.size(), 3u);
    EXPECT_EQ(qtString(segments.segments[2], 40000 - 2 * 16360), large.substr(2 * 16360));
    package.GetItem("", segments);
    EXPECT_EQ(segments.size, 40000u);

    Open("", 'w');
    package.AddOrUpdate("copy", segments);
    package.AddOrUpdate("bytes", *NewBuffer("12345"));
    package.AddOrUpdate("bytes", *NewBuffer("1234"));
    EXPECT_EQ(Place(package, "bytes"), Extent(16 + 12 + 4 + 40000, 4));
    package.AddAtOffset("k", qtString(16300, 'k'), 0);
    Reopen('r');
    EXPECT_EQ(Get(package, "copy"), large);
    SegBuf reserved;
    reserved.reserve = 100;
    package.GetItem("k", reserved);
    EXPECT_EQ(reserved.segments.size(), 2u);
    EXPECT_EQ(reserved.size, 16400u);
}

TEST_F(HpackTest, EntriesThatLeadAstray) {
    const qtString bytes = Package({{"aa", "1"}, {"bb", "22"}, {"c", "3"}});
    const std::size_t entry = bytes.find(Hex("00000002 6161 00000010")) + 6;
    const auto lead = [&](const char* offset) {
        Open(qtString(bytes).replace(entry, 4, Hex(offset)), 'u');
    };
    const auto expectFailure = [&](auto action, const char* text) {
        ExpectFailure(action, 4, text, {"qtBuffer", "aa"});
    };
    const auto get = [&] { Get(package, "aa"); };
    const auto expectInfoInvalid = [&] {
        expectFailure([&] { Place(package, "aa"); }, "Key points to invalid item: aa");
        expectFailure([&] { package.AddOrUpdate("aa", "x"); }, "Key points to invalid item: aa");
    };

    lead("0000001f");  // another key of the same length
    expectFailure(get, "Key points to wrong item: aa");
    EXPECT_EQ(Place(package, "aa"), Extent(0x1f, 2));
    lead("0000002f");  // another key of another length
    expectFailure(get, "Key points to wrong item: aa");
    expectInfoInvalid();
    for (const char* nowhere : {"00000000", "00000011"}) {
        lead(nowhere);
        expectFailure(get, "Key points to invalid item: aa");
        expectInfoInvalid();
        expectFailure([&] { package.Rename("aa", "x"); }, "Key points to invalid item: aa");
    }
    lead("fffffff0");
    ExpectError<HioErr>(get, 2, "Invalid seek in Hio buffer", {"qtBuffer"});
    EXPECT_EQ(Get(package, "bb"), "22");
}

// A key length that reaches beyond the end is a read error, also if the object has held a longer
// package before; one that does not is another key.
TEST_F(HpackTest, KeyLengthsAroundTheEnd) {
    const auto end = static_cast<unsigned int>(example.size()) - 24;
    for (unsigned int length = end; length <= end + 9; ++length) {
        Open(Package({{"large", qtString(1000, 'l')}}), 'r');
        Get(package, "large");
        Open(qtString(example).replace(20, 4, Word(length)), 'r');
        const auto get = [&] { Get(package, "ab"); };
        if (length == end) {
            ExpectFailure(get, 4, "Key points to wrong item: ab", {"qtBuffer", "ab"});
        } else {
            ExpectError<HioErr>(get, 3, "Read error in Hio buffer", {"qtBuffer"});
        }
    }
}

TEST_F(HpackTest, AnIndexThatIsCutKeepsItsFirstEntries) {
    const qtString bytes = Package({{"a", "1"}, {"b", "2"}});
    for (const std::size_t cut : {1, 8, 9}) {
        ExpectError<HioErr>([&] { Open(bytes.substr(0, bytes.size() - cut), 'r'); }, 3,
                            "Read error in Hio buffer", {"qtBuffer"});
        EXPECT_EQ(package.Count(), 1u);
        EXPECT_EQ(Keys(package), std::vector<qtString>{"a"});
        EXPECT_FALSE(package.IsOpen());
    }
}

TEST_F(HpackTest, IdentityAndState) {
    unsigned int id = 1;
    unsigned short word = 1;
    unsigned char flags = 1;
    unsigned char state = 1;
    bool old = true;
    const auto expect = [&](const std::tuple<unsigned int, int, int, int, bool>& expected) {
        package.GetFileID(id, word, flags, old);
        package.GetState(state);
        EXPECT_EQ(std::tuple(id, word, flags, state, old), expected);
    };
    Open("", 'w');
    expect({0, 0, 0, 0, false});
    package.SetState(9);
    package.SetFileID(0x01020304, 0x0506, 0x07);
    package.AddOrUpdate("ab", "xyz");
    Reopen('u');
    EXPECT_EQ(Bytes(*buffer).substr(8, 8), Hex("01020304 07 09 0506"));
    expect({0x01020304, 0x0506, 0x07, 9, false});
    const qtString before = Bytes(*buffer);
    EXPECT_EQ(DeadSpace(package).second, 0u);
    for (const bool unicode : {true, false}) {
        const int flag = unicode ? 0x80 : 0;
        Open(before, 'u');
        package.SetState(10);
        package.SetOldID(unicode);
        EXPECT_EQ(Bytes(*buffer).substr(0, 4), Hex(unicode ? "4a5b6c70" : "4a5b6c71"));
        expect({0, 0, flag, 10, true});
        const qtString frozen = Bytes(*buffer);
        ExpectFailure([&] { package.SetFileID(1, 1, 1); }, 6, "Old file format - ID cannot be set",
                      {"qtBuffer"});
        ExpectFailure([&] { package.SetState(1); }, 6, "Old file format - state cannot be set",
                      {"qtBuffer"});
        EXPECT_EQ(Bytes(*buffer), frozen);
        EXPECT_EQ(DeadSpace(package).second, 8u);
        for (const int now : {flag, 0x80 - flag}) {
            Reopen('u');
            expect({0, 0, now, 0, true});
            package.SetOldID(!unicode);
        }
    }

    Open(example, 'r');
    EXPECT_THROW(package.SetFileID(5, 6, 7), qtX<HioErr>);
    EXPECT_THROW(package.SetState(8), qtX<HioErr>);
    EXPECT_THROW(package.SetOldID(true), qtX<HioErr>);
    expect({5, 6, 7, 8, false});
    Open("", 'w');
    expect({0, 0, 0, 0, false});

    // Saving brings them to the file, even if the index has not changed.
    const TempFolder folder;
    WriteFile(folder / "p", example);
    package.Open(folder / "p", 'u');
    package.SetState(9);
    package.SaveIndex();
    EXPECT_EQ(FileBytes(folder / "p")[13], 9);
}

// Records and index end below 2^31; a sparse file gets there without its bytes.
TEST_F(HpackTest, RefusesToPassTheLastOffset) {
    const TempFolder folder;
    const qtString name = folder / "p";
    const auto openAtLength = [&](std::int64_t length) {
        package.Close();
        WriteFile(name, example);
        EXPECT_EQ(truncate(name.c_str(), length), 0);
        package.Open(name, 'u');
    };
    const auto expectRefused = [&](const auto& action) {
        ExpectError<HioErr>(action, 4, "Write error in file " + name, {name});
    };
    constexpr unsigned int limit = 0x7fffffff;
    const unsigned int body = 100 - (12 + 1 + 18 + 9);  // record head, key, index block of two
    openAtLength(limit - 100);
    expectRefused([&] { package.AddOrUpdate("c", qtString(body + 1, 'x')); });
    package.AddOrUpdate("c", qtString(body, 'x'));
    expectRefused([&] { package.AddOrUpdate("d", ""); });
    expectRefused([&] { package.Rename("ab", "abc"); });
    package.AddOrUpdate("ab", "in");
    package.Rename("c", "d");
    package.Close();
    package.Open(name, 'r');
    EXPECT_EQ(Items(package), (Contents{{"ab", "in"}, {"d", qtString(body, 'x')}}));
    EXPECT_EQ(std::filesystem::file_size(name.c_str()), limit);

    // A record may end there if the index can stay where it is.
    const unsigned int room = 64;
    openAtLength(limit - room);
    expectRefused([&] { package.AddOrUpdate("ab", qtString(room - 14 + 1, 'x')); });
    package.AddOrUpdate("ab", qtString(room - 14, 'x'));
    package.Close();
    package.Open(name, 'r');
    EXPECT_EQ(Get(package, "ab"), qtString(room - 14, 'x'));

    // Nothing else passes it either: an index block, one that has to follow a new key's record at a
    // given offset, a record whose end would wrap 32 bits.
    const std::pair<std::int64_t, std::function<void()>> cases[] = {
        {limit - 10, [&] { package.WriteIndex(0); }},
        {limit - 10, [&] { package.AddAtOffset("c", qtString("xyz"), 16); }},
        {0xfffffff8, [&] { package.AddOrUpdate("c", "x"); }}};
    for (const auto& [length, action] : cases) {
        openAtLength(length);
        expectRefused(action);
        package.Close();
        package.Open(name, 'r');
        EXPECT_EQ(Get(package, "ab"), "xyz");
    }
}

// The header leads to the index again, whatever was written over it.
TEST_F(HpackTest, ARecordOverTheHeader) {
    Open(qtString(example).replace(47, 4, Word(4)), 'u');
    package.AddAtOffset("ab", qtString(), 4);
    package.Close();
    EXPECT_EQ(Bytes(*buffer).substr(4, 4), Word(33));
}

TEST_F(HpackTest, AnUnsortedIndexIsSavedSorted) {
    const qtString sorted = Package({{"a", "1"}, {"b", "2"}});
    const std::size_t entry = sorted.size() - 9;
    const qtString swapped =
        sorted.substr(0, entry - 9) + sorted.substr(entry) + sorted.substr(entry - 9, 9);
    const auto replace = [](Hpack& p) { p.AddOrUpdate("a", "3"); };
    EXPECT_EQ(Updated(swapped, replace), Updated(sorted, replace));
}

// A stream that looks at its package while that writes.
struct WatchingStream : Hmemory {
    explicit WatchingStream(qtBuffer& bytes) { Open(bytes, 'u'); }
    ~WatchingStream() noexcept(false) override = default;
    void Read(char* data, unsigned int count) override {
        EXPECT_NE(count, 0u);
        Hmemory::Read(data, count);
    }
    void Write(char* data, unsigned int count) override {
        watch();
        Hmemory::Write(data, count);
    }
    std::function<void()> watch = [] {};
};

struct StreamThatFailsToClose : WatchingStream {
    using WatchingStream::WatchingStream;
    ~StreamThatFailsToClose() noexcept(false) override { Fail(HioErrors::close, "failed"); }
};

TEST_F(HpackTest, OpeningReportsThatTheFormerStreamFailsToClose) {
    qtPtr<qtBuffer> former = NewBuffer(example);
    package.Open(qtPtrLight<Generic32>(new StreamThatFailsToClose(*former)), 'u');
    package.Delete("ab");
    ExpectError<HioErr>([&] { Open(example, 'r'); }, 1, "failed", {"qtBuffer"});
    EXPECT_EQ(package.Count(), 0u);
    ExpectFailure([&] { package.Delete("ab"); }, 5, "File is not open in update mode", {""});
    EXPECT_EQ(Bytes(*former), example);
}

TEST_F(HpackTest, AnItemHasAKeyWhileItIsRenamed) {
    buffer = NewBuffer(Package({{"", ""}, {"ab", "xyz"}}));
    auto* const stream = new WatchingStream(*buffer);
    package.Open(qtPtrLight<Generic32>(stream), 'u');
    EXPECT_EQ(Get(package, ""), "");
    int writes = 0;
    stream->watch = [&] {
        ++writes;
        EXPECT_TRUE(package.Contains("ab") != package.Contains("longer"));
    };
    package.Rename("ab", "longer");
    package.Rename("longer", "ab");
    EXPECT_GE(writes, 4);
    stream->watch = [] {};
}

TEST_F(HpackTest, RenamingForEverTakesNoMoreMemory) {
    Open(example, 'u');
    Allocations::largest = 0;
    qtString key = "ab";
    for (std::uint32_t i = 0; i < 200000; ++i) {
        const qtString next = Hpack::MakeStringKey(i);
        package.Rename(key, next);
        key = next;
    }
    EXPECT_LT(Allocations::largest, 200000u);
    EXPECT_EQ(Get(package, key), "xyz");
    EXPECT_EQ(Keys(package), std::vector<qtString>{key});
}

TEST_F(HpackTest, RenamesLargeItemsInPieces) {
    qtString body;
    while (body.size() < 200000) {
        body += std::to_string(body.size());
    }
    const TempFolder folder;
    WriteFile(folder / "p", Package({{"key", body}, {"other", "item"}}));
    package.Open(folder / "p", 'u');
    Allocations::largest = 0;
    for (const auto& [key, other] : {std::pair("key", "k"), {"k", "longer"}, {"longer", "ab"}}) {
        package.Rename(key, other);
        EXPECT_EQ(Place(package, other).first == 16, qtString(other) == "k");
    }
    EXPECT_LT(Allocations::largest, 70000u);
    EXPECT_EQ(Items(package), (Contents{{"ab", body}, {"other", "item"}}));
    package.Close();
    package.Open(folder / "p", 'r');
    EXPECT_EQ(Items(package), (Contents{{"ab", body}, {"other", "item"}}));
}

TEST_F(HpackTest, MovingKeepsThePackageOpen) {
    Open(example, 'u');
    Hpack moved(std::move(package));
    EXPECT_TRUE(moved.IsOpen());
    EXPECT_EQ(Get(moved, "ab"), "xyz");
    // What is left is a closed package.
    EXPECT_FALSE(package.IsOpen());
    EXPECT_TRUE(Keys(package).empty());
    EXPECT_THROW(Get(package, "ab"), qtX<Hpack>);
    package.Close();
    qtPtr<qtBuffer> other = NewBuffer(example);
    package.Open(other, 'u');
    package.Rename("ab", "c");
    package.Close();
    EXPECT_EQ(Items(moved), (Contents{{"ab", "xyz"}}));
    moved.Close();
}

TEST_F(HpackTest, ReadsParts) {
    Open(Package({{"ab", "0123456789"}, {"c", ""}}), 'r');
    qtString part(4, '#');
    const auto read = [&](unsigned int from, unsigned int count) {
        part.assign(4, '#');
        package.GetPart("ab", from, part.data(), count);
        return part;
    };
    EXPECT_EQ(read(0, 4), "0123");
    EXPECT_EQ(read(6, 4), "6789");
    EXPECT_EQ(read(8, 2), "89##");
    EXPECT_EQ(read(10, 0), "####");
    for (const auto& [from, count] : {std::pair(7u, 4u), {11u, 0u}, {0xffffffffu, 1u}}) {
        ExpectError<HioErr>([&, f = from, c = count] { read(f, c); }, 3, "Read error in Hio buffer",
                            {"qtBuffer"});
        EXPECT_EQ(part, "####");
    }
    ExpectFailure([&] { package.GetPart("x", 0, part.data(), 0); }, 4, "Missing key in index: x",
                  {"qtBuffer", "x"});
    // A stored length that the stream does not have.
    Open(qtString(example).replace(26, 4, Word(0x7fffffff)), 'r');
    EXPECT_EQ(read(20, 1), example.substr(50) + "###");
    ExpectError<HioErr>([&] { read(20, 2); }, 3, "Read error in Hio buffer", {"qtBuffer"});
}

TEST_F(HpackTest, WalksKeysInOrder) {
    Open("", 'w');
    for (const char* key : {"b", "aab", "", "aa", "a\xff", "ab"}) {
        package.AddOrUpdate(key, key);
    }
    Reopen('u');
    package.Delete("ab");
    package.AddOrUpdate("aaa", "late");
    using List = std::vector<qtString>;
    List keys;
    const auto visit = [&](std::string_view key) {
        keys.emplace_back(key);
        EXPECT_NE(Place(package, qtString(key)).first, 0u);
    };
    const auto taken = [&] { return std::exchange(keys, {}); };
    package.ForEach(visit);
    EXPECT_EQ(taken(), (List{"", "aa", "aaa", "aab", "a\xff", "b"}));
    package.ForEach("aa", visit);
    EXPECT_EQ(taken(), (List{"aa", "aaa", "aab"}));
    package.ForEach("", visit);
    EXPECT_EQ(taken(), Keys(package));
    package.ForEach("c", visit);
    EXPECT_EQ(taken(), List());
    package.ForEach("aaa", "b", visit);
    EXPECT_EQ(taken(), (List{"aaa", "aab", "a\xff"}));
    EXPECT_THROW(package.ForEach([](std::string_view) { throw 1; }), int);
}

TEST_F(HpackTest, LayoutNeedsNoSave) {
    const auto expect = [&](const HpackLayout& expected) {
        const HpackLayout layout = package.GetLayout();
        EXPECT_EQ(std::tuple(layout.size, layout.headerSize, layout.indexOffset, layout.indexSize,
                             layout.recordBytes),
                  std::tuple(expected.size, expected.headerSize, expected.indexOffset,
                             expected.indexSize, expected.recordBytes));
        return layout.DeadSpace();
    };
    Open("", 'w');
    EXPECT_EQ(expect({16, 16, 0, 0, 0}), 0u);
    Open(example, 'r');
    EXPECT_EQ(expect({51, 16, 33, 18, 17}), 0u);
    Open(example, 'u');
    package.AddOrUpdate("ab", "wxyz");
    EXPECT_EQ(expect({69, 16, 33, 18, 18}), 17u);
    package.SetOldID(true);
    package.Delete("ab");
    EXPECT_EQ(expect({69, 8, 33, 18, 0}), 69u - 8 - 18);
    package.SaveIndex();
    EXPECT_EQ(expect({69, 8, 33, 8, 0}), 69u - 8 - 8);
}

// A block that is not written cannot be torn; a scar in the block shows whether it was.
TEST_F(HpackTest, SavingLeavesAnIndexThatWouldBeTheSame) {
    const std::pair<std::function<void()>, bool> cases[] = {
        {[&] { package.AddOrUpdate("ab", "xy"); }, false},
        {[&] { package.AddAtOffset("ab", qtString("xyz"), 16); }, false},
        {[&] { package.AddAtOffset("ab", qtString("xyz+"), 16); }, true},
        {[&] { package.AddOrUpdate("ab", "xyz+"); }, true},
        {[&] { package.Delete("missing"); }, true},
        {[&] {
             package.WriteIndex(0);
             package.AddOrUpdate("ab", "");
         },
         true}};
    for (const auto& [change, written] : cases) {
        Open(example, 'u');
        change();
        buffer->Data()[33] = '!';
        package.Close();
        EXPECT_EQ(buffer->Data()[33], written ? '\x4a' : '!');
        EXPECT_EQ(buffer->Data()[7], 33);
    }
}

TEST_F(HpackTest, WhatClosingFindsIsReported) {
    EXPECT_THROW(Hpack().Open("/dev/full", 'w'), qtX<HioErr>);
    const qtString text = "Invalid file offset in file /dev/full";
    package.Open("/dev/full", 'w');
    for (int attempt = 0; attempt < 3; ++attempt) {
        ExpectError<HioErr>([&] { package.Close(); }, 2, text, {"/dev/full"});
        package.Delete("still open");
    }
    // Once a write has failed the stream drops all others, and saving must say so.
    EXPECT_THROW(package.Open("/dev/full", 'w'), qtX<HioErr>);
    package.Open("/dev/full", 'w');
    for (const std::size_t size : {100000, 1}) {
        ExpectError<HioErr>([&] { package.AddOrUpdate("a", qtString(size, 'a')); }, 4,
                            "Write error in file /dev/full", {"/dev/full"});
        ExpectError<HioErr>([&] { package.Close(); }, 4, "Write error in file /dev/full",
                            {"/dev/full"});
    }

    // Reported by the next opening, too, which leaves all that is closed.
    const TempFolder folder;
    WriteFile(folder / "p", example);
    package.Open("/dev/full", 'w');
    EXPECT_THROW(package.Open(folder / "p", 'u'), qtX<HioErr>);
    EXPECT_FALSE(package.IsOpen());
    EXPECT_EQ(package.Count(), 0u);
    EXPECT_THROW(package.AddOrUpdate("ab", ""), qtX<HioErr>);
    EXPECT_THROW(package.SetState(1), qtX<HioErr>);
    EXPECT_EQ(FileBytes(folder / "p"), example);
}

}  // namespace
