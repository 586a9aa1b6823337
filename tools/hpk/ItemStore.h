#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "hpack/Hpack.h"

namespace vantry_tools {

/// Reads the next bytes of a body, at most `count`. @return how many; 0 at its end
using PieceReader = std::function<std::size_t(char* data, std::size_t count)>;

/// Stores items, of any size in constant memory, in a package that may be damaged. An item is
/// written over its former version only if that is sound and no other item or the index begins in
/// it: a length with one wrong bit must not cost its neighbors. Everything else is appended. (The
/// library trusts the index.)
class ItemStore {
public:
    /// Stores in a package that is being created. It must outlive the object.
    explicit ItemStore(Hpack& newPackage) : package(newPackage) {}
    /// Stores in a copy of the package at `path`. It must outlive the object.
    ItemStore(const std::string& path, Hpack& copy);

    /// Adds an item or replaces it.
    void Put(const qtString& key, const PieceReader& read);
    /// Adds an item with the body of another, or replaces one.
    void Copy(const qtString& key, const qtString& newKey);
    /// Moves an item to another key, whose former item is lost.
    void Move(const qtString& oldKey, const qtString& newKey);

private:
    bool ReadSmall(const PieceReader& read);
    bool IsSound(const qtString& key, unsigned int& bodyLength);
    void PutSmall(const qtString& key);

    Hpack& package;
    SegBuf body;
    std::vector<unsigned int> begins;  // of records and the index, ascending
    unsigned int headerSize = 0;
    std::uint64_t formerSize = 0;
};

}  // namespace vantry_tools
