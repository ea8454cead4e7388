#include "fxds/EventHandler.h"

#include <utility>

#include "fxds/Data.h"
#include "fxds/base/FreeLists.h"
#include "fxds/base/StartUp.h"
#include "fxds/dataflow/TraceLines.h"

// A replacing input has at most one message waiting. Its new message is queued before the
// old one is withdrawn: deleting the old one may run code of the program, and by then the
// queue holds everything that the new one needs, so that a receiver that is destroyed
// meanwhile can find and discard it.
//
// Invariants, between any two calls:
// (1) `pending` of an entry is null, or a message for that entry that exists: the
//     destructor of the message clears it. The program may have taken that message out of
//     the queue; then withdraw() leaves it alone.
// (2) A value in the queue is held by each message that carries it, and by no other part of
//     the library. A send that queues no message deletes the value, unless the program
//     holds it.
// (3) Only queueMessage() gives an event the origin `sent`, and only to an fxMessageEvent
//     that it has made.
//
// Receivers and destructors run in deliverNow(), cancelMessages() and withdraw(), and may
// destroy outputs, inputs and their objects. The walk over the connections is registered
// with the output, and the entry in use is held. They may destroy the handler, too: a
// function that uses it after them has a Use.

fxEventHandler* fx_theEventHandler = nullptr;

namespace {

void requireStartUp(const fxEventHandler* handler) {
    fxStartUp::require(handler, "fx_theEventHandler");
}

}  // namespace

void fxEventHandler::postEvent(fxEvent* event, unsigned char urgent) {
    requireStartUp(this);
    if (urgent != 0) {
        insert(event);
    } else {
        append(event);
    }
}

namespace {

// Deletes a value that reaches no input, unless it is held.
void drop(fxData* data) {
    if (data != nullptr) fxHold<fxData>{data};
}

}  // namespace

// The usual case needs no stack: the others are functions of their own, which are called
// last.
void fxEventHandler::postMessage(fxOutputChannel* output, fxData* data, fxObj::fxSendFlags how) {
    if (__builtin_expect(fxTrace::isOn(fxTrace::sends), 0)) return postTraced(output, data, how);
    post(output, data, how);
}

void fxEventHandler::postTraced(fxOutputChannel* output, fxData* data, fxObj::fxSendFlags how) {
    if (output != nullptr) fxTraceLines::sending(*output, data, how);
    post(output, data, how);
}

// A message to an only connection, the usual case, needs neither a walk nor a hold of the
// value, since nothing can fail before the message holds it.
inline void fxEventHandler::post(fxOutputChannel* output, fxData* data, fxObj::fxSendFlags how) {
    fxInputChannel* const only =
        how == fxObj::fxSendQueued && output != nullptr ? output->getOnlyEntry() : nullptr;
    if (only == nullptr || only->mayLeadToMuted() || !fxFreeLists::has(sizeof(fxMessageEvent))) {
        return postAsked(output, data, how);
    }
    queueMessage(only, data, false);
}

void fxEventHandler::postAsked(fxOutputChannel* output, fxData* data, fxObj::fxSendFlags how) {
    FX_ASSERT(output == nullptr || data == nullptr || data->getType() == output->getType());
    FX_ASSERT(data == nullptr || how != fxObj::fxSendNow || data->count == 0);
    if (output == nullptr || output->getNumberOfConnections() == 0) return drop(data);
    FX_ASSERT(data != nullptr || (how != fxObj::fxSendQueued && how != fxObj::fxSendUrgent &&
                                  how != fxObj::fxSendNow));
    switch (how) {
        case fxObj::fxSendQueued:
            queueMessages(*output, data, false);
            break;
        case fxObj::fxSendUrgent:
            queueMessages(*output, data, true);
            break;
        case fxObj::fxSendNow:
            deliverNow(*output, data);
            break;
        default:
            cancelMessages(*output);
    }
}

// The value is held, so that it is deleted with its last holder: the send, if nothing is
// queued. Nothing is queued for a muted input, so that discarding its messages once is
// enough.
void fxEventHandler::queueMessages(fxOutputChannel& output, fxData* data, bool isUrgent) {
    const fxHold<fxData> hold(data);
    const Use use(*this);
    fxDelivery walk(output);
    while (fxInputChannel* input = use.goesOn() ? walk.next() : nullptr) {
        if (!input->leadsToMuted()) queueMessage(input, data, isUrgent);
    }
}

void fxEventHandler::deliverNow(fxOutputChannel& output, fxData* data) {
    const fxHold<fxData> holdData(data);
    fxDelivery walk(output);
    while (fxInputChannel* input = walk.next()) {
        const fxHold<fxInputChannel> hold(input);
        if (input->isReplacing()) input->cancelPending();
        if (fxTrace::isOn(fxTrace::events)) fxTraceLines::delivering(*input, data);
        input->deliver(data);
    }
}

void fxEventHandler::cancelMessages(fxOutputChannel& output) {
    fxDelivery walk(output);
    while (fxInputChannel* input = walk.next()) {
        const fxHold<fxInputChannel> hold(input);
        if (input->isReplacing()) input->cancelPending();
    }
}

// The message holds the entry, so the entry exists up to withdraw(), which comes last.
// join() in place of append(): a new event is in no queue and no delivery, and is not
// counted among the others.
inline void fxEventHandler::queueMessage(fxInputChannel* input, fxData* data, bool isUrgent) {
    fxMessageEvent* event = new fxMessageEvent(input, data);
    event->origin = fxEvent::Origin::sent;
    join(event, isUrgent ? nullptr : tail, isUrgent ? head : nullptr);
    if (!input->isReplacing()) return;
    fxMessageEvent* old = std::exchange(input->pending, event);
    if (old != nullptr) old->withdraw();
}

// The front is read anew for each event: a receiver may have emptied the queue or posted at
// the front. The number is that at the beginning, so a call ends although each event may
// post another.
void fxEventHandler::distributeEvents() {
    requireStartUp(this);
    const Use use(*this);
    for (unsigned int remaining = count; remaining > 0 && use.goesOn(); --remaining) {
        fxEvent* event = get();
        if (event == nullptr) return;
        if (fxTrace::isOn(fxTrace::events)) fxTraceLines::delivering(*event);
        event->deliverAndEnd();
    }
}

void fxEventHandler::drain() {
    requireStartUp(this);
    const Use use(*this);
    while (use.goesOn() && !isEmpty()) distributeEvents();
}

void fxEventHandler::removeEvents(Predicate* predicate, void* argument) {
    removeWhere(predicate, argument);
}

void fxEventHandler::removeMessageEvents(fxInputChannel* input) {
    removeEvents(zapMessageEvents, input);
}

// Nothing is cast: an event of the application may have the type and a channel without
// being an fxMessageEvent.
unsigned char zapMessageEvents(fxEvent* event, void* input) {
    if (event->getType() != fxET_MessageEvent) return 0;
    fxInputChannel* channel = event->getChannel();
    if (channel != input) return 0;
    if (channel != nullptr && channel->pending == event) channel->pending = nullptr;
    return 1;
}

// The channel of a message is held by it and may be followed to the real input; the channel
// of another event may have been destroyed, so its address is only compared.
unsigned char fxEventHandler::leadsTo(fxEvent* event, void* input) {
    if (event->origin != fxEvent::Origin::other &&
        static_cast<fxMessageEvent*>(event)->channel->target() == input) {
        return 1;
    }
    return zapMessageEvents(event, input);
}

// The walk is skipped if there is nothing to find: no message of this input, and no event
// of the application, which may lead to it. Muted inputs get no further messages, and those
// that they have are indexed.
void fxInputChannel::flush() {
    const fxHold<fxInputChannel> hold(this);  // the messages may be the only holders
    fxEventHandler* handler = fx_theEventHandler;
    if (handler != nullptr && (queued != 0 || !handler->hasOnlySentMessages())) {
        const bool isIndexed = isMuted() && handler->hasOnlySentMessages();
        if (!isIndexed || !handler->removeIndexed(this)) {
            handler->removeWhere(fxEventHandler::leadsTo, this);
        }
    }
    pending = nullptr;
}
