#pragma once

#include <pthread.h>

#include "basekit/Export.h"

/// A mutual exclusion lock for std::lock_guard and the other standard lock holders.
class VANTRY_EXPORT qtMutex {
public:
    /// @param recursive true if the thread that holds the lock may lock it again; it must then
    ///        unlock it as many times
    /// @throws std::system_error if the system cannot create the lock
    explicit qtMutex(bool recursive);
    ~qtMutex();
    qtMutex(const qtMutex&) = delete;
    qtMutex& operator=(const qtMutex&) = delete;

    /// Waits until the lock is free, and takes it.
    void lock();
    /// Takes the lock if it is free. @return true if it was taken
    bool try_lock();
    /// Releases the lock, which the calling thread must hold.
    void unlock();

private:
    pthread_mutex_t mutex;
};
