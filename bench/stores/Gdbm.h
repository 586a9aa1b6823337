#pragma once

#include <gdbm.h>

#include "bench/stores/Store.h"

namespace stores {

class Gdbm : public InOneFile {
public:
    static constexpr const char* name = "gdbm";

    void Create(const Items& items) {
        const Database db(file, GDBM_NEWDB);
        for (const auto& [key, body] : items.all) {
            db.Put(key, body);
        }
    }
    std::size_t ReadOne(const std::string& key) { return Database(file, GDBM_READER).Get(key); }
    /// Its keys come in no order: that is made here, as the others promise it.
    std::size_t List() {
        const Database db(file, GDBM_READER);
        std::vector<std::string> keys;
        datum key = gdbm_firstkey(db.handle);
        while (key.dptr != nullptr) {
            keys.emplace_back(key.dptr, static_cast<std::size_t>(key.dsize));
            const datum next = gdbm_nextkey(db.handle, key);
            std::free(key.dptr);
            key = next;
        }
        std::sort(keys.begin(), keys.end());
        return keys.size();
    }
    std::size_t ReadAll(const Items& items) {
        const Database db(file, GDBM_READER);
        std::size_t bytes = 0;
        for (const std::size_t i : items.randomOrder) {
            bytes += db.Get(items.all[i].first);
        }
        return bytes;
    }
    void Replace(const Items& items, std::size_t count) {
        const Database db(file, GDBM_WRITER);
        for (std::size_t i = 0; i < count; ++i) {
            const auto& [key, body] = items.all[items.randomOrder[i]];
            db.Put(key, body);
        }
    }

private:
    struct Database {
        Database(const std::string& path, int flags)
            : handle(gdbm_open(path.c_str(), 0, flags | GDBM_NOLOCK, 0600, nullptr)) {
            Require(handle != nullptr, "gdbm_open");
        }
        ~Database() { gdbm_close(handle); }
        Database(const Database&) = delete;
        Database& operator=(const Database&) = delete;
        static datum Thing(const std::string& bytes) {
            return {const_cast<char*>(bytes.data()), static_cast<int>(bytes.size())};
        }
        void Put(const std::string& key, const std::string& body) const {
            const int stored = gdbm_store(handle, Thing(key), Thing(body), GDBM_REPLACE);
            Require(stored == 0, "gdbm_store");
        }
        std::size_t Get(const std::string& key) const {
            const datum body = gdbm_fetch(handle, Thing(key));
            Require(body.dptr != nullptr, "gdbm_fetch");
            std::free(body.dptr);
            return static_cast<std::size_t>(body.dsize);
        }
        GDBM_FILE handle;
    };
};

}  // namespace stores
