#include "tools/hpk/Sources.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <tuple>

#include "hpack/HpackFormat.h"
#include "tools/common/KeyText.h"
#include "tools/hpk/KeyPath.h"
#include "tools/hpk/PackageFile.h"

namespace vantry_tools {

static std::pair<dev_t, ino_t> Identity(const struct stat& status) {
    return {status.st_dev, status.st_ino};
}

static struct stat StatusOf(int descriptor, const std::string& shown) {
    struct stat status;
    if (fstat(descriptor, &status) != 0) {
        throw SystemError(errno, "cannot read", shown);
    }
    return status;
}

static void RequireRoomFor(std::uint64_t size, const std::string& shown) {
    if (size > HpackFormat::maxStreamSize) {
        throw ToolFailure("cannot pack " + shown + ": " + TooLarge());
    }
}

// The key of a path that is kept as it was given, but for parts that name no folder.
static std::string KeptPath(const std::string& path) {
    std::string key = path;
    while (key.compare(0, 2, "./") == 0) {
        key.erase(0, std::max<std::size_t>(2, key.find_first_not_of('/', 2)));
    }
    while (key.size() > 1 && key.back() == '/') {
        key.pop_back();
    }
    if (key.empty() || key == ".") {
        return "";
    }
    if (const char* const reason = WhyNotPath(key)) {
        throw ToolFailure("cannot keep the path " + path + ": " + reason);
    }
    return key;
}

bool Sources::IsExcluded(const std::string& key) const {
    const std::string name = key.substr(key.rfind('/') + 1);
    return std::any_of(rules.excluded.begin(), rules.excluded.end(), [&](const std::string& glob) {
        return MatchesGlob(glob, key) || MatchesGlob(glob, name);
    });
}

// A list may name a file, and a folder that it is in.
static void RemoveRepeated(std::vector<Source>& files) {
    files.erase(std::unique(files.begin(), files.end(),
                            [](const Source& left, const Source& right) {
                                return left.path == right.path && left.key == right.key;
                            }),
                files.end());
}

void Sources::Collect(const std::vector<std::string>& paths, CTProgress& progress) {
    StartPhase(progress, "looking for files", 0);
    for (const std::string& path : paths) {
        struct stat status;
        if (stat(path.c_str(), &status) != 0) {
            throw SystemError(errno, "cannot open", path);
        }
        const std::string kept = rules.keepsPaths ? KeptPath(path) : "";
        if (S_ISDIR(status.st_mode)) {
            roots.push_back({path.back() == '/' ? path : path + '/', kept.empty() ? "" : kept + '/',
                             true, Identity(status)});
            Walk("", progress);
        } else if (S_ISREG(status.st_mode)) {
            const std::string key = kept.empty() ? path.substr(path.rfind('/') + 1) : kept;
            if (IsExcluded(key)) {
                continue;
            }
            const auto size = static_cast<std::uint64_t>(status.st_size);
            RequireRoomFor(size, path);
            files.push_back({key, path, size, roots.size()});
            roots.push_back({path, "", false, {}});
        } else {
            Skip(path, "not a regular file");
        }
    }
    std::sort(files.begin(), files.end(), [](const Source& left, const Source& right) {
        return std::tie(left.key, left.path) < std::tie(right.key, right.path);
    });
    RemoveRepeated(files);
    RejectDuplicates();
    RequireRoomFor(TotalSize(), std::to_string(files.size()) + " files");
}

std::uint64_t Sources::TotalSize() const {
    std::uint64_t size = 0;
    for (const Source& source : files) {
        size += source.size;
    }
    return size;
}

// Opens a folder below a root. A folder that was exchanged since it was found is another's.
int Sources::Enter(std::size_t root, const std::string& folder) {
    const Root& from = roots[root];
    if (entered != root) {
        FileDescriptor opened(open(from.path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (!opened) {
            throw SystemError(errno, "cannot read", from.path);
        }
        if (Identity(StatusOf(opened.Get(), from.path)) != from.identity) {
            throw ToolFailure("cannot read " + from.path + ": it was replaced meanwhile");
        }
        folders = ConfinedFolder(std::move(opened), ConfinedFolder::Missing::fail);
        entered = root;
    }
    return folders.Enter(folder);
}

// `folder` is below the last root, and ends with a slash or is empty.
void Sources::Walk(const std::string& folder, const CTProgress& progress) {
    StopIfInterrupted(progress);
    const std::string shown = roots.back().path + folder;
    // Read to the end before going deeper, so that the depth does not use up open files.
    std::vector<std::string> names;
    try {
        const int opened =
            openat(Enter(roots.size() - 1, folder), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        const std::unique_ptr<DIR, int (*)(DIR*)> entries(fdopendir(opened), &closedir);
        errno = entries ? 0 : errno;
        while (const dirent* const entry = entries ? readdir(entries.get()) : nullptr) {
            names.emplace_back(entry->d_name);
        }
        if (errno != 0) {
            throw SystemError(errno, "cannot read", shown);
        }
    } catch (const RefusedPath& refusal) {
        if (refusal.Number() != ELOOP) {
            throw SystemError(refusal.Number(), "cannot read", shown);
        }
        Skip(shown, refusal.what());
    }
    for (const std::string& name : names) {
        if (name != "." && name != "..") {
            Take(Enter(roots.size() - 1, folder), folder + name, progress);
        }
    }
}

// @param folder the open one that has the entry
// @param below the path below the last root
void Sources::Take(int folder, const std::string& below, const CTProgress& progress) {
    const std::string key = roots.back().keyPrefix + below;
    if (IsExcluded(key)) {
        return;
    }
    const std::string path = roots.back().path + below;
    const std::string name = below.substr(below.rfind('/') + 1);
    struct stat status;
    if (fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        throw SystemError(errno, "cannot open", path);
    }
    if (S_ISDIR(status.st_mode)) {
        Walk(below + '/', progress);
    } else if (S_ISLNK(status.st_mode)) {
        Skip(path, "a symbolic link");
    } else if (!S_ISREG(status.st_mode)) {
        Skip(path, "not a regular file");
    } else if (AtomicFile::IsTemporaryName(name)) {
        Skip(path, "a temporary file");
    } else {
        const auto size = static_cast<std::uint64_t>(status.st_size);
        RequireRoomFor(size, path);
        files.push_back({key, path, size, roots.size() - 1});
    }
}

void Sources::Skip(const std::string& path, const std::string& why) {
    skipped.push_back("skipped " + path + ": " + why);
}

void Sources::RejectDuplicates() const {
    const auto first = std::adjacent_find(
        files.begin(), files.end(),
        [](const Source& left, const Source& right) { return left.key == right.key; });
    if (first != files.end()) {
        throw ToolFailure("two files for the key " + QuoteKey(first->key) + ": " + first->path +
                          " and " + std::next(first)->path);
    }
}

void Sources::Exclude(int descriptor) {
    excluded.push_back(Identity(StatusOf(descriptor, "the package")));
}

FileDescriptor Sources::Open(const Source& source) {
    const Root& root = roots[source.root];
    FileDescriptor file;
    try {
        if (root.isFolder) {
            const std::string below = source.path.substr(root.path.size());
            const std::size_t nameAt = below.rfind('/') + 1;
            file = OpenRegularAt(Enter(source.root, below.substr(0, nameAt)), below.substr(nameAt),
                                 O_RDONLY | O_NOFOLLOW, source.path);
        } else {
            file = OpenRegular(source.path, O_RDONLY);
        }
    } catch (const RefusedPath& refusal) {
        if (refusal.Number() != ELOOP) {
            throw SystemError(refusal.Number(), "cannot open", source.path);
        }
        Skip(source.path, refusal.what());
        return FileDescriptor();
    } catch (const SystemError& error) {
        if (error.Number() != ELOOP) {
            throw;
        }
        Skip(source.path, "a symbolic link");
        return FileDescriptor();
    }
    const auto identity = Identity(StatusOf(file.Get(), source.path));
    if (std::find(excluded.begin(), excluded.end(), identity) != excluded.end()) {
        Skip(source.path, "the package itself");
        return FileDescriptor();
    }
    return file;
}

PieceReader ReadFrom(int descriptor, const std::string& shown, CTProgress& progress) {
    const struct stat status = StatusOf(descriptor, shown);
    const off_t start = S_ISREG(status.st_mode) ? lseek(descriptor, 0, SEEK_CUR) : -1;
    if (start >= 0 && status.st_size > start) {
        RequireRoomFor(static_cast<std::uint64_t>(status.st_size - start), shown);
    }
    std::uint64_t done = 0;
    return [=, &progress](char* data, std::size_t count) mutable {
        StopIfInterrupted(progress);
        const std::size_t read = ReadSome(descriptor, data, count, shown);
        Advance(progress, read);
        done += read;
        RequireRoomFor(done, shown);
        return read;
    };
}

}  // namespace vantry_tools
