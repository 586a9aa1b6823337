#include "system/Folder.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>

namespace vantry_internal {

std::string FolderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, std::max<std::size_t>(slash, 1));
}

std::string NameIn(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

// The kernel's rule for links, which holds only where the kernel follows them itself.
static bool IsTrusted(const struct stat& link, const std::string& path) {
    struct stat folder;
    if (link.st_uid == geteuid() || stat(FolderOf(path).c_str(), &folder) != 0) {
        return true;
    }
    const bool anybodyMayWrite = (folder.st_mode & S_ISVTX) != 0 && (folder.st_mode & S_IWOTH) != 0;
    return !anybodyMayWrite || link.st_uid == folder.st_uid;
}

std::string FollowLinks(const std::string& path) {
    constexpr int mostLinks = 40;  // the kernel's limit
    std::string target = path;
    struct stat status;
    for (int links = 0; lstat(target.c_str(), &status) == 0 && S_ISLNK(status.st_mode); ++links) {
        if (links == mostLinks) {
            throw SystemError(ELOOP, "cannot follow the link", path);
        }
        if (!IsTrusted(status, target)) {
            throw SystemError(EACCES, "cannot follow the link", path);
        }
        char next[PATH_MAX];
        const ssize_t length = readlink(target.c_str(), next, sizeof next);
        if (length < 0) {
            throw SystemError(errno, "cannot follow the link", path);
        }
        const std::string link(next, static_cast<std::size_t>(length));
        target = link.front() == '/' ? link : FolderOf(target).append("/").append(link);
    }
    return target;
}

FileDescriptor OpenFolder(const std::string& path) {
    FileDescriptor folder(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!folder) {
        throw SystemError(errno, "cannot open", path);
    }
    return folder;
}

void CreateFolders(const std::string& path) {
    if (mkdir(path.c_str(), 0700) != 0) {
        if (errno == EEXIST) {
            return;
        }
        if (errno != ENOENT || path == "/" || path == ".") {
            throw SystemError(errno, "cannot create", path);
        }
        CreateFolders(FolderOf(path));
        if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) {
            throw SystemError(errno, "cannot create", path);
        }
    }
    SyncFolder(OpenFolder(FolderOf(path)).Get(), FolderOf(path));
}

void SyncFolder(int folder, const std::string& shown, int file) {
    const FileDescriptor opened(openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!opened && errno == EACCES && file >= 0) {
        if (syncfs(file) != 0) {
            throw SystemError(errno, "cannot sync", shown);
        }
        return;
    }
    // EINVAL: the file system has nothing to sync a folder with.
    if (!opened || (fsync(opened.Get()) != 0 && errno != EINVAL)) {
        throw SystemError(errno, "cannot sync", shown);
    }
}

bool IsNamed(int file, int folder, const std::string& name, int flags) {
    struct stat opened;
    struct stat named;
    return fstat(file, &opened) == 0 && fstatat(folder, name.c_str(), &named, flags) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

}  // namespace vantry_internal
