#pragma once

#include <pthread.h>

#include "basekit/Export.h"

/// A mutual exclusion lock that the standard lock holders (std::lock_guard and its kin) work on.
class VANTRY_EXPORT qtMutex {
public:
    /// @param recursive true when the thread that holds the lock may take it again; it then has to
    ///        release it as often.
    /// @throws std::system_error when the system has no room for one more lock.
    explicit qtMutex(bool recursive);
    ~qtMutex();
    qtMutex(const qtMutex&) = delete;
    qtMutex& operator=(const qtMutex&) = delete;

    /// Waits for the lock and takes it.
    void lock();
    /// Takes the lock if nobody holds it. @return true when it was taken.
    bool try_lock();
    /// Releases the lock, which the calling thread must hold.
    void unlock();

private:
    pthread_mutex_t mutex;
};
