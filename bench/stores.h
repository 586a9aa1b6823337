#pragma once

#include <fcntl.h>
#include <lmdb.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "bench/items.h"
#include "hpack/Hpack.h"
#include "hpack/HpackFormat.h"

// The keyed stores that are measured side by side, each used as its users do for speed without
// syncing: one transaction, prepared statements. All have the same five operations.

namespace stores {

inline void Require(bool succeeded, const char* what) {
    if (!succeeded) {
        throw std::runtime_error(what);
    }
}

/// A new, empty folder for the files of one store, removed with it.
class Folder {
public:
    Folder() {
        std::string name =
            (std::filesystem::temp_directory_path() / "vantry-bench-XXXXXX").string();
        Require(mkdtemp(name.data()) != nullptr, "mkdtemp");
        path = name;
    }
    ~Folder() { std::filesystem::remove_all(path); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    std::filesystem::path path;
};

/// A package at a `Place`: in a file or in memory.
template <class Place>
class PackageAt {
public:
    static constexpr const char* name = Place::name;

    void Create(const Items& items) {
        Hpack package;
        package.Open(place.where, 'w');
        for (const auto& [key, body] : items.all) {
            package.AddOrUpdate(key, body);
        }
        package.Close();
    }
    std::size_t ReadOne(const std::string& key) {
        Hpack package;
        package.Open(place.where, 'r');
        qtString body;
        package.GetItem(key, body);
        return body.size();
    }
    std::size_t List() {
        Hpack package;
        package.Open(place.where, 'r');
        std::vector<qtString> keys;
        package.GetIndex(keys);
        return keys.size();
    }
    std::size_t ReadAll(const Items& items) {
        Hpack package;
        package.Open(place.where, 'r');
        std::size_t bytes = 0;
        qtString body;
        for (const std::size_t i : items.randomOrder) {
            package.GetItem(items.all[i].first, body);
            bytes += body.size();
        }
        return bytes;
    }
    void Replace(const Items& items, std::size_t count) {
        Hpack package;
        package.Open(place.where, 'u');
        for (std::size_t i = 0; i < count; ++i) {
            const auto& [key, body] = items.all[items.randomOrder[i]];
            package.AddOrUpdate(key, body);
        }
        package.Close();
    }

private:
    Place place;
};

struct InFile {
    static constexpr const char* name = "hpack";
    Folder folder;
    qtString where = (folder.path / "store").string();
};

struct InMemory {
    static constexpr const char* name = "hpack_memory";
    qtPtr<qtBuffer> where{new qtBuffer};
};

using Package = PackageAt<InFile>;
using Memory = PackageAt<InMemory>;

class Sqlite {
public:
    static constexpr const char* name = "sqlite";

    void Create(const Items& items) {
        std::filesystem::remove(file);
        const Connection db(file);
        db.Run("PRAGMA journal_mode=OFF");
        db.Run("PRAGMA synchronous=OFF");
        db.Run("CREATE TABLE items(key BLOB PRIMARY KEY, body BLOB) WITHOUT ROWID");
        db.Run("BEGIN");
        Statement insert(db, "INSERT INTO items VALUES(?, ?)");
        for (const auto& [key, body] : items.all) {
            insert.Bind(1, key);
            insert.Bind(2, body);
            insert.Step(SQLITE_DONE);
        }
        db.Run("COMMIT");
    }
    std::size_t ReadOne(const std::string& key) {
        const Connection db(file);
        Statement select(db, "SELECT body FROM items WHERE key = ?");
        select.Bind(1, key);
        select.Step(SQLITE_ROW);
        return select.Body().size();
    }
    std::size_t List() {
        const Connection db(file);
        Statement select(db, "SELECT key FROM items ORDER BY key");
        std::vector<std::string> keys;
        while (select.Next()) {
            keys.push_back(select.Body());
        }
        return keys.size();
    }
    std::size_t ReadAll(const Items& items) {
        const Connection db(file);
        Statement select(db, "SELECT body FROM items WHERE key = ?");
        std::size_t bytes = 0;
        for (const std::size_t i : items.randomOrder) {
            select.Bind(1, items.all[i].first);
            select.Step(SQLITE_ROW);
            bytes += select.Body().size();
            select.Reset();
        }
        return bytes;
    }
    void Replace(const Items& items, std::size_t count) {
        const Connection db(file);
        db.Run("PRAGMA synchronous=OFF");
        db.Run("BEGIN");
        Statement update(db, "UPDATE items SET body = ? WHERE key = ?");
        for (std::size_t i = 0; i < count; ++i) {
            const auto& [key, body] = items.all[items.randomOrder[i]];
            update.Bind(1, body);
            update.Bind(2, key);
            update.Step(SQLITE_DONE);
        }
        db.Run("COMMIT");
    }

private:
    struct Connection {
        explicit Connection(const std::string& path) {
            Require(sqlite3_open(path.c_str(), &handle) == SQLITE_OK, "sqlite3_open");
        }
        ~Connection() { sqlite3_close(handle); }
        Connection(const Connection&) = delete;
        Connection& operator=(const Connection&) = delete;
        void Run(const char* sql) const {
            Require(sqlite3_exec(handle, sql, nullptr, nullptr, nullptr) == SQLITE_OK, sql);
        }
        sqlite3* handle = nullptr;
    };
    struct Statement {
        Statement(const Connection& db, const char* sql) {
            Require(sqlite3_prepare_v2(db.handle, sql, -1, &handle, nullptr) == SQLITE_OK, sql);
        }
        ~Statement() { sqlite3_finalize(handle); }
        Statement(const Statement&) = delete;
        Statement& operator=(const Statement&) = delete;
        void Bind(int place, const std::string& bytes) {
            sqlite3_bind_blob(handle, place, bytes.data(), static_cast<int>(bytes.size()),
                              SQLITE_STATIC);
        }
        void Step(int expected) {
            Require(sqlite3_step(handle) == expected, "sqlite3_step");
            if (expected == SQLITE_DONE) {
                Reset();
            }
        }
        bool Next() { return sqlite3_step(handle) == SQLITE_ROW; }
        std::string Body() {
            const auto* const bytes = static_cast<const char*>(sqlite3_column_blob(handle, 0));
            return std::string(bytes == nullptr ? "" : bytes,
                               static_cast<std::size_t>(sqlite3_column_bytes(handle, 0)));
        }
        void Reset() { sqlite3_reset(handle); }
        sqlite3_stmt* handle = nullptr;
    };

    Folder folder;
    std::string file = (folder.path / "store").string();
};

class Lmdb {
public:
    static constexpr const char* name = "lmdb";

    void Create(const Items& items) {
        std::filesystem::remove(file);
        const Environment env(file, 0);
        const Transaction write(env, 0);
        for (const auto& [key, body] : items.all) {
            write.Put(key, body);
        }
    }
    std::size_t ReadOne(const std::string& key) {
        const Environment env(file, MDB_RDONLY);
        const Transaction read(env, MDB_RDONLY);
        return read.Get(key).size();
    }
    std::size_t List() {
        const Environment env(file, MDB_RDONLY);
        const Transaction read(env, MDB_RDONLY);
        MDB_cursor* cursor = nullptr;
        Require(mdb_cursor_open(read.handle, read.table, &cursor) == 0, "mdb_cursor_open");
        std::vector<std::string> keys;
        MDB_val key;
        MDB_val body;
        while (mdb_cursor_get(cursor, &key, &body, MDB_NEXT) == 0) {
            keys.emplace_back(static_cast<const char*>(key.mv_data), key.mv_size);
        }
        mdb_cursor_close(cursor);
        return keys.size();
    }
    std::size_t ReadAll(const Items& items) {
        const Environment env(file, MDB_RDONLY);
        const Transaction read(env, MDB_RDONLY);
        std::size_t bytes = 0;
        std::string body;
        for (const std::size_t i : items.randomOrder) {
            body = read.Get(items.all[i].first);
            bytes += body.size();
        }
        return bytes;
    }
    void Replace(const Items& items, std::size_t count) {
        const Environment env(file, 0);
        const Transaction write(env, 0);
        for (std::size_t i = 0; i < count; ++i) {
            const auto& [key, body] = items.all[items.randomOrder[i]];
            write.Put(key, body);
        }
    }

private:
    struct Environment {
        Environment(const std::string& path, unsigned int flags) {
            Require(mdb_env_create(&handle) == 0, "mdb_env_create");
            mdb_env_set_mapsize(handle, std::size_t{8} << 30);
            Require(
                mdb_env_open(handle, path.c_str(), flags | MDB_NOSUBDIR | MDB_NOSYNC, 0600) == 0,
                "mdb_env_open");
        }
        ~Environment() { mdb_env_close(handle); }
        Environment(const Environment&) = delete;
        Environment& operator=(const Environment&) = delete;
        MDB_env* handle = nullptr;
    };
    struct Transaction {
        Transaction(const Environment& env, unsigned int flags) {
            Require(mdb_txn_begin(env.handle, nullptr, flags, &handle) == 0, "mdb_txn_begin");
            Require(mdb_dbi_open(handle, nullptr, 0, &table) == 0, "mdb_dbi_open");
        }
        ~Transaction() { mdb_txn_commit(handle); }
        Transaction(const Transaction&) = delete;
        Transaction& operator=(const Transaction&) = delete;
        void Put(const std::string& key, const std::string& body) const {
            MDB_val k{key.size(), const_cast<char*>(key.data())};
            MDB_val v{body.size(), const_cast<char*>(body.data())};
            Require(mdb_put(handle, table, &k, &v, 0) == 0, "mdb_put");
        }
        std::string_view Get(const std::string& key) const {
            MDB_val k{key.size(), const_cast<char*>(key.data())};
            MDB_val v;
            Require(mdb_get(handle, table, &k, &v) == 0, "mdb_get");
            return {static_cast<const char*>(v.mv_data), v.mv_size};
        }
        MDB_txn* handle = nullptr;
        MDB_dbi table = 0;
    };

    Folder folder;
    std::string file = (folder.path / "store").string();
};

/// What the system's own calls need for the same bytes, with the index known beforehand: what
/// nothing that keeps these promises can undercut by much.
class Floor {
public:
    static constexpr const char* name = "floor";

    void Create(const Items& items) {
        const int out = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        std::string buffer;
        const auto flush = [&] {
            Require(write(out, buffer.data(), buffer.size()) == static_cast<ssize_t>(buffer.size()),
                    "write");
            buffer.clear();
        };
        entries.clear();
        std::size_t at = 0;
        for (const auto& [key, body] : items.all) {
            entries.push_back({key, at, body.size()});
            buffer.append(HpackFormat::recordOverhead, '\0').append(key).append(body);
            at += HpackFormat::recordOverhead + key.size() + body.size();
            if (buffer.size() >= 1 << 18) {
                flush();
            }
        }
        std::sort(entries.begin(), entries.end(),
                  [](const Entry& a, const Entry& b) { return a.key < b.key; });
        indexAt = at;
        for (const Entry& entry : entries) {
            buffer.append(HpackFormat::entryOverhead, '\0').append(entry.key);
            if (buffer.size() >= 1 << 18) {
                flush();
            }
        }
        flush();
        close(out);
    }
    std::size_t ReadOne(const std::string& key) {
        const int in = open(file.c_str(), O_RDONLY);
        const std::string index = ReadIndex(in);
        const auto found = std::lower_bound(
            entries.begin(), entries.end(), key,
            [](const Entry& entry, const std::string& wanted) { return entry.key < wanted; });
        std::string body(found->length, '\0');
        Require(pread(in, body.data(), body.size(), static_cast<off_t>(found->offset)) >= 0,
                "read");
        close(in);
        return body.size();
    }
    std::size_t List() {
        const int in = open(file.c_str(), O_RDONLY);
        const std::string index = ReadIndex(in);
        std::vector<std::string> keys;
        keys.reserve(entries.size());
        std::size_t at = 0;
        for (const Entry& entry : entries) {
            keys.emplace_back(index, at + HpackFormat::wordSize, entry.key.size());
            at += HpackFormat::entryOverhead + entry.key.size();
        }
        close(in);
        return keys.size();
    }
    std::size_t ReadAll(const Items& items) {
        const int in = open(file.c_str(), O_RDONLY);
        std::vector<const Entry*> order(items.all.size());
        std::size_t bytes = 0;
        std::string body;
        for (const std::size_t i : items.randomOrder) {
            const auto& [key, content] = items.all[i];
            const auto found = std::lower_bound(
                entries.begin(), entries.end(), key,
                [](const Entry& entry, const std::string& wanted) { return entry.key < wanted; });
            body.resize(HpackFormat::recordOverhead + key.size() + content.size());
            Require(pread(in, body.data(), body.size(), static_cast<off_t>(found->offset)) >= 0,
                    "read");
            bytes += body.size();
        }
        close(in);
        return bytes;
    }
    void Replace(const Items& items, std::size_t count) {
        const int both = open(file.c_str(), O_RDWR);
        const std::string index = ReadIndex(both);
        std::string record;
        for (std::size_t i = 0; i < count; ++i) {
            const auto& [key, body] = items.all[items.randomOrder[i]];
            const auto found = std::lower_bound(
                entries.begin(), entries.end(), key,
                [](const Entry& entry, const std::string& wanted) { return entry.key < wanted; });
            record.assign(HpackFormat::recordOverhead, '\0').append(key).append(body);
            Require(pread(both, record.data(), HpackFormat::recordOverhead,
                          static_cast<off_t>(found->offset)) >= 0,
                    "read");
            Require(
                pwrite(both, record.data(), record.size(), static_cast<off_t>(found->offset)) >= 0,
                "write");
        }
        Require(pwrite(both, index.data(), index.size(), static_cast<off_t>(indexAt)) >= 0,
                "write");
        close(both);
    }

private:
    struct Entry {
        std::string key;
        std::size_t offset;
        std::size_t length;
    };

    std::string ReadIndex(int in) const {
        struct stat status;
        Require(fstat(in, &status) == 0, "fstat");
        std::string index(static_cast<std::size_t>(status.st_size) - indexAt, '\0');
        Require(pread(in, index.data(), index.size(), static_cast<off_t>(indexAt)) >= 0, "read");
        return index;
    }

    Folder folder;
    std::string file = (folder.path / "store").string();
    std::vector<Entry> entries;
    std::size_t indexAt = 0;
};

}  // namespace stores
