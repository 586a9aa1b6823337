#pragma once

#include <string>
#include <vector>

#include "hpack/Hpack.h"

namespace vantry_tools {

/// Stores items in a package that may be damaged. An item is written over its former version only
/// if that is sound and no other item or the index begins in it: a length with one wrong bit must
/// not cost its neighbors. Everything else is appended. (The library trusts the index.)
class ItemStore {
public:
    /// @param path of the package before the change, for error texts and to look at its records
    /// @param openPackage the copy that is changed; must outlive the object
    ItemStore(const std::string& path, Hpack& openPackage);

    /// Adds an item or replaces it.
    void Put(const qtString& key, const SegBuf& body);
    /// Moves an item to another key, whose former item is lost.
    void Move(const qtString& oldKey, const qtString& newKey);

private:
    bool IsSound(const qtString& key, unsigned int& bodyLength);

    Hpack& package;
    std::vector<unsigned int> begins;  // of records and the index, ascending
    unsigned int formerSize = 0;
};

}  // namespace vantry_tools
