#include "basekit/registryFiles.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <thread>

namespace registryFiles {

static std::string Environment(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? "" : value;
}

std::string Path() {
    std::string path = Environment("BASEKIT_REGISTRY");
    if (path.empty()) {
        std::string data = Environment("XDG_DATA_HOME");
        if (data.empty()) {
            data = Environment("HOME");
            if (data.empty()) {
                return "";
            }
            data += "/.local/share";
        }
        path = data + "/basekit/registry";
    }
    // A store that stays open must find its file again after the program has changed its folder.
    std::error_code error;
    return path.front() == '/' ? path : std::filesystem::absolute(path, error).string();
}

qtString& LastError() {
    thread_local qtString text;
    return text;
}

File::~File() {
    if (descriptor >= 0) {
        close(descriptor);
    }
}

static std::string Folder(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, std::max<std::size_t>(slash, 1));
}

static int SyncFolder(const std::string& folder) {
    const File file(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!file) {
        return errno;
    }
    // EINVAL: the file system has nothing to sync a folder with.
    return fsync(file.Get()) == 0 || errno == EINVAL ? 0 : errno;
}

static int MakeFolders(const std::string& folder) {
    if (mkdir(folder.c_str(), 0700) != 0) {
        if (errno == EEXIST) {
            return 0;
        }
        if (errno != ENOENT || folder == "/") {
            return errno;
        }
        if (const int error = MakeFolders(Folder(folder))) {
            return error;
        }
        if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
            return errno;
        }
    }
    return SyncFolder(Folder(folder));
}

static bool SameFile(int descriptor, const std::string& path) {
    struct stat open;
    struct stat named;
    return fstat(descriptor, &open) == 0 && stat(path.c_str(), &named) == 0 &&
           open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

static constexpr std::chrono::seconds longestWait(30);

// Waits a bounded time, so that a writer that was stopped halfway does not stop everybody else.
static int WaitForLock(int descriptor) {
    using namespace std::chrono_literals;
    const auto end = std::chrono::steady_clock::now() + longestWait;
    auto pause = 50us;
    while (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) {
            return errno;
        }
        if (std::chrono::steady_clock::now() > end) {
            return ETIMEDOUT;
        }
        std::this_thread::sleep_for(pause);
        pause = std::min(pause * 2, std::chrono::microseconds(2ms));
    }
    return 0;
}

int Lock::Take(const std::string& path) {
    const std::string name = path + ".lock";
    for (;;) {
        File opened(open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
        if (!opened && errno == ENOENT) {
            if (const int error = MakeFolders(Folder(name))) {
                return error;
            }
            opened = File(open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
        }
        if (!opened) {
            return errno;
        }
        if (const int error = WaitForLock(opened.Get())) {
            return error;
        }
        // Somebody may have removed the file meanwhile: the lock that counts is on the named one.
        if (SameFile(opened.Get(), name)) {
            file = std::move(opened);
            return 0;
        }
    }
}

std::string Lock::Message(int error) {
    return error == ETIMEDOUT ? "another writer has held the lock for " +
                                    std::to_string(longestWait.count()) + " seconds"
                              : std::generic_category().message(error);
}

Lock::~Lock() {
    // A process forked meanwhile still has the file open: closing ours would not unlock it.
    if (file) {
        flock(file.Get(), LOCK_UN);
    }
}

static std::string NewName(const std::string& path) {
    return path + ".new";
}

File CreateNew(const std::string& path, unsigned mode) {
    const std::string name = NewName(path);
    static constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
    File file(open(name.c_str(), flags, mode));
    if (!file && errno == EEXIST) {
        // A writer that was killed left it.
        unlink(name.c_str());
        file = File(open(name.c_str(), flags, mode));
    }
    return file;
}

int Publish(const File& written, const std::string& path) {
    if (fsync(written.Get()) != 0 || std::rename(NewName(path).c_str(), path.c_str()) != 0) {
        return errno;
    }
    return SyncFolder(Folder(path));
}

void Discard(const std::string& path) {
    unlink(NewName(path).c_str());
}

}  // namespace registryFiles
