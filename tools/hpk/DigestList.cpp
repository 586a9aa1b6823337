#include "tools/hpk/DigestList.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <optional>

#include "tools/common/KeyText.h"
#include "tools/common/PrintableText.h"

namespace vantry_tools {

using namespace std::string_view_literals;

static constexpr std::string_view escaped = "\n\r\\\0"sv;
static constexpr std::string_view escapes = "nr\\0";

const char* DigestFault::Name(Kind kind) {
    static constexpr const char* names[] = {"digest", "digest-missing", "digest-unlisted",
                                            "digest-list"};
    return names[kind];
}

const char* DigestFault::Text(Kind kind) {
    switch (kind) {
        case differs:
            return "the body does not have the listed digest";
        case missing:
            return "listed, but not in the package";
        case unlisted:
            return "not in the list of digests";
        default:
            return "the list of digests is damaged";
    }
}

void PrintFaults(const std::string& package, const std::vector<DigestFault>& faults) {
    for (const DigestFault& fault : faults) {
        std::printf("%s: %s: %s\n", PrintableText(package).c_str(), QuoteKey(fault.key).c_str(),
                    DigestFault::Text(fault.kind));
    }
}

std::string DigestLine(const qtString& key, std::string_view digest) {
    std::string name;
    for (const char byte : key) {
        if (const std::size_t which = escaped.find(byte); which != std::string_view::npos) {
            name += '\\';
            name += escapes[which];
        } else {
            name += byte;
        }
    }
    return (name == key ? "" : "\\") + Hex(digest) + "  " + name + '\n';
}

// @return false if an escape is none
static bool Unescape(std::string_view name, qtString& key) {
    key.clear();
    for (std::size_t at = 0; at < name.size(); ++at) {
        if (name[at] != '\\') {
            key += name[at];
            continue;
        }
        const std::size_t which = ++at < name.size() ? escapes.find(name[at]) : escapes.npos;
        if (which == escapes.npos) {
            return false;
        }
        key += escaped[which];
    }
    return true;
}

// @return false if the line, which is without its end, is none of a list
static bool ParseLine(std::string_view line, qtString& key, std::string& digest) {
    const bool hasEscapes = line.substr(0, 1) == "\\";
    line.remove_prefix(hasEscapes ? 1 : 0);
    const std::size_t end = line.find(' ');
    if (end == std::string_view::npos || line.size() < end + 2 ||
        (line[end + 1] != ' ' && line[end + 1] != '*') || !FromHex(line.substr(0, end), digest) ||
        (digest.size() != DigestSize(DigestKind::sha256) &&
         digest.size() != DigestSize(DigestKind::blake2b))) {
        return false;
    }
    const std::string_view name = line.substr(end + 2);
    key = std::string(name);
    return !hasEscapes || Unescape(name, key);
}

static std::string BodyDigest(PackageReader& package, const qtString& key, DigestKind kind) {
    Digest digest(kind);
    package.Read(key, [&digest](const char* data, std::size_t count) {
        digest.Add({data, count});
    });
    return digest.Finish();
}

std::string MakeDigestList(PackageReader& package, const std::vector<qtString>& keys,
                           DigestKind kind, const std::function<void()>& step) {
    std::string list;
    for (const qtString& key : keys) {
        step();
        list += DigestLine(key, BodyDigest(package, key, kind));
    }
    return list;
}

using Digests = std::map<qtString, std::string>;

static Digests Parse(std::string_view list, const std::string& shown) {
    Digests digests;
    qtString key;
    std::string digest;
    for (std::size_t number = 1; !list.empty(); ++number) {
        const std::size_t end = std::min(list.find('\n'), list.size());
        const std::string_view line = list.substr(0, end);
        list.remove_prefix(std::min(end + 1, list.size()));
        if (line.substr(0, 1) == "#") {
            continue;
        }
        if (!ParseLine(line, key, digest)) {
            throw ToolFailure(shown + ": line " + std::to_string(number) +
                              " has no digest and key");
        }
        if (!digests.emplace(key, digest).second) {
            throw ToolFailure(shown + ": two digests for the key " + QuoteKey(key));
        }
    }
    return digests;
}

static std::vector<DigestFault> Compare(PackageReader& package, const std::vector<qtString>& keys,
                                        Digests digests, const std::function<void()>& step) {
    std::vector<DigestFault> faults;
    for (const qtString& key : keys) {
        step();
        const auto found = digests.find(key);
        if (found == digests.end()) {
            faults.push_back({DigestFault::unlisted, key});
            continue;
        }
        const DigestKind kind = found->second.size() == DigestSize(DigestKind::sha256)
                                    ? DigestKind::sha256
                                    : DigestKind::blake2b;
        if (BodyDigest(package, key, kind) != found->second) {
            faults.push_back({DigestFault::differs, key});
        }
        digests.erase(found);
    }
    for (const auto& [key, digest] : digests) {
        faults.push_back({DigestFault::missing, key});
    }
    return faults;
}

std::vector<DigestFault> CompareWithList(PackageReader& package, const std::vector<qtString>& keys,
                                         std::string_view list, const std::string& shown,
                                         const std::function<void()>& step) {
    return Compare(package, keys, Parse(list, shown), step);
}

// The key is in both lines: a list that was copied from another package, or moved, is just a body.
static std::string FirstLine(const qtString& key, DigestKind kind) {
    return std::string("# hpk digests: ") + DigestName(kind) + " of all items but " +
           QuoteKey(key) + '\n';
}

static std::string LastLine(const qtString& key, DigestKind kind) {
    return std::string("# hpk digests end: ") + DigestName(kind) + " of all items but " +
           QuoteKey(key) + '\n';
}

static std::vector<qtString> AllBut(const qtString& key, std::vector<qtString> keys) {
    keys.erase(std::remove(keys.begin(), keys.end(), key), keys.end());
    return keys;
}

std::string MakeStoredList(PackageReader& package, const qtString& key, DigestKind kind,
                           const std::function<void()>& step) {
    return FirstLine(key, kind) + MakeDigestList(package, AllBut(key, package.Keys()), kind, step) +
           LastLine(key, kind);
}

static std::string ReadPart(PackageReader& package, const qtString& key, PackageReader::Part part) {
    std::string bytes;
    package.Read(key, part,
                 [&bytes](const char* data, std::size_t count) { bytes.append(data, count); });
    return bytes;
}

// The kind of the list that an item holds; none: it is no list.
static std::optional<DigestKind> KindOfStoredList(PackageReader& package, const qtString& key) {
    const std::size_t size = package.Find(key).size;
    for (const DigestKind kind : {DigestKind::sha256, DigestKind::blake2b}) {
        const std::string first = FirstLine(key, kind);
        const std::string last = LastLine(key, kind);
        if (size >= first.size() + last.size() &&
            (ReadPart(package, key, {0, first.size()}) == first ||
             ReadPart(package, key, {size - last.size(), last.size()}) == last)) {
            return kind;
        }
    }
    return std::nullopt;
}

// What MakeStoredList() would have made with these digests.
static std::string Framed(const Digests& digests, const qtString& listKey, DigestKind kind) {
    std::string list = FirstLine(listKey, kind);
    for (const auto& [key, digest] : digests) {
        list += DigestLine(key, digest);
    }
    return list + LastLine(listKey, kind);
}

// A list without a wrong digest must still be as it was made.
static std::vector<DigestFault> CompareWithStoredList(PackageReader& package,
                                                      const std::vector<qtString>& keys,
                                                      const qtString& listKey, DigestKind kind,
                                                      const std::function<void()>& step) {
    const std::string list = ReadPart(package, listKey, {});
    Digests digests;
    try {
        digests = Parse(list, QuoteKey(listKey));
    } catch (const ToolFailure&) {
        return {{DigestFault::badList, listKey}};
    }
    const bool isAsMade = Framed(digests, listKey, kind) == list;
    std::vector<DigestFault> faults =
        Compare(package, AllBut(listKey, keys), std::move(digests), step);
    if (faults.empty() && !isAsMade) {
        faults.push_back({DigestFault::badList, listKey});
    }
    return faults;
}

std::vector<DigestFault> CompareWithStoredLists(PackageReader& package,
                                                const std::function<void()>& step) {
    const std::vector<qtString> keys = package.Keys();
    std::vector<DigestFault> faults;
    for (const qtString& key : keys) {
        if (const auto kind = KindOfStoredList(package, key)) {
            const auto found = CompareWithStoredList(package, keys, key, *kind, step);
            faults.insert(faults.end(), found.begin(), found.end());
        }
    }
    return faults;
}

}  // namespace vantry_tools
