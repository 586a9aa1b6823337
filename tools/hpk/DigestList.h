#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/hpk/Digest.h"
#include "tools/hpk/PackageFile.h"

namespace vantry_tools {

// A digest list has a line for each item, as sha256sum and b2sum write them:
//
//     DIGEST, two spaces, KEY                      in hexadecimal, and the key's bytes as they are
//     \DIGEST, two spaces, KEY with escapes        \n, \r, \0 and \\, where the key has such bytes
//
// A list that is stored in its package is framed by two comment lines, either of which identifies
// it: a changed byte in one of them does not hide the list.

/// What a package and a digest list disagree about.
struct DigestFault {
    enum Kind { differs, missing, unlisted, badList };

    /// A name for programs.
    static const char* Name(Kind kind);
    static const char* Text(Kind kind);

    Kind kind;
    qtString key;  ///< the item; of `badList` that of the list
};

/// Prints a line for each fault.
void PrintFaults(const std::string& package, const std::vector<DigestFault>& faults);

/// The line of an item.
std::string DigestLine(const qtString& key, std::string_view digest);

/// The list of these items. @param step is called before each
std::string MakeDigestList(PackageReader& package, const std::vector<qtString>& keys,
                           DigestKind kind, const std::function<void()>& step);

/// Compares the items with a list that others may have made: in any order, by either kind.
/// @param keys of the items to compare
/// @param shown names the list in errors
/// @throws ToolFailure if a line is none of a list, or a key has two
std::vector<DigestFault> CompareWithList(PackageReader& package, const std::vector<qtString>& keys,
                                         std::string_view list, const std::string& shown,
                                         const std::function<void()>& step);

/// The body of an item with this key that holds the list of all others.
std::string MakeStoredList(PackageReader& package, const qtString& key, DigestKind kind,
                           const std::function<void()>& step);

/// Compares the package with each list that is stored in it.
std::vector<DigestFault> CompareWithStoredLists(PackageReader& package,
                                                const std::function<void()>& step);

}  // namespace vantry_tools
