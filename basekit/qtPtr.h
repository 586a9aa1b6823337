#pragma once

#include <memory>
#include <utility>

#include "basekit/Export.h"
#include "basekit/qtMutex.h"

/// The part of qtPtr<T> that does not depend on T: the holder of the count.
class VANTRY_EXPORT qtPtrBase {
public:
    /// Counts the references to one object. Only qtPtr uses it.
    class VANTRY_EXPORT m_CountAux {
    public:
        m_CountAux() = default;
        virtual ~m_CountAux() = 0;
        m_CountAux(const m_CountAux&) = delete;
        m_CountAux& operator=(const m_CountAux&) = delete;

        /// Adds a reference.
        void Take();
        /// Removes a reference. @return true if it was the last; the caller then deletes the holder
        bool Release();

        /// Makes counts change without the lock, in the entire process. Set it only in a process
        /// that has one thread for its entire life.
        static bool s_singleThread;

    private:
        qtMutex mutex{false};
        int count = 1;
    };
};

/// A counted pointer that owns its object: the last qtPtr that is destroyed deletes it.
///
/// Different qtPtr objects may share an object across threads: the count is thread-safe. A single
/// qtPtr is not, and access to the object is up to the caller.
template <class T>
class qtPtr : public qtPtrBase {
public:
    /// Empty.
    qtPtr() = default;

    /// Takes ownership of a new object; null makes an empty pointer.
    /// @throws std::bad_alloc if there is no memory for the count; the object is then deleted
    explicit qtPtr(T* newObject) {
        std::unique_ptr<T> guard(newObject);
        if (newObject != nullptr) {
            holder = new Holder(newObject);
            object = guard.release();
        }
    }

    /// A copy shares the object; a moved-from pointer is empty.
    /// @{
    qtPtr(const qtPtr& other) : holder(other.holder), object(other.object) {
        if (holder != nullptr) {
            holder->Take();
        }
    }
    qtPtr(qtPtr&& other) noexcept { Swap(other); }
    /// @}
    /// Shares the other pointer's object, then releases the former one.
    qtPtr& operator=(qtPtr other) noexcept {
        Swap(other);
        return *this;
    }
    ~qtPtr() {
        if (holder != nullptr && holder->Release()) {
            delete holder;
        }
    }

    /// The object, still owned by the pointer. For an empty pointer, Get() returns null and the
    /// other two operators are undefined.
    /// @{
    T* Get() const { return object; }
    T* operator->() const { return object; }
    T& operator*() const { return *object; }
    explicit operator bool() const { return object != nullptr; }
    /// @}

private:
    struct Holder : m_CountAux {
        explicit Holder(T* newObject) : owned(newObject) {}
        std::unique_ptr<T> owned;
    };

    void Swap(qtPtr& other) noexcept {
        std::swap(holder, other.holder);
        std::swap(object, other.object);
    }

    m_CountAux* holder = nullptr;
    T* object = nullptr;
};
