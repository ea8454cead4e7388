// A walk over the event queue that survives whatever happens to the queue.
#ifndef FXDS_DATAFLOW_EVENTWALK_H
#define FXDS_DATAFLOW_EVENTWALK_H

#include "fxds/Event.h"

// The queue tells it of every event that leaves, and stops it when it is
// destroyed itself. Private to the event queue.

class fxEventWalk : public fxWalk<fxEventWalk> {
public:
    explicit fxEventWalk(fxEventQueue& queue)
        : fxWalk(queue.walks), current(nullptr), next(queue.getHead()) {}

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
    void stop() { current = next = nullptr; }

    fxEvent* current;
    fxEvent* next;
};

#endif
