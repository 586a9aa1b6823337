#include "system/FileRights.h"

#include <endian.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

namespace vantry_internal {

namespace {

// An access control list as the kernel stores it: a version, then entries of a tag, the rights and
// a user or group. All numbers are little-endian.
class AccessList {
public:
    static constexpr const char* access = "system.posix_acl_access";
    static constexpr const char* inherited = "system.posix_acl_default";
    enum Tag : std::uint16_t { owner = 0x01, group = 0x04, mask = 0x10, others = 0x20 };

    // Of a file opened in whatever way, hence by its name in /proc.
    AccessList(int file, const char* attribute) {
        const std::string name = "/proc/self/fd/" + std::to_string(file);
        ssize_t length;
        do {
            length = getxattr(name.c_str(), attribute, nullptr, 0);
            if (length <= 0) {
                break;
            }
            bytes.resize(static_cast<std::size_t>(length));
            length = getxattr(name.c_str(), attribute, bytes.data(), bytes.size());
        } while (length < 0 && errno == ERANGE);  // it has grown meanwhile
        error =
            length < 0 && errno != ENODATA && errno != EOPNOTSUPP && errno != ENOSYS ? errno : 0;
        bytes.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
    }

    int Error() const { return error; }
    bool IsEmpty() const { return bytes.size() < headSize + entrySize; }

    // The rights of the first entry with the tag; 7 where there is none.
    unsigned Rights(Tag tag) const {
        const std::size_t at = Find(tag);
        return at == std::string::npos ? 7 : Number(at + 2);
    }
    void Narrow(Tag tag, unsigned rights) {
        const std::size_t at = Find(tag);
        if (at != std::string::npos) {
            const std::uint16_t stored = htole16(static_cast<std::uint16_t>(Rights(tag) & rights));
            std::memcpy(&bytes[at + 2], &stored, sizeof stored);
        }
    }
    // What everybody in the owning group or in an entry for one user or group may do.
    unsigned CommonRights() const {
        unsigned rights = Rights(mask);
        for (std::size_t at = headSize; at + entrySize <= bytes.size(); at += entrySize) {
            const unsigned tag = Number(at);
            rights &= tag == owner || tag == others ? 7 : Number(at + 2);
        }
        return rights;
    }
    bool Has(Tag tag) const { return Find(tag) != std::string::npos; }
    bool Store(int file) const {
        return fsetxattr(file, access, bytes.data(), bytes.size(), 0) == 0;
    }

private:
    static constexpr std::size_t headSize = 4;
    static constexpr std::size_t entrySize = 8;

    unsigned Number(std::size_t at) const {
        std::uint16_t number;
        std::memcpy(&number, &bytes[at], sizeof number);
        return le16toh(number);
    }
    std::size_t Find(Tag tag) const {
        for (std::size_t at = headSize; at + entrySize <= bytes.size(); at += entrySize) {
            if (Number(at) == tag) {
                return at;
            }
        }
        return std::string::npos;
    }

    std::string bytes;
    int error = 0;
};

}  // namespace

static int SetMode(int file, mode_t mode) {
    // A list that the file has inherited from its folder would grant more than the mode says.
    if (fremovexattr(file, AccessList::access) != 0 && errno != ENODATA && errno != EOPNOTSUPP &&
        errno != ENOSYS) {
        return errno;
    }
    return fchmod(file, mode) == 0 ? 0 : errno;
}

int CopyRights(int file, int former) {
    struct stat status;
    if (fstat(former, &status) != 0) {
        return errno;
    }
    AccessList list(former, AccessList::access);
    if (list.Error() != 0) {
        return list.Error();
    }
    // Changing the owner clears mode bits, so it comes before the mode.
    const bool ownerKept = fchown(file, status.st_uid, status.st_gid) == 0;
    const bool groupKept = ownerKept || fchown(file, static_cast<uid_t>(-1), status.st_gid) == 0;
    mode_t mode = status.st_mode & (ownerKept ? 07777 : 0777);
    unsigned group = mode >> 3 & 7;
    if (!list.IsEmpty()) {
        if (!groupKept) {
            list.Narrow(AccessList::others, list.Rights(AccessList::group));
            list.Narrow(AccessList::group, 0);
        }
        if (list.Store(file)) {
            // The mode's group bits are the list's mask, which stays.
            return (mode & 07000) == 0 || fchmod(file, mode) == 0 ? 0 : errno;
        }
        group = list.CommonRights();
    }
    // Users of the group, or of an entry of the list, now count as others.
    if (!groupKept || !list.IsEmpty()) {
        mode &= ~mode_t{077} | static_cast<mode_t>((groupKept ? group << 3 : 0) | group);
    }
    return SetMode(file, mode);
}

// umask() itself would change it for a moment, for all threads.
static mode_t Umask() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.compare(0, 6, "Umask:") == 0) {
            return static_cast<mode_t>(std::strtoul(line.c_str() + 6, nullptr, 8));
        }
    }
    return 077;
}

int GrantRights(int file, int folder, mode_t mode) {
    AccessList list(folder, AccessList::inherited);
    if (list.Error() != 0) {
        return list.Error();
    }
    if (list.IsEmpty()) {
        return SetMode(file, mode & ~Umask());
    }
    list.Narrow(AccessList::owner, mode >> 6 & 7);
    list.Narrow(list.Has(AccessList::mask) ? AccessList::mask : AccessList::group, mode >> 3 & 7);
    list.Narrow(AccessList::others, mode & 7);
    return list.Store(file) ? 0 : errno;
}

}  // namespace vantry_internal
