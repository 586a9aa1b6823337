#include "hpack/HpackCompact.h"

#include <gtest/gtest.h>

#include "hpack/HpackItemWriter.h"
#include "tests/support/Errors.h"
#include "tests/support/FaultyStream.h"
#include "tests/support/Items.h"

namespace {

// Bodies around the length of the pieces in which they are copied, and records out of key order.
const qtString bytes =
    Updated(Package<std::vector<std::pair<qtString, qtString>>>(
                {{"z", AllBytes()}, {"", ""}, {"large", qtString(262144, 'l') + "!"}}),
            [](Hpack& package) {
                package.AddOrUpdate("a", qtString(2 * 262144, 'a'));
                package.AddOrUpdate("z", "shorter");
                package.SetFileID(1, 2, 3);
                package.SetState(4);
            });

qtString Compact(Hpack& source, HpackOrder order) {
    return Updated(
        "", [&](Hpack& target) { HpackCompact(source, target, order); }, 'w');
}

TEST(HpackCompact, CopiesEverythingButDeadSpace) {
    for (const bool old : {false, true}) {
        const qtString original = Updated(bytes, [&](Hpack& package) {
            if (old) {
                package.SetOldID(true);
            }
        });
        Opened source(original);
        for (const HpackOrder order : {HpackOrder::key, HpackOrder::offset}) {
            Opened target(Compact(source, order));
            EXPECT_EQ(target.GetLayout().DeadSpace(), old ? 8u : 0u);
            EXPECT_TRUE(HpackSame(source, target));
            EXPECT_EQ(Items(target), Items(source));
            EXPECT_EQ(Place(target, "").first < Place(target, "z").first, order == HpackOrder::key);
        }
        EXPECT_TRUE(HpackSame(source, source));
    }
}

TEST(HpackCompact, EveryDifferenceIsSeen) {
    const std::function<void(Hpack&)> changes[] = {
        [](Hpack& p) { p.SetState(5); },
        [](Hpack& p) { p.SetFileID(1, 2, 4); },
        [](Hpack& p) { p.SetFileID(1, 1, 3); },
        [](Hpack& p) { p.SetFileID(0, 2, 3); },
        [](Hpack& p) { p.SetOldID(false); },
        [](Hpack& p) { p.Delete(""); },
        [](Hpack& p) { p.Rename("z", "zz"); },
        [](Hpack& p) { p.AddOrUpdate("z", "Shorter"); },
        [](Hpack& p) { p.AddOrUpdate("z", "shorte"); },
        [](Hpack& p) { p.AddOrUpdate("large", qtString(262145, 'l')); },
        [](Hpack& p) { p.AddOrUpdate("a", qtString(2 * 262144 - 1, 'a') + "b"); }};
    Opened left(bytes);
    for (const auto& change : changes) {
        Opened right(Updated(bytes, change));
        EXPECT_FALSE(HpackSame(left, right)) << &change - changes;
        EXPECT_FALSE(HpackSame(right, left)) << &change - changes;
    }
}

TEST(HpackCompact, StepsCountItemsAndMayEndTheWork) {
    Opened source(bytes);
    std::vector<std::size_t> seen;
    const HpackStep step = [&](std::size_t item, std::size_t count) {
        EXPECT_EQ(count, 4u);
        seen.push_back(item);
        if (item == 2) {
            throw 1;
        }
    };
    Opened target("", 'w');
    EXPECT_THROW(HpackCompact(source, target, HpackOrder::key, step), int);
    EXPECT_EQ(target.Count(), 2u);
    EXPECT_THROW(HpackSame(source, source, step), int);
    EXPECT_EQ(seen, (std::vector<std::size_t>{0, 1, 2, 0, 1, 2}));
}

TEST(HpackCompact, ABodyThatIsCutIsAReadError) {
    Opened source(qtString(bytes).replace(bytes.find("shorter") - 4, 4, Word(0x7ffffff0)));
    Opened target("", 'w');
    ExpectError<HioErr>([&] { HpackCompact(source, target); }, 3, "Read error in Hio buffer",
                        {"qtBuffer"});
    EXPECT_EQ(target.Count(), 3u);
}

void Write(HpackItemWriter& item, const qtString& data) {
    item.Write(data.data(), static_cast<unsigned int>(data.size()));
}

TEST(HpackItemWriter, AppendsInPieces) {
    for (const qtString& start : {qtString(), bytes}) {
        Opened package(start, start.empty() ? 'w' : 'u');
        Contents items = Items(package);
        for (const auto& pieces :
             {std::vector<qtString>{}, {""}, {"a", "", "bc"}, {qtString(70000, 'x'), "!"}}) {
            HpackItemWriter item(package, "z");
            qtString body;
            for (const qtString& piece : pieces) {
                Write(item, piece);
                body += piece;
                EXPECT_EQ(Items(package), items);  // the former item, until it is finished
            }
            item.Finish();
            items["z"] = body;
            EXPECT_EQ(Items(package), items);
        }
        package.Close();
        package.Open(package.buffer, 'r');
        EXPECT_EQ(Items(package), items);
    }
}

// A writer that is given up, by its owner or by what happens to the package, leaves the item as it
// was, and no record that anybody could find.
TEST(HpackItemWriter, UnfinishedItemsAreNowhere) {
    using Action = std::function<void(Opened&, HpackItemWriter&)>;
    const auto expectRefused = [](const std::function<void()>& action) {
        ExpectError<HioErr>(action, 4, "Hio buffer is not open for writing", {"qtBuffer"});
    };
    const std::pair<Action, bool> cases[] = {
        {[](Opened&, HpackItemWriter&) {}, false},
        {[](Opened& p, HpackItemWriter&) { p.AddOrUpdate("new", "between"); }, true},
        {[](Opened& p, HpackItemWriter&) {
             p.Close();
             p.Open(p.buffer, 'u');
         },
         true}};
    for (const auto& [action, refused] : cases) {
        Opened package(bytes, 'u');
        const Contents items = Items(package);
        const std::size_t former = Bytes(*package.buffer).size();
        {
            HpackItemWriter item(package, "z");
            Write(item, "left");
            action(package, item);
            if (refused) {
                expectRefused([&] { Write(item, "more"); });
                expectRefused([&] { item.Finish(); });
            }
        }
        package.AddOrUpdate("more", "body");
        EXPECT_EQ(package.GetLayout().recordBytes, Opened(bytes).GetLayout().recordBytes + 12 + 4 +
                                                       4 +
                                                       (package.Contains("new") ? 12 + 3 + 7 : 0));
        qtString body;
        package.GetItem("z", body);
        EXPECT_EQ(body, items.at("z"));
        const std::size_t added = package.Contains("new") ? 2 : 1;
        package.Close();
        // One marker for each record that the package has, and none for what was given up.
        const qtString after = Bytes(*package.buffer).substr(former);
        std::size_t markers = 0;
        for (std::size_t at = 0; (at = after.find(Hex("4a5b6c73"), at)) != qtString::npos; ++at) {
            ++markers;
        }
        EXPECT_EQ(markers, added);
    }
    Opened package(bytes, 'u');
    HpackItemWriter item(package, "z");
    item.Finish();
    expectRefused([&] { item.Finish(); });
    expectRefused([&] { Write(item, ""); });
}

TEST(HpackItemWriter, EveryStreamCall) {
    for (const bool sticky : {false, true}) {
        bool finished = false;
        for (long calls = 0; !finished; ++calls) {
            ASSERT_LT(calls, 100);
            qtPtr<qtBuffer> buffer = NewBuffer(bytes);
            auto* const stream = new FaultyStream(*buffer);
            Hpack package;
            package.Open(qtPtrLight<Generic32>(stream), 'u');
            Contents items = Items(package);
            stream->FailAfter(calls, sticky);
            try {
                HpackItemWriter item(package, "z");
                Write(item, "one");
                Write(item, "two");
                item.Finish();
                finished = true;
                items["z"] = "onetwo";
            } catch (const qtX<HioErr>&) {
                EXPECT_LT(calls, 100);
            }
            stream->FailAfter(-1, false);
            EXPECT_EQ(Items(package), items);
            package.Close();
            EXPECT_EQ(Items(*std::make_unique<Opened>(Bytes(*buffer))), items);
        }
    }
}

}  // namespace
