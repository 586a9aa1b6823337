#include "tools/vexreg/Records.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "basekit/files.h"
#include "tools/common/AtomicFile.h"
#include "tools/common/Failures.h"
#include "tools/common/FileDescriptor.h"
#include "tools/common/KeyText.h"

namespace vantry_tools {

void OpenExisting(UnixRegistry& store, bool readWrite) {
    // Opening for reading tells without making anything whether there is a registry.
    if (!store.Open(false) || (readWrite && !store.Open(true))) {
        throw ToolFailure(UnixRegistry::LastError());
    }
}

Records ReadRecords(UnixRegistry& store, std::string_view prefix) {
    Records records;
    const bool whole = store.ForEach([&](const qtString& key, const char* data, unsigned length) {
        if (key.compare(0, prefix.size(), prefix) == 0) {
            records.emplace(key, std::string(data, length));
        }
    });
    if (!whole) {
        throw ToolFailure(UnixRegistry::LastError());
    }
    return records;
}

bool IsPassword(std::string_view key) {
    static constexpr std::string_view ending = "DatabaseParam";
    return key.size() >= ending.size() && key.substr(key.size() - ending.size()) == ending;
}

std::string ShowValue(const Records::value_type& record) {
    return IsPassword(record.first) ? "(password)" : QuoteKey(record.second);
}

static bool IsMissing(const std::string& file) {
    return !file.empty() && access(file.c_str(), F_OK) != 0 && errno == ENOENT;
}

static Records ReadRegistryIfAny() {
    if (IsMissing(UnixRegistry::DatabasePath())) {
        return {};
    }
    UnixRegistry store;
    OpenExisting(store);
    return ReadRecords(store);
}

void PrintChanges(const Records& wanted) {
    const Records stored = ReadRegistryIfAny();
    for (const auto& record : wanted) {
        const auto former = stored.find(record.first);
        const char* const change = former == stored.end()            ? "add"
                                   : former->second == record.second ? "keep"
                                                                     : "change";
        std::printf("%s\t%s\t%s\n", change, QuoteKey(record.first).c_str(),
                    ShowValue(record).c_str());
    }
}

namespace {

// Standard output leads to another file while it lives.
class Redirection {
public:
    explicit Redirection(int descriptor) {
        std::fflush(stdout);
        former = FileDescriptor(dup(STDOUT_FILENO));
        dup2(descriptor, STDOUT_FILENO);
    }
    ~Redirection() {
        std::fflush(stdout);
        std::clearerr(stdout);
        dup2(former.Get(), STDOUT_FILENO);
    }
    Redirection(const Redirection&) = delete;
    Redirection& operator=(const Redirection&) = delete;

private:
    FileDescriptor former;
};

}  // namespace

static void PrintWhole(const std::function<void()>& print, const std::string& shown) {
    errno = 0;
    print();
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        throw SystemFailure("cannot write", shown, errno != 0 ? errno : EIO);
    }
}

void PrintTo(const std::string& file, const std::function<void()>& print, unsigned mode) {
    if (file.empty() || file == "-") {
        PrintWhole(print, "standard output");
        return;
    }
    AtomicFile target(file, AtomicFile::Existing::replace, mode);
    {
        const Redirection redirection(target.Descriptor());
        PrintWhole(print, file);
    }
    target.Commit();
}

std::string PrintedBy(const std::function<void()>& print) {
    const std::string shown = "text in memory";
    const FileDescriptor memory(memfd_create("printed", MFD_CLOEXEC));
    if (!memory) {
        throw SystemFailure("cannot create", shown, errno);
    }
    {
        const Redirection redirection(memory.Get());
        PrintWhole(print, shown);
    }
    return ReadWhole("/proc/self/fd/" + std::to_string(memory.Get()));
}

std::string ReadWhole(const std::string& file) {
    qtString content;
    if (const int error = qtStringRead(content, file == "-" ? "/dev/stdin" : file)) {
        throw SystemFailure("cannot read", file, -error);
    }
    return std::move(content);
}

}  // namespace vantry_tools
