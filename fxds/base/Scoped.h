// Sets a variable for the duration of a scope, however the scope ends. Private
// to the library.
#ifndef FXDS_BASE_SCOPED_H
#define FXDS_BASE_SCOPED_H

#include <utility>

/// Sets `place`, and restores its former value in the destructor.
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
