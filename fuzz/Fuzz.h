#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdio>
#include <cstdlib>
#include <map>

#include "hpack/Hpack.h"
#include "tests/support/Bytes.h"

// What the targets share. A target is one function that takes any bytes; it must return, and must
// not stop the program: Require() stops it where something is not as it must be.

#define REQUIRE(condition) Require(condition, #condition, __FILE__, __LINE__)

inline void Require(bool holds, const char* condition, const char* file, int line) {
    if (!holds) {
        std::fprintf(stderr, "%s:%d: not so: %s\n", file, line, condition);
        std::abort();
    }
}

/// Runs `action`. @return false when it gave an error of packages or streams
template <class Action>
bool Succeeds(Action action) {
    try {
        action();
        return true;
    } catch (const qtX<Hpack>& error) {
        REQUIRE(error.Number() >= 0 && error.Number() <= 6);
    } catch (const qtX<HioErr>& error) {
        REQUIRE(error.Number() >= 0 && error.Number() <= 4);
    }
    return false;
}

using Contents = std::map<qtString, qtString>;

/// All items that can be read.
inline Contents ReadableItems(Hpack& package) {
    Contents items;
    std::vector<qtString> keys;
    package.GetIndex(keys);
    for (const qtString& key : keys) {
        qtString body;
        if (Succeeds([&] { package.GetItem(key, body); })) {
            items[key] = body;
        }
    }
    return items;
}
