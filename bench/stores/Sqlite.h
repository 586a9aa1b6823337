#pragma once

#include <sqlite3.h>

#include "bench/stores/Store.h"

namespace stores {

class Sqlite : public InOneFile {
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
            sqlite3_bind_blob(handle, place, bytes.c_str(), static_cast<int>(bytes.size()),
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
        std::string_view View() {
            const auto* const bytes = static_cast<const char*>(sqlite3_column_blob(handle, 0));
            return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(handle, 0))};
        }
        void Reset() { sqlite3_reset(handle); }
        sqlite3_stmt* handle = nullptr;
    };

public:
    struct Opened {
        explicit Opened(const Sqlite& store) : path(store.file) {}
        std::string path;
    };
    /// A thread's connection, with its statements prepared.
    class Session {
    public:
        explicit Session(const Opened& opened)
            : db(opened.path),
              select(db, "SELECT body FROM items WHERE key = ?"),
              range(db, "SELECT key FROM items WHERE key >= ? ORDER BY key") {
            db.Run("PRAGMA mmap_size=2147418112");
        }
        std::string_view Get(const std::string& key) {
            select.Reset();
            select.Bind(1, key);
            select.Step(SQLITE_ROW);
            return select.View();
        }
        template <class Visit>
        void ForEach(std::string_view prefix, Visit visit) {
            const std::string from(prefix);
            range.Bind(1, from);
            while (range.Next() && range.View().compare(0, prefix.size(), prefix) == 0) {
                visit(range.View());
            }
            range.Reset();
        }

    private:
        const Connection db;
        Statement select;
        Statement range;
    };
};

}  // namespace stores
