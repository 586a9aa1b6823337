#pragma once

#include <atomic>

/// A single value that one thread changes while others read it. It reads and assigns like a plain
/// `T`; each read is one lock-free load with acquire order, each assignment one store with release
/// order.
///
/// A thread that reads a value also sees everything its writer wrote before it. Successive reads of
/// two fields are not a consistent snapshot. There is no read-modify-write operation: `x = x + 1`
/// is for the one thread that changes `x`. Safe in signal handlers.
template <class T>
class qtAtomic {
public:
    /// Zero, false or null.
    constexpr qtAtomic() noexcept : stored(T()) {}
    /// Starts with `initial`.
    constexpr explicit qtAtomic(T initial) noexcept : stored(initial) {}
    /// One load of the other value, then one store.
    /// @{
    qtAtomic(const qtAtomic& other) noexcept : stored(other.Load()) {}
    qtAtomic& operator=(const qtAtomic& other) noexcept { return *this = other.Load(); }
    /// @}
    ~qtAtomic() = default;

    /// One store, which publishes what this thread wrote before.
    qtAtomic& operator=(T value) noexcept {
        stored.store(value, std::memory_order_release);
        return *this;
    }
    /// One load.
    operator T() const noexcept { return Load(); }

private:
    static_assert(std::atomic<T>::is_always_lock_free, "a signal handler could deadlock");

    T Load() const noexcept { return stored.load(std::memory_order_acquire); }

    std::atomic<T> stored;
};
