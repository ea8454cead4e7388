// The waiting messages of each input. Private to the library.
#ifndef FXDS_DATAFLOW_MESSAGEINDEX_H
#define FXDS_DATAFLOW_MESSAGEINDEX_H

#include <algorithm>

#include "fxds/Event.h"
#include "fxds/dataflow/ChannelTable.h"

// When a receiver ends, its messages leave the queue. To find them takes a walk over all
// that wait, and many receivers may end one after the other. So the queue makes an index,
// from an input to its messages, which are linked by `alike`. Events that are posted later
// are entered before the next search.
//
// Invariants:
// (1) The events from `first` to `last` are indexed, and no other.
// (2) The chain of an input has its indexed messages, in the order of the queue.
// (3) If the chain of a leaving event cannot be found, because the program has changed the
//     input of a converter, the index forgets all events.

class fxMessageIndex {
public:
    fxMessageIndex() { inputs.make(fewest); }

    bool isEmpty() const { return first == nullptr; }
    /// Enters the events posted since, at both ends; `waiting` is the number of all.
    /// Requires: every event of the queue was made by a send.
    void extend(fxEvent* head, fxEvent* tail, unsigned int waiting) {
        if (first == nullptr && head != nullptr) {
            inputs.make(std::max(waiting, fewest));
            first = last = head;
            enterBehind(head);
        }
        while (last != tail) enterBehind(last = last->next);
        while (first != head) enterInFront(first = first->prev);
    }
    /// The first message that leads to `input`, or null.
    fxEvent* find(fxInputChannel* input) {
        fxEvent* const found = inputs.find(input)->first;
        return found != nullptr && inputOf(found) == input ? found : nullptr;
    }
    /// Forgets an event that is about to leave the queue.
    void leave(fxEvent* event) {
        if (!event->isIndexed) return;
        Slot* const slot = inputs.find(inputOf(event));
        fxEvent* before = nullptr;
        fxEvent* here = slot->first;
        while (here != event && here != nullptr) {
            before = here;
            here = here->alike;
        }
        if (here == nullptr) return forget();
        (before != nullptr ? before->alike : slot->first) = event->alike;
        if (slot->last == event) slot->last = before;
        if (slot->first == nullptr) inputs.remove(slot);
        if (first == last) {
            first = last = nullptr;
        } else if (event == first) {
            first = event->next;
        } else if (event == last) {
            last = event->prev;
        }
        reset(event);
    }
    /// Forgets all events.
    void forget() {
        for (fxEvent* event = first; event != nullptr; event = event->next) {
            reset(event);
            if (event == last) break;
        }
        first = last = nullptr;
        inputs.make(fewest);
    }

private:
    static constexpr unsigned int fewest = 64;

    struct Slot {
        const void* channel = nullptr;  // an input
        fxEvent* first = nullptr;
        fxEvent* last = nullptr;
    };

    // A converter that leads nowhere yet counts as an input.
    static const fxInputChannel* inputOf(fxEvent* event) {
        fxInputChannel* const channel = static_cast<fxMessageEvent*>(event)->channel;
        const fxInputChannel* const target = channel->target();
        return target != nullptr ? target : channel;
    }
    static void reset(fxEvent* event) {
        event->isIndexed = false;
        event->alike = nullptr;
        event->deliverer = nullptr;
    }
    Slot* slotFor(fxEvent* event) {
        event->isIndexed = true;
        event->alike = nullptr;
        Slot* const slot = inputs.enter(inputOf(event));
        if (slot->first == nullptr) slot->first = slot->last = event;
        return slot;
    }
    void enterBehind(fxEvent* event) {
        Slot* const slot = slotFor(event);
        if (slot->last == event) return;
        slot->last->alike = event;
        slot->last = event;
    }
    void enterInFront(fxEvent* event) {
        Slot* const slot = slotFor(event);
        if (slot->first == event) return;
        event->alike = slot->first;
        slot->first = event;
    }

    fxChannelTable<Slot> inputs;
    fxEvent* first = nullptr;
    fxEvent* last = nullptr;
};

#endif
