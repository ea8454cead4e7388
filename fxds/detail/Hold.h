// A hold on a counted thing for the time of one function. Part of the public
// headers, not of the interface.
#ifndef FXDS_DETAIL_HOLD_H
#define FXDS_DETAIL_HOLD_H

/// A local variable that keeps `held` alive until the function ends, by an
/// exception too.
template <class Held>
class fxHold {
public:
    explicit fxHold(Held* held_) : held(held_) { held->take(); }
    fxHold(const fxHold&) = delete;
    fxHold& operator=(const fxHold&) = delete;
    ~fxHold() { held->release(); }

private:
    Held* const held;
};

#endif
