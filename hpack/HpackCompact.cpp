#include "hpack/HpackCompact.h"

#include <algorithm>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "hpack/PackageCore.h"

using namespace vantry_internal;

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

// Calls step() before each item, then work(key), until that returns false. @return whether it did
// not
template <class Work>
static bool ForEachItem(const std::vector<qtString>& keys, const HpackStep& step, Work work) {
    for (std::size_t i = 0; i < keys.size(); ++i) {
        if (step) {
            step(i, keys.size());
        }
        if (!work(keys[i])) {
            return false;
        }
    }
    return true;
}

namespace {

// Reads the body of one item after the other in pieces.
class BodyReader {
public:
    explicit BodyReader(Hpack& package) : core(PackageCore::Of(package)), piece(pieceSize) {}

    // @return the length of the body. @throws as Hpack::GetItem(), also if the body is cut
    std::uint32_t Find(const qtString& key) {
        record = core.FindBody(key);
        if (!core.Holds(record.End())) {
            core.FailRead();
        }
        done = 0;
        return record.bodyLength;
    }

    // @return the next piece, an empty one at the end
    std::string_view Next() {
        const auto count = std::min<std::uint32_t>(record.bodyLength - done, pieceSize);
        core.SeekTo(record.BodyAt() + done);
        core.Read(piece.data(), count);
        done += count;
        return {piece.data(), count};
    }

private:
    static constexpr std::uint32_t pieceSize = 262144;

    PackageCore& core;
    std::vector<char> piece;
    HpackRecord record;
    std::uint32_t done = 0;
};

}  // namespace

void HpackCompact(Hpack& source, Hpack& target, HpackOrder order, const HpackStep& step) {
    const std::vector<qtString> keys = Keys(source, order);
    SetIdentity(target, Identity(source));
    PackageCore& written = PackageCore::Of(target);
    BodyReader body(source);
    ForEachItem(keys, step, [&](const qtString& key) {
        const std::uint32_t length = body.Find(key);
        written.WriteRecord({key, length, 0}, [&] {
            for (std::uint64_t left = length; left != 0;) {
                const std::string_view piece = body.Next();
                written.Write(piece.data(), piece.size());
                left -= piece.size();
            }
        });
        return true;
    });
}

bool HpackSame(Hpack& left, Hpack& right, const HpackStep& step) {
    const std::vector<qtString> keys = Keys(left, HpackOrder::key);
    if (!(Identity(left) == Identity(right)) || keys != Keys(right, HpackOrder::key)) {
        return false;
    }
    BodyReader a(left);
    BodyReader b(right);
    return ForEachItem(keys, step, [&](const qtString& key) {
        const std::uint32_t length = a.Find(key);
        if (b.Find(key) != length) {
            return false;
        }
        for (std::uint64_t compared = 0; compared < length;) {
            const std::string_view piece = a.Next();
            if (b.Next() != piece) {
                return false;
            }
            compared += piece.size();
        }
        return true;
    });
}
