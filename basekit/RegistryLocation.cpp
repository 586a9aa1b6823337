#include "basekit/RegistryLocation.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace vantry_internal {

// A program with more rights than its user must not be led by the user's environment.
static std::string Environment(const char* name) {
    const char* const value = secure_getenv(name);
    return value == nullptr ? "" : value;
}

std::string RegistryPath() {
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

static std::atomic<RegistryWaitReport> s_waitReport{nullptr};

RegistryWaitReport SetRegistryWaitReport(RegistryWaitReport report) {
    return s_waitReport.exchange(report);
}

std::unique_ptr<FileLock> LockRegistry(const std::string& file) {
    LockWait wait;
    wait.report = [](const std::string& line) {
        if (const RegistryWaitReport report = s_waitReport.load()) {
            report(line.c_str());
        }
    };
    auto lock = std::make_unique<FileLock>(file + ".lock", wait, FileLock::Missing::create);
    if (lock->Created()) {
        GiveToOwnerOf(file, lock->Descriptor());
    }
    return lock;
}

void GiveToOwnerOf(const std::string& database, int file) {
    struct stat status;
    if (geteuid() == 0 && stat(database.c_str(), &status) == 0) {
        // Where root may not, the file stays root's.
        [[maybe_unused]] const int given = fchown(file, status.st_uid, status.st_gid);
    }
}

// An array needs no destruction: a string would be gone when static objects are destroyed.
static constexpr std::size_t longestError = PATH_MAX + 512;
static thread_local char s_error[longestError];

const char* RegistryError() {
    return s_error;
}

void ClearRegistryError() {
    s_error[0] = '\0';
}

// @return the number of bytes that had room
static std::size_t CopyTo(std::size_t at, std::string_view text) {
    const std::size_t count = std::min(text.size(), longestError - 1 - at);
    std::memcpy(s_error + at, text.data(), count);
    s_error[at + count] = '\0';
    return at + count;
}

void SetRegistryError(std::string_view file, std::string_view reason) {
    CopyTo(CopyTo(CopyTo(0, file), ": "), reason);
}

void SetRegistryError(const SystemError& error) {
    SetRegistryError(error.PathAndReason());
}

void SetRegistryError(std::string_view text) {
    CopyTo(0, text);
}

}  // namespace vantry_internal
