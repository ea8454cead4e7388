// Events, and the queue that they wait in.
#ifndef FXDS_EVENT_H
#define FXDS_EVENT_H

#include <cstddef>
#include <cstdio>

#include "fxds/Obj.h"
#include "fxds/detail/Walk.h"

class fxEventQueue;
class fxEventWalk;

/// Something that waits to be delivered. The queue owns it while it waits.
class FX_API fxEvent : public fxObj {
public:
    /// Draws the next sequence number.
    explicit fxEvent(unsigned long type);
    /// Copies type and sequence number; the copy is in no queue.
    fxEvent(const fxEvent& other);
    fxEvent& operator=(const fxEvent&) = delete;
    ~fxEvent() override;

    /// Does what the event is for. Called once, by
    /// fxEventHandler::distributeEvents(), and may do anything.
    virtual void deliver() = 0;
    /// Writes one line with the sequence number and the type.
    virtual void dump(FILE* file);
    /// The channel that the event is bound for; null for a plain event.
    virtual fxInputChannel* getChannel();

    unsigned long getType() const { return type; }  ///< Event type number.
    /// Events that were made later have greater ones.
    unsigned long getSequence() const { return sequence; }
    ///@{
    /// The neighbours in the queue, or null. Views.
    fxEvent* getNext() const { return next; }
    fxEvent* getPrev() const { return prev; }
    ///@}

    static unsigned long nextSequenceNumber;  ///< The last number given out.

private:
    friend class fxEventQueue;
    friend class fxEventHandler;

    fxEvent* next;
    fxEvent* prev;

protected:
    unsigned long type;      ///< Event type number.
    unsigned long sequence;  ///< Drawn when the event was made.

private:
    void changeHands();

    fxEventQueue* queue;  // the queue that it waits in, or null
    fxEvent** deliverer;  // who delivers it and means to delete it afterwards, or null
};

/// A boxed value on its way to one input channel, both held.
class FX_API fxMessageEvent : public fxEvent {
public:
    /// Requires: both not null.
    fxMessageEvent(fxInputChannel* channel, fxData* data);
    fxMessageEvent(const fxMessageEvent& other);
    ~fxMessageEvent() override;

    void deliver() override;
    void dump(FILE* file) override;
    fxInputChannel* getChannel() override;
    fxData* getData() const { return data; }  ///< The value, which the event goes on holding.

    static void* operator new(size_t size);
    static void operator delete(void* memory, size_t size);

private:
    void hold();

    fxInputChannel* channel;  // shared
    fxData* data;             // shared
};

/// Events in the order in which they will be delivered.
class FX_API fxEventQueue {
public:
    fxEventQueue();
    fxEventQueue(const fxEventQueue&) = delete;
    fxEventQueue& operator=(const fxEventQueue&) = delete;
    /// Neither delivers nor frees what still waits.
    ~fxEventQueue();

    /// Adds the event at the back (adopted). Requires: it waits nowhere.
    void append(fxEvent* event);
    /// Adds the event at the front (adopted). Requires: it waits nowhere.
    void insert(fxEvent* event);
    /// Takes the front event out and gives it to the caller (`delete`); null
    /// when the queue is empty.
    fxEvent* get();
    /// Takes the event out and deletes it. It is deleted, and counted down,
    /// even when it does not wait here, so remove only what you found here.
    void remove(fxEvent* event);
    bool contains(fxEvent* event) const;  ///< Cost: a walk through the queue.

    bool isEmpty() const { return head == nullptr; }
    unsigned int getCount() const { return count; }
    ///@{
    /// The front and the back of the queue; null when it is empty. Views.
    fxEvent* getHead() const { return head; }
    fxEvent* getTail() const { return tail; }
    ///@}

protected:
    fxEvent* head;       ///< What is delivered next, or null.
    fxEvent* tail;       ///< What is delivered last, or null.
    unsigned int count;  ///< Number of events that wait.

private:
    friend class fxEventWalk;

    void unlink(fxEvent* event);

    fxWalks<fxEventWalk> walks;
};

#endif
