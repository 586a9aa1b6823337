#include "hpack/HpackIndex.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <algorithm>
#include <functional>
#include <iterator>
#include <limits>
#include <new>

#include "hpack/HpackFormat.h"
#include "hpack/ReadPastEnd.h"

using namespace HpackFormat;

// Marks a deleted entry in its key length. No key is that long: a package would not hold it.
static constexpr std::uint32_t deletedMark = 0x80000000;

// Keys are compared by so many bytes at once, and there is room behind the last entry to load them
// from where any key starts.
static constexpr std::uint32_t slack = 32;

static constexpr std::uint32_t pieceSize = 65536;

static std::uint64_t EightBytes(const char* in) {
    unsigned long long value;
    qtUnpackUssDiet(value, in);
    return value;
}

// The first eight bytes of a key as a number that compares as they do, zeros behind a short key.
// Two different keys may have the same one.
static std::uint64_t Prefix(std::string_view key) {
    const std::uint64_t prefix = EightBytes(key.data());
    if (key.size() >= sizeof prefix) {
        return prefix;
    }
    return key.empty() ? 0 : prefix >> (64 - 8 * key.size()) << (64 - 8 * key.size());
}

// Whether `next` comes after `key`. In a sorted index it mostly begins as `key` does, for a length
// that no processor foresees: a comparison that branches on it would be most of loading.
static bool Ascend(std::string_view key, std::string_view next) {
#ifdef __SSE2__
    const auto same = [&](std::size_t at) {
        const auto load = [at](std::string_view from) {
            return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from.data() + at));
        };
        return static_cast<unsigned int>(_mm_movemask_epi8(_mm_cmpeq_epi8(load(key), load(next))));
    };
    const unsigned int differ = ~(same(0) | same(16) << 16);
    if (differ != 0) {
        const auto first = static_cast<std::size_t>(__builtin_ctz(differ));
        if (first < std::min(key.size(), next.size())) {
            return static_cast<unsigned char>(key[first]) < static_cast<unsigned char>(next[first]);
        }
    }
#endif
    return key < next;
}

HpackIndex::Entry HpackIndex::At(std::uint32_t place) const {
    const char* const entry = entries.Data() + place;
    const std::uint32_t length = Word(entry) & ~deletedMark;
    return {{entry + wordSize, length},
            Word(entry + wordSize + length),
            (Word(entry) & deletedMark) != 0};
}

void HpackIndex::Clear() {
    *this = HpackIndex();
}

void HpackIndex::Load(Generic32& stream, std::uint32_t expected) {
    Clear();
    try {
        LoadEntries(stream, expected);
    } catch (...) {
        TakeLoaded();
        throw;
    }
    TakeLoaded();
}

void HpackIndex::LoadEntries(Generic32& stream, std::uint32_t expected) {
    const std::uint32_t start = stream.Tell();
    const std::uint32_t available = std::max(stream.GetFileSize(), start) - start;
    order.reserve(std::min(expected, available / entryOverhead));

    std::uint32_t loaded = 0;
    while (TakeEntries(loaded, expected), order.size() < expected) {
        const std::uint32_t there = loaded - used;
        const std::uint64_t needed =
            entryOverhead + (there < wordSize ? 0 : std::uint64_t{Word(entries.Data() + used)});
        if (needed > available - used) {
            ReadPastEnd(stream);
        }
        if (needed > maxStreamSize) {
            throw std::bad_alloc();
        }
        const std::uint32_t more = std::min(
            available - loaded,
            std::max(static_cast<std::uint32_t>(needed) - there, ReadAhead(expected, available)));
        Reserve(std::uint64_t{loaded} + more);
        stream.Read(entries.Data() + loaded, more);
        loaded += more;
    }
}

// Most often the block ends the stream and is read whole; else not much of what is behind it is.
std::uint32_t HpackIndex::ReadAhead(std::uint32_t expected, std::uint32_t available) const {
    constexpr std::uint64_t usualEntry = 64;
    if (available <= expected * usualEntry) {
        return available;
    }
    const std::uint64_t average = order.empty() ? 0 : used / order.size() + 1;
    const std::uint64_t left = (expected - order.size()) * average;
    return static_cast<std::uint32_t>(
        std::min<std::uint64_t>(std::max<std::uint64_t>(left, pieceSize), available));
}

// Takes the entries that are whole in what has been loaded.
void HpackIndex::TakeEntries(std::uint32_t loaded, std::uint32_t expected) {
    const char* const start = entries.Data();
    std::string_view last = order.empty() ? std::string_view() : At(order.back()).key;
    bool ascending = sorted == order.size();
    std::uint32_t at = used;
    while (order.size() < expected && loaded - at >= entryOverhead) {
        const std::string_view key(start + at + wordSize, Word(start + at));
        if (key.size() > loaded - at - entryOverhead) {
            break;
        }
        ascending = ascending && (order.empty() || Ascend(last, key));
        sorted += ascending ? 1 : 0;
        order.push_back(at);
        at += static_cast<std::uint32_t>(entryOverhead + key.size());
        last = key;
    }
    used = at;
}

// Of several entries for one key only the last one counts.
void HpackIndex::TakeLoaded() {
    bytes = used;
    changed = sorted != order.size();
    if (sorted != order.size()) {
        SortTail(order);
        const auto superseded = [this](std::uint32_t place, std::uint32_t next) {
            return At(place).key == At(next).key;
        };
        std::size_t kept = 0;
        for (std::size_t i = 0; i < order.size(); ++i) {
            if (i + 1 < order.size() && superseded(order[i], order[i + 1])) {
                bytes -= entryOverhead + At(order[i]).key.size();
            } else {
                order[kept++] = order[i];
            }
        }
        order.resize(kept);
        sorted = kept;
    }
    count = static_cast<std::uint32_t>(order.size());
}

void HpackIndex::Save(Generic32& stream) {
    Tidy();
    if (bytes == used && std::is_sorted(order.begin(), order.end())) {
        if (used != 0) {
            stream.Write(entries.Data(), used);
        }
        changed = false;
        return;
    }
    std::vector<char> piece;
    const auto write = [&] {
        stream.Write(piece.data(), static_cast<unsigned int>(piece.size()));
        piece.clear();
    };
    for (const std::uint32_t place : order) {
        const char* const entry = entries.Data() + place;
        piece.insert(piece.end(), entry, entry + entryOverhead + Word(entry));
        if (piece.size() >= pieceSize) {
            write();
        }
    }
    if (!piece.empty()) {
        write();
    }
    changed = false;
}

std::optional<std::uint32_t> HpackIndex::Find(std::string_view key) {
    const std::optional<std::uint32_t> place = Place(key);
    if (!place || At(*place).deleted) {
        return std::nullopt;
    }
    return At(*place).offset;
}

void HpackIndex::Set(std::string_view key, std::uint32_t offset) {
    const std::optional<std::uint32_t> place = Place(key);
    if (!place) {
        Append(key, offset);
        return;
    }
    char* const entry = entries.Data() + *place;
    if (At(*place).deleted) {
        PutWord(entry, static_cast<std::uint32_t>(key.size()));
        ++count;
        bytes += entryOverhead + key.size();
    }
    char* const stored = entry + wordSize + key.size();
    changed = changed || Word(stored) != offset;
    PutWord(stored, offset);
}

void HpackIndex::Erase(std::string_view key) {
    changed = true;
    const std::optional<std::uint32_t> place = Place(key);
    if (!place || At(*place).deleted) {
        return;
    }
    PutWord(entries.Data() + *place, static_cast<std::uint32_t>(key.size()) | deletedMark);
    --count;
    bytes -= entryOverhead + key.size();
}

// Where the key's entry is, deleted or not.
std::optional<std::uint32_t> HpackIndex::Place(std::string_view key) {
    if (slots.empty()) {
        if (order.empty() || At(order.back()).key < key) {
            return std::nullopt;
        }
        constexpr std::uint32_t lookupsPerBuild = 16;
        if (order.size() < pieceSize / lookupsPerBuild ||
            ++lookups < order.size() / lookupsPerBuild) {
            const auto found =
                std::lower_bound(order.begin(), order.end(), key,
                                 [this](std::uint32_t place, std::string_view wanted) {
                                     return At(place).key < wanted;
                                 });
            return At(*found).key == key ? std::optional(*found) : std::nullopt;
        }
        try {
            BuildSlots(order.size() + 1);  // has room for the entry of a Prepare() before
        } catch (const std::bad_alloc&) {
            lookups = 0;  // a lookup needs no memory: it goes on by halves
            return Place(key);
        }
    }
    const std::uint32_t slot = *Slot(key);
    return slot != 0 ? std::optional(slot - 1) : std::nullopt;
}

// The slot that holds the key, or else the one to put it into.
std::uint32_t* HpackIndex::Slot(std::string_view key) {
    const std::size_t mask = slots.size() - 1;
    std::size_t at = std::hash<std::string_view>()(key) & mask;
    while (slots[at] != 0 && At(slots[at] - 1).key != key) {
        at = (at + 1) & mask;
    }
    return &slots[at];
}

void HpackIndex::BuildSlots(std::size_t entriesExpected) {
    std::size_t size = 64;
    while (size < 2 * entriesExpected) {
        size *= 2;
    }
    slots.assign(size, 0);
    for (const std::uint32_t place : order) {
        *Slot(At(place).key) = place + 1;
    }
}

void HpackIndex::Reserve(std::uint64_t length) {
    if (length + slack > std::numeric_limits<std::uint32_t>::max()) {
        throw std::bad_alloc();
    }
    if (entries.Length() < length + slack) {
        entries.Resize(static_cast<unsigned long>(length + slack));
    }
}

void HpackIndex::Prepare(std::string_view key) {
    if (!Place(key)) {
        MakeRoom(key);
    }
}

bool HpackIndex::IsLast(std::string_view key) const {
    return sorted == order.size() && (order.empty() || At(order.back()).key < key);
}

// All that Append() needs memory for.
void HpackIndex::MakeRoom(std::string_view key) {
    const std::size_t expected = 2 * order.size() + 2;
    if (slots.empty() ? !IsLast(key) : slots.size() < expected) {
        BuildSlots(expected);
    }
    const std::uint64_t end = std::uint64_t{used} + entryOverhead + key.size();
    if (entries.Length() < end + slack) {
        Reserve(end + end / 2);
    }
    if (order.size() == order.capacity()) {
        order.reserve(expected);
    }
}

void HpackIndex::Append(std::string_view key, std::uint32_t offset) {
    MakeRoom(key);
    changed = true;
    sorted += IsLast(key) ? 1 : 0;
    order.push_back(used);
    char* out = PutWord(entries.Data() + used, static_cast<std::uint32_t>(key.size()));
    out = std::copy(key.begin(), key.end(), out);
    PutWord(out, offset);
    if (!slots.empty()) {
        *Slot(key) = used + 1;
    }
    used += static_cast<std::uint32_t>(entryOverhead + key.size());
    bytes += entryOverhead + key.size();
    ++count;
}

std::vector<std::uint32_t> HpackIndex::InOrder() const {
    std::vector<std::uint32_t> all(order);
    SortTail(all);
    return all;
}

// Sorts `places`, which is `order` or a copy of it. Equal keys stay in the order they came in.
void HpackIndex::SortTail(std::vector<std::uint32_t>& places) const {
    if (sorted == places.size()) {
        return;
    }
    struct Item {
        std::uint64_t prefix;
        std::uint32_t place;
    };
    const auto before = [this](const Item& a, const Item& b) {
        if (a.prefix != b.prefix) {
            return a.prefix < b.prefix;
        }
        const int compared = At(a.place).key.compare(At(b.place).key);
        return compared != 0 ? compared < 0 : a.place < b.place;
    };
    std::vector<Item> items;
    items.reserve(places.size());
    for (const std::uint32_t place : places) {
        items.push_back({Prefix(At(place).key), place});
    }
    const auto tail = items.begin() + static_cast<std::ptrdiff_t>(sorted);
    std::sort(tail, items.end(), before);
    std::inplace_merge(items.begin(), tail, items.end(), before);
    std::transform(items.begin(), items.end(), places.begin(),
                   [](const Item& item) { return item.place; });
}

// Sorts in what came out of order and lets go of deleted entries.
void HpackIndex::Tidy() {
    SortTail(order);
    if (count != order.size()) {
        slots.clear();
        order.erase(std::remove_if(order.begin(), order.end(),
                                   [this](std::uint32_t place) { return At(place).deleted; }),
                    order.end());
    }
    sorted = order.size();
    if (used > 2 * bytes + pieceSize) {
        Compact();
    }
}

void HpackIndex::Compact() {
    HpackIndex compact;
    compact.Reserve(bytes);
    compact.order.reserve(order.size());
    for (const std::uint32_t place : order) {
        const Entry entry = At(place);
        compact.Append(entry.key, entry.offset);
    }
    *this = std::move(compact);
}
