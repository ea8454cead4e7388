// A walk over the event queue that survives whatever happens to the queue.
#ifndef FXDS_DATAFLOW_EVENTWALK_H
#define FXDS_DATAFLOW_EVENTWALK_H

#include "fxds/Event.h"

// Stands on the walker's stack, registered with the queue, which tells it of
// every event that leaves. Private to the event queue.

class fxEventWalk {
public:
    FX_REGISTERS_LOCAL_BEGIN
    explicit fxEventWalk(fxEventQueue& queue_)
        : queue(queue_), current(nullptr), next(queue_.getHead()), outer(queue_.walks) {
        queue.walks = this;
    }
    FX_REGISTERS_LOCAL_END
    fxEventWalk(const fxEventWalk&) = delete;
    fxEventWalk& operator=(const fxEventWalk&) = delete;
    ~fxEventWalk() { queue.walks = outer; }

    // The next event, or null at the end. Its successor is settled now: what
    // is queued behind the last event from here on is not walked over.
    fxEvent* advance() {
        current = next;
        if (current != nullptr) next = current->getNext();
        return current;
    }

    // The event that advance() gave; null once it has left the queue.
    fxEvent* getCurrent() const { return current; }

private:
    friend class fxEventQueue;

    void eventLeaves(const fxEvent* event) {
        if (current == event) current = nullptr;
        if (next == event) next = event->getNext();
    }

    fxEventQueue& queue;
    fxEvent* current;
    fxEvent* next;
    fxEventWalk* outer;  // an earlier walk over the same queue
};

#endif
