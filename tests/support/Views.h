#pragma once

#include <algorithm>
#include <iterator>
#include <optional>
#include <vector>

#include "hpack/HpackView.h"
#include "tests/support/Attempts.h"

template <class T>
qtString ErrorText(const qtX<T>& error) {
    qtString text = error.BaseString() + (' ' + std::to_string(error.Number()) + ' ');
    text += error.SpecificString();
    for (const qtString& argument : error.Arguments()) {
        text += "|" + argument;
    }
    return text;
}

/// What `action` returns, or all that its error says.
template <class Action>
qtString Outcome(Action action) {
    try {
        return "returned " + qtString(action());
    } catch (const qtX<Hpack>& error) {
        return ErrorText(error);
    } catch (const qtX<HioErr>& error) {
        return ErrorText(error);
    }
}

inline qtString ItemOutcome(Hpack& package, const qtString& key) {
    return Outcome([&] {
        qtString body;
        package.GetItem(key, body);
        return body;
    });
}

inline qtString FindOutcome(const HpackView& view, const qtString& key) {
    return Outcome([&] {
        const std::optional<std::string_view> body = view.Find(key);
        return body ? *body : "nothing";
    });
}

/// Requires all ways to the items of a view to lead to those of the package.
inline void RequireSameItems(const HpackView& view, Hpack& package) {
    const std::vector<qtString> keys = Keys(package);
    REQUIRE(view.Count() == keys.size());
    std::vector<qtString> probes = {"", "\xff"};
    auto at = view.begin();
    for (const qtString& key : keys) {
        REQUIRE((*at).Key() == key);
        REQUIRE(Outcome([&] { return (*at).Body(); }) == ItemOutcome(package, key));
        ++at;
        probes.insert(probes.end(), {key, key + '\0', key.substr(0, key.size() / 2)});
    }
    REQUIRE(at == view.end());
    for (auto key = keys.rbegin(); key != keys.rend(); ++key) {
        REQUIRE((*--at).Key() == *key);
    }
    REQUIRE(at == view.begin());

    const auto find = [&] {
        for (const qtString& probe : probes) {
            REQUIRE(FindOutcome(view, probe) ==
                    (package.Contains(probe) ? ItemOutcome(package, probe) : "returned nothing"));
        }
    };
    find();
    for (const qtString& probe : probes) {
        const auto lower = std::lower_bound(keys.begin(), keys.end(), probe);
        REQUIRE(std::distance(view.begin(), view.LowerBound(probe)) == lower - keys.begin());
        const auto end = std::find_if(lower, keys.end(), [&](const qtString& key) {
            return key.compare(0, probe.size(), probe) != 0;
        });
        const HpackView::Range range = view.Prefix(probe);
        REQUIRE(range.begin() == view.LowerBound(probe));
        REQUIRE(std::distance(range.begin(), range.end()) == end - lower);
    }
    // Enough lookups for the view to find things in another way.
    for (int lookup = 0; lookup < 64; ++lookup) {
        FindOutcome(view, "");
    }
    find();
}

/// Requires `open()` to return a view of the package at `source`, a buffer or a file name, or both
/// to fail with one error.
template <class Source, class OpenView>
void RequireSameView(Source& source, OpenView open) {
    Hpack package;
    std::optional<HpackView> view;
    const qtString opened = Outcome([&] {
        package.Open(source, 'r');
        return "";
    });
    REQUIRE(Outcome([&] {
                view.emplace(open());
                return "";
            }) == opened);
    if (!view) {
        return;
    }
    RequireSameItems(*view, package);
    unsigned int id[2];
    unsigned short word[2];
    unsigned char flags[2];
    unsigned char state[2];
    bool old[2];
    package.GetFileID(id[0], word[0], flags[0], old[0]);
    package.GetState(state[0]);
    view->GetFileID(id[1], word[1], flags[1], old[1]);
    view->GetState(state[1]);
    REQUIRE(id[0] == id[1] && word[0] == word[1] && flags[0] == flags[1]);
    REQUIRE(state[0] == state[1] && old[0] == old[1]);
}

inline void TryView(qtPtr<qtBuffer>& buffer) {
    RequireSameView(buffer,
                    [&] { return HpackView(std::string_view(buffer->Data(), buffer->Length())); });
}

inline void TryView(qtString& fileName) {
    RequireSameView(fileName, [&] { return HpackView::Map(fileName); });
}
