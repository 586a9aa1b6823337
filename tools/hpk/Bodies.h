#pragma once

#include <string>
#include <vector>

#include "tools/common/LongWork.h"
#include "tools/hpk/ItemStore.h"
#include "tools/hpk/PackageFile.h"
#include "tools/hpk/Sources.h"

namespace vantry_tools {

/// Reads an item's body in pieces. @param package must outlive the reader
/// @throws PackageFailure that names `shown`; the reader, too
PieceReader ReadItem(PackageReader& package, const std::string& shown, const qtString& key);

/// Whether two bodies have the same bytes. Reads until they differ.
bool SameBytes(const PieceReader& left, const PieceReader& right);

/// What a key stands for in a package and in a folder.
struct Difference {
    enum Kind : char { onlyItem = '-', onlyFile = '+', otherBody = '~' };

    Kind kind;
    qtString key;
    const Source* file;  ///< of `onlyFile` and `otherBody`
};

/// Compares items with files, in key order. Equal ones are left out.
/// @param sources must outlive what is returned
std::vector<Difference> CompareWithFiles(PackageReader& package, const std::string& shown,
                                         Sources& sources, CTProgress& progress);

}  // namespace vantry_tools
