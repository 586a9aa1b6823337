#pragma once

#include <cstdint>
#include <memory>

#include "hpack/Hpack.h"

/// Appends an item to a package in pieces, so that its body need neither fit in memory nor have a
/// length that is known beforehand.
///
///     HpackItemWriter item(package, "key");
///     while (const unsigned int count = ReadPiece(data)) {
///         item.Write(data, count);
///     }
///     item.Finish();                           // now the package has the item
///
/// The package is open in mode 'w' or 'u', or in a buffer. It must outlive the writer. Until
/// Finish() it has its former item of that key, which may be read; nothing else may be appended to
/// it, by another writer or in any other way. Memory use does not depend on the body.
///
/// A writer that is destroyed unfinished leaves dead bytes, which carry no mark of a record: no
/// recovery takes them for an item.
///
/// A writer serves the thread that uses its package.
class VANTRY_EXPORT HpackItemWriter {
public:
    /// Reserves the head of a record at the end of the stream.
    /// @throws what Hpack::AddOrUpdate() throws for the stream; the package is then unchanged
    HpackItemWriter(Hpack& package, const qtString& key);
    ~HpackItemWriter();
    HpackItemWriter(const HpackItemWriter&) = delete;
    HpackItemWriter& operator=(const HpackItemWriter&) = delete;

    /// Appends `count` bytes to the body.
    /// @throws qtX<HioErr> what the stream throws. Number 4 with the text of a failed write if the
    ///         body would leave no room for itself and the index below 2^31 - 1 bytes, if something
    ///         else was appended to the package, if the package was closed, and after Finish() or a
    ///         failure. The writer is then given up, and the package keeps its former item.
    void Write(const char* data, unsigned int count);

    /// Completes the record, and enters the key in the index, where it replaces a former item. As
    /// for all changes, Hpack::Close() or Hpack::SaveIndex() makes it permanent.
    /// @throws as Write()
    void Finish();

private:
    struct VANTRY_LOCAL Impl;

    std::unique_ptr<Impl> impl;
};
