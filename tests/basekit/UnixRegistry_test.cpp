#include "basekit/UnixRegistry.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>

#include <climits>
#include <csignal>
#include <optional>
#include <random>
#include <thread>
#include <vector>

#include "tests/support/Processes.h"
#include "tests/support/TemporaryRegistry.h"

#define DB_DBM_HSEARCH 1
#include <db.h>
#undef store
#undef fetch

namespace {

namespace fs = std::filesystem;

class UnixRegistryTest : public TemporaryRegistry {
protected:
    static std::string LastError() { return UnixRegistry::LastError(); }
    static fs::perms Permissions(const fs::path& path) { return fs::status(path).permissions(); }

    static std::string Get(UnixRegistry& store, const char* key) {
        const char* data = nullptr;
        unsigned length = 0;
        return store.GetKey(key, data, length) ? std::string(data, length) : "none";
    }

    // The process may have this many descriptors, or write files of this size, until the end.
    static void Limit(__rlimit_resource_t resource, rlim_t limit) {
        rlimit limits{};
        ASSERT_EQ(getrlimit(resource, &limits), 0);
        limits.rlim_cur = limit;
        ASSERT_EQ(setrlimit(resource, &limits), 0);
        std::signal(SIGXFSZ, SIG_IGN);
    }
    std::size_t FilesInTheFolder() const {
        const auto files = fs::directory_iterator(database.parent_path());
        return static_cast<std::size_t>(std::distance(files, {}));
    }
};

TEST_F(UnixRegistryTest, KeepsAnyBytes) {
    const std::string all = AllBytes();
    Records model = {{"Pop/Greeting", "hello"},
                     {"empty", ""},
                     {"", "empty key"},
                     {std::string("\0a\0", 3), all},
                     {all, std::string(200000, 'v')}};
    UnixRegistry store;
    ASSERT_TRUE(store.Open(true));
    for (const auto& [key, value] : model) {
        ASSERT_TRUE(Set(store, key, value)) << LastError();
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
}

TEST_F(UnixRegistryTest, FindsKeysThatLongOnesBeginWith) {
    Records model;
    UnixRegistry store;
    ASSERT_TRUE(store.Open(true));
    UnixRegistry::Update update(store);
    for (const std::size_t length : {2000, 1, 300, 1000, 100, 200, 10, 500, 256, 257, 0}) {
        const std::string key(length, 'k');
        model[key] = std::to_string(length);
        ASSERT_TRUE(update.Set(key, model[key].data(), model[key].size()));
    }
    ASSERT_TRUE(update.Commit());
    for (const auto& [key, value] : model) {
        EXPECT_EQ(Get(store, key.c_str()), value);
        ASSERT_TRUE(Set(store, key, value));
    }
    EXPECT_EQ(ReadAll(), model);
}

TEST_F(UnixRegistryTest, SharesTheFormatOfNdbm) {
    ASSERT_TRUE(Set("Pop/Greeting", "hello"));
    const std::string path = fs::path(database).replace_extension().string();
    const datum key{const_cast<char*>("Pop/Greeting"), 12};
    DBM* dbm = dbm_open(path.c_str(), O_RDWR, 0);
    ASSERT_NE(dbm, nullptr);
    const datum found = dbm_fetch(dbm, key);
    EXPECT_EQ(std::string(found.dptr, static_cast<std::size_t>(found.dsize)), "hello");
    dbm_close(dbm);

    fs::remove(database);
    dbm = dbm_open(path.c_str(), O_RDWR | O_CREAT, 0600);
    Records model = {{"Pop/Greeting", ""}};
    for (std::size_t length = 1; length <= 16; ++length) {
        model[std::string(length, 'k')];
        model[std::string(1024 + length, 'l')];  // too long for a page
    }
    for (const auto& [name, value] : model) {
        const datum stored{const_cast<char*>(name.data()), static_cast<int>(name.size())};
        ASSERT_EQ(dbm_store(dbm, stored, key, DBM_REPLACE), 0);
    }
    dbm_close(dbm);
    UnixRegistry store;
    ASSERT_TRUE(store.Open(true));
    model["new"] = "b";
    for (const auto& [name, value] : model) {
        ASSERT_TRUE(Set(store, name, value));
    }
    EXPECT_EQ(ReadAll(), model);
    std::size_t count = 1;
    for (datum next = dbm_firstkey(store.Handle()); next.dptr != nullptr;
         next = dbm_nextkey(store.Handle())) {
        ++count;
    }
    EXPECT_EQ(count, model.size()) << "the handle shows the state that the store has read last";
}

TEST_F(UnixRegistryTest, CreatesWhatIsMissingForTheUserAlone) {
    umask(0);
    UnixRegistry store;
    EXPECT_FALSE(store.Open(false));
    EXPECT_EQ(LastError(), database.string() + ": No such file or directory");
    EXPECT_TRUE(fs::is_empty(folder));
    EXPECT_EQ(store.Handle(), nullptr);
    EXPECT_FALSE(Set(store, "a", "b"));

    ASSERT_TRUE(store.Open(true));
    EXPECT_EQ(ReadAll(), Records());
    EXPECT_EQ(Permissions(database), fs::perms(0600));
    EXPECT_EQ(Permissions(database.string() + ".lock"), fs::perms(0600));
    EXPECT_EQ(Permissions(database.parent_path()), fs::perms(0700));
    ASSERT_TRUE(store.Open(false));
    EXPECT_FALSE(Set(store, "a", "b"));
    EXPECT_EQ(ReadAll(), Records());

    // What the user has changed about it stays.
    fs::permissions(database, fs::perms(0640));
    fs::rename(database, folder / "real");
    fs::create_symlink(folder / "real", database);
    ASSERT_TRUE(Set("a", "b"));
    EXPECT_TRUE(fs::is_symlink(database));
    EXPECT_EQ(Permissions(folder / "real"), fs::perms(0640));
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
    EXPECT_EQ(LastError(), database.string() + ": Too many levels of symbolic links");
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

    // By a relative path, and in a folder with a file that Berkeley DB obeys if it may.
    fs::current_path(folder);
    WriteFile("DB_CONFIG", "set_data_dir /nowhere\nset_flags nonsense\nset_create_dir /x\n");
    Use("relative");
    ASSERT_TRUE(store.Open(true));
    EXPECT_TRUE(Set("c", "d"));
    EXPECT_EQ(ReadAll(), (Records{{"c", "d"}}));
    fs::current_path("/");
    EXPECT_TRUE(Set(store, "a", "b"));
    Use(folder / "relative");
    EXPECT_EQ(ReadAll(), (Records{{"a", "b"}, {"c", "d"}}));
}

TEST_F(UnixRegistryTest, StoresThatStayOpenSeeEachOther) {
    UnixRegistry first;
    UnixRegistry second;
    ASSERT_TRUE(first.Open(true) && second.Open(true));
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(Set(i % 2 == 0 ? first : second, "n", std::to_string(i)));
        ASSERT_EQ(Get(i % 2 == 0 ? second : first, "n"), std::to_string(i));
    }
    // A database that cannot be opened again leaves a store with what it has open.
    const auto expectLast = [&](UnixRegistry& store) {
        EXPECT_EQ(Get(store, "n"), "99");
        EXPECT_EQ(Get(store, "none"), "none");
        EXPECT_NE(LastError(), "");
        Records last;
        EXPECT_TRUE(ReadAll(last, store));
        EXPECT_EQ(last, (Records{{"n", "99"}}));
    };
    fs::copy_file(database, folder / "copy");
    const pid_t child = Start([&] {
        EXPECT_TRUE(Set("n", "unseen"));
        Limit(RLIMIT_NOFILE, 0);
        expectLast(first);
    });
    EXPECT_EQ(End(child), 0);
    fs::rename(folder / "copy", database);
    EXPECT_EQ(Get(first, "n"), "99");
    WriteFile(folder / "garbage", "garbage");
    fs::rename(folder / "garbage", database);
    expectLast(first);
    fs::remove_all(database.parent_path());
    expectLast(first);
    EXPECT_NE(first.Handle(), nullptr);
    EXPECT_TRUE(Set(second, "n", "anew"));
    EXPECT_EQ(Get(first, "n"), "anew");

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

// Files that differ from the open one by one thing alone.
TEST_F(UnixRegistryTest, EveryOtherFileIsNoticed) {
    ASSERT_TRUE(Set("n", "1"));
    const std::string one = FileBytes(database);
    ASSERT_TRUE(Set("n", "2"));
    const std::string two = FileBytes(database);
    for (const bool sameFile : {true, false}) {
        const timespec time{1000000000, 500};
        const timespec times[] = {time, time};
        fs::remove(database);
        WriteFile(database, one);
        ASSERT_EQ(utimensat(AT_FDCWD, database.c_str(), times, 0), 0);
        UnixRegistry store;
        ASSERT_TRUE(store.Open(false));
        EXPECT_EQ(Get(store, "n"), "1");
        const timespec later{time.tv_sec, time.tv_nsec + (sameFile ? 1 : 0)};
        const timespec laterTimes[] = {later, later};
        WriteFile(sameFile ? database : folder / "other", two);
        ASSERT_EQ(
            utimensat(AT_FDCWD, (sameFile ? database : folder / "other").c_str(), laterTimes, 0),
            0);
        if (!sameFile) {
            fs::rename(folder / "other", database);
        }
        EXPECT_EQ(Get(store, "n"), "2") << sameFile;
    }
}

// Each is alone in a process: what it meets may be a crash, or a wait that never ends.
TEST_F(UnixRegistryTest, NothingInPlaceOfTheDatabaseStopsTheProgram) {
    ASSERT_TRUE(Set("a", "b"));
    const std::string good = FileBytes(database);
    struct {
        std::size_t offset;
        const char* bytes;
        std::size_t count;
    } const damages[] = {{20, "\0\0\0\0\0\0\0\0", 8},
                         {20, "\1\0\0\0", 4},
                         {24, "\1", 1},
                         {25, "\7", 1},
                         {36, "\1", 1},
                         {26, "\0", 1},
                         {72, "\xff", 1},
                         {76, "\xff\xff\xff\xff", 4},
                         {48, "\4", 1},
                         {96, "\0", 1},
                         {100, "\xff\xff\xff\x7f", 4},
                         {32, "\3", 1},
                         {28, "\3", 1},
                         {112, "\xff\xff\xff\x7f", 4},
                         {8, "\1", 1},
                         {16, "\6", 1},
                         {80, "\1", 1}};
    for (const auto& damage : damages) {
        std::string bad = good;
        bad.replace(damage.offset, damage.count, damage.bytes, damage.count);
        WriteFile(database, bad);
        EXPECT_EQ(End(Start([&] {
                      UnixRegistry store;
                      EXPECT_FALSE(store.Open(true));
                      EXPECT_EQ(LastError(),
                                database.string() +
                                    ": the registry database is damaged (in its first page)");
                  })),
                  0)
            << damage.offset;
    }
    WriteFile(database, good.substr(0, good.size() - 1024));
    UnixRegistry store;
    EXPECT_FALSE(store.Open(false)) << "cut by exactly its last page";

    for (const fs::path& place : {database, fs::path(database.string() + ".lock")}) {
        fs::remove(place);
        ASSERT_EQ(mkfifo(place.c_str(), 0600), 0);
        EXPECT_EQ(End(Start([&] {
                      alarm(5);
                      EXPECT_FALSE(Set("a", "c"));
                      EXPECT_EQ(LastError(), place.string() + ": not a regular file");
                  })),
                  0);
        fs::remove(place);
    }
}

// A database as ndbm makes it has no checksums: whatever its first page says is believed.
TEST_F(UnixRegistryTest, RandomFirstPagesStopNoProgram) {
    fs::create_directories(database.parent_path());
    DBM* const dbm =
        dbm_open(fs::path(database).replace_extension().c_str(), O_RDWR | O_CREAT, 0600);
    for (int i = 0; i < 300; ++i) {
        std::string text = std::to_string(i);
        const datum key{text.data(), static_cast<int>(text.size())};
        ASSERT_EQ(dbm_store(dbm, key, key, DBM_REPLACE), 0);
    }
    dbm_close(dbm);
    const std::string good = FileBytes(database);
    const int rounds = Rounds("VANTRY_DAMAGE_ROUNDS", 10);
    for (int round = 0; round < rounds; ++round) {
        const int status = End(Start([&] {
            std::mt19937 random(static_cast<unsigned>(round));
            for (int i = 0; i < 20; ++i) {
                alarm(20);
                std::string bad = good;
                for (auto edits = 1 + random() % 3; edits != 0; --edits) {
                    const std::uint32_t values[] = {
                        0, 1, 2, 0x7fffffff, 0xffffffff, static_cast<std::uint32_t>(random())};
                    const std::size_t at = random() % 2 == 0 ? random() % 512 : 8 + random() % 120;
                    const std::size_t count = random() % 2 == 0 ? 1 : 4;
                    bad.replace(at, count, reinterpret_cast<const char*>(&values[random() % 6]),
                                count);
                }
                bad.resize(good.size());
                WriteFile(database, bad);
                UnixRegistry store;
                if (store.Open(true) &&
                    store.ForEach([](const qtString&, const char*, unsigned) {})) {
                    Get(store, "7");
                    Set(store, "new", "value");
                }
            }
        }));
        EXPECT_FALSE(WIFSIGNALED(status)) << "round " << round << ", signal " << WTERMSIG(status);
    }
}

TEST_F(UnixRegistryTest, AFailedChangeFailsTheUpdate) {
    ASSERT_TRUE(Set("a", std::string(600, 'b')));
    UnixRegistry store;
    ASSERT_TRUE(store.Open(true));
    UnixRegistry::Update tooLong(store);
    EXPECT_TRUE(tooLong.Set("b", "", 0));
    EXPECT_FALSE(tooLong.Set("k", nullptr, std::size_t{INT_MAX} + 1));
    EXPECT_FALSE(tooLong.Commit());

    // A page whose checksum is wrong is noticed when it is changed.
    std::string bytes = FileBytes(database);
    const std::size_t at = bytes.find(std::string(600, 'b'));
    ASSERT_NE(at, std::string::npos);
    bytes[at] = 'c';
    WriteFile(database, bytes);
    UnixRegistry::Update update(store);
    EXPECT_FALSE(update.Set("a", "c", 1));
    EXPECT_NE(LastError().find(": the registry database is damaged"), std::string::npos);
    EXPECT_FALSE(update.Commit());
    EXPECT_EQ(FileBytes(database), bytes);
}

TEST_F(UnixRegistryTest, AForkedChildLeavesTheUpdateToItsParent) {
    UnixRegistry store;
    ASSERT_TRUE(store.Open(true));
    std::optional<UnixRegistry::Update> update(std::in_place, store);
    ASSERT_TRUE(update->Set("a", "parent", 6));
    for (const bool commits : {true, false}) {
        EXPECT_EQ(End(Start([&] {
                      EXPECT_FALSE(commits && (update->Set("a", "child", 5) || update->Commit()));
                      update.reset();
                  })),
                  0);
        const int lock = open((database.string() + ".lock").c_str(), O_RDWR | O_CLOEXEC);
        EXPECT_NE(flock(lock, LOCK_EX | LOCK_NB), 0) << "the parent still holds it";
        close(lock);
    }
    const pid_t child = Start([] { pause(); });
    EXPECT_TRUE(update->Commit());
    EXPECT_TRUE(Set("b", "free again"));
    EXPECT_EQ(End(child, SIGKILL), SIGKILL);
    EXPECT_EQ(ReadAll(), (Records{{"a", "parent"}, {"b", "free again"}}));
}

TEST_F(UnixRegistryTest, AWriterThatWaitsReportsIt) {
    UnixRegistry store;
    ASSERT_TRUE(store.Open(true));
    std::optional<UnixRegistry::Update> update(std::in_place, store);
    ASSERT_TRUE(update->Set("a", "b", 1));
    static std::string line;
    EXPECT_EQ(UnixRegistry::SetWaitReport([](const char* text) { line += text; }), nullptr);
    std::thread other([] { EXPECT_TRUE(Set("c", "d")); });
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    EXPECT_TRUE(update->Commit());
    update.reset();
    other.join();
    EXPECT_NE(UnixRegistry::SetWaitReport(nullptr), nullptr);
    EXPECT_EQ(line, "waiting for " + database.string() + ".lock, locked by process " +
                        std::to_string(getpid()) + " (basekit_test)");
    EXPECT_EQ(ReadAll(), (Records{{"a", "b"}, {"c", "d"}}));
}

// Objects of a thread are destroyed before static ones, which may still use the registry.
TEST_F(UnixRegistryTest, WorksUntilTheProcessEnds) {
    static std::string expected;
    expected = database.string() + ": No such file or directory";
    const pid_t child = Start([] {
        UnixRegistry store;
        store.Open(false);
        std::atexit([] {
            UnixRegistry late;
            _exit(LastError() == expected && !late.Open(false) && LastError() == expected ? 7 : 8);
        });
        std::exit(9);
    });
    EXPECT_EQ(WEXITSTATUS(End(child)), 7);
}

TEST_F(UnixRegistryTest, WhatRootCreatesBelongsToTheOwner) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can";
    }
    ASSERT_TRUE(Set("a", "b"));
    const fs::path lock = database.string() + ".lock";
    fs::remove(lock);
    ASSERT_EQ(chown(database.c_str(), 1000, 1001), 0);
    ASSERT_TRUE(Set("a", "c"));
    for (const fs::path& path : {database, lock}) {
        struct stat status {};
        ASSERT_EQ(stat(path.c_str(), &status), 0);
        EXPECT_EQ(status.st_uid, 1000u) << path;
        EXPECT_EQ(status.st_gid, 1001u) << path;
        EXPECT_EQ(status.st_mode & 07777, 0600u) << path;
    }
}

TEST_F(UnixRegistryTest, DamageIsNeverShownAsData) {
    const Records model = {{"Pop/Greeting", "hello"}, {"Trace/Level", std::string(5000, 'v')}};
    for (const auto& [key, value] : model) {
        ASSERT_TRUE(Set(key, value));
    }
    const std::string good = FileBytes(database);
    const auto check = [&](const std::string& content) {
        fs::remove(database);
        WriteFile(database, content);
        UnixRegistry store;
        Records found;
        const bool whole = store.Open(true) && ReadAll(found, store);
        EXPECT_TRUE(whole ? found == model : !LastError().empty()) << content.size();
        for (const auto& [key, value] : found) {
            EXPECT_TRUE(model.at(key) == value);
        }
        const std::string value = Get(store, "Pop/Greeting");
        EXPECT_TRUE(value == "hello" || value == "none");
    };
    std::mt19937 random(1);
    for (std::size_t i = 0; i < good.size(); i += i < 512 ? 1 : 17) {
        std::string bad = good;
        bad[i] = static_cast<char>(bad[i] ^ (1 << random() % 8));
        check(bad);
        check(good.substr(0, i));
    }
    for (const std::string& content : {std::string(2000, '\0'), std::string(2000, 'n')}) {
        WriteFile(database, content);
        EXPECT_FALSE(Set("a", "b"));
        EXPECT_EQ(FileBytes(database), content);
    }
}

TEST_F(UnixRegistryTest, AFailedWriteLeavesWhatWasThere) {
    ASSERT_TRUE(Set("a", "b"));
    UnixRegistry store;
    ASSERT_TRUE(store.Open(true));
    const pid_t child = Start([&] {
        if (geteuid() == 0) {
            fs::permissions(folder, fs::perms(0755));
            fs::permissions(database.parent_path(), fs::perms(0755));
            fs::permissions(database, fs::perms(0644));
            ASSERT_EQ(seteuid(65534), 0);
        } else {
            fs::permissions(database.parent_path(), fs::perms(0500));
        }
        EXPECT_FALSE(Set(store, "a", "c"));
        EXPECT_NE(LastError().find("Permission denied"), std::string::npos) << LastError();
        EXPECT_EQ(ReadAll(), (Records{{"a", "b"}}));
    });
    EXPECT_EQ(End(child), 0);

    // What killed writers left is removed, and a failed write leaves nothing.
    WriteFile(database.parent_path() / ".registry.db.0123456789abcdef.tmp", "debris");
    EXPECT_TRUE(Set("a", "b"));
    EXPECT_EQ(FilesInTheFolder(), 2u);
    EXPECT_EQ(End(Start([&] {
                  Limit(RLIMIT_FSIZE, 2000);
                  EXPECT_FALSE(Set("a", "c"));
                  EXPECT_EQ(LastError(), database.string() + ": File too large");
              })),
              0);
    EXPECT_EQ(FilesInTheFolder(), 2u);
    EXPECT_EQ(ReadAll(), (Records{{"a", "b"}}));

    Use("/dev/null/registry");
    EXPECT_FALSE(store.Open(true));
    EXPECT_EQ(std::string(UnixRegistry::LastError()),
              "/dev/null/registry.db.lock: Not a directory");
    Use(folder / "folder");
    fs::create_directory(database);
    EXPECT_FALSE(store.Open(true));
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

// One writer of the kill loop: each write sets three keys to the same value, in one step, and is
// reported when it has succeeded.
[[noreturn]] void WriteUntilKilled(int reports, Report write) {
    UnixRegistry kept;
    for (bool good = true; good; ++write.number) {
        UnixRegistry fresh;
        UnixRegistry& store = write.number % 2 == 0 ? fresh : kept;
        good = store.Handle() != nullptr || store.Open(true);
        const std::string value = ValueOf(write.number);
        UnixRegistry::Update update(store);
        for (const std::string& key :
             {SlotOf(write), write.writer + std::string("+"), write.writer + std::string("-")}) {
            update.Set(key, value.data(), value.size());
        }
        const char* data = nullptr;
        unsigned length = 0;
        good = good && update.Commit() && store.GetKey(SlotOf(write), data, length) &&
               value == std::string(data, length) &&
               ::write(reports, &write, sizeof write) == ssize_t{sizeof write};
    }
    _exit(1);
}

// Each round kills two processes, one of which writes in two threads.
TEST_F(UnixRegistryTest, KilledWritersLoseNothing) {
    const int rounds = KillRounds(40);
    std::mt19937 random(7);
    std::map<std::string, unsigned long> reported;
    unsigned long writes = 0;
    unsigned long lost = 0;
    for (int round = 0; round < rounds; ++round) {
        const auto first = static_cast<unsigned long>(round) * 10000;
        const auto threads = [&](int pipe) {
            std::thread other(WriteUntilKilled, pipe, Report{'c', first});
            WriteUntilKilled(pipe, {'b', first});
            other.join();
        };
        const auto reports = KillWriters<Report>(
            {[&](int pipe) {
                 WriteUntilKilled(pipe, {'a', first});
             },
             threads},
            random, 20000,
            round % 2 != 0);  // builds differ in the time that the first write takes
        for (const Report& write : reports) {
            reported[SlotOf(write)] = write.number;
        }
        writes += reports.size();
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
        for (const std::string writer : {"a", "b", "c"}) {
            EXPECT_EQ(stored[writer + "+"], stored[writer + "-"]);
        }
    }
    std::printf("%d kills, %lu writes, %lu lost\n", 2 * rounds, writes, lost);
    EXPECT_EQ(lost, 0ul);
    EXPECT_GT(writes, 0ul);
}

}  // namespace
