// One registry parameter of 20 bytes, among 50 others, next to other stores for such values.
// Everything is opened and closed each time, as the parameter functions do. Each store writes with
// the durability that it is used with, which its label tells: all sync, and some are intact again
// after a stop in the middle of a write. Run it where the disk is the one in question (TMPDIR),
// with
// --benchmark_enable_random_interleaving=true --benchmark_repetitions=9.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "VexUnix/VexRegistryUnix.h"
#include "basekit/files.h"

#define DB_DBM_HSEARCH 1
#include <db.h>
#undef store
#undef fetch

// Both libraries call their pair of pointer and length a datum.
namespace gnu {
#include <gdbm.h>
}

namespace {

constexpr unsigned valueLength = 20;
char name[] = "Greeting";
unsigned char value[] = "a value of 20 bytes.";
const std::string fullKey = "Pop/Greeting";
const std::string text(reinterpret_cast<char*>(value), valueLength);

void Require(bool succeeded, const char* what) {
    if (!succeeded) {
        throw std::runtime_error(what);
    }
}

template <class Datum>
Datum Bytes(const std::string& bytes) {
    return {const_cast<char*>(bytes.data()), static_cast<int>(bytes.size())};
}

struct Vantry {
    static constexpr const char* promise = "whole after a stop";

    static void Set(const std::string& key) {
        std::string parameter = key.substr(key.find('/') + 1);
        Require(SetPopRegParam(parameter.data(), 0, value, valueLength) == 0, "SetPopRegParam");
    }
    static void Get() {
        unsigned char buffer[64];
        unsigned long length = sizeof buffer;
        Require(GetPopRegParam(name, buffer, &length) == 0, "GetPopRegParam");
        Require(std::memcmp(buffer, value, valueLength) == 0, "the value");
    }
};

struct Ndbm {
    static constexpr const char* promise = "torn after a stop";

    static void Set(const std::string& key) {
        DBM* const dbm = dbm_open("ndbm", O_RDWR | O_CREAT, 0600);
        Require(dbm != nullptr, "dbm_open");
        const auto stored = dbm_store(dbm, Bytes<datum>(key), Bytes<datum>(text), DBM_REPLACE);
        Require(stored == 0, "dbm_store");
        dbm_close(dbm);
    }
    static void Get() {
        DBM* const dbm = dbm_open("ndbm", O_RDONLY, 0);
        Require(dbm != nullptr, "dbm_open");
        const datum found = dbm_fetch(dbm, Bytes<datum>(fullKey));
        Require(std::string(found.dptr, static_cast<std::size_t>(found.dsize)) == text, "fetch");
        dbm_close(dbm);
    }
};

struct Gdbm {
    static constexpr const char* promise = "torn after a stop";

    static void Set(const std::string& key) {
        gnu::GDBM_FILE const file = gnu::gdbm_open("gdbm", 0, GDBM_WRCREAT, 0600, nullptr);
        Require(file != nullptr, "gdbm_open");
        const int stored =
            gnu::gdbm_store(file, Bytes<gnu::datum>(key), Bytes<gnu::datum>(text), GDBM_REPLACE);
        Require(stored == 0 && gnu::gdbm_sync(file) == 0, "gdbm_store");
        gnu::gdbm_close(file);
    }
    static void Get() {
        gnu::GDBM_FILE const file = gnu::gdbm_open("gdbm", 0, GDBM_READER, 0, nullptr);
        Require(file != nullptr, "gdbm_open");
        const gnu::datum found = gnu::gdbm_fetch(file, Bytes<gnu::datum>(fullKey));
        Require(std::string(found.dptr, static_cast<std::size_t>(found.dsize)) == text, "fetch");
        std::free(found.dptr);
        gnu::gdbm_close(file);
    }
};

struct Sqlite {
    static constexpr const char* promise = "whole after a stop";

    static void Set(const std::string& key) {
        Run("INSERT OR REPLACE INTO p VALUES (?, ?)", key, SQLITE_DONE, true);
    }
    static void Get() { Run("SELECT v FROM p WHERE k = ?", fullKey, SQLITE_ROW, false); }

private:
    static void Run(const char* statement, const std::string& key, int expected, bool withValue) {
        sqlite3* database = nullptr;
        Require(sqlite3_open("sqlite", &database) == SQLITE_OK, "sqlite3_open");
        sqlite3_stmt* prepared = nullptr;
        if (sqlite3_prepare_v2(database, statement, -1, &prepared, nullptr) != SQLITE_OK) {
            sqlite3_exec(database, "CREATE TABLE p (k TEXT PRIMARY KEY, v BLOB) WITHOUT ROWID",
                         nullptr, nullptr, nullptr);
            sqlite3_prepare_v2(database, statement, -1, &prepared, nullptr);
        }
        sqlite3_bind_text(prepared, 1, key.data(), static_cast<int>(key.size()), SQLITE_STATIC);
        if (withValue) {
            sqlite3_bind_blob(prepared, 2, value, valueLength, SQLITE_STATIC);
        }
        Require(sqlite3_step(prepared) == expected, "sqlite3_step");
        Require(withValue || sqlite3_column_bytes(prepared, 0) == valueLength, "the value");
        sqlite3_finalize(prepared);
        sqlite3_close(database);
    }
};

// The least that keeps the promise: all lines in one file, which a new one replaces.
struct RenamedFile {
    static constexpr const char* promise = "whole after a stop";

    static void Set(const std::string& key) {
        qtString content;
        qtStringRead(content, "file");
        const std::string line = key + ' ' + text + '\n';
        const std::size_t at = content.find(key + ' ');
        at == qtString::npos ? content += line : content.replace(at, line.size(), line);
        const int file = open("file.new", O_WRONLY | O_CREAT | O_TRUNC, 0600);
        Require(write(file, content.data(), content.size()) == ssize_t(content.size()), "write");
        Require(fsync(file) == 0 && close(file) == 0, "fsync");
        Require(std::rename("file.new", "file") == 0, "rename");
        const int folder = open(".", O_RDONLY | O_DIRECTORY);
        Require(fsync(folder) == 0 && close(folder) == 0, "fsync of the folder");
    }
    static void Get() {
        qtString content;
        Require(qtStringRead(content, "file") == 0, "read");
        const std::size_t at = content.find(fullKey + ' ');
        Require(content.compare(at + fullKey.size() + 1, valueLength, text) == 0, "the value");
    }
};

template <class Store>
void Set(benchmark::State& state) {
    for (auto _ : state) {
        Store::Set(fullKey);
    }
    state.SetLabel(Store::promise);
}

template <class Store>
void Get(benchmark::State& state) {
    for (auto _ : state) {
        Store::Get();
    }
}

template <class Store>
void Register(const std::string& store) {
    for (int i = 0; i < 50; ++i) {
        Store::Set("Pop/Parameter" + std::to_string(i));
    }
    Store::Set(fullKey);
    benchmark::RegisterBenchmark(("registry/set/" + store).c_str(), Set<Store>)->UseRealTime();
    benchmark::RegisterBenchmark(("registry/get/" + store).c_str(), Get<Store>)->UseRealTime();
}

}  // namespace

int main(int argc, char** argv) {
    std::string folder = (std::filesystem::temp_directory_path() / "registryXXXXXX").string();
    Require(mkdtemp(folder.data()) != nullptr, "mkdtemp");
    std::filesystem::current_path(folder);
    setenv("BASEKIT_REGISTRY", (folder + "/vantry").c_str(), 1);
    Register<Vantry>("vantry");
    Register<Ndbm>("ndbm");
    Register<Gdbm>("gdbm");
    Register<Sqlite>("sqlite");
    Register<RenamedFile>("renamed_file");
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    std::filesystem::remove_all(folder);
    return 0;
}
