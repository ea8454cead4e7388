#include "fxds/EventHandler.h"

#include "fxds/Data.h"
#include "fxds/dataflow/EventWalk.h"
#include "fxds/dataflow/TraceLines.h"

// A replacing input has at most one message waiting. Its new message is queued
// before the old one is withdrawn: deleting the old one may run anybody's code,
// and by then everything that the new one needs is held by the queue, where a
// receiver that dies meanwhile can find and discard it.

fxEventHandler* fx_theEventHandler = nullptr;

unsigned long fxET_Unknown = 0;
unsigned long fxET_MessageEvent = 1;

namespace {

// Deletes an event that has been delivered, also by throwing an exception.
struct Delivered {
    explicit Delivered(fxEvent* event_) : event(event_) {}
    Delivered(const Delivered&) = delete;
    Delivered& operator=(const Delivered&) = delete;
    ~Delivered() { delete event; }

    fxEvent* event;  // null once it has changed hands
};

}  // namespace

void fxEventHandler::postEvent(fxEvent* event, unsigned char urgent) {
    if (urgent != 0) {
        insert(event);
    } else {
        append(event);
    }
}

void fxEventHandler::postMessage(fxOutputChannel* output, fxData* data, fxObj::fxSendFlags how) {
    if (fxTrace::isOn(fxTrace::sends) && output != nullptr)
        fxTraceLines::sending(*output, data, how);
    if (output == nullptr || output->getNumberOfConnections() == 0) {
        delete data;
        return;
    }
    const bool queues = how == fxObj::fxSendQueued || how == fxObj::fxSendUrgent;
    if (queues) data->take();  // outlives messages that are discarded meanwhile
    fxDelivery walk(*output);
    while (fxInputChannel* input = walk.next()) {
        if (queues) {
            queueMessage(input, data, how == fxObj::fxSendUrgent);
            continue;
        }
        input->take();
        if (input->isReplacing()) input->cancelPending();
        if (how == fxObj::fxSendNow) {
            if (fxTrace::isOn(fxTrace::events)) fxTraceLines::delivering(*input, data);
            input->deliver(data);
        }
        input->release();
    }
    if (queues) data->release();
    if (how == fxObj::fxSendNow) delete data;
}

void fxEventHandler::queueMessage(fxInputChannel* input, fxData* data, unsigned char urgent) {
    fxMessageEvent* event = new fxMessageEvent(input, data);
    postEvent(event, urgent);
    if (!input->isReplacing()) return;
    fxMessageEvent* old = input->pending;
    input->pending = event;
    if (old != nullptr) withdraw(old);
}

void fxEventHandler::withdraw(fxMessageEvent* event) {
    // One that the application has taken out is no longer ours to delete.
    if (event->queue != this) return;
    if (fxTrace::isOn(fxTrace::events)) fxTraceLines::replacing(*event);
    remove(event);
}

void fxEventHandler::distributeEvents() {
    for (unsigned int remaining = count; remaining > 0; --remaining) {
        fxEvent* event = get();
        if (event == nullptr) return;
        if (fxTrace::isOn(fxTrace::events)) fxTraceLines::delivering(*event);
        Delivered ours(event);
        event->deliverer = &ours.event;
        event->deliver();
    }
}

void fxEventHandler::removeEvents(Predicate* predicate, void* argument) {
    fxEventWalk walk(*this);
    while (fxEvent* event = walk.advance()) {
        const bool doomed = predicate(event, argument) != 0;
        if (doomed && walk.getCurrent() == event) remove(event);
    }
}

void fxEventHandler::removeMessageEvents(fxInputChannel* input) {
    removeEvents(zapMessageEvents, input);
}

unsigned char zapMessageEvents(fxEvent* event, void* input) {
    if (event->getType() != fxET_MessageEvent) return 0;
    fxInputChannel* channel = event->getChannel();
    if (channel != input) return 0;
    if (channel != nullptr && channel->pending == event) channel->pending = nullptr;
    return 1;
}
