#include "tools/vexreg/Records.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "VexUnix/VexRegistryUnix.h"
#include "basekit/files.h"
#include "tools/common/Failures.h"
#include "tools/common/KeyText.h"
#include "tools/common/PrintableText.h"
#include "tools/common/System.h"

namespace vantry_tools {

void OpenExisting(UnixRegistry& store, bool readWrite) {
    // Opening for reading creates nothing.
    if (!store.Open(false) || (readWrite && !store.Open(true))) {
        throw ToolFailure(UnixRegistry::LastError());
    }
}

Records ReadRecords(UnixRegistry& store, std::string_view prefix) {
    Records records;
    const bool complete =
        store.ForEach([&](const qtString& key, const char* data, unsigned length) {
            if (key.compare(0, prefix.size(), prefix) == 0) {
                records.emplace(key, std::string(data, length));
            }
        });
    if (!complete) {
        throw ToolFailure(UnixRegistry::LastError());
    }
    return records;
}

std::string FailureCause() {
    const qtString error = UnixRegistry::LastError();
    return error.empty() ? UnixRegistry::DatabasePath() : error;
}

std::string ShowValue(std::string_view key, std::string_view value) {
    return CvexRegEdit::IsPasswordKey(key) ? "(password)" : QuoteKey(value);
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
                    ShowValue(record.first, record.second).c_str());
    }
}

void PrintSafely(std::string_view bytes) {
    std::string text;
    if (isatty(STDOUT_FILENO) == 1) {
        PrintableStream printable;
        text = printable.Next(bytes);
        text += printable.End();
        bytes = text;
    }
    std::fwrite(bytes.data(), 1, bytes.size(), stdout);
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

static void PrintAll(const std::function<void()>& print, const std::string& shown) {
    errno = 0;
    print();
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        throw SystemError(errno != 0 ? errno : EIO, "cannot write", shown);
    }
}

void PrintTo(const std::string& file, const std::function<void()>& print, unsigned mode) {
    if (file.empty() || file == "-") {
        PrintAll(print, "standard output");
        return;
    }
    AtomicFile target(file, AtomicFile::Existing::replace, mode);
    {
        const Redirection redirection(target.Descriptor());
        PrintAll(print, file);
    }
    target.Commit();
}

std::string ReadAll(const std::string& file) {
    qtString content;
    if (const int error = qtStringRead(content, file == "-" ? "/dev/stdin" : file)) {
        throw SystemError(-error, "cannot read", file);
    }
    return std::move(content);
}

void RecordChoice::AddTo(CLI::App& command, const char* description) {
    command.add_option("KEY", words, description)->type_name("");
    command.add_option("--prefix", prefixes, "The keys that begin with this")
        ->allow_extra_args(false)
        ->type_name("TEXT");
}

bool RecordChoice::Word::Selects(const std::string& candidate) const {
    if (isPrefix) {
        return candidate.compare(0, key.size(), key) == 0;
    }
    return isPattern ? MatchesGlob(key, candidate) : candidate == key;
}

std::vector<RecordChoice::Word> RecordChoice::Words(const Records& all) const {
    std::vector<Word> parsed;
    for (const std::string& word : words) {
        const std::string key = UnquoteKey(word);
        const bool exact = all.count(key) != 0 || (!word.empty() && word.front() == '"');
        parsed.push_back({word, key, !exact && !key.empty() && key.back() == '/',
                          !exact && word.find_first_of("*?[") != std::string::npos});
    }
    for (const std::string& prefix : prefixes) {
        parsed.push_back({prefix, UnquoteKey(prefix), true, false});
    }
    return parsed;
}

Records RecordChoice::Choose(const Records& all) const {
    if (Empty()) {
        return all;
    }
    Records chosen;
    for (const Word& word : Words(all)) {
        for (const auto& record : all) {
            if (word.Selects(record.first)) {
                chosen.insert(record);
            }
        }
    }
    return chosen;
}

bool RecordChoice::AllSelect(const Records& all, const char* message) const {
    bool allSelect = true;
    for (const Word& word : Words(all)) {
        const bool selects = std::any_of(all.begin(), all.end(), [&word](const auto& record) {
            return word.Selects(record.first);
        });
        if (!selects) {
            PrintError((word.isPattern ? word.shown : QuoteKey(word.key)) + ": " + message + " (" +
                       UnixRegistry::DatabasePath() + ")");
            allSelect = false;
        }
    }
    return allSelect;
}

}  // namespace vantry_tools
