#include "basekit/qtMutex.h"

#include <system_error>

qtMutex::qtMutex(bool recursive) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes,
                              recursive ? PTHREAD_MUTEX_RECURSIVE : PTHREAD_MUTEX_NORMAL);
    const int error = pthread_mutex_init(&mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), "qtMutex");
    }
}

qtMutex::~qtMutex() {
    pthread_mutex_destroy(&mutex);
}

void qtMutex::lock() {
    const int error = pthread_mutex_lock(&mutex);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), "qtMutex::lock");
    }
}

bool qtMutex::try_lock() {
    return pthread_mutex_trylock(&mutex) == 0;
}

void qtMutex::unlock() {
    pthread_mutex_unlock(&mutex);
}
