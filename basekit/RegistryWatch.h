#pragma once

/// @file
/// Changes of the registry, as they happen.

#include <functional>
#include <memory>

#include "basekit/Export.h"
#include "basekit/qtString.h"

/// Reports what any program changes in the registry (basekit/UnixRegistry.h):
///
///     RegistryWatch watch;
///     if (watch.Open("Pop/")) {
///         while (watch.Wait(-1, [](const qtString& key, const qtString* value) {
///             std::cout << key << (value == nullptr ? " removed" : " set") << std::endl;
///         })) {
///         }
///     }
///
/// It compares states: of several changes in quick succession, it may report only their sum, but it
/// always reports the last state of every key. A change of a value to the same value is none.
///
/// Not promised: changes that another machine makes on a network file system; and the removal of
/// the database's file, after which the last state counts until there is another file.
///
/// An object serves one thread at a time.
class VANTRY_EXPORT RegistryWatch {
public:
    /// Watches nothing.
    RegistryWatch();
    ~RegistryWatch();
    RegistryWatch(const RegistryWatch&) = delete;
    RegistryWatch& operator=(const RegistryWatch&) = delete;

    /// Starts to watch: changes after this moment are reported. The database need not exist; one
    /// that appears later counts as empty before. A former watch of the object ends.
    /// @param prefix only keys that begin with it; empty: all keys
    /// @return false when the system cannot watch files or the registry cannot be read, with the
    ///         reason in UnixRegistry::LastError(); the object then watches nothing
    bool Open(const qtString& prefix = qtString());

    /// Receives one change: the key and its new value, or null when the key was removed. Both are
    /// valid during the call. It may use the registry, but not the watch.
    using Visitor = std::function<void(const qtString& key, const qtString* value)>;

    /// Waits for changes and passes them to `visit`, in the order of keys.
    /// @param milliseconds how long to wait at most; 0: not at all, -1: without a limit
    /// @return true after at least one change. Otherwise false: when the time is over or a signal
    ///         handler has run, with an empty UnixRegistry::LastError(); on failure, with the
    ///         reason. The next call reports what was not reported yet.
    /// @throws what `visit` throws; changes that it has not received by then are lost
    bool Wait(int milliseconds, const Visitor& visit);

    /// A descriptor, owned by the object, that becomes readable when Wait(0) may have something to
    /// report: for poll(2) in a loop of the program's own. -1 while nothing is watched.
    int Descriptor() const;

private:
    struct VANTRY_LOCAL State;
    std::unique_ptr<State> state;
};
