#include "tools/hpk/Sources.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <tuple>

#include "hpack/HpackFormat.h"
#include "tools/common/Failures.h"
#include "tools/common/KeyText.h"
#include "tools/hpk/PackageFile.h"

namespace vantry_tools {

static unsigned char EntryType(const struct stat& status) {
    return static_cast<unsigned char>(IFTODT(status.st_mode));
}

void Sources::Collect(const std::vector<std::string>& paths, CTProgress& progress) {
    StartPhase(progress, "looking for files", 0);
    for (const std::string& path : paths) {
        struct stat status;
        if (stat(path.c_str(), &status) != 0) {
            throw SystemFailure("cannot open", path, errno);
        }
        if (S_ISDIR(status.st_mode)) {
            Walk(path.back() == '/' ? path : path + '/', "", progress);
        } else {
            Take(path, path.substr(path.rfind('/') + 1), EntryType(status), progress);
        }
    }
    std::sort(files.begin(), files.end(), [](const Source& left, const Source& right) {
        return std::tie(left.key, left.path) < std::tie(right.key, right.path);
    });
    RejectDuplicates();
}

// `folder` and `keyPrefix` end with a slash, or are empty.
void Sources::Walk(const std::string& folder, const std::string& keyPrefix,
                   const CTProgress& progress) {
    StopIfInterrupted(progress);
    // Read to the end before going deeper, so that the depth does not use up open files.
    std::vector<std::pair<std::string, unsigned char>> entries;
    {
        const std::unique_ptr<DIR, int (*)(DIR*)> opened(opendir(folder.c_str()), &closedir);
        errno = opened ? 0 : errno;
        while (const dirent* const entry = opened ? readdir(opened.get()) : nullptr) {
            const std::string name = entry->d_name;
            if (name != "." && name != "..") {
                entries.emplace_back(name, entry->d_type);
            }
        }
        if (errno != 0) {
            throw SystemFailure("cannot read", folder, errno);
        }
    }
    for (const auto& [name, type] : entries) {
        Take(folder + name, keyPrefix + name, type, progress);
    }
}

void Sources::Take(const std::string& path, std::string key, unsigned char type,
                   const CTProgress& progress) {
    if (type == DT_UNKNOWN) {
        struct stat status;
        if (lstat(path.c_str(), &status) != 0) {
            throw SystemFailure("cannot open", path, errno);
        }
        type = EntryType(status);
    }
    switch (type) {
        case DT_REG:
            files.push_back({std::move(key), path});
            break;
        case DT_DIR:
            Walk(path + '/', key + '/', progress);
            break;
        case DT_LNK:
            Skip(path, "a symbolic link");
            break;
        default:
            Skip(path, "not a regular file");
    }
}

void Sources::Skip(const std::string& path, const char* why) {
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

static std::pair<dev_t, ino_t> Identity(int descriptor) {
    struct stat status;
    if (fstat(descriptor, &status) != 0) {
        return {};
    }
    return {status.st_dev, status.st_ino};
}

void Sources::Exclude(int descriptor) {
    leftOut.push_back(Identity(descriptor));
}

bool Sources::Read(const Source& source, SegBuf& body, const CTProgress& progress) {
    const FileDescriptor file = OpenRegular(source.path, O_RDONLY);
    const auto identity = Identity(file.Get());
    if (std::find(leftOut.begin(), leftOut.end(), identity) != leftOut.end()) {
        Skip(source.path, "the package itself");
        return false;
    }
    ReadBody(file.Get(), source.path, body, progress);
    return true;
}

void ReadBody(int descriptor, const std::string& shown, SegBuf& body, const CTProgress& progress) {
    constexpr unsigned int limit = HpackFormat::maxStreamSize;
    unsigned int length = 0;
    for (std::size_t count = 1; count != 0; length += static_cast<unsigned int>(count)) {
        StopIfInterrupted(progress);
        if (length > limit) {
            throw ToolFailure("cannot pack " + shown + ": " + TooLarge());
        }
        body.size = length;
        body.Grow(length + 1);
        // All of the last segment is there.
        body.size = static_cast<unsigned int>(body.segments.size()) * SegBuf::segmentSize;
        char* where = nullptr;
        unsigned int room = 0;
        body.Locate(length, body.size, where, room);
        count = ReadSome(descriptor, where, room, shown);
    }
    body.size = length;
}

}  // namespace vantry_tools
