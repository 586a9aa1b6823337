#pragma once

/// @file
/// The registry: a database that all programs of a user share.

#include <cstddef>
#include <functional>
#include <memory>

#include "basekit/Export.h"
#include "basekit/qtString.h"

// Berkeley DB's DBM: who includes db.h with DB_DBM_HSEARCH set to 1 may use a store's handle.
struct __db;  // NOLINT(bugprone-reserved-identifier): the name is Berkeley DB's

/// The registry: a database of keys and values, both any bytes, that all programs of a user share.
///
///     UnixRegistry store;
///     const char* data;
///     unsigned length;
///     if (store.Open(true) && store.SetKey("Pop/Greeting", "hello", 5) &&
///         store.GetKey("Pop/Greeting", data, length)) {
///         std::cout.write(data, length);
///     }
///
/// The database is the file named by the environment variable BASEKIT_REGISTRY and ".db"; without
/// that variable $XDG_DATA_HOME/basekit/registry.db, without that too
/// $HOME/.local/share/basekit/registry.db.
///
/// Any number of processes and threads may have it open and write at once. A change is made to a
/// copy that takes the database's place in one step, under a lock: a value is on disk when the call
/// that stored it has returned true, a reader sees the state before or after a change and never one
/// between, and a process killed at any instant leaves one or the other. A store that stays open
/// keeps nobody out and sees what others have stored meanwhile. Writing therefore costs time in
/// proportion to the size of the whole database; storing many values, use one Update.
///
/// Not promised: anything against programs that write the file by other means; and where one of
/// them uses ndbm, that it, or a store, finds both a key of more than 256 bytes and a shorter one
/// that this begins with.
///
/// One store object serves one thread at a time. It keeps what it needs to itself; a file that was
/// damaged is answered with false, unless the damage leads Berkeley DB astray: databases made here
/// carry checksums against that, those made elsewhere may not.
class VANTRY_EXPORT UnixRegistry {
public:
    /// A closed store.
    UnixRegistry();
    /// Closes.
    ~UnixRegistry();
    UnixRegistry(const UnixRegistry&) = delete;
    UnixRegistry& operator=(const UnixRegistry&) = delete;

    /// Opens the database, closing a former one.
    /// @param readWrite true to be able to write; this creates what is missing: the database (mode
    ///        0600) and the folders above it (mode 0700)
    /// @return true when the store is open
    bool Open(bool readWrite);

    /// Closes the database; harmless on a store that is not open.
    void Close();

    /// Looks a key up.
    /// @param[out] data the value's first byte, owned by the store and valid until the next
    ///        operation on it; may be null for an empty value. Unchanged when false is returned.
    /// @param[out] length the number of bytes
    /// @return true when the key exists
    bool GetKey(const qtString& key, const char*& data, unsigned& length);

    /// Stores a value, replacing a former one.
    /// @return true when it is on disk; otherwise what was stored before stays
    bool SetKey(const qtString& key, const char* data, unsigned length);

    /// Receives one record; the bytes are valid during the call, which may not use the store.
    using Visitor = std::function<void(const qtString& key, const char* data, unsigned length)>;

    /// Shows all records to `visit`, in no particular order: the state at one moment, however long
    /// it takes and whoever writes meanwhile. When the database's file was removed since Open() it
    /// is the last state that the store saw. What `visit` throws passes through.
    /// @return true when there was no record that it did not see
    bool ForEach(const Visitor& visit);

    /// The ndbm handle, valid until the next operation on the store; null while it is not open.
    __db* Handle() const { return handle; }

    /// The path of the database, whether it exists or not; empty when the environment names none.
    static qtString DatabasePath();

    /// What made the last failed operation of the calling thread fail, of any store or qtEncryptor:
    /// the file and the cause in words, fit for the end of a message. Empty before, and again when
    /// a key was not there: that is no failure.
    static qtString LastError();

    /// Receives a line such as "waiting for FILE, locked by process 123 (vexreg)".
    using WaitReport = void (*)(const char* line);

    /// Sends a line to `report` whenever a call of any store or qtEncryptor has waited a second for
    /// another writer; null, the default, drops it. `report` runs on the waiting thread and must
    /// not use the registry. Safe to call from any thread.
    /// @return the function that it replaces
    static WaitReport SetWaitReport(WaitReport report);

    class Update;

private:
    struct VANTRY_LOCAL Opened;
    class VANTRY_LOCAL Change;
    VANTRY_LOCAL bool Refresh();

    __db* handle = nullptr;
    bool writable = false;
    std::unique_ptr<Opened> opened;
};

/// Several changes that take effect together: all, when Commit() returns true, or none.
///
///     UnixRegistry::Update update(store);
///     update.Set("Pop/A", "1", 1);
///     update.Remove("Pop/B");
///     if (update.Commit()) ...  // not when a change has failed
///
/// From its first change to Commit() or its destruction it keeps other writers waiting, but no
/// reader: the store itself shows the changes after Commit(). The store must outlive it.
class VANTRY_EXPORT UnixRegistry::Update {
public:
    /// No change yet, and no lock; `registry` has to be open for writing and to outlive this.
    explicit Update(UnixRegistry& registry);
    /// Forgets what was not committed.
    ~Update();
    Update(const Update&) = delete;
    Update& operator=(const Update&) = delete;

    /// Stores a value under a key.
    /// @return false when the store is not open for writing, another writer did not finish within
    ///         30 seconds, or the database could not take the value; Commit() then refuses
    bool Set(const qtString& key, const char* data, std::size_t length);

    /// Takes a key and its value out.
    /// @return true when the key existed; when it did not, Commit() does not mind
    bool Remove(const qtString& key);

    /// Makes the changes last. Nothing to change is no failure.
    /// @return true when they are on disk; otherwise what was stored before stays. Only when the
    ///         last step failed, writing the folder, may others already see the changes.
    bool Commit();

private:
    VANTRY_LOCAL bool Begin();
    VANTRY_LOCAL bool Apply(int error);

    const UnixRegistry& registry;
    std::unique_ptr<Change> change;
    bool failed = false;
};
