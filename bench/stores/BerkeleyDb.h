#pragma once

#include <db.h>

#include "bench/stores/Store.h"

namespace stores {

/// A btree of its own, without an environment.
class BerkeleyDb : public InOneFile {
public:
    static constexpr const char* name = "berkeley_db";

    void Create(const Items& items) {
        std::filesystem::remove(file);
        const Database db(file, DB_CREATE);
        for (const auto& [key, body] : items.all) {
            db.Put(key, body);
        }
    }
    std::size_t ReadOne(const std::string& key) {
        std::string body;
        Database(file, DB_RDONLY).Get(key, body);
        return body.size();
    }
    std::size_t List() {
        const Database db(file, DB_RDONLY);
        DBC* cursor = nullptr;
        Require(db.handle->cursor(db.handle, nullptr, &cursor, 0) == 0, "cursor");
        std::vector<std::string> keys;
        DBT key{};
        DBT body{};
        body.flags = DB_DBT_PARTIAL;  // of length 0
        while (cursor->get(cursor, &key, &body, DB_NEXT) == 0) {
            keys.emplace_back(static_cast<const char*>(key.data), key.size);
        }
        cursor->close(cursor);
        return keys.size();
    }
    std::size_t ReadAll(const Items& items) {
        const Database db(file, DB_RDONLY);
        std::size_t bytes = 0;
        std::string body;
        for (const std::size_t i : items.randomOrder) {
            db.Get(items.all[i].first, body);
            bytes += body.size();
        }
        return bytes;
    }
    void Replace(const Items& items, std::size_t count) {
        const Database db(file, 0);
        for (std::size_t i = 0; i < count; ++i) {
            const auto& [key, body] = items.all[items.randomOrder[i]];
            db.Put(key, body);
        }
    }

private:
    struct Database {
        Database(const std::string& path, std::uint32_t flags) {
            Require(db_create(&handle, nullptr, 0) == 0, "db_create");
            handle->set_cachesize(handle, 0, 64 << 20, 1);
            Require(
                handle->open(handle, nullptr, path.c_str(), nullptr, DB_BTREE, flags, 0600) == 0,
                "open");
        }
        ~Database() { handle->close(handle, 0); }
        Database(const Database&) = delete;
        Database& operator=(const Database&) = delete;
        static DBT Thing(const std::string& bytes) {
            DBT thing{};
            thing.data = const_cast<char*>(bytes.data());
            thing.size = static_cast<std::uint32_t>(bytes.size());
            return thing;
        }
        void Put(const std::string& key, const std::string& body) const {
            DBT k = Thing(key);
            DBT v = Thing(body);
            Require(handle->put(handle, nullptr, &k, &v, 0) == 0, "put");
        }
        void Get(const std::string& key, std::string& body) const {
            DBT k = Thing(key);
            DBT v{};
            Require(handle->get(handle, nullptr, &k, &v, 0) == 0, "get");
            body.assign(static_cast<const char*>(v.data), v.size);
        }
        DB* handle = nullptr;
    };
};

}  // namespace stores
