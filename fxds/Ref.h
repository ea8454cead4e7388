// fxRef: a pointer that holds what it points to.
#ifndef FXDS_REF_H
#define FXDS_REF_H

#include <cstddef>
#include <functional>
#include <type_traits>
#include <utility>

#include "fxds/Config.h"
#include "fxds/detail/MovesAsBytes.h"
#include "fxds/detail/NestedRelease.h"

template <class T>
struct fxXdrStd;

/// Shares a T, which counts its holders itself: an fxRCObj or anything that
/// derives from it (objects, properties, events, streams), a boxed value
/// (fxData), an input channel. The last holder to release it destroys it.
///
///     fxRef<Song> song = fxMake<Song>("title");
///     list.append(song);        // a second holder
///
/// A reference converts to its T*, so it is accepted wherever a T* is; a template that
/// deduces the class from a pointer wants get(). Functions that share what they are given hold it
/// themselves. Chains of objects that hold one another end with bounded recursion: those that lie
/// more than 128 deep, or deeper than 256 KB of the stack, end after the object that held them.
///
/// Like the objects, references belong to one thread.
template <class T>
class fxRef {
public:
    typedef T element_type;  ///< What is pointed to.

    fxRef() = default;
    fxRef(std::nullptr_t) {}  ///< Holds nothing.
    /// Holds `target`, which may be null. Implicit: `fxRef<T> r = new T`.
    fxRef(T* target) : pointer(target) {
        if (pointer != nullptr) fxDetail::countedOf(pointer)->take();
    }
    fxRef(const fxRef& other) : fxRef(other.pointer) {}
    fxRef(fxRef&& other) noexcept : pointer(std::exchange(other.pointer, nullptr)) {}
    ///@{
    /// A reference to a class that T is a base of.
    template <class U, std::enable_if_t<std::is_convertible_v<U*, T*>, int> = 0>
    fxRef(const fxRef<U>& other) : fxRef(static_cast<T*>(other.get())) {}
    template <class U, std::enable_if_t<std::is_convertible_v<U*, T*>, int> = 0>
    fxRef(fxRef<U>&& other) noexcept : pointer(std::exchange(other.pointer, nullptr)) {}
    ///@}
    ~fxRef() { reset(); }

    /// The new target is held before the old one is released.
    fxRef& operator=(fxRef other) noexcept {
        swap(other);
        return *this;
    }

    /// Releases the target. The reference is null before the target is destroyed.
    void reset() noexcept {
        T* const target = std::exchange(pointer, nullptr);
        if (target != nullptr) fxDetail::releaseNested(fxDetail::countedOf(target));
    }
    /// Gives the target to the caller: it loses one holder and is not destroyed, even if
    /// none is left. For functions that adopt an object without holders.
    [[nodiscard]] T* release() noexcept {
        T* const target = std::exchange(pointer, nullptr);
        if (target != nullptr) fxDetail::forget(*fxDetail::countedOf(target));
        return target;
    }
    /// Exchanges the targets.
    void swap(fxRef& other) noexcept { std::swap(pointer, other.pointer); }

    ///@{
    /// Null when nothing is held. Requires for the operators `->` and `*`: something
    /// is. The conversion is a template so that `delete ref` does not compile.
    T* get() const noexcept { return pointer; }
    template <class U, std::enable_if_t<std::is_convertible_v<T*, U*>, int> = 0>
    operator U*() const noexcept {
        return pointer;
    }
    T* operator->() const noexcept {
        FX_ASSERT(pointer != nullptr);
        return pointer;
    }
    T& operator*() const noexcept {
        FX_ASSERT(pointer != nullptr);
        return *pointer;
    }
    ///@}
    explicit operator bool() const noexcept { return pointer != nullptr; }

private:
    template <class U>
    friend class fxRef;
    friend fxXdrStd<fxRef>;

    T* pointer = nullptr;
};

///@{
/// Equal when both hold the same object; the objects are not compared.
template <class T, class U>
bool operator==(const fxRef<T>& a, const fxRef<U>& b) {
    return a.get() == b.get();
}
template <class T, class U>
bool operator!=(const fxRef<T>& a, const fxRef<U>& b) {
    return a.get() != b.get();
}
template <class T, class U>
bool operator==(const fxRef<T>& a, U* b) {
    return a.get() == b;
}
template <class T, class U>
bool operator!=(const fxRef<T>& a, U* b) {
    return a.get() != b;
}
template <class T, class U>
bool operator==(U* a, const fxRef<T>& b) {
    return a == b.get();
}
template <class T, class U>
bool operator!=(U* a, const fxRef<T>& b) {
    return a != b.get();
}
/// By address, for ordered containers.
template <class T>
bool operator<(const fxRef<T>& a, const fxRef<T>& b) {
    return std::less<T*>()(a.get(), b.get());
}
template <class T>
bool operator==(const fxRef<T>& a, std::nullptr_t) {
    return a.get() == nullptr;
}
template <class T>
bool operator!=(const fxRef<T>& a, std::nullptr_t) {
    return a.get() != nullptr;
}
///@}

/// Makes a T from the arguments and holds it.
template <class T, class... Arguments>
fxRef<T> fxMake(Arguments&&... arguments) {
    return fxRef<T>(new T(std::forward<Arguments>(arguments)...));
}

///@{
/// The target as a class that derives from its own: unchecked, or null if it is of another
/// class.
template <class T, class U>
fxRef<T> fxStaticRef(const fxRef<U>& ref) {
    return fxRef<T>(static_cast<T*>(ref.get()));
}
template <class T, class U>
fxRef<T> fxDynamicRef(const fxRef<U>& ref) {
    return fxRef<T>(dynamic_cast<T*>(ref.get()));
}
///@}

template <class T>
struct fxMovesAsBytes<fxRef<T>> : std::true_type {};

namespace std {
/// Of the address of the held object.
template <class T>
struct hash<fxRef<T>> {
    /// Equal references hash equal.
    size_t operator()(const fxRef<T>& ref) const noexcept { return hash<T*>()(ref.get()); }
};
}  // namespace std

#endif
