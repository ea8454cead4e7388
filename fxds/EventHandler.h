// The event queue's owner: posts, distributes and withdraws events.
#ifndef FXDS_EVENTHANDLER_H
#define FXDS_EVENTHANDLER_H

#include "fxds/Event.h"

/// An event queue that also distributes a value to an output's inputs.
/// Everything here may be called from receivers, predicates and destructors
/// that one of these operations runs, which may also destroy the handler: the operation
/// ends then, and the events that waited are as ~fxEventQueue() leaves them.
class FX_API fxEventHandler : public fxEventQueue {
public:
    /// Selects events for removeEvents(): not 0 for those to delete.
    typedef unsigned char Predicate(fxEvent*, void*);

    /// Queues the event (adopted) at the back, or at the front when urgent.
    void postEvent(fxEvent* event, unsigned char urgent = 0);

    /// Sends `data` to every input connected to `output`, as fxObj::sendData(),
    /// with the same requirements.
    /// A value sent at once is deleted afterwards, whatever its count; a queued one is
    /// released with the last message that holds it.
    void postMessage(fxOutputChannel* output, fxData* data, fxObj::fxSendFlags how);

    /// Delivers and deletes as many events as wait now, each time the front one. So an
    /// event posted at the back meanwhile waits for the next call, and one posted at the
    /// front is delivered first. An event may post itself again or delete itself from
    /// within its deliver(); it is not deleted then.
    void distributeEvents();

    /// Calls distributeEvents() until nothing waits: for programs without a loop. It does
    /// not return while queued sends go round in a circle.
    void drain();

    /// Deletes every event for which `predicate(event, argument)` is not 0.
    void removeEvents(Predicate* predicate, void* argument);

    /// Deletes every message bound for exactly this channel.
    void removeMessageEvents(fxInputChannel* input);

private:
    friend class fxConverter;
    friend class fxInputChannel;

    static unsigned char leadsTo(fxEvent* event, void* input);
    void post(fxOutputChannel* output, fxData* data, fxObj::fxSendFlags how);
    [[gnu::cold, gnu::noinline]] void postTraced(fxOutputChannel* output, fxData* data,
                                                 fxObj::fxSendFlags how);
    [[gnu::noinline]] void postAsked(fxOutputChannel* output, fxData* data, fxObj::fxSendFlags how);
    void queueMessages(fxOutputChannel& output, fxData* data, bool isUrgent);
    void queueMessage(fxInputChannel* input, fxData* data, bool isUrgent);
    [[gnu::noinline]] static void deliverNow(fxOutputChannel& output, fxData* data);
    [[gnu::noinline]] static void cancelMessages(fxOutputChannel& output);
};

/// Whether `event` is a message bound for the fxInputChannel `input`; if so
/// and it is the channel's pending one, that is cleared.
FX_API unsigned char zapMessageEvents(fxEvent* event, void* input);

/// Made by start-up, or earlier by the first send that needs it. Before, it is null:
/// postEvent(), distributeEvents() and drain() are fatal then, with a sentence. A program that
/// destroys it sets this to null, or to another one, before.
extern FX_API fxEventHandler* fx_theEventHandler;

#endif
