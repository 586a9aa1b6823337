#pragma once

#include <sys/stat.h>

#include <string>

#include "system/FileDescriptor.h"

#define DB_DBM_HSEARCH 1
#include <db.h>

namespace vantry_internal {

/// A Berkeley DB hash database outside of any environment, as ndbm makes them. Its operations
/// return 0 or a number that Reason() puts into words.
///
/// Berkeley DB trusts the first page and may crash on a damaged one, so that page is checked before
/// Berkeley DB sees it. Against damage in other pages, databases created here carry checksums;
/// those made elsewhere may not.
class RegistryDatabase {
public:
    RegistryDatabase() = default;
    RegistryDatabase(const RegistryDatabase&) = delete;
    RegistryDatabase& operator=(const RegistryDatabase&) = delete;
    /// Closes without writing.
    ~RegistryDatabase() { Close(DB_NOSYNC); }

    /// Opens a database for reading. @throws SystemError when the file cannot be opened
    int OpenFile(const std::string& path);
    /// Opens a copy for writing. @param create the copy is empty, and becomes a new database
    int OpenCopy(const FileDescriptor& copy, bool create);
    /// Closes, after writing what was changed unless `flags` is DB_NOSYNC.
    int Close(unsigned flags);

    DB* operator->() const { return database; }
    DB* Get() const { return database; }
    /// Of the file that OpenFile() has opened.
    const struct stat& Status() const { return status; }

    static std::string Reason(int error);

private:
    int Open(const FileDescriptor& file, const std::string& path, unsigned flags);

    DB* database = nullptr;
    struct stat status {};
};

}  // namespace vantry_internal
