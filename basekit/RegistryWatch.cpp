#include "basekit/RegistryWatch.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "basekit/RegistryLocation.h"
#include "basekit/UnixRegistry.h"
#include "system/FileDescriptor.h"
#include "system/Folder.h"

using vantry_internal::FileDescriptor;
using vantry_internal::SystemError;

using Records = std::map<qtString, qtString>;

struct RegistryWatch::State {
    qtString prefix;
    std::string database;
    FileDescriptor events;
    UnixRegistry store;
    Records records;  // as last reported

    void WatchFolders();
    void Drain() const;
    bool Read(Records& found);
    bool Report(const Visitor& visit, bool& any);
};

// The folder itself or, where it does not exist, the one that it or a folder above it will appear
// in.
static std::string ExistingFolder(std::string folder) {
    while (access(folder.c_str(), F_OK) != 0 && folder != "/" && folder != ".") {
        folder = vantry_internal::FolderOf(folder);
    }
    return folder;
}

// Watches the folders in which the database, or a link to it, is replaced. Watching one again is
// harmless, and one that was made meanwhile must be, too.
void RegistryWatch::State::WatchFolders() {
    constexpr unsigned changes = IN_CREATE | IN_CLOSE_WRITE | IN_MOVED_TO | IN_ONLYDIR;
    std::set<std::string> watched;
    for (bool isNew = true; isNew;) {
        isNew = false;
        for (const std::string& file : {database, vantry_internal::FollowLinks(database)}) {
            const std::string folder = ExistingFolder(vantry_internal::FolderOf(file));
            if (!watched.insert(folder).second) {
                continue;
            }
            isNew = true;
            if (inotify_add_watch(events.Get(), folder.c_str(), changes) < 0 && errno != ENOENT) {
                throw SystemError(errno, "cannot watch", folder);
            }
        }
    }
}

void RegistryWatch::State::Drain() const {
    alignas(inotify_event) char bytes[4096];
    while (read(events.Get(), bytes, sizeof bytes) > 0) {
    }
}

bool RegistryWatch::State::Read(Records& found) {
    if (store.Handle() == nullptr && !store.Open(false)) {
        return access(database.c_str(), F_OK) != 0 && errno == ENOENT;  // none is an empty one
    }
    return store.ForEach([&](const qtString& key, const char* data, unsigned length) {
        if (key.compare(0, prefix.size(), prefix) == 0) {
            found[key].assign(length == 0 ? "" : data, length);
        }
    });
}

// What happens after the state is read is an event, and reported by the next call.
bool RegistryWatch::State::Report(const Visitor& visit, bool& any) {
    Drain();
    WatchFolders();
    Records found;
    if (!Read(found)) {
        return false;
    }
    std::swap(records, found);
    const Records& former = found;
    auto before = former.begin();
    auto now = records.begin();
    while (before != former.end() || now != records.end()) {
        const bool removed =
            now == records.end() || (before != former.end() && before->first < now->first);
        if (removed) {
            any = true;
            visit(before->first, nullptr);
            ++before;
            continue;
        }
        const bool existed = before != former.end() && before->first == now->first;
        if (!existed || before->second != now->second) {
            any = true;
            visit(now->first, &now->second);
        }
        before = existed ? std::next(before) : before;
        ++now;
    }
    return true;
}

RegistryWatch::RegistryWatch() = default;

RegistryWatch::~RegistryWatch() = default;

bool RegistryWatch::Open(const qtString& prefix) {
    state.reset();
    auto opening = std::make_unique<State>();
    opening->prefix = prefix;
    opening->database = UnixRegistry::DatabasePath();
    opening->events = FileDescriptor(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    try {
        if (!opening->events) {
            throw SystemError(errno, "cannot watch", opening->database);
        }
        bool any = false;
        if (opening->database.empty()) {
            return opening->store.Open(false);
        }
        if (!opening->Report([](const qtString&, const qtString*) {}, any)) {
            return false;
        }
    } catch (const SystemError& error) {
        vantry_internal::SetRegistryError(error);
        return false;
    }
    state = std::move(opening);
    return true;
}

bool RegistryWatch::Wait(int milliseconds, const Visitor& visit) {
    using namespace std::chrono;
    if (state == nullptr) {
        vantry_internal::SetRegistryError("registry", "not watched");
        return false;
    }
    const auto start = steady_clock::now();
    for (;;) {
        const auto waited = duration_cast<std::chrono::milliseconds>(steady_clock::now() - start);
        const int rest =
            milliseconds < 0
                ? -1
                : static_cast<int>(std::max<std::int64_t>(milliseconds - waited.count(), 0));
        pollfd ready{state->events.Get(), POLLIN, 0};
        const int count = poll(&ready, 1, rest);
        if (count <= 0) {
            vantry_internal::ClearRegistryError();
            if (count < 0 && errno != EINTR) {
                vantry_internal::SetRegistryError(
                    SystemError(errno, "cannot watch", state->database));
            }
            return false;
        }
        bool any = false;
        try {
            if (!state->Report(visit, any) || any) {
                return any;
            }
        } catch (const SystemError& error) {
            vantry_internal::SetRegistryError(error);
            return false;
        }
    }
}

int RegistryWatch::Descriptor() const {
    return state == nullptr ? -1 : state->events.Get();
}
