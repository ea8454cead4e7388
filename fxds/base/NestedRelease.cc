#include "fxds/detail/NestedRelease.h"

#include <utility>
#include <vector>

namespace {

struct Waiting {
    void* target;
    void (*release)(void*);
};

// Objects can end inside one another, each held by the one before, and the
// stack must not overflow. Up to maxNesting of them end recursively. The call
// at that limit queues the targets of further calls in `waiting` and releases
// them in a loop.
constexpr int maxNesting = 128;

// Invariant: `waiting` is not null exactly while a call at the limit is under
// way. Counted objects belong to one thread, but the program chooses which.
thread_local int nesting = 0;
thread_local std::vector<Waiting>* waiting = nullptr;

}  // namespace

void fxDetail::releaseLast(void* target, void (*release)(void*)) noexcept {
    if (waiting != nullptr) {
        waiting->push_back({target, release});
        return;
    }
    ++nesting;
    if (nesting < maxNesting) {
        release(target);
    } else {
        std::vector<Waiting> deeper;
        waiting = &deeper;
        release(target);
        while (!deeper.empty()) {
            std::vector<Waiting> next;
            std::swap(next, deeper);
            for (const Waiting& each : next) each.release(each.target);
        }
        waiting = nullptr;
    }
    --nesting;
}
