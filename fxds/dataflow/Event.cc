#include "fxds/Event.h"

#include "fxds/Data.h"
#include "fxds/EventHandler.h"
#include "fxds/base/FreeLists.h"
#include "fxds/dataflow/EventWalk.h"

// The queue is threaded through the events themselves. Everything that leaves
// it goes through unlink(), which is also where the walks over the queue learn
// of it.

unsigned long fxEvent::nextSequenceNumber = 0;

fxEvent::fxEvent(unsigned long type_)
    : next(nullptr),
      prev(nullptr),
      type(type_),
      sequence(++nextSequenceNumber),
      queue(nullptr),
      deliverer(nullptr) {}

fxEvent::fxEvent(const fxEvent& other)
    : fxObj(other),
      next(nullptr),
      prev(nullptr),
      type(other.type),
      sequence(other.sequence),
      queue(nullptr),
      deliverer(nullptr) {}

fxEvent::~fxEvent() { changeHands(); }

// An event that is posted or deleted while it is delivered is no longer its
// deliverer's to delete.
void fxEvent::changeHands() {
    if (deliverer == nullptr) return;
    *deliverer = nullptr;
    deliverer = nullptr;
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
    channel->take();
    data->take();
    fxInputChannel* target = channel->target();
    if (target != nullptr) ++target->queued;
}

fxMessageEvent::~fxMessageEvent() {
    if (channel->pending == this) channel->pending = nullptr;
    fxInputChannel* target = channel->target();
    if (target != nullptr) --target->queued;
    channel->release();
    data->release();
}

void fxMessageEvent::deliver() {
    channel->pending = nullptr;
    channel->deliver(data);
}

void fxMessageEvent::dump(FILE* file) { fxEvent::dump(file); }

fxInputChannel* fxMessageEvent::getChannel() { return channel; }

void* fxMessageEvent::operator new(size_t size) { return fxPool::allocate(size); }

void fxMessageEvent::operator delete(void* memory, size_t size) { fxPool::release(memory, size); }

fxEventQueue::fxEventQueue() : head(nullptr), tail(nullptr), count(0) {}

fxEventQueue::~fxEventQueue() {
    walks.each([](fxEventWalk& walk) { walk.stop(); });
}

void fxEventQueue::append(fxEvent* event) {
    FX_ASSERT(event->queue == nullptr);
    event->changeHands();
    event->next = nullptr;
    event->prev = tail;
    (tail != nullptr ? tail->next : head) = event;
    tail = event;
    event->queue = this;
    ++count;
}

void fxEventQueue::insert(fxEvent* event) {
    FX_ASSERT(event->queue == nullptr);
    event->changeHands();
    event->prev = nullptr;
    event->next = head;
    (head != nullptr ? head->prev : tail) = event;
    head = event;
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
    // The front needs less than unlink() does, and this is where all events go.
    head = event->next;
    (head != nullptr ? head->prev : tail) = nullptr;
    event->next = nullptr;
    event->queue = nullptr;
    --count;
    return event;
}

void fxEventQueue::remove(fxEvent* event) {
    unlink(event);
    delete event;
}

void fxEventQueue::unlink(fxEvent* event) {
    walks.each([event](fxEventWalk& walk) { walk.eventLeaves(event); });
    if (event == head) {
        head = event->next;
    } else if (event->prev != nullptr) {
        event->prev->next = event->next;
    }
    if (event == tail) {
        tail = event->prev;
    } else if (event->next != nullptr) {
        event->next->prev = event->prev;
    }
    event->next = event->prev = nullptr;
    event->queue = nullptr;
    --count;
    if (head == nullptr) tail = nullptr;
}

bool fxEventQueue::contains(fxEvent* event) const {
    for (const fxEvent* here = head; here != nullptr; here = here->next) {
        if (here == event) return true;
    }
    return false;
}
