#include "hpack/HpackUpdate.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <random>
#include <system_error>

#include "hpack/Hfile32.h"
#include "hpack/HpackCheck.h"
#include "tests/support/Items.h"
#include "tests/support/Processes.h"
#include "tests/support/TempFolder.h"

namespace {

namespace fs = std::filesystem;

class HpackUpdateTest : public testing::Test {
protected:
    HpackUpdateTest() { WriteFile(path, Package(Contents{{"a", "1"}})); }

    Contents Content() const {
        Hpack package;
        package.Open(path, 'r');
        return Items(package);
    }

    /// The package is in order and alone in its folder.
    void ExpectTidy() const {
        Hfile32 file;
        file.Open(path, 'r');
        EXPECT_TRUE(HpackCheck(file).Good());
        EXPECT_EQ(std::distance(fs::directory_iterator(folder.Path()), {}), 1);
    }

    TempFolder folder;
    const qtString path = folder / "p";
};

TEST_F(HpackUpdateTest, ReplacesTheFileAndKeepsWhatIsNotTheChange) {
    chmod(path.c_str(), 0604);
    const qtString link = path + ".link";
    const qtString other = path + ".other";
    fs::create_symlink("p", link.c_str());
    fs::create_hard_link(path.c_str(), other.c_str());
    Hpack reader;
    reader.Open(path, 'r');
    HpackUpdate(link, [](Hpack& package) {
        package.AddOrUpdate("b", "2");
        package.Rename("a", "c");
    });
    EXPECT_EQ(Content(), (Contents{{"b", "2"}, {"c", "1"}}));
    EXPECT_TRUE(fs::is_symlink(link.c_str()));
    struct stat status;
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, mode_t{0604});
    EXPECT_EQ(Items(reader), (Contents{{"a", "1"}}));
    EXPECT_EQ(FileBytes(other), Package(Contents{{"a", "1"}}));
    fs::remove(link.c_str());
    fs::remove(other.c_str());
    ExpectTidy();
}

TEST_F(HpackUpdateTest, AFailureAnywhereLeavesThePackageAsItWas) {
    struct Stop {};
    const auto change = [](Hpack& package) { package.Delete("a"); };
    int steps = 0;
    HpackUpdateOptions options;
    for (int last = 0;; ++last, steps = 0) {
        std::uint64_t copied = 0;
        options.step = [&](std::uint64_t done, std::uint64_t size) {
            EXPECT_LE(done, size);
            EXPECT_LE(copied, done);
            copied = done;
            if (steps++ == last) {
                throw Stop();
            }
        };
        try {
            HpackUpdate(path, change, options);
            EXPECT_EQ(copied, Package(Contents{{"a", "1"}}).size());
            break;
        } catch (const Stop&) {
            EXPECT_EQ(Content(), (Contents{{"a", "1"}}));
            ExpectTidy();
        }
    }
    EXPECT_GE(steps, 2);
    EXPECT_EQ(Content(), Contents());

    const auto missing = [](Hpack& package) {
        qtString body;
        package.AddOrUpdate("b", "2");
        package.GetItem("none", body);
    };
    try {
        HpackUpdate(path, missing);
        FAIL();
    } catch (const qtX<Hpack>& error) {
        EXPECT_EQ(error.Arguments(), (std::vector<qtString>{path, "none"}));
    }
    EXPECT_EQ(Content(), Contents());
    // A failed write counts even if the change catches its error.
    const Contents large = {{"a", qtString(200000, 'a')}};
    WriteFile(path, Package(large));
    std::signal(SIGXFSZ, SIG_IGN);
    const auto caught = [](Hpack& package) {
        rlimit former;
        ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &former), 0);
        const rlimit room = {1000, former.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &room), 0);
        EXPECT_THROW(package.AddOrUpdate("a", qtString(200000, 'b')), qtX<HioErr>);
        setrlimit(RLIMIT_FSIZE, &former);
    };
    EXPECT_THROW(HpackUpdate(path, caught), qtX<HioErr>);
    EXPECT_EQ(Content(), large);
    ExpectTidy();

    WriteFile(path, "This is no package.");
    EXPECT_THROW(HpackUpdate(path, change), qtX<Hpack>);
    EXPECT_EQ(FileBytes(path), "This is no package.");
    fs::remove(path.c_str());
    for (const auto& [name, number] : {std::pair{path, ENOENT}, {folder.Path().string(), EISDIR}}) {
        try {
            HpackUpdate(name, change);
            FAIL();
        } catch (const std::system_error& error) {
            EXPECT_EQ(error.code().value(), number);
            EXPECT_EQ(std::string(error.what()), "cannot open " + name + ": " + strerror(number));
        }
    }
    WriteFile(path, "");
    fs::resize_file(path.c_str(), std::uintmax_t{1} << 31);
    EXPECT_THROW(HpackUpdate(path, change), std::system_error);
}

TEST_F(HpackUpdateTest, ALockThatIsHeldIsWaitedForNoLongerThanAsked) {
    HpackUpdateOptions options;
    options.lockLimit = std::chrono::milliseconds(0);
    HpackUpdate(path, [&](Hpack&) {
        try {
            HpackUpdate(
                path, [](Hpack&) { FAIL(); }, options);
            FAIL();
        } catch (const std::system_error& error) {
            EXPECT_EQ(error.code().value(), ETIMEDOUT);
        }
    });
    // And what waits can be stopped.
    struct Stop {};
    options.lockLimit = std::chrono::minutes(1);
    options.step = [](std::uint64_t, std::uint64_t size) {
        EXPECT_EQ(size, 0U);
        throw Stop();
    };
    HpackUpdate(path, [&](Hpack&) {
        EXPECT_THROW(HpackUpdate(
                         path, [](Hpack&) { FAIL(); }, options),
                     Stop);
    });
}

// Sets two items of `writer` to the same next number.
void Count(const qtString& path, const qtString& writer) {
    HpackUpdate(path, [&](Hpack& package) {
        qtString number = "0";
        if (package.Contains(writer)) {
            package.GetItem(writer, number);
        }
        number = std::to_string(std::stoi(number) + 1);
        package.AddOrUpdate(writer, number);
        package.AddOrUpdate(writer + "'", number);
    });
}

TEST_F(HpackUpdateTest, KilledWritersLeaveTheOldPackageOrTheNewOne) {
    const int rounds = KillRounds(30);
    std::mt19937 random(std::random_device{}());
    const std::vector<qtString> names = {"0", "1"};
    std::map<qtString, int> done;
    int changed = 0;
    for (int round = 0; round < rounds; ++round) {
        std::vector<std::function<void(int)>> writers;
        for (const qtString& name : names) {
            writers.emplace_back([&, letter = name[0]](int reports) {
                for (;;) {
                    Count(path, name);
                    EXPECT_EQ(write(reports, &letter, 1), 1);
                }
            });
        }
        for (const char letter : KillWriters<char>(writers, random, 4000, round % 2 == 0)) {
            ++done[qtString(1, letter)];
            ++changed;
        }
        Contents items = Content();
        for (const qtString& name : names) {
            const qtString number = items[name];
            EXPECT_EQ(items[name + "'"], number);
            // What was not reported may have been done.
            const int count = number.empty() ? 0 : std::stoi(number);
            EXPECT_TRUE(count == done[name] || count == done[name] + 1)
                << count << " of " << done[name];
            done[name] = count;
        }
    }
    Count(path, "last");  // removes what a killed writer has left
    ExpectTidy();
    std::printf("%d kills, %d changes: ", rounds * 2, changed);
}

}  // namespace
