#include "hpack/SortedEntries.h"

#include <algorithm>

using namespace HpackFormat;

namespace vantry_internal {

// Most neighbors differ within eight bytes, which are compared as one number.
static bool Ascend(std::string_view key, std::string_view next) {
    unsigned long long former = 0;
    unsigned long long latter = 0;
    if (std::min(key.size(), next.size()) >= sizeof former) {
        qtUnpackUssDiet(former, key.data());
        qtUnpackUssDiet(latter, next.data());
    }
    return former != latter ? former < latter : key < next;
}

bool SortedEntries::Load(std::string_view block, std::uint32_t expected) {
    // Before anything is allocated for that many.
    if (expected > block.size() / entryOverhead) {
        return false;
    }
    std::vector<std::uint32_t> newMarks;
    newMarks.reserve(expected / stride + 1);
    std::string_view last;
    bool ascending = true;
    std::size_t at = 0;
    for (std::uint32_t number = 0; number < expected; ++number) {
        HpackIndexEntry entry{};
        if (!DecodeIndexEntry(block.data() + at, block.size() - at, entry)) {
            return false;
        }
        if (number % stride == 0) {
            newMarks.push_back(static_cast<std::uint32_t>(at));
        }
        ascending = ascending && (number == 0 || Ascend(last, entry.key));
        at += static_cast<std::size_t>(IndexEntrySize(entry.key.size()));
        last = entry.key;
    }
    entries = block.data();
    size = static_cast<std::uint32_t>(at);
    count = expected;
    marks = std::move(newMarks);
    if (!ascending) {
        Sort();
    }
    return true;
}

// The bytes of a mapped file may change at any time: sorting them, and adding up their lengths,
// needs a copy that does not.
void SortedEntries::Sort() {
    std::unique_ptr<char[]> copy(new char[size]);
    std::copy_n(entries, size, copy.get());
    entries = copy.get();
    sorted = std::move(copy);
    std::vector<Position> order;
    order.reserve(count);
    for (Position position = Begin(); position.number != count; position = Next(position)) {
        order.push_back(position);
    }
    std::sort(order.begin(), order.end(), [this](Position a, Position b) {
        const int compared = At(a).key.compare(At(b).key);
        return compared != 0 ? compared < 0 : a.number < b.number;
    });
    std::unique_ptr<char[]> inOrder(new char[size]);
    std::vector<std::uint32_t> newMarks;
    std::uint32_t copied = 0;
    std::uint32_t used = 0;
    for (std::size_t i = 0; i < order.size(); ++i) {
        const std::string_view key = At(order[i]).key;
        if (i + 1 < order.size() && At(order[i + 1]).key == key) {
            continue;
        }
        if (copied++ % stride == 0) {
            newMarks.push_back(used);
        }
        const auto length = static_cast<std::uint32_t>(IndexEntrySize(key.size()));
        std::copy_n(entries + order[i].at, length, inOrder.get() + used);
        used += length;
    }
    sorted = std::move(inOrder);
    marks = std::move(newMarks);
    entries = sorted.get();
    size = used;
    count = copied;
}

// Loading has found every entry intact, but the bytes may have changed since.
HpackIndexEntry SortedEntries::At(Position position) const {
    HpackIndexEntry entry{};
    DecodeIndexEntry(entries + position.at, size - position.at, entry);
    return entry;
}

SortedEntries::Position SortedEntries::Next(Position position) const {
    const auto length = static_cast<std::uint32_t>(IndexEntrySize(At(position).key.size()));
    const Position next{position.at + length, position.number + 1};
    return size - next.at < entryOverhead ? End() : next;
}

SortedEntries::Position SortedEntries::Previous(Position position) const {
    Position previous = Marked((position.number - 1) / stride);
    for (Position next = Next(previous); next.number < position.number; next = Next(next)) {
        previous = next;
    }
    return previous;
}

}  // namespace vantry_internal
