#include "fxds/detail/NestedRelease.h"

#include <cstdint>
#include <utility>
#include <vector>

namespace {

struct Waiting {
    void* target;
    void (*release)(void*);
};

typedef std::vector<Waiting> Queue;

// Objects can end inside one another, each held by the one before, and the
// stack must not overflow. Up to maxNesting of them end recursively. The call
// at that limit queues the targets of further calls in `waiting` and releases
// them in a loop. What lies between two of them can take much of the stack, too: a call
// that finds more than maxBytes in use leaves its target to the outermost one.
constexpr int maxNesting = 128;
constexpr uintptr_t maxBytes = uintptr_t{256} << 10U;

// Invariants: `waiting` is not null exactly while a call at the limit is under
// way; `outermost` is null exactly while no call is.
// Counted objects belong to one thread, but the program chooses which.
struct Outermost {
    uintptr_t frame;
    Queue left;
};
thread_local int nesting = 0;
thread_local Queue* waiting = nullptr;
thread_local Outermost* outermost = nullptr;

uintptr_t distance(uintptr_t a, uintptr_t b) { return a < b ? b - a : a - b; }

void releaseAll(Queue& queue) {
    while (!queue.empty()) {
        Queue next;
        std::swap(next, queue);
        for (const Waiting& each : next) each.release(each.target);
    }
}

}  // namespace

void fxDetail::releaseLast(void* target, void (*release)(void*)) noexcept {
    Outermost self = {reinterpret_cast<uintptr_t>(__builtin_frame_address(0)), {}};
    const bool isOutermost = outermost == nullptr;
    if (isOutermost) outermost = &self;
    Queue* const keeper = waiting != nullptr                                  ? waiting
                          : distance(self.frame, outermost->frame) > maxBytes ? &outermost->left
                                                                              : nullptr;
    if (keeper != nullptr) {
        keeper->push_back({target, release});
        return;
    }
    ++nesting;
    if (nesting < maxNesting) {
        release(target);
    } else {
        Queue deeper;
        waiting = &deeper;
        release(target);
        releaseAll(deeper);
        waiting = nullptr;
    }
    if (isOutermost) {
        releaseAll(self.left);
        outermost = nullptr;
    }
    --nesting;
}
