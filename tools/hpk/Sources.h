#pragma once

#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

#include "QtInclude/SegBuf.h"
#include "tools/common/FileDescriptor.h"
#include "tools/common/LongWork.h"

namespace vantry_tools {

/// A file that becomes an item.
struct Source {
    std::string key;
    std::string path;
};

/// The regular files that a command's paths name, in key order. A folder gives all files below it,
/// with keys relative to it; a file gives its own name. Links are followed only where a path itself
/// is one.
class Sources {
public:
    /// @throws ToolFailure for what can not be read, and for two files with the same key
    void Collect(const std::vector<std::string>& paths, CTProgress& progress);

    /// A file that is not to be packed, though it may lie in a folder that is.
    void Exclude(int descriptor);

    const std::vector<Source>& Files() const { return files; }

    /// Reads a file into `body`, replacing it. @return false when the file is left out
    bool Read(const Source& source, SegBuf& body, const CTProgress& progress);

    /// What was not packed, and why: a line each.
    const std::vector<std::string>& Skipped() const { return skipped; }

private:
    void Walk(const std::string& folder, const std::string& keyPrefix, const CTProgress& progress);
    void Take(const std::string& path, std::string key, unsigned char type,
              const CTProgress& progress);
    void Skip(const std::string& path, const char* why);
    void RejectDuplicates() const;

    std::vector<Source> files;
    std::vector<std::string> skipped;
    std::vector<std::pair<dev_t, ino_t>> leftOut;
};

/// Reads everything that comes from `descriptor` into `body`, replacing it.
/// @throws ToolFailure that names `shown`, also for what is too large for any package
void ReadBody(int descriptor, const std::string& shown, SegBuf& body, const CTProgress& progress);

}  // namespace vantry_tools
