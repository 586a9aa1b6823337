#include "hpack/HpackView.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <random>
#include <thread>

#include "tests/support/Allocations.h"
#include "tests/support/Errors.h"
#include "tests/support/TempFolder.h"
#include "tests/support/Views.h"

namespace {

qtString Key(std::size_t number) {
    return "key " + std::to_string(number * 7919 % 1000003);
}

qtString Body(std::size_t number) {
    return "body of " + std::to_string(number);
}

qtString NumberedPackage(std::size_t count) {
    std::vector<std::pair<qtString, qtString>> items;
    for (std::size_t number = 0; number < count; ++number) {
        items.emplace_back(Key(number), Body(number));
    }
    return Package(items);
}

qtString Header(std::size_t indexOffset) {
    return Word(HpackFormat::PackMagic) + Word(indexOffset) + Hex("00000000 00000000");
}

// Numbers of entries around those that are marked, and indexes that lead anywhere: in order, out of
// order, with keys more than once.
TEST(HpackView, ItemsAndErrorsAreThoseOfPackages) {
    std::mt19937 random(11);
    for (std::size_t count = 0; count < 70; ++count) {
        for (const bool inOrder : {true, false}) {
            qtString records;
            std::vector<std::size_t> offsets = {0, 1, 16, 0x80000000, 0xffffffff};
            std::vector<std::pair<qtString, std::size_t>> entries(count);
            for (std::size_t i = 0; i < count; ++i) {
                auto& [key, offset] = entries[i];
                key = inOrder ? Word(100 * i) : RandomKey(random) + RandomKey(random);
                offset = 16 + records.size();
                offsets.push_back(offset);
                records += Record(key, Body(i));
            }
            const std::size_t indexOffset = 16 + records.size();
            qtString bytes = Header(indexOffset) + records + Word(HpackFormat::IndexMagic);
            bytes += Word(count);
            for (const auto& [key, offset] : entries) {
                const bool astray = random() % 8 == 0;
                bytes += Word(key.size()) + key;
                bytes += Word(astray ? offsets[random() % offsets.size()] : offset);
            }
            qtPtr<qtBuffer> buffer = NewBuffer(bytes);
            TryView(buffer);
        }
    }
}

// A record that is cut at each of its bytes, and a header.
TEST(HpackView, CutsAreReportedAsPackagesReportThem) {
    const qtString record = Record("ab", "x");
    for (std::size_t length = 0; length <= record.size(); ++length) {
        for (const qtString& tail : {qtString(record.substr(0, length)), qtString(length, '#')}) {
            for (const qtString key : {"ab", "cd", "abc"}) {
                const qtString entry = Word(key.size()) + key;
                qtString bytes = Header(16) + Word(HpackFormat::IndexMagic) + Word(1) + entry;
                bytes += Word(bytes.size() + 4) + tail;
                qtPtr<qtBuffer> buffer = NewBuffer(bytes);
                TryView(buffer);
            }
            qtPtr<qtBuffer> header = NewBuffer(tail);
            TryView(header);
        }
    }
}

TEST(HpackView, ShortKeysAreNotComparedWithTheBytesAfterThem) {
    qtPtr<qtBuffer> buffer =
        NewBuffer(Header(16) + Word(HpackFormat::IndexMagic) + Word(2) + Word(9) + "ab\1cdefgh" +
                  Word(0) + Word(2) + "ab" + Word(0xffffffff));
    TryView(buffer);
}

// What another program does to the bytes of an open view leads to any result, but nowhere else.
TEST(HpackView, BytesThatChangeLeadNowhere) {
    const qtString intact = NumberedPackage(20);
    for (std::size_t at = intact.size() - 20 * 20; at + 4 <= intact.size(); ++at) {
        for (const std::size_t word : {0u, 3u, 0x7fffffffu, 0xffffffffu}) {
            // A block of its own, so that the address sanitizer sees where it ends.
            const std::unique_ptr<char[]> bytes(new char[intact.size()]);
            intact.copy(bytes.get(), intact.size());
            const HpackView view(std::string_view(bytes.get(), intact.size()));
            Word(word).copy(bytes.get() + at, 4);
            std::size_t seen = 0;
            for (const HpackView::Item item : view) {
                Outcome([&] { return item.Body(); });
                EXPECT_LT(seen++, 20u);
            }
            for (auto item = view.end(); seen-- > 0 && item != view.begin();) {
                --item;
            }
            view.LowerBound("key 5");
            for (std::size_t number = 0; number < 70; ++number) {
                FindOutcome(view, Key(number));
            }
        }
    }
}

#ifndef __SANITIZE_THREAD__  // it is the race that is tested
// A block out of order is sorted. A program that changes the file meanwhile must not make that
// write past its memory.
TEST(HpackView, BytesThatChangeWhileTheyAreSorted) {
    constexpr std::size_t count = 2000;
    qtString bytes = Header(HpackFormat::headerSize) + Word(HpackFormat::IndexMagic) + Word(count);
    const std::size_t first = bytes.size();
    for (std::size_t number = count; number-- > 0;) {
        bytes += Word(8) + std::to_string(10'000'000 + number) + Word(0);
    }
    std::atomic<bool> done{false};
    std::thread writer([&] {
        for (std::size_t number = 0; !done; number = (number + 1) % count) {
            volatile char* const length = &bytes[first + number * 16];
            length[2] = 0x40;  // of a key longer than the others together
            length[2] = 0;
            std::this_thread::yield();
        }
    });
    for (int round = 0; round < 500; ++round) {
        try {
            EXPECT_LE(HpackView(std::string_view(bytes)).Count(), count);
        } catch (const qtX<HioErr>&) {
        }
    }
    done = true;
    writer.join();
}
#endif

TEST(HpackView, FilesOfOtherKindsFailAsPackagesDo) {
    const TempFolder folder;
    qtString missing = folder / "missing";
    qtString empty = folder / "empty";
    WriteFile(empty, "");
    qtString inFolder = folder / "";
    for (qtString* const name : {&missing, &empty, &inFolder}) {
        TryView(*name);
    }
    // Sizes and offsets at the limits of the streams.
    for (const std::uint64_t index : {0x7fffff00u, 0x7fffffffu, 0x80000000u, 0xfffffff0u}) {
        for (const std::uint64_t size :
             {index + 8, std::uint64_t{0xffffffff}, std::uint64_t{0x100000000}}) {
            qtString name = folder / "sparse";
            WriteFile(name, Header(static_cast<std::size_t>(index)));
            const int file = open(name.c_str(), O_WRONLY);
            const qtString block = Word(HpackFormat::IndexMagic) + Word(0);
            ASSERT_EQ(pwrite(file, block.data(), 8, static_cast<off_t>(index)), 8);
            ASSERT_EQ(ftruncate(file, static_cast<off_t>(size)), 0);
            close(file);
            if (sizeof(void*) > 4) {
                TryView(name);
            }
            std::filesystem::remove(std::string(name));
        }
    }
}

// A record that a mapping reaches and a file stream does not.
TEST(HpackView, RecordsEndWhereFileStreamsDo) {
    if (sizeof(void*) == 4) {
        GTEST_SKIP() << "no room for the mapping";
    }
    const TempFolder folder;
    qtString name = folder / "sparse";
    const std::size_t last = 0x7fffffff;
    for (const std::size_t offset : {last, last + 1}) {
        WriteFile(name, Header(16) + Word(HpackFormat::IndexMagic) + Word(1) + Word(2) + "ab" +
                            Word(offset));
        std::filesystem::resize_file(std::string(name), offset);
        std::ofstream(name, std::ios::binary | std::ios::app) << Record("ab", "x");
        TryView(name);
        EXPECT_EQ(FindOutcome(HpackView::Map(name), "ab") == "returned x", offset == last);
    }
}

TEST(HpackView, PackageInsideAFile) {
    const TempFolder folder;
    const qtString name = folder / "file";
    const qtString inner = NumberedPackage(50);
    for (const std::size_t offset : {1, 4095, 4096, 4097}) {
        WriteFile(name, qtString(offset, '#') + inner + "after it");
        const HpackView view = HpackView::Map(name, offset, inner.size());
        qtPtr<qtBuffer> buffer = NewBuffer(inner);
        Hpack package;
        package.Open(buffer, 'r');
        RequireSameItems(view, package);

        const qtString cut = HioErrors::readFailed + name;
        const std::size_t size = offset + inner.size() + 8;
        EXPECT_EQ(HpackView::Map(name, offset, size - offset).Count(), 50u);
        for (const auto& [from, length] : std::vector<std::pair<std::uint64_t, std::uint64_t>>{
                 {offset, size - offset + 1},
                 {size, 1},
                 {size + 1, 0},
                 {size + 8192, 100},
                 {offset, inner.size() - 1},  // the index is cut
                 {UINT64_MAX, inner.size()},
                 {offset, UINT64_MAX - 1},
                 {offset, UINT64_MAX}}) {
            ExpectError<HioErr>([&] { HpackView::Map(name, from, length); }, HioErrors::read, cut,
                                {name});
        }
    }
}

TEST(HpackView, MovingInvalidatesNothing) {
    const qtString bytes = NumberedPackage(100);
    const TempFolder folder;
    const qtString name = folder / "file";
    WriteFile(name, bytes);
    HpackView other = HpackView::Map(name);
    HpackView view = std::move(other);
    const HpackView::Iterator item = view.LowerBound(Key(7));
    const std::string_view body = *view.Find(Key(8));
    other = std::move(view);
    EXPECT_EQ((*item).Body(), Body(7));
    EXPECT_EQ(body, Body(8));
    EXPECT_EQ(other.Find(Key(9)), Body(9));
    other = HpackView(bytes);
    EXPECT_EQ(other.Count(), 100u);
    static_assert(!std::is_constructible_v<HpackView, qtString>, "the bytes must outlive the view");
}

// So many that some hashes are equal.
TEST(HpackView, FindsEachOfManyKeysAndNoOther) {
    constexpr std::size_t count = 100000;
    const qtString bytes = NumberedPackage(count);
    const HpackView view(bytes);
    for (std::size_t number = 0; number < count; ++number) {
        ASSERT_EQ(view.Find(Key(number)), Body(number));
        ASSERT_EQ(view.Find(Key(count + number)), std::nullopt);
    }
}

TEST(HpackView, ManyThreadsFindAndWalk) {
    const qtString bytes = NumberedPackage(3000);
    const HpackView view(bytes);
    std::vector<std::thread> threads;
    for (std::size_t thread = 0; thread < 8; ++thread) {
        threads.emplace_back([&, thread] {
            std::mt19937 random(static_cast<unsigned int>(thread));
            for (int lookup = 0; lookup < 2000; ++lookup) {
                const std::size_t number = random() % 4000;
                const std::optional<std::string_view> body = view.Find(Key(number));
                ASSERT_EQ(body.has_value(), number < 3000);
                ASSERT_TRUE(!body || *body == Body(number));
            }
            std::size_t walked = 0;
            for (const HpackView::Item item : view.Prefix("key 1")) {
                walked += item.Body().size();
            }
            ASSERT_GT(walked, 0u);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(HpackView, LookupsAndStepsAllocateNothing) {
    const qtString bytes = NumberedPackage(1000);
    const HpackView view(bytes);
    const qtString key = Key(500);
    const qtString longKey = key + qtString(100, 'x');
    const auto use = [&] {
        for (const HpackView::Item item : view.Prefix("key")) {
            ASSERT_GT(item.Body().size() + item.Key().size(), 0u);
        }
        ASSERT_TRUE(view.Find(key) && !view.Find(longKey));
        auto last = view.LowerBound(key);
        ASSERT_TRUE(last != view.end() && (*--last).Key() < key);
    };
    Allocations::largest = 0;
    use();
    EXPECT_EQ(Allocations::largest, 0u);
    for (int lookup = 0; lookup < 64; ++lookup) {
        view.Find(key);
    }
    EXPECT_GE(Allocations::largest, 1000u * 8);
    Allocations::largest = 0;
    use();
    EXPECT_EQ(Allocations::largest, 0u);
}

TEST(HpackView, LookupsGoOnWithoutMemory) {
    const qtString bytes = NumberedPackage(1000);
    const HpackView view(bytes);
    std::size_t failures = 0;
    for (std::size_t lookup = 0; lookup < 400; ++lookup) {
        Allocations::untilFailure = lookup < 200 ? 0 : -1;
        Allocations::largest = 0;
        const std::optional<std::string_view> body = view.Find("key 0");
        failures += Allocations::largest != 0 ? 1 : 0;
        EXPECT_EQ(body, Body(0));
    }
    Allocations::untilFailure = -1;
    EXPECT_EQ(failures, 4u);  // three times in vain, after 64 lookups each
}

TEST(HpackView, OpeningFailsWithoutMemory) {
    qtString bytes = NumberedPackage(40);
    bytes[bytes.rfind("key")] = 'a';  // the last one: out of order
    for (long failing = 0;; ++failing) {
        ASSERT_LT(failing, 20);
        Allocations::untilFailure = failing;
        try {
            const HpackView view(bytes);
            Allocations::untilFailure = -1;
            EXPECT_GT(failing, 2);
            break;
        } catch (const std::bad_alloc&) {
        }
    }
}

}  // namespace
