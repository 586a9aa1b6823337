#include "system/FileLock.h"

#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <thread>

#include "system/Folder.h"

namespace vantry_internal {

// "process 123 (hpk)" for the holder of a lock on the file, as far as the kernel tells.
static std::string Holder(int file) {
    struct stat status;
    if (fstat(file, &status) != 0) {
        return "another program";
    }
    char identity[64];
    std::snprintf(identity, sizeof identity, "%02x:%02x:%llu", major(status.st_dev),
                  minor(status.st_dev), static_cast<unsigned long long>(status.st_ino));
    std::ifstream locks("/proc/locks");
    // Such as "1: FLOCK  ADVISORY  WRITE 123 08:01:4711 0 EOF"; those who wait have "->" in front.
    for (std::string number, kind, use, access, process, locked, rest;
         locks >> number >> kind >> use >> access >> process >> locked &&
         std::getline(locks, rest);) {
        if (kind == "FLOCK" && locked == identity) {
            std::string name;
            std::getline(std::ifstream("/proc/" + process + "/comm"), name);
            return "process " + process + (name.empty() ? "" : " (" + name + ")");
        }
    }
    return "another program";
}

FileLock::FileLock(const std::string& given, const LockWait& wait, Missing missing) {
    do {
        path = FollowLinks(given);
        Open(missing);
        Acquire(wait);
        // The former holder of the lock may have replaced the file, or the link to it.
    } while (!IsNamed(file.Get(), AT_FDCWD, path, AT_SYMLINK_NOFOLLOW) ||
             !IsNamed(file.Get(), AT_FDCWD, given, 0));
    holder = getpid();
}

FileLock::~FileLock() {
    // A process forked meanwhile has the file open, too: closing it here would not unlock it.
    if (holder == getpid()) {
        flock(file.Get(), LOCK_UN);
    }
}

void FileLock::Open(Missing missing) {
    created = false;
    for (;;) {
        try {
            file = OpenRegular(path, O_RDWR | O_NOFOLLOW);
            return;
        } catch (const SystemError& error) {
            if (error.Number() != ENOENT || missing == Missing::fail) {
                throw;
            }
        }
        CreateFolders(FolderOf(path));
        file = FileDescriptor(
            open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (file) {
            created = true;
            return;
        }
        if (errno != EEXIST) {
            throw SystemError(errno, "cannot create", path);
        }
    }
}

void FileLock::Acquire(const LockWait& wait) {
    using namespace std::chrono_literals;
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start = Clock::now();
    bool reported = wait.report == nullptr;
    auto pause = 50us;
    while (flock(file.Get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) {
            throw SystemError(errno, "cannot lock", path);
        }
        const Clock::duration waited = Clock::now() - start;
        if (waited >= wait.limit) {
            const auto seconds =
                std::chrono::duration_cast<std::chrono::seconds>(wait.limit).count();
            const std::string claim =
                seconds == 0 ? " holds the lock"
                             : " has held the lock for " + std::to_string(seconds) + " s";
            throw SystemError(ETIMEDOUT, "cannot lock", path, Holder(file.Get()) + claim);
        }
        if (!reported && waited >= 1s) {
            reported = true;
            wait.report("waiting for " + path + ", locked by " + Holder(file.Get()));
        }
        if (wait.poll != nullptr) {
            wait.poll();
        }
        std::this_thread::sleep_for(pause);
        pause = std::min(pause * 2, std::chrono::microseconds(2ms));
    }
}

bool FileLock::IsCurrent() const {
    return holder == getpid() && IsNamed(file.Get(), AT_FDCWD, path, AT_SYMLINK_NOFOLLOW);
}

}  // namespace vantry_internal
