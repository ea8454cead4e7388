// A std::unique_ptr that is cheap to compile. Part of the public headers, not of the
// interface.
#ifndef FXDS_DETAIL_OWNED_H
#define FXDS_DETAIL_OWNED_H

#include <cstddef>
#include <memory>
#include <utility>

namespace fxDetail {

// Owns the object, which is deleted with it. For members of public classes: each type of
// std::unique_ptr costs everything that includes its header 6 ms (g++ 12: 19 million
// instructions, of which this takes 2), and fxds/fxds.h would have eight.
template <class T>
class Owned {
public:
    Owned() = default;
    explicit Owned(T* owned) : object(owned) {}
    template <class U>
    Owned(std::unique_ptr<U> other) : object(other.release()) {}
    Owned(Owned&& other) noexcept : object(std::exchange(other.object, nullptr)) {}
    Owned& operator=(Owned&& other) noexcept {
        delete std::exchange(object, std::exchange(other.object, nullptr));
        return *this;
    }
    ~Owned() {
        static_assert(sizeof(T) > 0, "the end of an incomplete type is not known");
        delete object;
    }

    T* get() const { return object; }
    T* operator->() const { return object; }
    T& operator*() const { return *object; }
    bool operator==(std::nullptr_t) const { return object == nullptr; }
    bool operator!=(std::nullptr_t) const { return object != nullptr; }
    void reset() { delete std::exchange(object, nullptr); }

private:
    T* object = nullptr;
};

}  // namespace fxDetail

#endif
