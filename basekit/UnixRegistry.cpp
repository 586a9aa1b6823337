#include "basekit/UnixRegistry.h"

#include <sys/mman.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <utility>

#include "basekit/RegistryDatabase.h"
#include "basekit/RegistryLocation.h"
#include "system/AtomicFile.h"
#include "system/Folder.h"

using vantry_internal::AtomicFile;
using vantry_internal::FileDescriptor;
using vantry_internal::FileLock;
using vantry_internal::RegistryDatabase;
using vantry_internal::SystemError;

qtString UnixRegistry::LastError() {
    return qtString(vantry_internal::RegistryError());
}

UnixRegistry::WaitReport UnixRegistry::SetWaitReport(WaitReport report) {
    return vantry_internal::SetRegistryWaitReport(report);
}

static bool Missing() {
    vantry_internal::ClearRegistryError();
    return false;
}

static bool Fail(const std::string& file, const std::string& reason) {
    vantry_internal::SetRegistryError(file, reason);
    return false;
}

static bool Fail(const SystemError& error) {
    vantry_internal::SetRegistryError(error);
    return false;
}

static bool FailDatabase(const std::string& file, int error) {
    return Fail(file, RegistryDatabase::Reason(error));
}

static DBT Bytes(const char* data, std::size_t length) {
    DBT bytes{};
    bytes.data = const_cast<char*>(data);
    bytes.size = static_cast<u_int32_t>(length);
    return bytes;
}

qtString UnixRegistry::DatabasePath() {
    const std::string path = vantry_internal::RegistryPath();
    return path.empty() ? "" : path + DBM_SUFFIX;
}

struct UnixRegistry::Opened {
    std::string file;
    RegistryDatabase database;
    DBC* cursor = nullptr;

    bool Open();
    // What dbm_open would return; but that leaks the database when it fails, and it prints
    // diagnostics to standard error.
    DBM* Handle() const { return reinterpret_cast<DBM*>(cursor); }
    bool IsCurrent() const;
};

bool UnixRegistry::Opened::Open() {
    try {
        int error = database.OpenFile(file);
        if (error == 0) {
            error = database->cursor(database.Get(), nullptr, &cursor, 0);
        }
        return error == 0 || FailDatabase(file, error);
    } catch (const SystemError& error) {
        return Fail(error);
    }
}

// While it is open, no new file can have its number; time and size reveal a file that was
// overwritten.
bool UnixRegistry::Opened::IsCurrent() const {
    struct stat named;
    const struct stat& identity = database.Status();
    return stat(file.c_str(), &named) == 0 && named.st_ino == identity.st_ino &&
           named.st_dev == identity.st_dev && named.st_size == identity.st_size &&
           named.st_mtim.tv_sec == identity.st_mtim.tv_sec &&
           named.st_mtim.tv_nsec == identity.st_mtim.tv_nsec;
}

// @return 0 or the system's error number
static int CopyBytes(int from, int to) {
    struct stat status;
    if (fstat(from, &status) != 0) {
        return errno;
    }
    for (off_t done = 0; done < status.st_size;) {
        const auto rest = static_cast<std::size_t>(status.st_size - done);
        const ssize_t copied = sendfile(to, from, &done, rest);
        if (copied < 0 && errno != EINTR) {
            return errno;
        }
        if (copied == 0) {
            return EIO;
        }
    }
    return 0;
}

// A copy of the database, in memory, that takes the database's place when it is committed. Berkeley
// DB never writes to the disk by itself: it would sync more often, and report fewer failures.
class UnixRegistry::Change {
public:
    bool Begin(const std::string& file);
    int Put(DBT key, DBT value) { return database->put(database.Get(), nullptr, &key, &value, 0); }
    int Delete(DBT key) { return database->del(database.Get(), nullptr, &key, 0); }
    bool Commit();

    // Creates the database unless another writer was first.
    bool Create(const std::string& file) { return Begin(file) && (!isNew || Commit()); }

    // A forked child has neither the lock nor memory of its own for the copy.
    bool IsOurs() const { return lock->IsCurrent() || Fail(lock->Path(), "the lock is lost"); }

private:
    int CopyDatabase();

    std::unique_ptr<FileLock> lock;
    std::string target;  // where links lead: that file is replaced, and locked
    bool isNew = false;
    FileDescriptor memory;
    RegistryDatabase database;
};

bool UnixRegistry::Change::Begin(const std::string& file) {
    try {
        target = vantry_internal::FollowLinks(file);
        lock = vantry_internal::LockRegistry(target);
        memory = FileDescriptor(memfd_create("registry", MFD_CLOEXEC));
        int error = memory ? CopyDatabase() : errno;
        if (error == 0) {
            error = database.OpenCopy(memory, isNew);
        }
        return error == 0 || FailDatabase(target, error);
    } catch (const SystemError& error) {
        return Fail(error);
    }
}

int UnixRegistry::Change::CopyDatabase() {
    try {
        const FileDescriptor current = vantry_internal::OpenRegular(target, O_RDONLY);
        return CopyBytes(current.Get(), memory.Get());
    } catch (const SystemError& error) {
        if (error.Number() != ENOENT) {
            throw;
        }
        isNew = true;
        return 0;
    }
}

bool UnixRegistry::Change::Commit() {
    if (!IsOurs()) {
        return false;
    }
    if (const int error = database.Close(0)) {
        return FailDatabase(target, error);
    }
    try {
        AtomicFile file(target, AtomicFile::Existing::replace, 0600);
        if (const int error = CopyBytes(memory.Get(), file.Descriptor())) {
            return FailDatabase(target, error);
        }
        file.Commit();
        return true;
    } catch (const SystemError& error) {
        return Fail(error);
    }
}

UnixRegistry::UnixRegistry() = default;

UnixRegistry::~UnixRegistry() {
    Close();
}

bool UnixRegistry::Open(bool readWrite) {
    Close();
    auto opening = std::make_unique<Opened>();
    opening->file = DatabasePath();
    if (opening->file.empty()) {
        return Fail("BASEKIT_REGISTRY, XDG_DATA_HOME, HOME", "none is set to name the registry");
    }
    if (readWrite && access(opening->file.c_str(), F_OK) != 0 && !Change().Create(opening->file)) {
        return false;
    }
    if (!opening->Open()) {
        return false;
    }
    opened = std::move(opening);
    handle = opened->Handle();
    writable = readWrite;
    return true;
}

void UnixRegistry::Close() {
    handle = nullptr;
    writable = false;
    opened.reset();
}

// Opens the file that the path names now. While that cannot be opened, the store continues with
// the state that it has open; LastError() then has the reason.
bool UnixRegistry::Refresh() {
    if (opened == nullptr) {
        return Fail("registry", "not open");
    }
    vantry_internal::ClearRegistryError();
    if (opened->IsCurrent()) {
        return true;
    }
    auto opening = std::make_unique<Opened>();
    opening->file = opened->file;
    if (opening->Open()) {
        opened = std::move(opening);
        handle = opened->Handle();
    }
    return true;
}

bool UnixRegistry::GetKey(const qtString& key, const char*& data, unsigned& length) {
    if (!Refresh() || key.size() > INT_MAX) {
        return false;
    }
    DBT wanted = Bytes(key.data(), key.size());
    DBT value{};
    DB* const database = opened->database.Get();
    if (const int error = database->get(database, nullptr, &wanted, &value, 0)) {
        return error != DB_NOTFOUND && FailDatabase(opened->file, error);
    }
    data = static_cast<const char*>(value.data);
    length = value.size;
    return true;
}

bool UnixRegistry::SetKey(const qtString& key, const char* data, unsigned length) {
    Update update(*this);
    return update.Set(key, data, length) && update.Commit();
}

bool UnixRegistry::ForEach(const Visitor& visit) {
    if (!Refresh()) {
        return false;
    }
    DBC* const cursor = opened->cursor;
    DBT key{};
    DBT value{};
    int error = cursor->get(cursor, &key, &value, DB_FIRST);
    while (error == 0) {
        visit(std::string(static_cast<const char*>(key.data), key.size),
              static_cast<const char*>(value.data), value.size);
        error = cursor->get(cursor, &key, &value, DB_NEXT);
    }
    return error == DB_NOTFOUND || FailDatabase(opened->file, error);
}

UnixRegistry::Update::Update(UnixRegistry& changed) : registry(changed) {}

UnixRegistry::Update::~Update() = default;

bool UnixRegistry::Update::Begin() {
    if (failed) {
        return false;
    }
    if (change != nullptr) {
        failed = !change->IsOurs();
        return !failed;
    }
    if (!registry.writable) {
        failed = true;
        return Fail("registry", "not open for writing");
    }
    auto beginning = std::make_unique<Change>();
    failed = !beginning->Begin(registry.opened->file);
    if (!failed) {
        change = std::move(beginning);
    }
    return !failed;
}

bool UnixRegistry::Update::Apply(int error) {
    if (error == 0) {
        return true;
    }
    if (error == DB_NOTFOUND) {
        return Missing();
    }
    // The copy may hold half a change now.
    failed = true;
    change.reset();
    return FailDatabase(registry.opened->file, error);
}

bool UnixRegistry::Update::Set(const qtString& key, const char* data, std::size_t length) {
    // ndbm counts bytes in an int.
    if (key.size() > INT_MAX || length > INT_MAX) {
        failed = true;
        change.reset();
        return Fail("registry", "key or value longer than 2147483647 bytes");
    }
    return Begin() && Apply(change->Put(Bytes(key.data(), key.size()), Bytes(data, length)));
}

bool UnixRegistry::Update::Remove(const qtString& key) {
    if (key.size() > INT_MAX) {
        return Missing();
    }
    return Begin() && Apply(change->Delete(Bytes(key.data(), key.size())));
}

bool UnixRegistry::Update::Commit() {
    if (failed) {
        return false;
    }
    const std::unique_ptr<Change> ending = std::move(change);
    return ending == nullptr || ending->Commit();
}
