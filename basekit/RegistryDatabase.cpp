#include "basekit/RegistryDatabase.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <system_error>
#include <utility>

namespace vantry_internal {

// Errors of our own; Berkeley DB's begin below -30000, and the system's are positive.
static constexpr int notADatabase = -1;
static constexpr int damagedFirstPage = -2;

namespace {

// The first page of a hash database, whose fields are in the byte order of the machine that made
// it:
//
//      offset  field                           offset  field
//           8  the page's own number, 0            48  options, such as sorted duplicates
//          12  magic                               72  the last bucket's number
//          16  version                             76  mask for it and the buckets below
//          20  page size                           80  mask for the buckets below the last doubling
//          24  encryption                          96  32 numbers, one for each doubling: page of a
//          25  kind of page                            bucket, less the bucket's number
//          26  1: pages have checksums            492  checksum
//          28  first free page, 0: none           512  end
//          32  last page
//          36  number of partitions
class FirstPage {
public:
    static constexpr std::size_t size = 512;

    int Read(int file) {
        const ssize_t count = pread(file, bytes, size, 0);
        if (count < 0) {
            return errno;
        }
        isWhole = count == ssize_t{size};
        isSwapped = isWhole && Word(12) != magic;
        return 0;
    }

    int Check(std::uint64_t fileSize) const {
        if (!isWhole || Word(12) != magic) {
            return notADatabase;
        }
        return IsSound(fileSize) ? 0 : damagedFirstPage;
    }

private:
    static constexpr std::uint32_t magic = 0x061561;

    std::uint32_t Word(std::size_t at) const {
        std::uint32_t word;
        std::memcpy(&word, bytes + at, sizeof word);
        return isSwapped ? __builtin_bswap32(word) : word;
    }

    bool IsSound(std::uint64_t fileSize) const {
        constexpr std::uint8_t hashPage = 8;
        const std::uint32_t pageSize = Word(20);
        const bool isPageSize =
            pageSize >= 512 && pageSize <= 65536 && (pageSize & (pageSize - 1)) == 0;
        const bool isKnown = Word(8) == 0 && Word(16) >= 7 && Word(16) <= 9 && bytes[24] == 0 &&
                             bytes[25] == hashPage && bytes[26] <= 1 && Word(36) == 0 &&
                             Word(48) == 0;
        // Without the flag there is no checksum: it is the flag that was lost.
        const bool hasFlagLost = bytes[26] == 0 && Word(492) != 0;
        // Where a file was cut off, Berkeley DB would find empty pages.
        return isKnown && isPageSize && !hasFlagLost && Word(32) < fileSize / pageSize &&
               Word(28) <= Word(32) && HasBuckets(Word(32));
    }

    bool HasBuckets(std::uint32_t lastPage) const {
        const std::uint64_t lastBucket = Word(72);
        const std::uint64_t mask = Word(76);
        if ((mask & (mask + 1)) != 0 || Word(80) != mask >> 1 || lastBucket > mask ||
            lastBucket < mask >> 1) {
            return false;
        }
        // Doubling n added the buckets from 2^(n-1) on; the first, only bucket 0. The pages of
        // later ones are either unknown, 0, or reserved.
        for (std::size_t doubling = 0; doubling < 32; ++doubling) {
            const std::uint64_t first = (std::uint64_t{1} << doubling) >> 1;
            const std::uint64_t last = (std::uint64_t{1} << doubling) - 1;
            const std::uint64_t before = Word(96 + 4 * doubling);
            const bool isUsed = first <= lastBucket;
            const std::uint64_t lastUsed = isUsed ? std::min(last, lastBucket) : last;
            if (before == 0 ? isUsed : lastUsed + before > lastPage) {
                return false;
            }
        }
        return true;
    }

    unsigned char bytes[size]{};
    bool isWhole = false;
    bool isSwapped = false;
};

}  // namespace

// The order in which Berkeley DB keeps the keys of a page: of two that begin alike the longer one
// comes first, but of two that are too long for a page the shorter one. By itself it has no fixed
// order for one of either kind, and so misses keys that a long one begins with.
static int CompareKeys(DB* database, const DBT* left, const DBT* right) {
    const u_int32_t shorter = std::min(left->size, right->size);
    const int order = std::memcmp(left->data, right->data, shorter);
    if (order != 0 || left->size == right->size) {
        return order;
    }
    u_int32_t pageSize = 0;
    database->get_pagesize(database, &pageSize);
    const bool bothTooLong = shorter > pageSize / 4;
    return (left->size == shorter) == bothTooLong ? -1 : 1;
}

int RegistryDatabase::OpenFile(const std::string& path) {
    return Open(OpenRegular(path, O_RDONLY), path, DB_RDONLY);
}

int RegistryDatabase::OpenCopy(const FileDescriptor& copy, bool create) {
    return Open(copy, "", create ? DB_CREATE : 0);
}

int RegistryDatabase::Open(const FileDescriptor& file, const std::string& path, unsigned flags) {
    if (fstat(file.Get(), &status) != 0) {
        return errno;
    }
    if ((flags & DB_CREATE) == 0) {
        FirstPage page;
        int error = page.Read(file.Get());
        if (error == 0) {
            error = page.Check(static_cast<std::uint64_t>(status.st_size));
        }
        if (error != 0) {
            return error;
        }
    }
    if (const int error = db_create(&database, nullptr, 0)) {
        return error;
    }
    // Otherwise Berkeley DB prints diagnostics to standard error.
    database->set_errcall(database, [](const DB_ENV*, const char*, const char*) {});
    // Nothing here needs temporary files: this saves the search for a folder for them.
    DB_ENV* const environment = database->get_env(database);
    environment->set_tmp_dir(environment, "/tmp");
    database->set_h_compare(database, CompareKeys);
    if ((flags & DB_CREATE) != 0) {
        // Small pages make the checksums, which find damage, nearly free.
        database->set_pagesize(database, 1024);
        database->set_h_ffactor(database, 20);
        database->set_flags(database, DB_CHKSUM);
    }
    // By this name it is the very file that was checked; without /proc, nearly always.
    std::string name = "/proc/self/fd/" + std::to_string(file.Get());
    if (!path.empty() && access(name.c_str(), F_OK) != 0) {
        name = path;
    }
    return database->open(database, nullptr, name.c_str(), nullptr, DB_HASH, flags, 0600);
}

int RegistryDatabase::Close(unsigned flags) {
    DB* const closing = std::exchange(database, nullptr);
    if (closing == nullptr) {
        return 0;
    }
    // After it has met damage it would refuse to close, and leak.
    DB_ENV* const environment = closing->get_env(closing);
    environment->set_flags(environment, DB_NOPANIC, 1);
    return closing->close(closing, flags);
}

std::string RegistryDatabase::Reason(int error) {
    if (error == notADatabase) {
        return "not a registry database";
    }
    if (error == damagedFirstPage) {
        return "the registry database is damaged (in its first page)";
    }
    if (error > 0 && error != EINVAL) {
        return std::generic_category().message(error);
    }
    return "the registry database is damaged (" + std::string(db_strerror(error)) + ")";
}

}  // namespace vantry_internal
