#pragma once

#include <cstdint>
#include <ctime>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tools/common/LongWork.h"
#include "tools/common/System.h"

struct archive;
struct archive_entry;

namespace vantry_tools {

// Archives of other programs, by libarchive. Names are bytes, as in packages.

/// Makes UTF-8 the encoding of this thread's text: libarchive converts names to the locale's.
class Utf8Locale {
public:
    Utf8Locale();
    ~Utf8Locale();
    Utf8Locale(const Utf8Locale&) = delete;
    Utf8Locale& operator=(const Utf8Locale&) = delete;

private:
    void* own;
    void* former;
};

/// An archive that is read from its first entry to its last: tar, cpio or zip, compressed or not.
class ArchiveReader {
public:
    enum class Kind { file, folder, symbolicLink, hardLink, other };

    struct Entry {
        std::string name;
        Kind kind = Kind::other;
        std::string linkTarget;   ///< of a hard link
        bool hasOwnData = false;  ///< of a hard link: cpio has the data with the last one
        unsigned int permissions = 0;
        bool hasForeignOwner = false;  ///< other than root
        bool hasAttributes = false;    ///< extended attributes or access lists
    };

    /// @param path "-" for standard input
    /// @param progress interrupts waiting for input
    /// @throws ToolFailure if it cannot be read or is no archive
    ArchiveReader(const std::string& path, const CTProgress& progress);
    ~ArchiveReader();
    ArchiveReader(const ArchiveReader&) = delete;
    ArchiveReader& operator=(const ArchiveReader&) = delete;

    const std::string& Shown() const { return shown; }
    /// Moves to the next entry. @return false at the end
    /// @throws ToolFailure for a broken archive
    bool Next(Entry& entry);
    /// Reads some of the entry's data. @return the number of bytes, 0 at the end
    /// @throws ToolFailure for a broken archive
    std::size_t Read(char* data, std::size_t room);

private:
    struct Closer {
        void operator()(archive* opened) const;
    };

    static long ReadPiece(archive* opened, void* self, const void** data);
    [[noreturn]] void Fail();
    void Require(int result);

    const Utf8Locale locale;
    const std::string shown;
    const CTProgress& progress;
    FileDescriptor file;
    bool isSeekable = false;
    std::vector<char> piece;
    std::exception_ptr failure;  // what a callback threw: libarchive is C
    std::unique_ptr<archive, Closer> handle;
};

/// An archive of regular files that is being written.
class ArchiveWriter {
public:
    /// Whether the suffix of a file name is that of an archive that can be written.
    static bool IsKnownName(const std::string& name);

    /// @param name decides the format by its suffix; "-" is tar
    /// @param time the modification time that each file gets
    ArchiveWriter(int descriptor, const std::string& name, std::time_t time);
    ~ArchiveWriter();
    ArchiveWriter(const ArchiveWriter&) = delete;
    ArchiveWriter& operator=(const ArchiveWriter&) = delete;

    /// Whether the format holds a name of these bytes.
    bool Holds(const std::string& name) const;

    /// @throws ToolFailure if writing fails, as the functions below
    void BeginFile(const std::string& path, std::uint32_t size);
    void Write(const char* data, std::size_t count);
    /// Completes the archive.
    void Finish();

private:
    struct Closer {
        void operator()(archive* opened) const;
    };

    void Require(int result);

    const Utf8Locale locale;
    const std::string shown;
    const std::time_t time;
    std::unique_ptr<archive, Closer> handle;
};

}  // namespace vantry_tools
