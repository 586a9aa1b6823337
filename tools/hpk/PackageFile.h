#pragma once

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "hpack/Hfile32.h"
#include "hpack/Hpack.h"
#include "tools/common/Failures.h"
#include "tools/common/FileDescriptor.h"
#include "tools/common/LongWork.h"

namespace vantry_tools {

/// What a package or its stream has thrown, in words for people.
class PackageFailure : public ToolFailure {
public:
    using ToolFailure::ToolFailure;
};

/// @param shown the package as the user knows it, whatever the file that was really open
PackageFailure Explain(const qtX<HioErr>& error, const std::string& shown, int systemError);
PackageFailure Explain(const qtX<Hpack>& error, const std::string& shown);
PackageFailure NoSuchItem(const std::string& shown, const qtString& key);

/// The reason why something fits into no package.
std::string TooLarge();

/// Calls the library. @throws PackageFailure that names `shown` for what the library throws
template <class Work>
auto OnPackage(const std::string& shown, Work work) {
    errno = 0;
    try {
        return work();
    } catch (const qtX<HioErr>& error) {
        throw Explain(error, shown, errno);
    } catch (const qtX<Hpack>& error) {
        throw Explain(error, shown);
    }
}

/// A package that is only read, of which the bodies never have to be in memory whole.
class PackageReader {
public:
    /// Where an item's record is, and the length of its body. An item that is not there has 0, 0.
    struct Place {
        unsigned int offset = 0;
        unsigned int size = 0;
    };

    explicit PackageReader(const std::string& path);

    std::vector<qtString> Keys() const;
    Place Find(const qtString& key);
    /// A part of a body, as much of it as there is.
    struct Part {
        std::uint64_t offset = 0;
        std::uint64_t length = std::numeric_limits<std::uint64_t>::max();

        std::uint32_t StartIn(std::uint32_t size) const {
            return static_cast<std::uint32_t>(std::min<std::uint64_t>(offset, size));
        }
        std::uint32_t LengthIn(std::uint32_t size) const {
            return static_cast<std::uint32_t>(
                std::min<std::uint64_t>(length, size - StartIn(size)));
        }
    };
    /// Hands the body over piece by piece. An item that is damaged fails before the first.
    void Read(const qtString& key, const std::function<void(const char*, std::size_t)>& take) {
        Read(key, Part(), take);
    }
    void Read(const qtString& key, Part part,
              const std::function<void(const char*, std::size_t)>& take);

    /// The offset of the index by the header; 0 if there is none.
    std::uint32_t IndexOffset();
    /// Without an index a package looks empty although it may hold records.
    /// @throws PackageFailure if there is no index
    void RequireIndex();
    /// Items of one record multiply its bytes: a small file could fill the disk.
    /// @throws PackageFailure if records overlap each other or the index; damaged ones do not count
    void RequireNoOverlap();
    std::uint32_t Size();
    Hpack& Package() { return package; }

private:
    const std::string path;
    Hfile32* stream;  // the package's
    Hpack package;
    std::vector<char> piece;
};

/// An existing package, locked against other changes by this tool for as long as the object lives.
class LockedPackage {
public:
    /// Waits for whoever changes the package now.
    explicit LockedPackage(const std::string& path);

    const std::string& Path() const { return path; }
    int Descriptor() const { return file.Get(); }
    std::vector<qtString> Keys() const { return PackageReader(path).Keys(); }
    void CopyTo(int descriptor, CTProgress& progress) const;

private:
    const std::string path;
    FileDescriptor file;
};

using PackageChange = std::function<void(Hpack&, CTProgress&)>;

/// Changes an existing package: `change` works on a copy beside it, which then takes its place. So
/// whatever fails, and whenever the tool is stopped or killed, the package is as it was or as it is
/// to be. Where the file system can share the bytes of the copy, they are not even read.
void ChangePackage(const LockedPackage& package, bool quiet, const PackageChange& change);

}  // namespace vantry_tools
