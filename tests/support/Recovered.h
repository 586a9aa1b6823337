#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <vector>

#include "hpack/Hmemory.h"
#include "hpack/Hpack.h"
#include "hpack/HpackRecover.h"
#include "tests/support/Bytes.h"

using Contents = std::map<qtString, qtString>;

/// All items of an open package.
inline Contents Items(Hpack& package) {
    Contents items;
    std::vector<qtString> keys;
    package.GetIndex(keys);
    for (const qtString& key : keys) {
        package.GetItem(key, items[key]);
    }
    return items;
}

/// What HpackRecover() makes of a package.
struct Recovered {
    bool Notes(HpackRecoverNote::Kind kind, const qtString& key) const {
        return std::any_of(report.notes.begin(), report.notes.end(),
                           [&](const auto& note) { return note.kind == kind && note.key == key; });
    }

    HpackRecoverReport report;
    Contents items;
    unsigned int id = 0;
    unsigned char state = 0;
    bool old = false;
};

inline Recovered RecoverFrom(Generic32& stream, bool unlisted = false) {
    Recovered result;
    HpackRecoverOptions options;
    options.unlisted = unlisted;
    qtPtr<qtBuffer> out = NewBuffer();
    Hpack target;
    target.Open(out, 'w');
    result.report = HpackRecover(stream, target, options);
    target.Close();
    target.Open(out, 'r');
    result.items = Items(target);
    EXPECT_EQ(result.report.items, result.items.size());
    unsigned short word = 0;
    unsigned char flags = 0;
    target.GetFileID(result.id, word, flags, result.old);
    target.GetState(result.state);
    return result;
}

inline Recovered Recover(const qtString& bytes, bool unlisted = false) {
    const qtPtr<qtBuffer> buffer = NewBuffer(bytes);
    Hmemory stream;
    stream.Open(*buffer, 'r');
    return RecoverFrom(stream, unlisted);
}
