#include "tools/hpk/ConfinedFolder.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace vantry_tools {

int ConfinedFolder::Enter(std::string_view path) {
    std::string_view rest = path;
    if (current && path.substr(0, currentPath.size()) == currentPath) {
        rest.remove_prefix(currentPath.size());
    } else {
        current = FileDescriptor();
        currentPath.clear();
    }
    while (!rest.empty()) {
        const std::string_view name = rest.substr(0, rest.find('/'));
        current = Step(current ? current.Get() : root.Get(), std::string(name));
        rest.remove_prefix(name.size() + 1);
        currentPath.append(name).append("/");
    }
    return current ? current.Get() : root.Get();
}

FileDescriptor ConfinedFolder::Step(int folder, const std::string& name) const {
    constexpr int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW;
    FileDescriptor next(openat(folder, name.c_str(), flags));
    if (!next && errno == ENOENT && missing == Missing::create &&
        (mkdirat(folder, name.c_str(), 0777) == 0 || errno == EEXIST)) {
        next = FileDescriptor(openat(folder, name.c_str(), flags));
    }
    if (next) {
        return next;
    }
    const int error = errno;
    struct stat status;
    if (fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        S_ISLNK(status.st_mode)) {
        throw RefusedPath("a link is in the way: " + name, ELOOP);
    }
    throw RefusedPath(std::strerror(error), error);
}

}  // namespace vantry_tools
