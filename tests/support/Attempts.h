#pragma once

#include <algorithm>
#include <stdexcept>

#include "hpack/Hmemory.h"
#include "hpack/HpackCheck.h"
#include "hpack/HpackCompact.h"
#include "hpack/HpackRecover.h"
#include "tests/support/Items.h"

/// Fails a test, and stops a fuzz target, where something is not as it must be.
#define REQUIRE(condition) Require(condition, #condition, __FILE__, __LINE__)

inline void Require(bool holds, const char* condition, const char* file, int line) {
    if (!holds) {
        throw std::logic_error(file + (':' + std::to_string(line)) + ": not so: " + condition);
    }
}

/// Runs `action`. @return false when it gave a documented error of packages or streams
template <class Action>
bool Succeeds(Action action) {
    try {
        action();
        return true;
    } catch (const qtX<Hpack>& error) {
        REQUIRE(error.Number() >= 0 && error.Number() <= 6);
    } catch (const qtX<HioErr>& error) {
        REQUIRE(error.Number() >= 2 && error.Number() <= 4);
    }
    return false;
}

struct Reading : Hmemory {
    explicit Reading(const qtString& bytes) : buffer(NewBuffer(bytes)) { Open(*buffer, 'r'); }
    ~Reading() noexcept(false) override { Close(); }
    const qtPtr<qtBuffer> buffer;
};

inline HpackCheckReport Check(const qtString& bytes) {
    Reading stream(bytes);
    return HpackCheck(stream);
}

/// The bytes of the package that HpackRecover() makes of a stream.
inline qtString Recovered(Generic32& stream, HpackRecoverReport& report, bool unlisted) {
    HpackRecoverOptions options;
    options.unlisted = unlisted;
    const auto recover = [&](Hpack& to) { report = HpackRecover(stream, to, options); };
    return Updated("", recover, 'w');
}

/// All items that can be read: in every way, or in none.
inline Contents ReadableItems(Hpack& package, std::size_t length) {
    Contents items;
    for (const qtString& key : Keys(package)) {
        qtString body;
        qtBuffer bytes;
        SegBuf segments;
        const bool readable = Succeeds([&] { package.GetItem(key, body); });
        REQUIRE(Succeeds([&] { package.GetItem(key, bytes); }) == readable);
        REQUIRE(Succeeds([&] { package.GetItem(key, segments); }) == readable);
        REQUIRE(bytes.Length() <= length + 1);
        if (readable) {
            const auto [offset, size] = Place(package, key);
            REQUIRE(Bytes(bytes) == body && segments.size == body.size() && size == body.size());
            REQUIRE(offset + size < length);
            items[key] = body;
        }
    }
    return items;
}

/// Opens, reads and changes the package at `source`, a buffer or a file name.
template <class Source>
void TryEverything(Source& source, std::size_t length) {
    for (const char mode : {'r', 'u'}) {
        Hpack package;
        if (!Succeeds([&] { package.Open(source, mode); })) {
            continue;
        }
        const std::vector<qtString> keys = Keys(package);
        REQUIRE(std::is_sorted(keys.begin(), keys.end()));
        ReadableItems(package, length);
        if (mode == 'u') {
            Succeeds([&] { DeadSpace(package); });
            Succeeds([&] { package.AddOrUpdate("new", "item"); });
            Succeeds([&] { package.Rename("one", "renamed"); });
            Succeeds([&] { package.Delete("two"); });
        }
        Succeeds([&] { package.Close(); });
    }
}

/// Recovers: what comes out has no fault, and all is there that a package without fault holds.
/// What is compacted is the same.
inline void TryRecovering(const qtString& bytes) {
    Reading stream(bytes);
    const HpackCheckReport report = HpackCheck(stream);
    for (const bool unlisted : {false, true}) {
        HpackRecoverReport found;
        const qtString recovered = Recovered(stream, found, unlisted);
        REQUIRE(recovered.size() <= 12 * bytes.size() + (1 << 19));  // overlaps, and an index
        REQUIRE(Check(recovered).Good());
        if (report.Good()) {
            Opened package(bytes);
            Opened same(recovered);
            REQUIRE(found.listed == report.items && report.items == package.Count());
            REQUIRE(unlisted || HpackSame(package, same));
            Opened compact(Updated(
                "", [&](Hpack& to) { HpackCompact(package, to); }, 'w'));
            REQUIRE(HpackSame(package, compact));
        }
    }
}
