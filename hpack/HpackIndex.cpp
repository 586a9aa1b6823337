#include "hpack/HpackIndex.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <algorithm>
#include <iterator>
#include <limits>
#include <new>
#include <utility>

#include "hpack/HpackCodec.h"
#include "hpack/KeySlots.h"
#include "hpack/ReadPastEnd.h"

namespace vantry_internal {

using namespace HpackFormat;

namespace {

// Marks a deleted entry in its key length. No key is that long: a package could not hold it.
constexpr std::uint32_t deletedMark = 0x80000000;

// Keys are compared by this many bytes at once, so as many must be readable from any key's start.
constexpr std::uint32_t slack = 32;

constexpr std::uint32_t pieceSize = 65536;

std::uint64_t EightBytes(const char* in) {
    unsigned long long value;
    qtUnpackUssDiet(value, in);
    return value;
}

// The first eight bytes of a key as a number that compares as they do, padded with zeros. Two
// different keys may have the same one.
std::uint64_t Prefix(std::string_view key) {
    const std::uint64_t prefix = EightBytes(key.data());
    if (key.size() >= sizeof prefix) {
        return prefix;
    }
    return key.empty() ? 0 : prefix >> (64 - 8 * key.size()) << (64 - 8 * key.size());
}

// Whether `next` comes after `key`. In a sorted index it mostly starts as `key` does. Prefix
// lengths are unpredictable; a branchy comparison would dominate loading.
bool Ascend(std::string_view key, std::string_view next) {
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

std::uint32_t Hash(std::string_view key) {
    return static_cast<std::uint32_t>(HashKey(key, HashSeed()));
}

}  // namespace

HpackIndex::Entry HpackIndex::At(std::uint32_t position) const {
    const char* const entry = entries.Data() + position;
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
        FinishLoading();
        throw;
    }
    FinishLoading();
}

void HpackIndex::LoadEntries(Generic32& stream, std::uint32_t expected) {
    const std::uint32_t start = stream.Tell();
    const std::uint32_t available = std::max(stream.GetFileSize(), start) - start;
    order.reserve(std::min(expected, available / entryOverhead));

    std::uint32_t loaded = 0;
    while (AcceptEntries(loaded, expected), order.size() < expected) {
        const std::uint32_t left = loaded - used;
        const std::uint64_t needed =
            IndexEntrySize(left < wordSize ? 0 : Word(entries.Data() + used));
        if (needed > available - used) {
            ReadPastEnd(stream);
        }
        if (needed > maxStreamSize) {
            throw std::bad_alloc();
        }
        const std::uint32_t more = std::min(
            available - loaded,
            std::max(static_cast<std::uint32_t>(needed) - left, ReadAhead(expected, available)));
        Reserve(std::uint64_t{loaded} + more);
        stream.Read(entries.Data() + loaded, more);
        loaded += more;
    }
}

// Most often the block ends the stream and is read completely; otherwise little of what follows it
// is read.
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

// Accepts the entries that are complete in what has been loaded.
void HpackIndex::AcceptEntries(std::uint32_t loaded, std::uint32_t expected) {
    const char* const start = entries.Data();
    std::string_view last = order.empty() ? std::string_view() : At(order.back()).key;
    bool ascending = sorted == order.size();
    std::uint32_t at = used;
    for (HpackIndexEntry entry = {}; order.size() < expected; last = entry.key) {
        if (!DecodeIndexEntry(start + at, loaded - at, entry)) {
            break;
        }
        ascending = ascending && (order.empty() || Ascend(last, entry.key));
        sorted += ascending ? 1 : 0;
        order.push_back(at);
        at += static_cast<std::uint32_t>(IndexEntrySize(entry.key.size()));
    }
    used = at;
}

// Of several entries for one key only the last one counts.
void HpackIndex::FinishLoading() {
    bytes = used;
    changed = sorted != order.size();
    if (changed) {
        try {
            Sort();
        } catch (...) {
            Clear();
            throw;
        }
        const auto superseded = [this](std::uint32_t position, std::uint32_t next) {
            return At(position).key == At(next).key;
        };
        std::size_t kept = 0;
        for (std::size_t i = 0; i < order.size(); ++i) {
            if (i + 1 < order.size() && superseded(order[i], order[i + 1])) {
                bytes -= IndexEntrySize(At(order[i]).key.size());
            } else {
                order[kept++] = order[i];
            }
        }
        order.resize(kept);
        sorted = kept;
    }
    count = static_cast<std::uint32_t>(order.size());
}

void HpackIndex::Arrange() {
    Sort();
    if (bytes != used || !std::is_sorted(order.begin(), order.end())) {
        Pack();
    }
}

void HpackIndex::Write(Generic32& stream) {
    if (used != 0) {
        stream.Write(entries.Data(), used);
    }
    changed = false;
}

std::optional<std::uint32_t> HpackIndex::Find(std::string_view key) {
    const std::optional<std::uint32_t> position = EntryPosition(key);
    if (!position) {
        return std::nullopt;
    }
    const Entry entry = At(*position);
    return entry.deleted ? std::nullopt : std::optional(entry.offset);
}

void HpackIndex::Set(std::string_view key, std::uint32_t offset) {
    const std::optional<std::uint32_t> position = EntryPosition(key);
    if (!position) {
        Append(key, offset);
        return;
    }
    const Entry former = At(*position);
    if (former.deleted) {
        ++count;
        bytes += IndexEntrySize(key.size());
    }
    changed = changed || former.offset != offset;
    EncodeIndexEntry({key, offset}, entries.Data() + *position);
}

void HpackIndex::Erase(std::string_view key) {
    changed = true;
    const std::optional<std::uint32_t> position = EntryPosition(key);
    if (!position || At(*position).deleted) {
        return;
    }
    PutWord(entries.Data() + *position, static_cast<std::uint32_t>(key.size()) | deletedMark);
    --count;
    bytes -= IndexEntrySize(key.size());
}

HpackIndex::Positions::const_iterator HpackIndex::LowerBound(std::string_view key) const {
    return std::lower_bound(order.begin(), order.end(), key,
                            [this](std::uint32_t position, std::string_view wanted) {
                                return At(position).key < wanted;
                            });
}

// The position of the key's entry, deleted or not.
std::optional<std::uint32_t> HpackIndex::EntryPosition(std::string_view key) {
    if (slots.empty()) {
        if (order.empty() || At(order.back()).key < key) {
            return std::nullopt;
        }
        constexpr std::uint32_t lookupsPerBuild = 16;
        if (order.size() < pieceSize / lookupsPerBuild ||
            ++lookups < order.size() / lookupsPerBuild) {
            const auto found = LowerBound(key);
            return At(*found).key == key ? std::optional(*found) : std::nullopt;
        }
        try {
            BuildSlots(order.size() + 1);  // has room for the entry of a Prepare() before
        } catch (const std::bad_alloc&) {
            lookups = 0;  // a lookup needs no memory: it continues by halves
            return EntryPosition(key);
        }
    }
    const std::uint32_t position = FindSlot(key, Hash(key))->position;
    return position != 0 ? std::optional(position - 1) : std::nullopt;
}

// The slot that holds the key, or else the free one for it.
HpackIndex::Slot* HpackIndex::FindSlot(std::string_view key, std::uint32_t hash) {
    const std::size_t mask = slots.size() - 1;
    std::size_t at = hash & mask;
    while (slots[at].position != 0 &&
           (slots[at].hash != hash || At(slots[at].position - 1).key != key)) {
        at = (at + 1) & mask;
    }
    return &slots[at];
}

void HpackIndex::BuildSlots(std::size_t entriesExpected) {
    std::size_t size = 64;
    while (size < 2 * entriesExpected) {
        size *= 2;
    }
    slots.resize(size);
    FillSlots();
}

void HpackIndex::FillSlots() {
    std::fill(slots.begin(), slots.end(), Slot());
    const std::size_t mask = slots.size() - 1;
    for (const std::uint32_t position : order) {
        const std::uint32_t hash = Hash(At(position).key);
        std::size_t at = hash & mask;
        while (slots[at].position != 0) {
            at = (at + 1) & mask;
        }
        slots[at] = {hash, position + 1};
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
    if (!EntryPosition(key)) {
        MakeRoom(key);
    }
}

bool HpackIndex::IsLast(std::string_view key) const {
    return sorted == order.size() && (order.empty() || At(order.back()).key < key);
}

// Allocates all that Append() needs.
void HpackIndex::MakeRoom(std::string_view key) {
    std::uint64_t end = used + IndexEntrySize(key.size());
    if (entries.Length() < end + slack && used > 2 * bytes + pieceSize) {
        Pack();
        end = used + IndexEntrySize(key.size());
    }
    const std::size_t expected = 2 * order.size() + 2;
    if (slots.empty() ? !IsLast(key) : slots.size() < expected) {
        BuildSlots(expected);
    }
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
    EncodeIndexEntry({key, offset}, entries.Data() + used);
    if (!slots.empty()) {
        const std::uint32_t hash = Hash(key);
        *FindSlot(key, hash) = {hash, used + 1};
    }
    used += static_cast<std::uint32_t>(IndexEntrySize(key.size()));
    bytes += IndexEntrySize(key.size());
    ++count;
}

// Equal keys, which only a loaded block can have, stay in the order in which they came.
void HpackIndex::Sort() {
    if (sorted == order.size()) {
        return;
    }
    struct Item {
        std::uint64_t prefix;
        std::uint32_t position;
    };
    const auto before = [this](const Item& a, const Item& b) {
        if (a.prefix != b.prefix) {
            return a.prefix < b.prefix;
        }
        const int compared = At(a.position).key.compare(At(b.position).key);
        return compared != 0 ? compared < 0 : a.position < b.position;
    };
    std::vector<Item> items;
    items.reserve(order.size());
    for (const std::uint32_t position : order) {
        items.push_back({Prefix(At(position).key), position});
    }
    const auto tail = items.begin() + static_cast<std::ptrdiff_t>(sorted);
    std::sort(tail, items.end(), before);
    std::inplace_merge(items.begin(), tail, items.end(), before);
    std::transform(items.begin(), items.end(), order.begin(),
                   [](const Item& item) { return item.position; });
    sorted = order.size();
}

// Moves the entries that are not deleted together, in the order of `order`. Only the one allocation
// at the start can fail.
void HpackIndex::Pack() {
    qtBuffer packed;
    packed.Resize(static_cast<unsigned long>(bytes + slack));
    char* out = packed.Data();
    std::size_t kept = 0;
    std::size_t keptSorted = 0;
    for (std::size_t i = 0; i < order.size(); ++i) {
        const char* const entry = entries.Data() + order[i];
        const std::uint64_t size = IndexEntrySize(Word(entry));
        if ((Word(entry) & deletedMark) == 0) {
            order[kept++] = static_cast<std::uint32_t>(out - packed.Data());
            keptSorted += i < sorted ? 1 : 0;
            out = std::copy_n(entry, size, out);
        }
    }
    order.resize(kept);
    sorted = keptSorted;
    entries = std::move(packed);
    used = static_cast<std::uint32_t>(bytes);
    if (sorted == kept) {
        slots.clear();
    } else {
        FillSlots();  // as many as before, since only they find what is not sorted
    }
}

}  // namespace vantry_internal
