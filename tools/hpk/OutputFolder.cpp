#include "tools/hpk/OutputFolder.h"

#include <dirent.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <optional>

#include "tools/hpk/KeyPath.h"

namespace vantry_tools {

static FileDescriptor CreateAndOpen(const std::string& path) {
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (error) {
        throw SystemError(error.value(), "cannot create", path);
    }
    FileDescriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder) {
        throw SystemError(errno, "cannot open", path);
    }
    return folder;
}

OutputFolder::OutputFolder(const std::string& path)
    : root(path), folders(CreateAndOpen(path), ConfinedFolder::Missing::create) {}

static bool HasTemporaries(int folder) {
    const std::unique_ptr<DIR, int (*)(DIR*)> opened(
        fdopendir(openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)), &closedir);
    while (const dirent* const entry = opened ? readdir(opened.get()) : nullptr) {
        if (AtomicFile::IsTemporaryName(entry->d_name)) {
            return true;
        }
    }
    return false;
}

// Keys are in order: the next one is often in the same folder.
void OutputFolder::Enter(std::string_view folder) {
    if (current >= 0 && folder == currentPath) {
        return;
    }
    current = -1;
    current = folders.Enter(folder);
    currentPath = folder;
    hasLeftovers = HasTemporaries(current);
}

// Such as a name that is too long: the other keys may still become files.
template <class Work>
static void OrRefuse(Work work) {
    try {
        work();
    } catch (const SystemError& error) {
        throw RefusedPath(error.Reason(), error.Number());
    }
}

void OutputFolder::Write(const std::string& key, const Writer& write) {
    if (const char* const reason = WhyNotPath(key)) {
        throw RefusedPath(reason);
    }
    const std::size_t nameAt = key.rfind('/') + 1;
    const std::string name = key.substr(nameAt);
    Enter(std::string_view(key).substr(0, nameAt));
    struct stat status;
    if (fstatat(current, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
        if (S_ISLNK(status.st_mode)) {
            throw RefusedPath("a link is in the way");
        }
        if (!S_ISREG(status.st_mode)) {
            throw RefusedPath("something other than a regular file is in the way");
        }
    }
    if (hasLeftovers) {
        AtomicFile::RemoveLeftovers(current, name);
    }
    const std::string shown = root + '/' + key;
    std::optional<AtomicFile> file;
    OrRefuse(
        [&] { file.emplace(current, name, AtomicFile::Existing::replace, mode_t{0666}, shown); });
    write(file->Descriptor(), shown);
    OrRefuse([&] { file->Commit(AtomicFile::Sync::no); });
}

}  // namespace vantry_tools
