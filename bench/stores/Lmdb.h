#pragma once

#include <lmdb.h>

#include "bench/stores/Store.h"

namespace stores {

class Lmdb : public InOneFile {
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

public:
    struct Opened {
        explicit Opened(const Lmdb& store) : env(store.file, MDB_RDONLY) {}
        Environment env;
    };
    /// A thread's transaction.
    class Session {
    public:
        explicit Session(const Opened& opened) : read(opened.env, MDB_RDONLY) {}
        std::string_view Get(const std::string& key) { return read.Get(key); }
        template <class Visit>
        void ForEach(std::string_view prefix, Visit visit) {
            MDB_cursor* cursor = nullptr;
            Require(mdb_cursor_open(read.handle, read.table, &cursor) == 0, "mdb_cursor_open");
            MDB_val key{prefix.size(), const_cast<char*>(prefix.data())};
            MDB_val body;
            for (int found = mdb_cursor_get(cursor, &key, &body,
                                            prefix.empty() ? MDB_FIRST : MDB_SET_RANGE);
                 found == 0; found = mdb_cursor_get(cursor, &key, &body, MDB_NEXT)) {
                const std::string_view at(static_cast<const char*>(key.mv_data), key.mv_size);
                if (at.compare(0, prefix.size(), prefix) != 0) {
                    break;
                }
                visit(at);
            }
            mdb_cursor_close(cursor);
        }

    private:
        Transaction read;
    };
};

}  // namespace stores
