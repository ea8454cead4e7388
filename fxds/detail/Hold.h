// Holding a counted thing for the time of one function, and ending it once. Part
// of the public headers, not of the interface.
#ifndef FXDS_DETAIL_HOLD_H
#define FXDS_DETAIL_HOLD_H

/// Added to the count of a thing before it is deleted, which puts 0 out of reach:
/// take() and release() may be called while it is being destroyed.
inline constexpr unsigned long fxEndingCount = 1ul << 63;

/// Deletes a thing whatever its count. Its destructor runs once, even if it calls
/// take() and release(). `count` is the thing's own.
template <class Thing>
void fxEnd(Thing* thing, unsigned long& count) {
    count |= fxEndingCount;
    delete thing;
}

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
