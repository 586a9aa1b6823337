#pragma once

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "hpack/Hpack.h"
#include "tools/common/Failures.h"
#include "tools/common/System.h"

namespace vantry_tools {

/// An error of a package or its stream, described for users.
class PackageFailure : public ToolFailure {
public:
    using ToolFailure::ToolFailure;
};

/// @param shown the package as the user knows it, whatever file was open
/// @param systemError errno after the failure, or 0
PackageFailure Explain(const qtX<HioErr>& error, const std::string& shown, int systemError);
PackageFailure Explain(const qtX<Hpack>& error, const std::string& shown);
/// @param keys of the package, for a hint
PackageFailure NoSuchItem(const std::string& shown, const qtString& key,
                          const std::vector<qtString>& keys);

/// Returns the reason "no package can have more than N bytes".
std::string TooLarge();

/// Calls the library and translates its errors. @throws PackageFailure that names `shown`
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

/// A package that is open for reading, and its bodies in pieces.
class PackageReader {
public:
    /// The offset of an item's record, and the length of its body; 0 and 0 if it does not exist.
    struct Place {
        unsigned int offset = 0;
        unsigned int size = 0;
    };

    explicit PackageReader(const std::string& path);

    std::vector<qtString> Keys() const;
    Place Find(const qtString& key);
    /// A range of a body, cut to the body's length.
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
    std::uint32_t IndexOffset() const;
    /// Without an index a package looks empty although it may hold records.
    /// @throws PackageFailure if there is no index
    void RequireIndex() const;
    /// Items of one record multiply its bytes: a small file could fill the disk.
    /// @throws PackageFailure if records overlap each other or the index; damaged ones do not count
    void RequireNoOverlap();
    /// The length of the file in bytes.
    std::uint64_t Size() const;
    Hpack& Package() { return package; }

private:
    const std::string path;
    FileDescriptor file;  // for what Hpack does not report
    Hpack package;
    std::vector<char> piece;
};

}  // namespace vantry_tools
