#include "system/AtomicFile.h"

#include <dirent.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <memory>

#include "system/FileRights.h"
#include "system/Folder.h"

namespace vantry_internal {

// Names have at most 255 bytes, and a temporary one adds 23.
static constexpr std::size_t longestStem = 200;
static constexpr std::size_t digits = 16;
static constexpr std::string_view suffix = ".tmp";

static std::string Stem(const std::string& name) {
    return '.' + name.substr(0, longestStem) + '.';
}

AtomicFile::AtomicFile(const std::string& target, Existing existingTarget, mode_t newMode)
    : shown(target), existing(existingTarget), mode(newMode), process(getpid()) {
    struct stat status;
    if (stat(target.c_str(), &status) == 0) {
        if (S_ISDIR(status.st_mode)) {
            Fail("cannot replace", EISDIR);
        }
        if (!S_ISREG(status.st_mode)) {
            throw SystemError(EINVAL, "cannot replace", shown, "not a regular file");
        }
        if (existing == Existing::refuse) {
            Fail("cannot create", EEXIST);
        }
    }
    const std::string path = FollowLinks(target);
    name = NameIn(path);
    folderPath = FolderOf(path);
    Begin();
}

AtomicFile::AtomicFile(const FileLock& held)
    : shown(held.Path()),
      lock(&held),
      existing(Existing::replace),
      mode(0600),
      name(NameIn(held.Path())),
      folderPath(FolderOf(held.Path())),
      process(getpid()) {
    Begin();
}

AtomicFile::AtomicFile(int open, const std::string& target, Existing existingTarget, mode_t newMode,
                       const std::string& path)
    : shown(path),
      existing(existingTarget),
      mode(newMode),
      name(target),
      folderPath(FolderOf(path)),
      folder(open),
      process(getpid()) {
    if (!CreateUnnamed()) {
        CreateNamed();
    }
}

void AtomicFile::Begin() {
    ownFolder = FileDescriptor(open(folderPath.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!ownFolder) {
        Fail("cannot create", errno);
    }
    folder = ownFolder.Get();
    RemoveLeftovers(folder, name);
    if (!CreateUnnamed()) {
        CreateNamed();
    }
}

AtomicFile::~AtomicFile() {
    if (process == getpid()) {
        RemoveName();
    }
}

void AtomicFile::Fail(const char* action, int error) const {
    throw SystemError(error, action, shown);
}

std::string AtomicFile::Path() const {
    return temporary.empty() ? "/proc/self/fd/" + std::to_string(file.Get())
                             : folderPath + '/' + temporary;
}

// @return false where the file system, or a system without /proc, cannot do it
bool AtomicFile::CreateUnnamed() {
    file = FileDescriptor(openat(folder, ".", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    if (!file) {
        return false;
    }
    // Once it has a name for a moment, in Commit(), it must be held like any other.
    if (access(Path().c_str(), F_OK) == 0 && flock(file.Get(), LOCK_EX | LOCK_NB) == 0) {
        return true;
    }
    file = FileDescriptor();
    return false;
}

std::string AtomicFile::NewName() const {
    std::uint64_t number = 0;
    if (getrandom(&number, sizeof number, 0) != ssize_t{sizeof number}) {
        Fail("cannot create", errno);
    }
    char text[digits + 1];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(number));
    return Stem(name).append(text).append(suffix);
}

void AtomicFile::CreateNamed() {
    for (;;) {
        temporary = NewName();
        file = FileDescriptor(openat(folder, temporary.c_str(),
                                     O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!file) {
            const int error = errno;
            temporary.clear();
            if (error == EEXIST) {
                continue;
            }
            Fail("cannot create", error);
        }
        // Until it is locked, another process may take it for a leftover. Where the file system has
        // no locks, nobody removes anything.
        const bool taken = flock(file.Get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
        if (!taken && IsNamed(file.Get(), folder, temporary, AT_SYMLINK_NOFOLLOW)) {
            return;
        }
        RemoveName();
    }
}

// The file whose rights the new one gets; none for a new target. O_PATH: it need not be readable.
FileDescriptor AtomicFile::OpenReplaced() const {
    FileDescriptor former(openat(folder, name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!former && errno != ENOENT) {
        Fail("cannot replace", errno);
    }
    struct stat status;
    const bool regular = former && fstat(former.Get(), &status) == 0 && S_ISREG(status.st_mode);
    return regular ? std::move(former) : FileDescriptor();
}

void AtomicFile::SetRights() const {
    const FileDescriptor replaced =
        existing == Existing::replace ? OpenReplaced() : FileDescriptor();
    const int error =
        replaced ? CopyRights(file.Get(), replaced.Get()) : GrantRights(file.Get(), folder, mode);
    if (error != 0) {
        Fail("cannot set the rights of", error);
    }
}

void AtomicFile::Commit(Sync sync) {
    SetRights();
    if (sync == Sync::yes && fsync(file.Get()) != 0) {
        Fail("cannot write", errno);
    }
    if (lock != nullptr && !lock->IsCurrent()) {
        throw SystemError(EBUSY, "cannot replace", shown, "another file has taken its place");
    }
    if (process != getpid()) {
        throw SystemError(EPERM, "cannot replace", shown, "this process is a fork of the writer");
    }
    if (temporary.empty()) {
        LinkUnnamed();
    }
    if (!temporary.empty()) {
        Rename();
        temporary.clear();
    }
    // A forked child may keep the file open, and with it the lock.
    flock(file.Get(), LOCK_UN);
    if (sync == Sync::yes) {
        SyncFolder(folder, folderPath, file.Get());
    }
}

// Names the file like its target or, where a former file has that name, by a temporary name.
void AtomicFile::LinkUnnamed() {
    const std::string path = Path();
    const auto link = [&](const std::string& to) {
        return linkat(AT_FDCWD, path.c_str(), folder, to.c_str(), AT_SYMLINK_FOLLOW) == 0;
    };
    if (link(name)) {
        return;
    }
    if (errno != EEXIST || existing == Existing::refuse) {
        Fail("cannot create", errno);
    }
    do {
        temporary = NewName();
        if (link(temporary)) {
            return;
        }
    } while (errno == EEXIST);
    const int error = errno;
    temporary.clear();
    Fail("cannot create", error);
}

void AtomicFile::Rename() {
    if (existing == Existing::replace) {
        if (renameat(folder, temporary.c_str(), folder, name.c_str()) != 0) {
            Fail("cannot replace", errno);
        }
        return;
    }
    // A file that has taken the name in the meantime keeps it.
    if (renameat2(folder, temporary.c_str(), folder, name.c_str(), RENAME_NOREPLACE) == 0) {
        return;
    }
    // Not every file system knows that call.
    if ((errno != EINVAL && errno != ENOSYS) ||
        linkat(folder, temporary.c_str(), folder, name.c_str(), 0) != 0) {
        Fail("cannot create", errno);
    }
    RemoveName();
}

void AtomicFile::RemoveName() {
    if (!temporary.empty()) {
        unlinkat(folder, temporary.c_str(), 0);
        temporary.clear();
    }
}

static bool EndsAsTemporary(std::string_view name) {
    if (name.size() < digits + suffix.size() ||
        name.substr(name.size() - suffix.size()) != suffix) {
        return false;
    }
    const std::string_view number = name.substr(name.size() - suffix.size() - digits, digits);
    return number.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

bool AtomicFile::IsTemporaryName(std::string_view name) {
    return EndsAsTemporary(name) && name.front() == '.' &&
           name[name.size() - suffix.size() - digits - 1] == '.';
}

// Keeps what another process holds, and everything where the file system has no locks.
static void RemoveUnlessHeld(int folder, const char* name) {
    const FileDescriptor found(
        openat(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status;
    if (found && fstat(found.Get(), &status) == 0 && S_ISREG(status.st_mode) &&
        flock(found.Get(), LOCK_EX | LOCK_NB) == 0 &&
        IsNamed(found.Get(), folder, name, AT_SYMLINK_NOFOLLOW)) {
        unlinkat(folder, name, 0);
    }
}

void AtomicFile::RemoveLeftovers(int folder, const std::string& name) {
    const std::string stem = Stem(name);
    const int opened = openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const auto closeEntries = [](DIR* entries) { closedir(entries); };
    const std::unique_ptr<DIR, decltype(closeEntries)> entries(
        opened < 0 ? nullptr : fdopendir(opened), closeEntries);
    if (entries == nullptr) {  // a folder that must not be read
        if (opened >= 0) {
            close(opened);
        }
        return;
    }
    while (const dirent* const entry = readdir(entries.get())) {
        const std::string_view found = entry->d_name;
        if (found.size() == stem.size() + digits + suffix.size() &&
            found.substr(0, stem.size()) == stem && EndsAsTemporary(found)) {
            RemoveUnlessHeld(folder, entry->d_name);
        }
    }
}

}  // namespace vantry_internal
