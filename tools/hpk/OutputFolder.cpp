#include "tools/hpk/OutputFolder.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "tools/hpk/KeyPath.h"

namespace vantry_tools {

// A file that is not whole yet, in an open folder.
class OutputFolder::Temporary {
public:
    explicit Temporary(int containing) : folder(containing) {
        const std::string stem = ".hpk." + std::to_string(getpid());
        for (int attempt = 0; !file; ++attempt) {
            name = stem + '-' + std::to_string(attempt) + ".tmp";
            file = FileDescriptor(openat(
                folder, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666));
            if (!file && errno != EEXIST) {
                throw RefusedPath(std::strerror(errno));
            }
        }
    }
    ~Temporary() {
        if (!name.empty()) {
            unlinkat(folder, name.c_str(), 0);
        }
    }
    Temporary(const Temporary&) = delete;
    Temporary& operator=(const Temporary&) = delete;

    int Descriptor() const { return file.Get(); }
    void Rename(const std::string& target) {
        if (renameat(folder, name.c_str(), folder, target.c_str()) != 0) {
            throw RefusedPath(std::strerror(errno));
        }
        name.clear();
    }

private:
    const int folder;
    std::string name;
    FileDescriptor file;
};

static const int openFolder = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

OutputFolder::OutputFolder(const std::string& path) : root(path) {
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (error) {
        throw SystemFailure("cannot create", path, error.value());
    }
    rootFolder = FileDescriptor(open(path.c_str(), openFolder));
    if (!rootFolder) {
        throw SystemFailure("cannot open", path, errno);
    }
}

void OutputFolder::Write(const std::string& key, const Writer& write) {
    if (const char* const reason = WhyNotPath(key)) {
        throw RefusedPath(reason);
    }
    const std::size_t nameAt = key.rfind('/') + 1;
    const std::string name = key.substr(nameAt);
    Enter(std::string_view(key).substr(0, nameAt));
    const int folder = currentFolder ? currentFolder.Get() : rootFolder.Get();
    struct stat status;
    if (fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
        if (S_ISLNK(status.st_mode)) {
            throw RefusedPath("a link is in the way");
        }
        if (!S_ISREG(status.st_mode)) {
            throw RefusedPath("something else than a regular file is in the way");
        }
    }
    Temporary file(folder);
    write(file.Descriptor(), root + '/' + key);
    file.Rename(name);
}

// `folder` ends with a slash, or is empty.
void OutputFolder::Enter(std::string_view folder) {
    if (folder == currentPath) {
        return;
    }
    currentPath.clear();
    currentFolder = FileDescriptor();
    FileDescriptor reached;
    for (std::string_view rest = folder; !rest.empty();) {
        const std::size_t end = rest.find('/');
        reached =
            Step(reached ? reached.Get() : rootFolder.Get(), std::string(rest.substr(0, end)));
        rest.remove_prefix(end + 1);
    }
    currentFolder = std::move(reached);
    currentPath = folder;
}

FileDescriptor OutputFolder::Step(int folder, const std::string& name) const {
    const int flags = openFolder | O_NOFOLLOW;
    FileDescriptor next(openat(folder, name.c_str(), flags));
    if (!next && errno == ENOENT && (mkdirat(folder, name.c_str(), 0777) == 0 || errno == EEXIST)) {
        next = FileDescriptor(openat(folder, name.c_str(), flags));
    }
    if (next) {
        return next;
    }
    const int error = errno;
    struct stat status;
    if (fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        S_ISLNK(status.st_mode)) {
        throw RefusedPath("a link is in the way: " + name);
    }
    throw RefusedPath(std::strerror(error));
}

}  // namespace vantry_tools
