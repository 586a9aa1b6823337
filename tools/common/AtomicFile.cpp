#include "tools/common/AtomicFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "tools/common/Failures.h"

namespace vantry_tools {

// "" is the current folder.
static std::string FolderOf(const std::string& path) {
    return path.substr(0, path.rfind('/') + 1);
}

// Where links lead to; a path that names nothing yet stays as it is.
static std::string FollowLinks(const std::string& path) {
    struct stat status;
    if (lstat(path.c_str(), &status) != 0 || !S_ISLNK(status.st_mode)) {
        return path;
    }
    const std::unique_ptr<char, decltype(&std::free)> real(realpath(path.c_str(), nullptr),
                                                           &std::free);
    if (!real) {
        throw SystemFailure("cannot follow the link", path, errno);
    }
    return real.get();
}

AtomicFile::AtomicFile(const std::string& targetPath, Existing existingTarget, mode_t mode)
    : shown(targetPath), target(FollowLinks(targetPath)), existing(existingTarget) {
    CheckTarget();
    Create(mode);
}

AtomicFile::~AtomicFile() {
    if (!path.empty()) {
        unlink(path.c_str());
    }
}

void AtomicFile::CheckTarget() {
    struct stat status;
    if (stat(target.c_str(), &status) != 0) {
        return;
    }
    if (!S_ISREG(status.st_mode)) {
        throw ToolFailure("cannot replace " + shown + ": not a regular file");
    }
    if (existing == Existing::refuse) {
        FailExists();
    }
}

void AtomicFile::Create(mode_t mode) {
    // Room for the rest of the new name, where names have at most 255 bytes.
    constexpr std::size_t longestStem = 200;
    const std::string folder = FolderOf(target);
    const std::string stem =
        folder + '.' + target.substr(folder.size(), longestStem) + '.' + std::to_string(getpid());
    for (int attempt = 0; !descriptor; ++attempt) {
        path = stem + (attempt == 0 ? "" : '-' + std::to_string(attempt)) + ".tmp";
        descriptor =
            FileDescriptor(open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, mode));
        if (!descriptor && errno != EEXIST) {
            path.clear();
            throw SystemFailure("cannot create", shown, errno);
        }
    }
    struct stat status;
    if (existing == Existing::replace && stat(target.c_str(), &status) == 0) {
        // The owner first: changing it may clear mode bits. Only root can in general, so it is no
        // failure when it stays.
        [[maybe_unused]] const int owned = fchown(descriptor.Get(), status.st_uid, status.st_gid);
        fchmod(descriptor.Get(), status.st_mode & 07777);
    }
}

void AtomicFile::Commit() {
    if (fsync(descriptor.Get()) != 0) {
        throw SystemFailure("cannot write", shown, errno);
    }
    Rename();
    path.clear();
    // The new name is in the folder's data. A system that can not sync folders has no more to give.
    const std::string folder = FolderOf(target);
    const FileDescriptor opened(
        open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (opened) {
        fsync(opened.Get());
    }
}

void AtomicFile::Rename() {
    if (existing == Existing::refuse) {
        // Whoever has taken the name meanwhile keeps it.
        if (renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) == 0) {
            return;
        }
        if (errno == EEXIST) {
            FailExists();
        }
        if (errno != EINVAL && errno != ENOSYS) {  // not every file system knows that call
            throw SystemFailure("cannot create", shown, errno);
        }
        CheckTarget();
    }
    if (std::rename(path.c_str(), target.c_str()) != 0) {
        throw SystemFailure("cannot replace", shown, errno);
    }
}

void AtomicFile::FailExists() const {
    throw ToolFailure("cannot create " + shown + ": it is already there (--force replaces it)");
}

}  // namespace vantry_tools
