#pragma once

#include <memory>
#include <utility>

#include "basekit/Export.h"
#include "basekit/qtMutex.h"

/// What all qtPtr<T> share: the holder of the count.
class VANTRY_EXPORT qtPtrBase {
public:
    /// Counts the references to one object; for qtPtr alone.
    class VANTRY_EXPORT m_CountAux {
    public:
        m_CountAux() = default;
        virtual ~m_CountAux() = 0;
        m_CountAux(const m_CountAux&) = delete;
        m_CountAux& operator=(const m_CountAux&) = delete;

        /// One more reference.
        void Take();
        /// One reference less. @return true when that was the last one; the caller then deletes the
        /// holder.
        bool Release();

        /// Set it, before any other thread starts, in a process that has one thread only: counts
        /// then change without the lock.
        static bool s_singleThread;

    private:
        qtMutex mutex{false};
        int count = 1;
    };
};

/// A counted pointer that owns its object: the last qtPtr to let go deletes it.
///
/// The count may be changed from several threads at once, through different qtPtr objects. One
/// qtPtr object serves one thread at a time, and the object pointed to is the callers' concern.
template <class T>
class qtPtr : public qtPtrBase {
public:
    /// Points nowhere.
    qtPtr() = default;

    /// Takes over a newly created object (null gives an empty pointer).
    /// @throws std::bad_alloc when there is no memory for the count; the object is then deleted.
    explicit qtPtr(T* newObject) {
        std::unique_ptr<T> guard(newObject);
        if (newObject != nullptr) {
            holder = new Holder(newObject);
            object = guard.release();
        }
    }

    /// A copy shares the object; what was moved from points nowhere.
    /// @{
    qtPtr(const qtPtr& other) : holder(other.holder), object(other.object) {
        if (holder != nullptr) {
            holder->Take();
        }
    }
    qtPtr(qtPtr&& other) noexcept { Swap(other); }
    /// @}
    /// The former object is released after the new one has been taken.
    qtPtr& operator=(qtPtr other) noexcept {
        Swap(other);
        return *this;
    }
    ~qtPtr() {
        if (holder != nullptr && holder->Release()) {
            delete holder;
        }
    }

    /// The object, which the pointer keeps owning. An empty pointer gives null and may not be
    /// followed.
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
