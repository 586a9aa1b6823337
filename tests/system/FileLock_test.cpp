#include "system/FileLock.h"

#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <thread>

#include "tests/support/Bytes.h"
#include "tests/support/Processes.h"
#include "tests/support/TempFolder.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using vantry_internal::FileLock;
using vantry_internal::LockWait;
using vantry_internal::SystemError;

class FileLockTest : public ::testing::Test {
protected:
    FileLockTest() { WriteFile(path, ""); }

    bool IsFree() const {
        try {
            const FileLock lock(path, {0ms, {}, {}});
            return true;
        } catch (const SystemError& error) {
            EXPECT_EQ(error.Number(), ETIMEDOUT);
            return false;
        }
    }

    TempFolder scratch;
    const fs::path folder = scratch.Path();
    const std::string path = folder / "a";
};

TEST_F(FileLockTest, WaitsForALimitedTimeAndSaysForWhom) {
    const FileLock held(path);
    EXPECT_NE(fcntl(held.Descriptor(), F_GETFD) & FD_CLOEXEC, 0);
    const std::string self = "process " + std::to_string(getpid()) + " (system_test)";
    std::string line;
    int polls = 0;
    const LockWait wait{1200ms, [&](const std::string& text) { line += text; }, [&] { ++polls; }};
    try {
        const FileLock second(path, wait);
        FAIL();
    } catch (const SystemError& error) {
        EXPECT_EQ(error.Number(), ETIMEDOUT);
        EXPECT_EQ(error.what(), "cannot lock " + path + ": " + self + " has held the lock for 1 s");
    }
    EXPECT_EQ(line, "waiting for " + path + ", locked by " + self);
    EXPECT_GT(polls, 100);
    EXPECT_THROW(FileLock(path, {1h, {}, [] { throw 1; }}), int);
}

TEST_F(FileLockTest, LocksTheFileThatHasTheName) {
    fs::create_symlink("a", folder / "link");
    for (const bool relinked : {false, true}) {
        auto former = std::make_unique<FileLock>(path);
        EXPECT_TRUE(former->IsCurrent());
        std::thread waiting([&] {
            const FileLock lock(folder / "link");
            EXPECT_TRUE(lock.IsCurrent());
            EXPECT_EQ(lock.Path(), folder / (relinked ? "b" : "a"));
            EXPECT_EQ(FileBytes(lock.Path()), "new");
        });
        std::this_thread::sleep_for(20ms);
        WriteFile(folder / "b", "new");
        if (relinked) {
            fs::create_symlink("b", folder / "link2");
            fs::rename(folder / "link2", folder / "link");
        } else {
            fs::rename(folder / "b", path);
        }
        EXPECT_EQ(former->IsCurrent(), relinked);
        former.reset();
        waiting.join();
    }
}

TEST_F(FileLockTest, StaysWithTheProcessThatTookIt) {
    auto lock = std::make_unique<FileLock>(path);
    EXPECT_EQ(End(Start([&] {
                  EXPECT_FALSE(lock->IsCurrent());
                  lock.reset();
              })),
              0);
    EXPECT_FALSE(IsFree());
    const pid_t child = Start([] { pause(); });
    lock.reset();
    EXPECT_TRUE(IsFree()) << "a child that lives on holds nothing";
    End(child, SIGKILL);
}

TEST_F(FileLockTest, CreatesWhatIsMissing) {
    umask(0);
    const std::string missing = folder / "b/c/lock";
    EXPECT_THROW(FileLock{missing}, SystemError);
    EXPECT_FALSE(fs::exists(folder / "b"));
    const auto create = FileLock::Missing::create;
    EXPECT_TRUE(FileLock(missing, {}, create).Created());
    EXPECT_FALSE(FileLock(missing, {}, create).Created());
    EXPECT_EQ(fs::status(missing).permissions(), fs::perms(0600));
    EXPECT_EQ(fs::status(folder / "b").permissions(), fs::perms(0700));
    ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);
    for (const std::string bad : {folder / "fifo", fs::path("/dev/null")}) {
        try {
            FileLock(bad, {}, create);
            ADD_FAILURE();
        } catch (const SystemError& error) {
            EXPECT_EQ(error.what(), "cannot open " + bad + ": not a regular file");
        }
    }
}

}  // namespace
