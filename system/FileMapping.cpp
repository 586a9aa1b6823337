#include "system/FileMapping.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "system/SystemError.h"

namespace vantry_internal {

FileMapping::FileMapping(int file, std::uint64_t offset, std::size_t length,
                         const std::string& shown) {
    if (length == 0) {
        return;
    }
    const std::uint64_t inPage = offset % static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
    size = static_cast<std::size_t>(inPage) + length;
    if (size < length) {
        size = 0;
        throw SystemError(ENOMEM, "cannot map", shown);
    }
    start = mmap(nullptr, size, PROT_READ, MAP_SHARED, file, static_cast<off_t>(offset - inPage));
    if (start == MAP_FAILED) {
        throw SystemError(errno, "cannot map", shown);
    }
    bytes = {static_cast<const char*>(start) + inPage, length};
}

FileMapping::~FileMapping() {
    if (size != 0) {
        munmap(start, size);
    }
}

FileMapping::FileMapping(FileMapping&& other) noexcept
    : start(other.start),
      size(std::exchange(other.size, 0)),
      bytes(std::exchange(other.bytes, {})) {}

FileMapping& FileMapping::operator=(FileMapping&& other) noexcept {
    std::swap(start, other.start);
    std::swap(size, other.size);
    std::swap(bytes, other.bytes);
    return *this;
}

}  // namespace vantry_internal
