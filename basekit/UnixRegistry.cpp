#include "basekit/UnixRegistry.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include "basekit/registryFiles.h"

#define DB_DBM_HSEARCH 1
#include <db.h>

using registryFiles::File;

const qtString& UnixRegistry::LastError() {
    return registryFiles::LastError();
}

static bool Missing() {
    registryFiles::LastError().clear();
    return false;
}

static bool Fail(const std::string& file, const std::string& cause) {
    registryFiles::LastError() = file + ": " + cause;
    return false;
}

static bool Fail(const std::string& file, int systemError) {
    return Fail(file, std::generic_category().message(systemError));
}

// Berkeley DB answers with the system's error numbers or with negative ones of its own.
static bool FailDatabase(const std::string& file, int error) {
    if (error > 0 && error != EINVAL) {
        return Fail(file, error);
    }
    return Fail(file,
                "no registry database, or a damaged one (" + std::string(db_strerror(error)) + ")");
}

// The order in which Berkeley DB keeps the keys of a page: of two that begin alike the longer one
// comes first, but of two that are too long for a page the shorter one. By itself it has no fixed
// order for one of either kind, and so misses keys that a long one begins with.
static int CompareKeys(DB* database, const DBT* left, const DBT* right) {
    const u_int32_t shorter = std::min(left->size, right->size);
    const int order = std::memcmp(left->data, right->data, shorter);
    if (order != 0 || left->size == right->size) {
        return order;
    }
    u_int32_t pageSize = 0;
    database->get_pagesize(database, &pageSize);
    const bool bothTooLong = shorter > pageSize / 4;
    return (left->size == shorter) == bothTooLong ? -1 : 1;
}

namespace {

// A Berkeley DB database outside of any environment.
class Database {
public:
    Database() = default;
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;
    ~Database() { Close(DB_NOSYNC); }

    int Open(const std::string& file, unsigned flags) {
        if (const int error = db_create(&database, nullptr, 0)) {
            return error;
        }
        // What it has to say, it would say on standard error.
        database->set_errcall(database, [](const DB_ENV*, const char*, const char*) {});
        // Nothing here needs temporary files: this saves the search for a folder for them.
        DB_ENV* const environment = database->get_env(database);
        environment->set_tmp_dir(environment, "/tmp");
        database->set_h_compare(database, CompareKeys);
        if ((flags & DB_CREATE) != 0) {
            // Small pages make the checksums, which find damage, nearly free.
            database->set_pagesize(database, 1024);
            database->set_h_ffactor(database, 20);
            database->set_flags(database, DB_CHKSUM);
        }
        const int error =
            database->open(database, nullptr, file.c_str(), nullptr, DB_HASH, flags, 0600);
        return error == 0 ? Check() : error;
    }

    int Close(unsigned flags) {
        DB* const closing = std::exchange(database, nullptr);
        if (closing == nullptr) {
            return 0;
        }
        // After it has met damage it would refuse to close, and leak.
        DB_ENV* const environment = closing->get_env(closing);
        environment->set_flags(environment, DB_NOPANIC, 1);
        return closing->close(closing, flags);
    }

    DB* operator->() const { return database; }
    DB* Get() const { return database; }

    // The open file.
    const struct stat& Status() const { return status; }

private:
    // Where a file was cut off, Berkeley DB would find empty pages; the first page knows how many
    // there were.
    int Check() {
        int descriptor = -1;
        if (const int error = database->fd(database, &descriptor)) {
            return error;
        }
        if (fstat(descriptor, &status) != 0) {
            return errno;
        }
        static constexpr std::size_t lastPageOffset = 32;
        u_int32_t pageSize = 0;
        database->get_pagesize(database, &pageSize);
        DB_MPOOLFILE* const pages = database->get_mpf(database);
        db_pgno_t number = 0;
        void* first = nullptr;
        if (const int error = pages->get(pages, &number, nullptr, 0, &first)) {
            return error;
        }
        db_pgno_t last = 0;
        std::memcpy(&last, static_cast<char*>(first) + lastPageOffset, sizeof last);
        pages->put(pages, first, DB_PRIORITY_UNCHANGED, 0);
        const bool whole = status.st_size / pageSize > last;
        return whole ? 0 : DB_VERIFY_BAD;
    }

    DB* database = nullptr;
    struct stat status {};
};

}  // namespace

static DBT Bytes(const char* data, std::size_t length) {
    DBT bytes{};
    bytes.data = const_cast<char*>(data);
    bytes.size = static_cast<u_int32_t>(length);
    return bytes;
}

static std::string DatabaseName(const std::string& path) {
    return path + DBM_SUFFIX;
}

qtString UnixRegistry::DatabasePath() {
    const std::string path = registryFiles::Path();
    return path.empty() ? "" : DatabaseName(path);
}

struct UnixRegistry::Opened {
    std::string file;
    Database database;
    DBC* cursor = nullptr;

    bool Open();
    // What dbm_open would give; but that leaks the database when it fails, and it writes on
    // standard error.
    DBM* Handle() const { return reinterpret_cast<DBM*>(cursor); }
    bool IsCurrent(bool& current) const;
    bool IsRemoved() const { return access(file.c_str(), F_OK) != 0 && errno == ENOENT; }
};

bool UnixRegistry::Opened::Open() {
    int error = database.Open(file, DB_RDONLY);
    if (error == 0) {
        error = database->cursor(database.Get(), nullptr, &cursor, 0);
    }
    return error == 0 || FailDatabase(file, error);
}

// The open file can not have lost its number to a new one, so the numbers tell another file; time
// and size tell a file that was overwritten.
bool UnixRegistry::Opened::IsCurrent(bool& current) const {
    struct stat named;
    if (stat(file.c_str(), &named) != 0) {
        return Fail(file, errno);
    }
    const struct stat& identity = database.Status();
    current = named.st_ino == identity.st_ino && named.st_dev == identity.st_dev &&
              named.st_size == identity.st_size &&
              named.st_mtim.tv_sec == identity.st_mtim.tv_sec &&
              named.st_mtim.tv_nsec == identity.st_mtim.tv_nsec;
    return true;
}

static int CopyBytes(const File& from, const File& to) {
    struct stat status;
    if (fstat(from.Get(), &status) != 0) {
        return errno;
    }
    for (off_t done = 0; done < status.st_size;) {
        const auto rest = static_cast<std::size_t>(status.st_size - done);
        const ssize_t copied = sendfile(to.Get(), from.Get(), &done, rest);
        if (copied < 0 && errno != EINTR) {
            return errno;
        }
        if (copied == 0) {
            return EIO;
        }
    }
    return 0;
}

// The file that a name leads to, which need not exist.
static std::filesystem::path LinkTarget(std::filesystem::path path, std::error_code& error) {
    static constexpr int mostLinks = 40;  // as the kernel follows
    for (int links = 0; links < mostLinks; ++links) {
        std::error_code isNoLink;
        const std::filesystem::path next = std::filesystem::read_symlink(path, isNoLink);
        if (isNoLink) {
            return std::filesystem::weakly_canonical(path, error);
        }
        path = path.parent_path() / next;
    }
    error = std::make_error_code(std::errc::too_many_symbolic_link_levels);
    return {};
}

// A copy of the database, in memory, that takes the database's place when it is committed. Berkeley
// DB never writes to the disk by itself: it would sync more often and tell less of what failed.
class UnixRegistry::Change {
public:
    bool Begin(const std::string& file);
    int Put(DBT key, DBT value) { return database->put(database.Get(), nullptr, &key, &value, 0); }
    int Delete(DBT key) { return database->del(database.Get(), nullptr, &key, 0); }
    bool Commit();

    // Makes the database unless another writer was first.
    bool Create(const std::string& file) { return Begin(file) && (!isNew || Commit()); }

private:
    registryFiles::Lock lock;
    std::string target;
    bool isNew = false;
    struct stat former {};
    File memory;
    Database database;
};

bool UnixRegistry::Change::Begin(const std::string& file) {
    // Where the name is a link, the file that it points to is replaced, and locked.
    std::error_code unresolved;
    target = LinkTarget(file, unresolved).string();
    if (unresolved) {
        return Fail(file, unresolved.value());
    }
    if (const int error = lock.Take(target)) {
        return Fail(target + ".lock", registryFiles::Lock::Message(error));
    }
    memory = File(memfd_create("registry", MFD_CLOEXEC));
    if (!memory) {
        return Fail(target, errno);
    }
    const File current(open(target.c_str(), O_RDONLY | O_CLOEXEC));
    isNew = !current && errno == ENOENT;
    if (!isNew) {
        const bool known = current && fstat(current.Get(), &former) == 0;
        if (const int error = known ? CopyBytes(current, memory) : errno) {
            return Fail(target, error);
        }
    }
    const std::string name = "/proc/self/fd/" + std::to_string(memory.Get());
    const int error = database.Open(name, isNew ? DB_CREATE : 0);
    return error == 0 || FailDatabase(target, error);
}

bool UnixRegistry::Change::Commit() {
    if (const int error = database.Close(0)) {
        return FailDatabase(target, error);
    }
    const File written = registryFiles::CreateNew(target, 0600);
    int error = written ? CopyBytes(memory, written) : errno;
    if (error == 0 && !isNew) {
        // Only root can give it to its former owner; the others may read what they could before.
        const bool kept = fchown(written.Get(), former.st_uid, former.st_gid) == 0;
        const mode_t mode = former.st_mode & (kept ? 07777 : 0777);
        error = fchmod(written.Get(), mode) == 0 ? 0 : errno;
    }
    if (error == 0) {
        error = registryFiles::Publish(written, target);
    }
    if (error == 0) {
        return true;
    }
    registryFiles::Discard(target);
    return Fail(target, error);
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

// Goes over to the file that is now behind the path. A store stays open when there is none.
bool UnixRegistry::Refresh() {
    if (opened == nullptr) {
        return Fail("registry", "not open");
    }
    bool current = false;
    if (!opened->IsCurrent(current) || current) {
        return current;
    }
    auto opening = std::make_unique<Opened>();
    opening->file = opened->file;
    if (!opening->Open()) {
        return false;
    }
    opened = std::move(opening);
    handle = opened->Handle();
    return true;
}

bool UnixRegistry::GetKey(const qtString& key, const char*& data, unsigned& length) {
    if (!Refresh()) {
        return false;
    }
    if (key.size() > INT_MAX) {
        return Missing();
    }
    DBT wanted = Bytes(key.data(), key.size());
    DBT value{};
    DB* const database = opened->database.Get();
    if (const int error = database->get(database, nullptr, &wanted, &value, 0)) {
        return error == DB_NOTFOUND ? Missing() : FailDatabase(opened->file, error);
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
    // Nothing took the place of a file that was removed: what is open is the last state.
    const bool isRemoved = opened != nullptr && opened->IsRemoved();
    if (!isRemoved && !Refresh()) {
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
    if (failed || change != nullptr) {
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
