// Releasing counted objects with bounded recursion. Part of the public headers, not of the
// interface.
#ifndef FXDS_DETAIL_NESTEDRELEASE_H
#define FXDS_DETAIL_NESTEDRELEASE_H

#include <type_traits>

#include "fxds/Config.h"

class fxRCObj;

namespace fxDetail {

// Gives up the last hold on `target` by `release(target)`. Objects that end with it end
// inside this call, in the order of their release, up to 128 deep. Deeper ones are kept by
// the call at that depth, which releases them before it returns; those that would end with
// more than 256 KB of stack in use since the outermost call are kept by that one. So the stack
// stays short however long a chain of counted objects is, and whatever each has. A release() that
// throws ends the program: its object would be left half destroyed, and so would those around it.
FX_API void releaseLast(void* target, void (*release)(void*)) noexcept;

// The count of holders, under either of its names.
template <class Counted>
auto countOf(Counted& target, int) -> decltype((target.refCount)) {
    return (target.refCount);
}
template <class Counted>
auto countOf(Counted& target, long) -> decltype((target.count)) {
    return (target.count);
}

// The target as its counted base, not constant: holding a constant object changes its
// count. The base, because a class may have a take() and a release() of its own.
template <class Counted>
auto* countedOf(Counted* target) {
    auto* const changed = const_cast<std::remove_const_t<Counted>*>(target);
    if constexpr (std::is_base_of_v<fxRCObj, std::remove_const_t<Counted>>) {
        static_assert(std::is_convertible_v<decltype(changed), fxRCObj*>,
                      "its bases have a count of holders each: let them derive from "
                      "fxXDRObj or fxRCObj virtually");
        return static_cast<fxRCObj*>(changed);
    } else {
        return changed;
    }
}

template <class Counted>
void releaseNested(Counted* target) {
    if (countOf(*target, 0) != 1) return target->release();
    releaseLast(static_cast<void*>(target),
                [](void* last) { static_cast<Counted*>(last)->release(); });
}

// One holder less, without an end.
template <class Counted>
void forget(Counted& target) {
    --countOf(target, 0);
}

}  // namespace fxDetail

#endif
