#include "hpack/HpackCompact.h"

#include <algorithm>
#include <cstring>
#include <tuple>
#include <utility>
#include <vector>

#include "hpack/HpackFormat.h"

namespace {

struct Identity {
    explicit Identity(const Hpack& package) {
        package.GetFileID(id, word, flags, old);
        package.GetState(state);
    }
    bool operator==(const Identity& other) const {
        return std::tie(id, word, flags, old, state) ==
               std::tie(other.id, other.word, other.flags, other.old, other.state);
    }

    unsigned int id = 0;
    unsigned short word = 0;
    unsigned char flags = 0;
    unsigned char state = 0;
    bool old = false;
};

}  // namespace

static void SetIdentity(Hpack& package, const Identity& identity) {
    if (identity.old) {
        package.SetOldID(identity.flags == HpackFormat::oldUnicodeFlags);
        return;
    }
    package.SetFileID(identity.id, identity.word, identity.flags);
    package.SetState(identity.state);
}

static std::vector<qtString> Keys(Hpack& package, HpackOrder order) {
    std::vector<qtString> keys;
    package.GetIndex(keys);
    if (order == HpackOrder::key) {
        return keys;
    }
    std::vector<std::pair<unsigned int, qtString>> byOffset(keys.size());
    for (std::size_t i = 0; i < keys.size(); ++i) {
        unsigned int size = 0;
        package.GetKeyInfo(keys[i], byOffset[i].first, size);
        byOffset[i].second.swap(keys[i]);
    }
    std::sort(byOffset.begin(), byOffset.end());
    for (std::size_t i = 0; i < keys.size(); ++i) {
        keys[i].swap(byOffset[i].second);
    }
    return keys;
}

// A larger buffer would keep its size.
static void Read(Hpack& package, const qtString& key, SegBuf& body) {
    body.size = 0;
    package.GetItem(key, body);
}

void HpackCompact(Hpack& source, Hpack& target, HpackOrder order, const HpackStep& step) {
    const std::vector<qtString> keys = Keys(source, order);
    SetIdentity(target, Identity(source));
    SegBuf body;
    for (std::size_t i = 0; i < keys.size(); ++i) {
        if (step) {
            step(i, keys.size());
        }
        Read(source, keys[i], body);
        target.AddAtOffset(keys[i], body, 0);
    }
}

static bool SameBytes(const SegBuf& left, const SegBuf& right) {
    if (left.size != right.size) {
        return false;
    }
    for (unsigned int at = 0, run = 0; at < left.size; at += run) {
        char* a = nullptr;
        char* b = nullptr;
        left.Locate(at, left.size, a, run);
        right.Locate(at, right.size, b, run);
        if (std::memcmp(a, b, run) != 0) {
            return false;
        }
    }
    return true;
}

bool HpackSame(Hpack& left, Hpack& right, const HpackStep& step) {
    const std::vector<qtString> keys = Keys(left, HpackOrder::key);
    if (!(Identity(left) == Identity(right)) || keys != Keys(right, HpackOrder::key)) {
        return false;
    }
    SegBuf a;
    SegBuf b;
    for (std::size_t i = 0; i < keys.size(); ++i) {
        if (step) {
            step(i, keys.size());
        }
        Read(left, keys[i], a);
        Read(right, keys[i], b);
        if (!SameBytes(a, b)) {
            return false;
        }
    }
    return true;
}
