#pragma once

/// @file
/// The registry: a database that all programs of a user share.

#include <cstddef>
#include <functional>
#include <memory>

#include "basekit/Export.h"
#include "basekit/qtString.h"

// Berkeley DB's DBM: code that includes db.h with DB_DBM_HSEARCH set to 1 may use a store's handle.
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
/// that variable $XDG_DATA_HOME/basekit/registry.db, and without both
/// $HOME/.local/share/basekit/registry.db. Programs with raised privileges (set-user-id) ignore
/// these variables and have no registry.
///
/// Any number of processes and threads may have it open and write at once. A change is made to a
/// copy that replaces the database in one step, under a lock:
/// - once a call that stores a value has returned true, the value is on disk;
/// - a reader sees the state before or after a change, never one in between;
/// - a process killed at any moment leaves one or the other.
/// An open store blocks no one and sees other processes' writes. A write takes time in proportion
/// to the size of the database: to store many values, use one Update.
///
/// A store that is open stays open: while the database cannot be opened again (removed, replaced by
/// something else, no descriptors left), the store shows the last state that it has read.
///
/// Not promised: anything against programs that write the file by other means; and, if one of them
/// uses ndbm, that it or a store finds both a key of more than 256 bytes and a shorter key that the
/// long one begins with. Damage is reported as a failure; but in databases made elsewhere, which
/// may have no checksums, damage after the first page may mislead Berkeley DB.
///
/// One store object serves one thread at a time.
class VANTRY_EXPORT UnixRegistry {
public:
    /// A closed store.
    UnixRegistry();
    /// Closes.
    ~UnixRegistry();
    UnixRegistry(const UnixRegistry&) = delete;
    UnixRegistry& operator=(const UnixRegistry&) = delete;

    /// Opens the database, closing a former one.
    /// @param readWrite true to allow writing; this creates what is missing: the database (mode
    ///        0600) and the folders above it (mode 0700)
    /// @return true if the store is open, otherwise false with the reason in LastError()
    bool Open(bool readWrite);

    /// Closes the database; harmless on a store that is not open.
    void Close();

    /// Looks up a key.
    /// @param[out] data the value's first byte, owned by the store and valid until the next
    ///        operation on it; may be null for an empty value. Unchanged if the result is false.
    /// @param[out] length the number of bytes; unchanged if the result is false
    /// @return true if the key exists
    bool GetKey(const qtString& key, const char*& data, unsigned& length);

    /// Stores a value, replacing a former one.
    /// @return true once it is on disk; otherwise the former value stays
    bool SetKey(const qtString& key, const char* data, unsigned length);

    /// Receives one record; the bytes are valid during the call, which must not use the store.
    using Visitor = std::function<void(const qtString& key, const char* data, unsigned length)>;

    /// Passes all records to `visit`, in no particular order: the state at one moment, regardless
    /// of writers.
    /// @return true if it visited every record
    /// @throws what `visit` throws
    bool ForEach(const Visitor& visit);

    /// The ndbm handle, valid until the next operation on the store; null while it is not open.
    __db* Handle() const { return handle; }

    /// The path of the database, whether it exists or not; empty when the environment names none.
    static qtString DatabasePath();

    /// The reason of the last failure in the calling thread, of any store, watch or qtEncryptor:
    /// "FILE: REASON", cut if it is very long. Empty if there was none; an absent key is no failure
    /// and clears it. It also tells why a store still shows its last state. Works until the process
    /// ends, in destructors of static objects too.
    /// @throws std::bad_alloc
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

/// Several changes that take effect together: all of them if Commit() returns true, otherwise none.
///
///     UnixRegistry::Update update(store);
///     update.Set("Pop/A", "1", 1);
///     update.Remove("Pop/B");
///     if (update.Commit()) ...  // false if a change has failed
///
/// From its first change until it is committed or destroyed, it keeps other writers waiting, but no
/// reader: the store itself shows the changes after Commit(). After fork(), the update belongs to
/// the parent; in the child, every change and Commit() fail.
class VANTRY_EXPORT UnixRegistry::Update {
public:
    /// Does nothing yet. `registry` must be open for writing and outlive the update.
    explicit Update(UnixRegistry& registry);
    /// Discards changes that were not committed.
    ~Update();
    Update(const Update&) = delete;
    Update& operator=(const Update&) = delete;

    /// Stores a value under a key.
    /// @return false if the store is not open for writing, another writer held the lock for 30
    ///         seconds, or the database could not take the value; Commit() then fails
    bool Set(const qtString& key, const char* data, std::size_t length);

    /// Removes a key and its value.
    /// @return true if the key existed. Its absence does not make Commit() fail.
    bool Remove(const qtString& key);

    /// Stores the changes. Without a change, it does nothing and succeeds.
    /// @return true once they are on disk; otherwise the former state stays. Only if syncing the
    ///         folder failed, the last step, others may see the changes already.
    bool Commit();

private:
    VANTRY_LOCAL bool Begin();
    VANTRY_LOCAL bool Apply(int error);

    const UnixRegistry& registry;
    std::unique_ptr<Change> change;
    bool failed = false;
};
