#pragma once

#include <atomic>

/// A single value that one thread changes while others look at it: it reads and assigns like a
/// plain `T`, and every read and every assignment is one lock-free load or store.
///
/// Whoever reads a value also sees what its writer had written before it. Two fields read one after
/// the other may stem from different moments. There is no operation that reads and writes in one
/// step: `x = x + 1` is for the one thread that changes `x`. Signal handlers may use it.
template <class T>
class qtAtomic {
public:
    /// Zero, false or null.
    qtAtomic() noexcept : stored(T()) {}
    /// Starts with `initial`.
    explicit qtAtomic(T initial) noexcept : stored(initial) {}
    /// One load of the other value, then one store.
    /// @{
    qtAtomic(const qtAtomic& other) noexcept : stored(other.Load()) {}
    qtAtomic& operator=(const qtAtomic& other) noexcept { return *this = other.Load(); }
    /// @}
    ~qtAtomic() = default;

    /// One store, which publishes what this thread has written before.
    qtAtomic& operator=(T value) noexcept {
        stored.store(value, std::memory_order_release);
        return *this;
    }
    /// One load.
    operator T() const noexcept { return Load(); }

private:
    static_assert(std::atomic<T>::is_always_lock_free, "a signal handler could wait for ever");

    T Load() const noexcept { return stored.load(std::memory_order_acquire); }

    std::atomic<T> stored;
};
