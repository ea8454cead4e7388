// A value that a place has for the length of a scope, whichever way that ends.
// Private to the library.
#ifndef FXDS_BASE_SCOPED_H
#define FXDS_BASE_SCOPED_H

#include <utility>

/// Gives `place` a value and, in the end, the one that it had before.
template <class T>
class fxScoped {
public:
    fxScoped(T& place_, T value) : place(place_), before(std::exchange(place_, value)) {}
    fxScoped(const fxScoped&) = delete;
    fxScoped& operator=(const fxScoped&) = delete;
    ~fxScoped() { place = before; }

private:
    T& place;
    const T before;
};

#endif
