#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace vantry_internal {

/// A part of a file, mapped for reading for as long as the object lives.
class FileMapping {
public:
    /// Maps nothing.
    FileMapping() = default;
    /// Maps a part of an open file, which may be closed afterwards.
    /// @param offset in bytes; it need not be that of a page
    /// @param length in bytes
    /// @param shown the path for the error text
    /// @throws SystemError "cannot map SHOWN: ..."
    FileMapping(int file, std::uint64_t offset, std::size_t length, const std::string& shown);
    ~FileMapping();
    FileMapping(const FileMapping&) = delete;
    FileMapping& operator=(const FileMapping&) = delete;
    FileMapping(FileMapping&& other) noexcept;
    FileMapping& operator=(FileMapping&& other) noexcept;

    std::string_view Bytes() const { return bytes; }

private:
    void* start = nullptr;  // of the page that the bytes begin in
    std::size_t size = 0;
    std::string_view bytes;
};

}  // namespace vantry_internal
