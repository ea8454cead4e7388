// Holding a counted object during one function, and deleting it once. Part of
// the public headers, not of the interface.
#ifndef FXDS_DETAIL_HOLD_H
#define FXDS_DETAIL_HOLD_H

/// Added to the count of an object before it is deleted, so that the count
/// cannot reach 0: take() and release() may be called while it is being
/// destroyed.
inline constexpr unsigned long fxEndingCount = 1ul << 63;

/// Deletes an object whatever its count. Its destructor runs once, even if it
/// calls take() and release(). `count` is that of the object.
template <class Thing>
void fxEnd(Thing* thing, unsigned long& count) {
    count |= fxEndingCount;
    delete thing;
}

/// A local variable that keeps `held` alive until the function ends, also by an
/// exception.
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
