// RPtr: a pointer that counts, and Counted, the base of what it points to.
#ifndef FXDS_COUNTED_H
#define FXDS_COUNTED_H

#include <utility>

#include "fxds/Config.h"
#include "fxds/detail/MovesAsBytes.h"

/// Base of objects that are held through RPtr. Starts with no holders.
class FX_API Counted {
public:
    Counted() : count(0) {}
    Counted(const Counted&) : count(0) {}
    Counted& operator=(const Counted&) { return *this; }
    virtual ~Counted();

    int count;  ///< Number of pointers that hold the object.
};

/// The destructor gives up one hold. The constructor takes none: the deriving
/// class does (see RPtr). A target whose count falls to 0 or below is
/// destroyed.
class FX_API RPtr_base {
public:
    /// `target` may be null. Its count is left as it is.
    explicit RPtr_base(Counted* target = nullptr) : pointer(target) {}
    RPtr_base(const RPtr_base&) = delete;
    RPtr_base& operator=(const RPtr_base&) = delete;
    ~RPtr_base() { drop(); }

protected:
    /// Releases the target. The pointer is null before the target is destroyed,
    /// so that a destructor cannot reach a dying object through it.
    void drop() {
        Counted* target = std::exchange(pointer, nullptr);
        if (target == nullptr || --target->count > 0) return;
        target->count = ending;
        delete target;
    }

    Counted* pointer;  ///< Shared, may be null.

private:
    // Added to the count so that it cannot reach 0: the target may be held and
    // released while it is being destroyed.
    static constexpr int ending = 1 << 30;
};

/// Shares a T, which derives from Counted: the last RPtr to release it deletes it.
template <class T>
class RPtr : public RPtr_base {
public:
    RPtr() = default;
    RPtr(T* target) : RPtr_base(taken(target)) {}  ///< Implicit: `RPtr<T> p = new T`.
    RPtr(const RPtr& other) : RPtr_base(taken(other.get())) {}
    RPtr(RPtr&& other) noexcept : RPtr_base(std::exchange(other.pointer, nullptr)) {}
    /// The new target is held before the old one is released.
    RPtr& operator=(RPtr other) noexcept {
        std::swap(pointer, other.pointer);
        return *this;
    }

    ///@{
    /// Null when nothing is held; Requires for the operators: something is.
    T* get() const { return static_cast<T*>(pointer); }
    T* operator->() const {
        FX_ASSERT(pointer != nullptr);
        return get();
    }
    T& operator*() const {
        FX_ASSERT(pointer != nullptr);
        return *get();
    }
    ///@}
    explicit operator bool() const { return pointer != nullptr; }

    ///@{
    /// Equal when both hold the same object; the objects are not compared.
    friend bool operator==(const RPtr& a, const RPtr& b) { return a.pointer == b.pointer; }
    friend bool operator!=(const RPtr& a, const RPtr& b) { return a.pointer != b.pointer; }
    ///@}

private:
    static Counted* taken(Counted* target) {
        if (target != nullptr) ++target->count;
        return target;
    }
};

template <class T>
struct fxMovesAsBytes<RPtr<T>> : std::true_type {};

#endif
