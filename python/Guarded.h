#pragma once

#include <pybind11/pybind11.h>

#include <cerrno>
#include <mutex>

namespace vantry_python {

/// Keeps forks out of calls that run without the interpreter's lock: a child in which another
/// thread's lock is held, and that thread does not exist, would wait forever.
namespace ForkGate {

/// While one exists, no fork of the interpreter starts. Create it without the interpreter's lock.
/// A thread may hold several.
class Passage {
public:
    Passage();
    ~Passage();
    Passage(const Passage&) = delete;
    Passage& operator=(const Passage&) = delete;
};

/// How many forks lie between the process that loaded the module and this one.
unsigned int Generation();

/// Registers with the interpreter.
void Install();

}  // namespace ForkGate

/// An object that any thread may use: calls wait for each other, and other threads of the
/// interpreter run meanwhile.
template <class T>
class Guarded {
public:
    /// Calls work(object) before another thread can have the object. This may wait for long, as for
    /// the peer of a FIFO, and holds up no fork.
    template <class Work>
    void Prepare(Work work) {
        const pybind11::gil_scoped_release others;
        errno = 0;
        work(object);
    }

    /// Calls work(object), which must not touch Python objects. After a failure, errno is the
    /// system's reason, or 0.
    template <class Work>
    auto Use(Work work) {
        const pybind11::gil_scoped_release others;
        const ForkGate::Passage passage;
        const std::lock_guard<std::mutex> alone(mutex);
        errno = 0;
        return work(object);
    }

private:
    T object;
    std::mutex mutex;
};

}  // namespace vantry_python
