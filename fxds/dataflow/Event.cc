#include "fxds/Event.h"

#include <utility>

#include "fxds/Data.h"
#include "fxds/Fatal.h"
#include "fxds/base/FreeLists.h"
#include "fxds/dataflow/MessageIndex.h"
#include "fxds/dataflow/TraceLines.h"

// The queue is threaded through the events themselves.
//
// Invariants:
// (1) An event's `queue` is the queue that it waits in, or null.
// (2) Every event that leaves while there are walks over its queue goes through unlink(),
//     which corrects them. An index is one of these walks. It is made while there is no
//     other, so it is the outermost; it is destroyed while there is no other, or with the
//     queue.
// (3) `others` is the number of waiting events whose origin is not `sent`; an event's
//     origin does not change while it waits.
// (4) `count` is the length of the list, less one for each remove() of an event that was in
//     no queue.
// (5) A waiting event has no deliverer, because link() takes it from the delivery under
//     way. So the union has `alike` exactly while `isIndexed` is set, and that is set only
//     while the event waits.
// (6) An input's `latest` is the message that was made last for it, and null as soon as any
//     of its messages has ended. So where `queued` is 1, it is null or the only message.
//
// Code of the program runs in isDoomed(), in deliver(), and in the destructors of events,
// values and callables. At these moments the list is whole: get() and remove() unlink an
// event before it is delivered or deleted. Functions here use nothing that they read before
// such a call, except through a walk.

unsigned long fxET_Unknown = 0;
unsigned long fxET_MessageEvent = 1;

unsigned long fxEvent::nextSequenceNumber = 0;

fxEvent::fxEvent(unsigned long type_)
    : next(nullptr),
      prev(nullptr),
      type(type_),
      sequence(++nextSequenceNumber),
      queue(nullptr),
      deliverer(nullptr),
      origin(Origin::other),
      isIndexed(false) {}

fxEvent::fxEvent(const fxEvent& other)
    : fxObj(other),
      next(nullptr),
      prev(nullptr),
      type(other.type),
      sequence(other.sequence),
      queue(nullptr),
      deliverer(nullptr),
      origin(Origin::other),
      isIndexed(false) {}

fxEvent::~fxEvent() {
    leaveQueue();
    changeHands();
}

void fxEvent::leaveQueue() {
    if (__builtin_expect(queue != nullptr, 0)) queue->unlink(this);
}

// An event that is posted or deleted while it is delivered is no longer deleted by that
// delivery.
void fxEvent::changeHands() {
    if (deliverer == nullptr) return;
    *deliverer = nullptr;
    deliverer = nullptr;
}

// Whether there is nothing for ~fxEvent() and ~fxObj() to do.
bool fxEvent::endsPlainly() const {
    return queue == nullptr && properties == nullptr && fx_traceKinds == 0;
}

void fxEvent::dump(FILE* file) {
    std::fprintf(file, "Event: seq=%d type=%d\n", static_cast<int>(sequence),
                 static_cast<int>(type));
}

fxInputChannel* fxEvent::getChannel() { return nullptr; }

fxMessageEvent::fxMessageEvent(fxInputChannel* channel_, fxData* data_)
    : fxEvent(fxET_MessageEvent), channel(channel_), data(data_) {
    hold();
}

fxMessageEvent::fxMessageEvent(const fxMessageEvent& other)
    : fxEvent(other), channel(other.channel), data(other.data) {
    hold();
}

void fxMessageEvent::hold() {
    FX_ASSERT(channel != nullptr && data != nullptr);
    origin = Origin::message;
    channel->take();
    channel->latest = this;
    data->take();
    channel->countMessages(1);
}

// Leaves its queue before it loses the properties that the queue has counted it by.
inline void fxMessageEvent::letGo() {
    leaveQueue();
    if (channel->pending == this) channel->pending = nullptr;
    channel->latest = nullptr;
    channel->countMessages(-1UL);
    channel->release();
    data->release();
}

fxMessageEvent::~fxMessageEvent() { letGo(); }

void fxMessageEvent::deliver() {
    channel->pending = nullptr;
    channel->deliver(data);
}

// A message that the application has taken out is not deleted by the library.
void fxMessageEvent::withdraw() {
    if (queue == nullptr) return;
    if (fxTrace::isOn(fxTrace::events)) fxTraceLines::replacing(*this);
    queue->remove(this);
}

void fxMessageEvent::dump(FILE* file) { fxEvent::dump(file); }

fxInputChannel* fxMessageEvent::getChannel() { return channel; }

void* fxMessageEvent::operator new(size_t size) { return fxFreeLists::allocate(size); }

void* fxMessageEvent::operator new(size_t size, std::align_val_t alignment) {
    return ::operator new(size, alignment);
}

void fxMessageEvent::operator delete(void* memory, size_t size) {
    fxFreeLists::release(memory, size);
}

void fxMessageEvent::operator delete(void* memory, std::align_val_t alignment) {
    ::operator delete(memory, alignment);
}

// An event that is being delivered, and is deleted afterwards, also by an exception. An
// event made by a send is of a known class, so its functions are called directly, and the
// destructors of its bases only if they have work to do.
class fxEvent::Delivered {
public:
    explicit Delivered(fxEvent& event_) : event(&event_), isSent(event_.origin == Origin::sent) {
        event->deliverer = &event;
    }
    Delivered(const Delivered&) = delete;
    Delivered& operator=(const Delivered&) = delete;
    ~Delivered() {
        if (event == nullptr) return;
        // letGo() may run code that posts the event once more. Then the event is in a queue
        // again, which endsPlainly() notices, and ~fxEvent() takes it out.
        if (isSent) {
            event->refCount |= fxEndingCount;
            auto* const message = static_cast<fxMessageEvent*>(event);
            message->letGo();
            if (__builtin_expect(!message->endsPlainly(), 0)) message->fxEvent::~fxEvent();
            fxMessageEvent::operator delete(message, sizeof *message);
        } else {
            fxEnd(event, event->refCount);
        }
    }

    void deliver() {
        if (isSent) {
            static_cast<fxMessageEvent*>(event)->fxMessageEvent::deliver();
        } else {
            event->deliver();
        }
    }

private:
    fxEvent* event;  // null once it has changed hands
    const bool isSent;
};

void fxEvent::deliverAndEnd() { Delivered(*this).deliver(); }

// A walk over the queue, which is called for every event that leaves.
class fxEventQueue::Walk : public fxWalk<Walk> {
public:
    explicit Walk(fxEventQueue& queue, fxMessageIndex* index_ = nullptr)
        : fxWalk(queue.walks), current(nullptr), next(queue.head), index(index_) {}

    // The next event, or null at the end. Its successor is fixed now: events queued later
    // behind the last event are not walked over.
    fxEvent* advance() {
        current = next;
        if (current != nullptr) next = current->getNext();
        return current;
    }

    // The event returned by advance(); null once it has left the queue.
    fxEvent* getCurrent() const { return current; }

    // Called while the event is still linked, so that its successor is known.
    void eventLeaves(const fxEvent* event) {
        if (current == event) current = nullptr;
        if (next == event) next = event->getNext();
    }
    fxMessageIndex* getIndex() const { return index; }
    void stop() { current = next = nullptr; }

private:
    fxEvent* current;
    fxEvent* next;
    fxMessageIndex* const index;  // that it is part of, or null
};

class fxEventQueue::Index : public fxMessageIndex, public Walk {
public:
    explicit Index(fxEventQueue& queue) : Walk(queue, this) { stop(); }
};

fxEventQueue::fxEventQueue() : head(nullptr), tail(nullptr), count(0), others(0) {}

// The events lose their queue, so that their destructors do not look for it. The index
// forgets them first: it finds them through the list. The walks' own destructors run later,
// and find no list.
fxEventQueue::~fxEventQueue() {
    walks.each([](Walk& walk) { walk.stop(); });
    if (index != nullptr) index->forget();
    while (head != nullptr) {
        fxEvent* event = std::exchange(head, head->next);
        event->next = event->prev = nullptr;
        event->queue = nullptr;
    }
}

void fxEventQueue::append(fxEvent* event) { link(event, tail, nullptr); }

void fxEventQueue::insert(fxEvent* event) { link(event, nullptr, head); }

void fxEventQueue::link(fxEvent* event, fxEvent* before, fxEvent* after) {
    if (event->queue != nullptr) {
        fxFatal("fxEventQueue: the event seq=%lu type=%lu waits already", event->sequence,
                event->type);
    }
    event->changeHands();
    join(event, before, after);
    if (event->origin != fxEvent::Origin::sent) ++others;
}

// Requires: the event is in no queue and in no delivery; it is counted among `others` if it
// was not made by a send.
void fxEventQueue::join(fxEvent* event, fxEvent* before, fxEvent* after) {
    event->prev = before;
    event->next = after;
    (before != nullptr ? before->next : head) = event;
    (after != nullptr ? after->prev : tail) = event;
    event->queue = this;
    ++count;
}

fxEvent* fxEventQueue::get() {
    fxEvent* event = head;
    if (event == nullptr) return nullptr;
    if (!walks.isEmpty()) {
        unlink(event);
        return event;
    }
    // The front needs less than unlink() does, and all events leave there.
    head = event->next;
    (head != nullptr ? head->prev : tail) = nullptr;
    event->next = nullptr;
    event->queue = nullptr;
    --count;
    if (event->origin != fxEvent::Origin::sent) --others;
    return event;
}

void fxEventQueue::remove(fxEvent* event) {
    if (event->queue != nullptr) {
        event->queue->unlink(event);
    } else {
        --count;
    }
    fxEnd(event, event->refCount);
}

void fxEventQueue::unlink(fxEvent* event) {
    walks.each([event](Walk& walk) {
        walk.eventLeaves(event);
        if (walk.getIndex() != nullptr) walk.getIndex()->leave(event);
    });
    (event->prev != nullptr ? event->prev->next : head) = event->next;
    (event->next != nullptr ? event->next->prev : tail) = event->prev;
    event->next = event->prev = nullptr;
    event->queue = nullptr;
    --count;
    if (event->origin != fxEvent::Origin::sent) --others;
    // Without the index, later removals need not go through here.
    if (index != nullptr && index->isEmpty() && &walks.innermost() == index.get()) index.reset();
}

// isDoomed() may itself remove the event, or take it out: then it is no longer the walk's
// current one, and may have been deleted.
void fxEventQueue::removeWhere(unsigned char (*isDoomed)(fxEvent*, void*), void* argument) {
    Walk walk(*this);
    while (fxEvent* event = walk.advance()) {
        const bool doomed = isDoomed(event, argument) != 0;
        if (doomed && walk.getCurrent() == event) remove(event);
    }
}

// The only message of an input is at hand. Of other inputs, the first to end pays for the
// index; further ones need only the events posted since. Deleting events may run code of the
// program, which may empty the queue and so end the index, or destroy the queue.
bool fxEventQueue::removeIndexed(fxInputChannel* input) {
    if (input->queued == 1 && input->latest != nullptr) {
        if (input->latest->queue == this) remove(input->latest);
        return true;
    }
    constexpr unsigned int longWalk = 64;
    if (index == nullptr && count >= longWalk && walks.isEmpty()) {
        index = std::make_unique<Index>(*this);
    }
    if (index == nullptr) return false;
    index->extend(head, tail, count);
    const Use use(*this);
    while (use.goesOn() && index != nullptr) {
        fxEvent* const event = index->find(input);
        if (event == nullptr) return true;
        remove(event);
    }
    return !use.goesOn();
}

void fxEventQueue::forgetInputs() {
    if (index != nullptr) index->forget();
}

bool fxEventQueue::contains(fxEvent* event) const {
    for (const fxEvent* here = head; here != nullptr; here = here->next) {
        if (here == event) return true;
    }
    return false;
}
