#pragma once

#include <cdb.h>
#include <fcntl.h>

#include "bench/stores/Store.h"

namespace stores {

/// It is written once and never changed, and it maps its file.
class Cdb : public InOneFile {
public:
    static constexpr const char* name = "tinycdb";

    void Create(const Items& items) {
        const int out = open(file.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
        cdb_make make;
        Require(cdb_make_start(&make, out) == 0, "cdb_make_start");
        for (const auto& [key, body] : items.all) {
            const int added = cdb_make_add(&make, key.data(), static_cast<unsigned>(key.size()),
                                           body.data(), static_cast<unsigned>(body.size()));
            Require(added == 0, "cdb_make_add");
        }
        Require(cdb_make_finish(&make) == 0 && close(out) == 0, "cdb_make_finish");
    }
    std::size_t ReadOne(const std::string& key) {
        std::string body;
        Reader(file).Get(key, body);
        return body.size();
    }
    /// Its keys come in the order of their adding: that of the others is made here.
    std::size_t List() {
        Reader reader(file);
        std::vector<std::string> keys;
        unsigned position = 0;
        cdb_seqinit(&position, &reader.cdb);
        while (cdb_seqnext(&position, &reader.cdb) > 0) {
            keys.emplace_back(static_cast<const char*>(cdb_getkey(&reader.cdb)),
                              cdb_keylen(&reader.cdb));
        }
        std::sort(keys.begin(), keys.end());
        return keys.size();
    }
    std::size_t ReadAll(const Items& items) {
        Reader reader(file);
        std::size_t bytes = 0;
        std::string body;
        for (const std::size_t i : items.randomOrder) {
            reader.Get(items.all[i].first, body);
            bytes += body.size();
        }
        return bytes;
    }

private:
    struct Reader {
        explicit Reader(const std::string& path) : in(open(path.c_str(), O_RDONLY)) {
            Require(cdb_init(&cdb, in) == 0, "cdb_init");
        }
        ~Reader() {
            cdb_free(&cdb);
            close(in);
        }
        Reader(const Reader&) = delete;
        Reader& operator=(const Reader&) = delete;
        std::string_view Get(const std::string& key) {
            const int found = cdb_find(&cdb, key.data(), static_cast<unsigned>(key.size()));
            Require(found > 0, "cdb_find");
            return {static_cast<const char*>(cdb_getdata(&cdb)), cdb_datalen(&cdb)};
        }
        void Get(const std::string& key, std::string& body) { body = Get(key); }
        int in;
        struct cdb cdb;
    };

public:
    struct Opened {
        explicit Opened(const Cdb& store) : path(store.file) {}
        std::string path;
    };
    /// A thread's reader: looking up changes it.
    class Session {
    public:
        explicit Session(const Opened& opened) : reader(opened.path) {}
        std::string_view Get(const std::string& key) { return reader.Get(key); }

    private:
        Reader reader;
    };
};

}  // namespace stores
