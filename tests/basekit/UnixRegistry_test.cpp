#include "basekit/UnixRegistry.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <random>
#include <thread>
#include <vector>

#include "TemporaryRegistry.h"

#define DB_DBM_HSEARCH 1
#include <db.h>
#undef store
#undef fetch

namespace {

using UnixRegistryTest = TemporaryRegistry;
namespace fs = std::filesystem;

TEST_F(UnixRegistryTest, KeepsAnyBytes) {
    std::string all(256, '\0');
    for (std::size_t i = 0; i < all.size(); ++i) {
        all[i] = static_cast<char>(i);
    }
    Records model = {{"Pop/Greeting", "hello"},
                     {"empty", ""},
                     {"", "empty key"},
                     {std::string("\0a\0", 3), all},
                     {all, std::string(200000, 'v')}};
    UnixRegistry store;
    ASSERT_TRUE(store.Open(true));
    for (const auto& [key, value] : model) {
        ASSERT_TRUE(Set(store, key, value)) << UnixRegistry::LastError();
    }
    ASSERT_TRUE(Set(store, "Pop/Greeting", model["Pop/Greeting"] = "hallo"));
    EXPECT_EQ(ReadAll(), model);

    const char* data = "as before";
    unsigned length = 9;
    EXPECT_FALSE(store.GetKey("Pop/greeting", data, length));
    EXPECT_STREQ(data, "as before");
    ASSERT_TRUE(store.GetKey("empty", data, length));
    EXPECT_EQ(length, 0u);

    UnixRegistry::Update update(store);
    EXPECT_FALSE(update.Remove("nowhere"));
    EXPECT_TRUE(update.Remove(""));
    EXPECT_TRUE(update.Set("new", "1", 1));
    EXPECT_EQ(ReadAll(), model);
    EXPECT_TRUE(update.Commit());
    model.erase("");
    model["new"] = "1";
    EXPECT_EQ(ReadAll(), model);
    EXPECT_FALSE(fs::exists(database.string() + ".new"));
}

TEST_F(UnixRegistryTest, SharesTheFormatOfNdbm) {
    ASSERT_TRUE(Set("Pop/Greeting", "hello"));
    const std::string path = fs::path(database).replace_extension().string();
    const datum key{const_cast<char*>("Pop/Greeting"), 12};
    DBM* dbm = dbm_open(path.c_str(), O_RDWR, 0);
    ASSERT_NE(dbm, nullptr);
    const datum value = dbm_fetch(dbm, key);
    EXPECT_EQ(std::string(value.dptr, static_cast<std::size_t>(value.dsize)), "hello");
    dbm_close(dbm);

    fs::remove(database);
    dbm = dbm_open(path.c_str(), O_RDWR | O_CREAT, 0600);
    ASSERT_EQ(dbm_store(dbm, key, key, DBM_REPLACE), 0);
    dbm_close(dbm);
    UnixRegistry store;
    ASSERT_TRUE(store.Open(true) && Set(store, "a", "b"));
    EXPECT_EQ(ReadAll(), (Records{{"Pop/Greeting", "Pop/Greeting"}, {"a", "b"}}));
    int count = 0;
    for (datum next = dbm_firstkey(store.Handle()); next.dptr != nullptr;
         next = dbm_nextkey(store.Handle())) {
        ++count;
    }
    EXPECT_EQ(count, 1) << "the handle shows what was there when the store last looked";
}

TEST_F(UnixRegistryTest, CreatesWhatIsMissingForTheUserAlone) {
    umask(0);
    UnixRegistry store;
    EXPECT_FALSE(store.Open(false));
    EXPECT_EQ(std::string(UnixRegistry::LastError()),
              database.string() + ": No such file or directory");
    EXPECT_TRUE(fs::is_empty(folder));
    EXPECT_EQ(store.Handle(), nullptr);
    EXPECT_FALSE(Set(store, "a", "b"));

    ASSERT_TRUE(store.Open(true));
    EXPECT_NE(store.Handle(), nullptr);
    EXPECT_EQ(ReadAll(), Records());
    EXPECT_EQ(fs::status(database).permissions(), fs::perms(0600));
    EXPECT_EQ(fs::status(database.string() + ".lock").permissions(), fs::perms(0600));
    EXPECT_EQ(fs::status(database.parent_path()).permissions(), fs::perms(0700));
    ASSERT_TRUE(store.Open(false));
    EXPECT_FALSE(Set(store, "a", "b"));
    EXPECT_EQ(ReadAll(), Records());

    // What the user has changed about it stays.
    fs::permissions(database, fs::perms(0640));
    fs::rename(database, folder / "real");
    fs::create_symlink(folder / "real", database);
    ASSERT_TRUE(Set("a", "b"));
    EXPECT_TRUE(fs::is_symlink(database));
    EXPECT_EQ(fs::status(folder / "real").permissions(), fs::perms(0640));
    EXPECT_EQ(ReadAll(), (Records{{"a", "b"}}));

    // A link that leads to nothing yet, by way of another, and one that leads in a circle.
    fs::remove(folder / "real");
    fs::create_symlink("../new folder/new", folder / "store/other");
    fs::remove(database);
    fs::create_symlink("other", database);
    ASSERT_TRUE(Set("a", "c"));
    EXPECT_TRUE(fs::is_symlink(database) && fs::is_regular_file(folder / "new folder/new"));
    EXPECT_EQ(ReadAll(), (Records{{"a", "c"}}));
    fs::remove(folder / "store/other");
    fs::create_symlink(database, folder / "store/other");
    EXPECT_FALSE(Set("a", "d"));
    EXPECT_EQ(std::string(UnixRegistry::LastError()),
              database.string() + ": Too many levels of symbolic links");
}

TEST_F(UnixRegistryTest, IsFoundByTheEnvironment) {
    unsetenv("BASEKIT_REGISTRY");
    setenv("HOME", folder.c_str(), 1);
    unsetenv("XDG_DATA_HOME");
    EXPECT_EQ(UnixRegistry::DatabasePath(), (folder / ".local/share/basekit/registry.db").string());
    setenv("XDG_DATA_HOME", (folder / "data").c_str(), 1);
    EXPECT_EQ(UnixRegistry::DatabasePath(), (folder / "data/basekit/registry.db").string());
    ASSERT_TRUE(Set("a", "b"));
    setenv("XDG_DATA_HOME", "", 1);
    unsetenv("HOME");
    EXPECT_EQ(UnixRegistry::DatabasePath(), "");
    UnixRegistry store;
    EXPECT_FALSE(store.Open(true));

    fs::current_path(folder);
    Use("relative");
    ASSERT_TRUE(store.Open(true));
    fs::current_path("/");
    EXPECT_TRUE(Set(store, "a", "b"));
    EXPECT_TRUE(fs::exists(folder / "relative.db"));
}

TEST_F(UnixRegistryTest, StoresThatStayOpenSeeEachOther) {
    UnixRegistry first;
    UnixRegistry second;
    ASSERT_TRUE(first.Open(true) && second.Open(true));
    const char* data = nullptr;
    unsigned length = 0;
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(Set(i % 2 == 0 ? first : second, "n", std::to_string(i)));
        ASSERT_TRUE((i % 2 == 0 ? second : first).GetKey("n", data, length));
        ASSERT_EQ(std::string(data, length), std::to_string(i));
    }
    fs::remove_all(database.parent_path());
    EXPECT_FALSE(first.GetKey("n", data, length));
    Records last;
    EXPECT_TRUE(ReadAll(last, first));
    EXPECT_EQ(last, (Records{{"n", "99"}})) << "a walk shows what is still open";
    EXPECT_NE(first.Handle(), nullptr);
    EXPECT_TRUE(Set(second, "n", "anew"));
    EXPECT_TRUE(first.GetKey("n", data, length));

    // In the middle of a walk, writers are neither kept out nor seen.
    ASSERT_TRUE(Set("m", "1"));
    int count = 0;
    EXPECT_TRUE(first.ForEach([&](const qtString& key, const char*, unsigned) {
        ++count;
        EXPECT_TRUE(Set(key + "'", "2"));
    }));
    EXPECT_EQ(count, 2);
    EXPECT_EQ(ReadAll().size(), 4u);
}

TEST_F(UnixRegistryTest, DamageIsNeverShownAsData) {
    const Records model = {{"Pop/Greeting", "hello"}, {"Trace/Level", std::string(5000, 'v')}};
    for (const auto& [key, value] : model) {
        ASSERT_TRUE(Set(key, value));
    }
    const std::string good = Read(database);
    const auto check = [&](const std::string& content) {
        fs::remove(database);
        Write(database, content);
        UnixRegistry store;
        Records found;
        if (store.Open(true) && ReadAll(found, store)) {
            EXPECT_TRUE(found == model) << content.size();
        } else {
            EXPECT_FALSE(UnixRegistry::LastError().empty());
        }
        for (const auto& [key, value] : found) {
            EXPECT_TRUE(model.at(key) == value);
        }
        const char* data = nullptr;
        unsigned length = 0;
        if (store.GetKey("Pop/Greeting", data, length)) {
            EXPECT_EQ(std::string(data, length), "hello");
        }
    };
    std::mt19937 random(1);
    for (std::size_t i = 0; i < good.size(); i += i < 512 ? 1 : 17) {
        std::string bad = good;
        bad[i] = static_cast<char>(bad[i] ^ (1 << random() % 8));
        check(bad);
        check(good.substr(0, i));
    }
    for (const char* content : {"", "no database at all", "\0"}) {
        Write(database, std::string(content) + std::string(2000, *content));
        EXPECT_FALSE(Set("a", "b"));
        EXPECT_EQ(Read(database), std::string(content) + std::string(2000, *content));
    }
}

TEST_F(UnixRegistryTest, AFailedWriteLeavesWhatWasThere) {
    ASSERT_TRUE(Set("a", "b"));
    UnixRegistry store;
    ASSERT_TRUE(store.Open(true));
    const auto fails = [&](const std::string& cause) {
        EXPECT_FALSE(Set(store, "a", std::string(100000, 'c')));
        EXPECT_NE(UnixRegistry::LastError().find(cause), std::string::npos)
            << UnixRegistry::LastError();
        EXPECT_FALSE(fs::exists(database.string() + ".new"));
        EXPECT_EQ(ReadAll(), (Records{{"a", "b"}}));
    };

    const pid_t child = fork();
    if (child == 0) {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit small{20000, 20000};
        setrlimit(RLIMIT_FSIZE, &small);
        fails("File too large");
        if (geteuid() == 0) {
            fs::permissions(folder, fs::perms(0755));
            fs::permissions(database.parent_path(), fs::perms(0755));
            fs::permissions(database, fs::perms(0644));
            ASSERT_EQ(seteuid(65534), 0);
        } else {
            fs::permissions(database.parent_path(), fs::perms(0500));
        }
        fails("Permission denied");
        _exit(HasFailure() ? 1 : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);

    // What a killed writer left is in nobody's way, a folder in that place is.
    Write(database.string() + ".new", "debris");
    EXPECT_TRUE(Set("a", "b"));
    EXPECT_FALSE(fs::exists(database.string() + ".new"));
    fs::create_directories(database.string() + ".new/in the way");
    EXPECT_FALSE(Set("a", "c"));
    EXPECT_EQ(ReadAll(), (Records{{"a", "b"}}));

    Use("/dev/null/registry");
    EXPECT_FALSE(store.Open(true));
    EXPECT_EQ(std::string(UnixRegistry::LastError()),
              "/dev/null/registry.db.lock: Not a directory");
    Use(folder / "folder");
    fs::create_directory(database);
    EXPECT_FALSE(store.Open(true));
}

TEST_F(UnixRegistryTest, IgnoresDbConfig) {
    Write(folder / "DB_CONFIG", "set_data_dir /nowhere\nset_flags nonsense\nset_create_dir /x\n");
    fs::current_path(folder);
    Use("registry");
    EXPECT_TRUE(Set("a", "b"));
    EXPECT_EQ(ReadAll(), (Records{{"a", "b"}}));
    EXPECT_TRUE(fs::exists(folder / "registry.db"));
    fs::current_path("/");
}

TEST_F(UnixRegistryTest, ManyWritersLoseNothing) {
    static constexpr int processes = 3;
    static constexpr int threads = 3;
    static constexpr int writes = 15;
    const auto write = [](int process, int thread) {
        UnixRegistry kept;
        EXPECT_TRUE(kept.Open(true));
        for (int i = 0; i < writes; ++i) {
            const std::string name =
                std::to_string(process) + "/" + std::to_string(thread) + "/" + std::to_string(i);
            EXPECT_TRUE(i % 2 == 0 ? Set(kept, name, name) : Set(name, name))
                << UnixRegistry::LastError();
            const Records all = ReadAll();
            for (int before = 0; before <= i; ++before) {
                EXPECT_EQ(all.count(name.substr(0, 4) + std::to_string(before)), 1u);
            }
        }
    };
    std::vector<pid_t> children;
    for (int process = 0; process < processes; ++process) {
        children.push_back(fork());
        ASSERT_GE(children.back(), 0);
        if (children.back() == 0) {
            std::vector<std::thread> running;
            for (int thread = 0; thread < threads; ++thread) {
                running.emplace_back(write, process, thread);
            }
            for (std::thread& thread : running) {
                thread.join();
            }
            _exit(HasFailure() ? 1 : 0);
        }
    }
    for (const pid_t child : children) {
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(ReadAll().size(), std::size_t{processes * threads * writes});
}

struct Report {
    char writer;
    unsigned long number;
};

std::string ValueOf(unsigned long number) {
    return std::to_string(number) + std::string(number % 3000, '.');
}

std::string SlotOf(const Report& write) {
    return write.writer + std::to_string(write.number % 16);
}

// One writer of the kill loop: each write gives three keys the same value, in one step, and is
// reported when it has succeeded.
[[noreturn]] void WriteUntilKilled(int reports, Report write) {
    UnixRegistry kept;
    for (;; ++write.number) {
        UnixRegistry fresh;
        UnixRegistry& store = write.number % 2 == 0 ? fresh : kept;
        if (store.Handle() == nullptr && !store.Open(true)) {
            _exit(1);
        }
        const std::string value = ValueOf(write.number);
        UnixRegistry::Update update(store);
        for (const std::string& key :
             {SlotOf(write), write.writer + std::string("+"), write.writer + std::string("-")}) {
            update.Set(key, value.data(), value.size());
        }
        if (!update.Commit() || ::write(reports, &write, sizeof write) != sizeof write) {
            _exit(1);
        }
    }
}

// VANTRY_KILL_ROUNDS sets the number of rounds; each kills two writers.
TEST_F(UnixRegistryTest, KilledWritersLoseNothing) {
    const char* const wanted = std::getenv("VANTRY_KILL_ROUNDS");
    const int rounds = wanted == nullptr ? 40 : std::atoi(wanted);
    std::mt19937 random(7);
    std::map<std::string, unsigned long> reported;
    unsigned long writes = 0;
    unsigned long lost = 0;
    for (int round = 0; round < rounds; ++round) {
        int reports[2];
        ASSERT_EQ(pipe2(reports, O_CLOEXEC), 0);
        std::vector<pid_t> children;
        for (const char writer : {'a', 'b'}) {
            children.push_back(fork());
            ASSERT_GE(children.back(), 0);
            if (children.back() == 0) {
                WriteUntilKilled(reports[1], {writer, static_cast<unsigned long>(round) * 10000});
            }
        }
        close(reports[1]);
        if (round % 2 != 0) {
            // Builds differ in the time that the first write takes.
            pollfd first{reports[0], POLLIN, 0};
            ASSERT_EQ(poll(&first, 1, 30000), 1);
        }
        for (const pid_t child : children) {
            usleep(static_cast<useconds_t>(random() % 20000));
            kill(child, SIGKILL);
            int status = 0;
            waitpid(child, &status, 0);
            EXPECT_TRUE(WIFSIGNALED(status)) << "a writer gave up";
        }
        for (Report write; read(reports[0], &write, sizeof write) == sizeof write; ++writes) {
            reported[SlotOf(write)] = write.number;
        }
        close(reports[0]);

        if (reported.empty() && !fs::exists(database)) {
            continue;
        }
        Records stored = ReadAll();
        for (const auto& [key, number] : reported) {
            lost += stored.count(key) == 0 || std::stoul(stored[key]) < number;
        }
        for (const auto& [key, value] : stored) {
            ASSERT_EQ(value, ValueOf(std::stoul(value))) << key;
        }
        EXPECT_EQ(stored["a+"], stored["a-"]);
        EXPECT_EQ(stored["b+"], stored["b-"]);
    }
    std::printf("%d kills, %lu writes, %lu lost\n", 2 * rounds, writes, lost);
    EXPECT_EQ(lost, 0ul);
    EXPECT_GT(writes, 0ul);
}

}  // namespace
