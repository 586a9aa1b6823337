#pragma once

#include <memory>
#include <utility>

#include "basekit/Export.h"

/// What all qtPtrLight<T> share: the holders of their counts.
class VANTRY_EXPORT qtPtrLightBase {
public:
    /// Counts the references; deleting it deletes the object.
    class VANTRY_EXPORT m_CountAux {
    public:
        m_CountAux();
        virtual ~m_CountAux() noexcept(false) = 0;
        m_CountAux(const m_CountAux&) = delete;
        m_CountAux& operator=(const m_CountAux&) = delete;

        int count = 1;  ///< references to the object
    };

    /// Knows the type that its object was created as.
    template <class T>
    class m_TCountAux : public m_CountAux {
    public:
        /// Takes ownership of the object.
        explicit m_TCountAux(T* newObject) : object(newObject) {}
        // Not a std::unique_ptr: that would end the process when a stream's destructor throws.
        ~m_TCountAux() noexcept(false) override { delete object; }

    private:
        T* object;
    };
};

/// A counted pointer that owns its object, as qtPtr does, but counts without a lock: all pointers
/// to one object must be used by one thread at a time.
template <class T>
class qtPtrLight : public qtPtrLightBase {
public:
    /// An empty pointer.
    qtPtrLight() = default;

    /// Takes ownership of a newly created object of `T` or of a class derived from it. Null makes
    /// an empty pointer.
    /// @throws std::bad_alloc if there is no memory for the count; the object is then deleted
    template <class U>
    explicit qtPtrLight(U* newObject) {
        std::unique_ptr<U> owned(newObject);
        if (newObject != nullptr) {
            holder = new m_TCountAux<U>(newObject);
            object = owned.release();
        }
    }

    /// A copy shares the object; a pointer that was moved from is empty.
    /// @{
    qtPtrLight(const qtPtrLight& other) : holder(other.holder), object(other.object) {
        if (holder != nullptr) {
            ++holder->count;
        }
    }
    qtPtrLight(qtPtrLight&& other) noexcept { Swap(other); }
    /// @}

    /// Takes the new target, then releases the former one. Throws what the destructor of the former
    /// target throws; the pointer then has its new target.
    qtPtrLight& operator=(qtPtrLight other) noexcept {
        Swap(other);
        return *this;
    }

    /// Throws what the destructor of the object throws: a file stream reports from there that
    /// closing failed.
    ~qtPtrLight() noexcept(false) {
        if (holder != nullptr && --holder->count == 0) {
            delete holder;
        }
    }

    /// The object, which stays owned by the pointer. Get() of an empty pointer is null; an empty
    /// pointer may not be dereferenced.
    /// @{
    T* Get() const { return object; }
    T* operator->() const { return object; }
    T& operator*() const { return *object; }
    explicit operator bool() const { return object != nullptr; }
    /// @}

private:
    void Swap(qtPtrLight& other) noexcept {
        std::swap(holder, other.holder);
        std::swap(object, other.object);
    }

    m_CountAux* holder = nullptr;
    T* object = nullptr;
};
