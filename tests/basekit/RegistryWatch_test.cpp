#include "basekit/RegistryWatch.h"

#include <poll.h>

#include <random>
#include <vector>

#include "tests/support/Processes.h"
#include "tests/support/TemporaryRegistry.h"

namespace {

namespace fs = std::filesystem;

class RegistryWatchTest : public TemporaryRegistry {
protected:
    // Every change until nothing happens for the time, as one text.
    std::string Changes(int milliseconds = 0) {
        std::string all;
        while (watch.Wait(milliseconds, [&](const qtString& key, const qtString* value) {
            all += key + (value == nullptr ? "-" : "=" + *value) + " ";
        })) {
        }
        EXPECT_EQ(UnixRegistry::LastError(), "");
        return all;
    }

    RegistryWatch watch;
};

TEST_F(RegistryWatchTest, ReportsWhatHasChanged) {
    EXPECT_EQ(watch.Descriptor(), -1);
    EXPECT_FALSE(watch.Wait(0, {}));
    EXPECT_NE(UnixRegistry::LastError(), "");
    ASSERT_TRUE(watch.Open("Pop/")) << "neither the database nor its folder exists";
    EXPECT_EQ(Changes(), "");
    ASSERT_TRUE(Set("Pop/b", "1") && Set("Pop", "other") && Set("Pop/a", ""));
    pollfd ready{watch.Descriptor(), POLLIN, 0};
    EXPECT_EQ(poll(&ready, 1, 0), 1);
    EXPECT_EQ(Changes(), "Pop/a= Pop/b=1 ");
    EXPECT_EQ(Changes(20), "");
    ASSERT_TRUE(Set("Pop/b", "1") && Set("Pos/", "other"));
    EXPECT_EQ(Changes(), "") << "the same value, and other keys";

    UnixRegistry store;
    ASSERT_TRUE(store.Open(true));
    UnixRegistry::Update update(store);
    EXPECT_TRUE(update.Remove("Pop/a") && update.Set("Pop/b", "2", 1) &&
                update.Set("Pop/c", "3", 1) && update.Commit());
    EXPECT_EQ(Changes(), "Pop/a- Pop/b=2 Pop/c=3 ");

    ASSERT_TRUE(watch.Open());
    EXPECT_EQ(Changes(), "") << "existing keys are no change";
    const pid_t child = Start([] {
        usleep(30000);
        EXPECT_TRUE(Set("late", "1"));
    });
    EXPECT_TRUE(
        watch.Wait(-1, [](const qtString& key, const qtString*) { EXPECT_EQ(key, "late"); }));
    EXPECT_EQ(End(child), 0);

    // By way of a link whose target is in another folder.
    fs::create_directory(folder / "real");
    fs::rename(database, folder / "real/file");
    fs::create_symlink(folder / "real/file", database);
    ASSERT_TRUE(watch.Open());
    ASSERT_TRUE(Set("late", "2"));
    EXPECT_EQ(Changes(), "late=2 ");
    fs::copy_file(folder / "real/file", folder / "real/second");
    fs::remove(database);
    fs::create_symlink(folder / "real/second", database);
    EXPECT_EQ(Changes(), "");
    ASSERT_TRUE(Set("late", "3"));
    EXPECT_EQ(Changes(), "late=3 ");
}

// Four writers change ten keys; the watch reports the last state of each.
TEST_F(RegistryWatchTest, TheLastStateIsAlwaysReported) {
    ASSERT_TRUE(watch.Open());
    Records seen;
    std::vector<pid_t> writers;
    constexpr unsigned long changes = 250;
    for (unsigned long writer = 0; writer < 4; ++writer) {
        writers.push_back(Start([writer] {
            std::mt19937 random(static_cast<unsigned>(writer));
            UnixRegistry store;
            EXPECT_TRUE(store.Open(true));
            for (unsigned long n = 0; n < (KillRounds(0) != 0 ? changes : changes / 10); ++n) {
                const std::string key = "k" + std::to_string(random() % 10);
                UnixRegistry::Update update(store);
                const std::string value = std::to_string(writer) + "." + std::to_string(n);
                const bool sets = random() % 4 != 0;
                EXPECT_TRUE(sets ? update.Set(key, value.data(), value.size())
                                 : update.Remove(key) || UnixRegistry::LastError().empty());
                EXPECT_TRUE(update.Commit());
            }
        }));
    }
    const auto collect = [&](const qtString& key, const qtString* value) {
        if (value == nullptr) {
            seen.erase(key);
        } else {
            seen[key] = *value;
        }
    };
    for (const pid_t writer : writers) {
        while (waitpid(writer, nullptr, WNOHANG) == 0) {
            watch.Wait(50, collect);
        }
    }
    while (watch.Wait(0, collect)) {
    }
    EXPECT_EQ(seen, ReadAll());
}

}  // namespace
