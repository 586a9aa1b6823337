#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vantry_internal {

/// A part of a file, mapped for reading for as long as the object lives.
class FileMapping {
public:
    /// Maps nothing.
    FileMapping() = default;
    /// Maps `length` bytes at `offset`, which need not be that of a page. The descriptor may be
    /// closed afterwards.
    /// @throws std::system_error
    FileMapping(int descriptor, std::uint64_t offset, std::size_t length);
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
