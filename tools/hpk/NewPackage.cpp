#include "tools/hpk/NewPackage.h"

#include <sys/stat.h>

#include <cerrno>

#include "tools/common/Failures.h"

namespace vantry_tools {

template <class Work>
static void WithHint(const std::string& shown, Work work) {
    try {
        work();
    } catch (const SystemError& error) {
        if (error.Number() == EEXIST) {
            throw ToolFailure("cannot create " + shown + ": it exists (--force replaces it)");
        }
        throw;
    }
}

NewPackage::NewPackage(const std::string& path, bool force, const CTProgress& progress)
    : shown(path) {
    struct stat status;
    if (force && stat(path.c_str(), &status) == 0) {
        former.emplace(path, WaitFor(progress));
        file.emplace(*former);
    } else {
        WithHint(shown, [&] { file.emplace(path, AtomicFile::Existing::refuse); });
    }
}

void NewPackage::Commit() {
    WithHint(shown, [&] { file->Commit(); });
}

}  // namespace vantry_tools
