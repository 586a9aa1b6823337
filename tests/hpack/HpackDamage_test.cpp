// Packages that a reader cannot trust: whatever their bytes, opening and every operation return the
// right result or a documented error, and allocate no more than the bytes justify.
#include <gtest/gtest.h>

#include <random>

#include "tests/support/Allocations.h"
#include "tests/support/Attempts.h"
#include "tests/support/TempFolder.h"
#include "tests/support/Views.h"

namespace {

constexpr const char* formats[] = {"current", "old-unicode", "old-ascii"};

qtString SmallPackage(const char* format) {
    const std::vector<std::pair<qtString, qtString>> items = {
        {"one", "first body"}, {"", ""}, {"two", "second"}};
    return Updated(Package(items), [&](Hpack& package) {
        package.AddOrUpdate("two", "behind the index");
        package.SetFileID(1, 2, 3);
        if (format != formats[0]) {
            package.SetOldID(format == formats[1]);
        }
    });
}

class HpackDamage : public testing::TestWithParam<const char*> {
protected:
    void Try(const qtString& bytes, bool inFile = false) {
        Allocations::largest = 0;
        qtPtr<qtBuffer> buffer = NewBuffer(bytes);
        TryView(buffer);
        TryEverything(buffer, bytes.size());
        if (inFile && GetParam() == formats[0]) {
            qtString name = folder / "package";
            WriteFile(name, bytes);
            TryView(name);
            TryEverything(name, bytes.size());
        }
        // What is allocated apart from the package: a piece of reading ahead, stream buffers.
        EXPECT_LE(Allocations::largest, 8 * bytes.size() + 128 * 1024);
        TryRecovering(bytes);
        EXPECT_LE(Allocations::largest, 8 * bytes.size() + 384 * 1024);
    }

    const qtString intact = SmallPackage(GetParam());
    TempFolder folder;
};

// The files were written once and for all: a change of a byte is a change of the format.
TEST_P(HpackDamage, GoldenFilesAreWrittenByteForByte) {
    EXPECT_EQ(intact, FileBytes(qtString(GOLDEN_FOLDER) + GetParam() + ".hpk"));
}

TEST_P(HpackDamage, EveryCutBitAndWord) {
    const std::size_t length = intact.size();
    for (std::size_t at = 0; at <= length; ++at) {
        Try(intact.substr(0, at), true);
        for (unsigned int bit = 0; at < length && bit < 8; ++bit) {
            qtString flipped(intact);
            flipped[at] = static_cast<char>(flipped[at] ^ 1 << bit);
            Try(flipped, bit == at % 8);
        }
        for (const std::size_t word :
             {std::size_t{0}, std::size_t{1}, length - 1, length, std::size_t{0x7fffffff},
              std::size_t{0x80000000}, std::size_t{0xfffffff8}, std::size_t{0xffffffff}}) {
            if (at + 4 <= length) {
                Try(qtString(intact).replace(at, 4, Word(word)));
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, HpackDamage, testing::ValuesIn(formats),
                         [](const auto& format) { return std::to_string(format.index); });

qtString WithIndex(const std::vector<std::pair<qtString, std::size_t>>& entries) {
    qtString bytes = Hex("4a5b6c66 00000010 00000000 00000000 4a5b6c72") + Word(entries.size());
    for (const auto& [key, offset] : entries) {
        bytes += Word(key.size()) + key + Word(offset);
    }
    return bytes;
}

// An index block as damage or another writer may leave it: out of order, a key more than once.
TEST(HpackIndexDamage, UnsortedIndexKeepsTheLastOfEqualKeys) {
    std::mt19937 random(5);
    for (int round = 0; round < 200; ++round) {
        std::vector<std::pair<qtString, std::size_t>> entries(random() % 60);
        std::map<qtString, std::size_t> last;
        for (auto& [key, offset] : entries) {
            key = RandomKey(random);
            last[key] = offset = 16 + random() % 1000;
        }
        const qtString sorted = WithIndex({last.begin(), last.end()});
        const qtString saved = Updated(WithIndex(entries), [&](Hpack& package) {
            EXPECT_EQ(package.GetIndexSpace(), sorted.size() - 16);
            package.WriteIndex(16);
        });
        EXPECT_EQ(saved.substr(0, sorted.size()), sorted);
    }
}

}  // namespace
