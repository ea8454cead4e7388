// Events, and the queue that they wait in.
#ifndef FXDS_EVENT_H
#define FXDS_EVENT_H

#include <cstddef>
#include <cstdio>
#include <memory>
#include <new>

#include "fxds/Obj.h"
#include "fxds/detail/Walk.h"

class fxEventQueue;

/// An action that waits to be delivered. The queue owns it while it waits. If it is deleted
/// nevertheless, it leaves its queue.
class FX_API fxEvent : public fxObj {
public:
    /// Draws the next sequence number.
    explicit fxEvent(unsigned long type);
    /// Copies type and sequence number; the copy is in no queue.
    fxEvent(const fxEvent& other);
    fxEvent& operator=(const fxEvent&) = delete;
    ~fxEvent() override;

    /// Performs the event's action. Called once, by
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
    friend class fxMessageEvent;
    friend class fxMessageIndex;

    // `sent`: made by a send, and so an fxMessageEvent and nothing derived from it.
    enum class Origin : unsigned char { other, message, sent };

    fxEvent* next;
    fxEvent* prev;

protected:
    unsigned long type;      ///< Event type number.
    unsigned long sequence;  ///< Drawn when the event was made.

private:
    class Delivered;
    void deliverAndEnd();
    void changeHands();
    void leaveQueue();
    bool endsPlainly() const;

    fxEventQueue* queue;  // the queue that it waits in, or null
    union {
        fxEvent** deliverer;  // the pointer by which the delivering function deletes it, or null
        fxEvent* alike;       // while it is indexed: the next message for the same input
    };
    Origin origin;
    bool isIndexed;  // by an fxMessageIndex; only while it waits
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

    ///@{
    /// Storage from the library's free lists; aligned as the class asks when
    /// that is more than usual, or the caller's own.
    static void* operator new(size_t size);
    static void* operator new(size_t size, std::align_val_t alignment);
    static void* operator new(size_t, void* place) noexcept { return place; }
    static void operator delete(void* memory, size_t size);
    static void operator delete(void* memory, std::align_val_t alignment);
    static void operator delete(void*, void*) noexcept {}
    ///@}

private:
    friend class fxEvent;
    friend class fxEventHandler;
    friend class fxInputChannel;
    friend class fxMessageIndex;

    void hold();
    void letGo();
    void withdraw();

    fxInputChannel* channel;  // shared
    fxData* data;             // shared
};

/// Events in the order in which they will be delivered.
class FX_API fxEventQueue {
public:
    fxEventQueue();
    fxEventQueue(const fxEventQueue&) = delete;
    fxEventQueue& operator=(const fxEventQueue&) = delete;
    /// Neither delivers nor deletes the events that still wait; they are in no queue then.
    ~fxEventQueue();

    ///@{
    /// Adds the event at the back or at the front (adopted). Fatal when it waits
    /// already, here or in another queue.
    void append(fxEvent* event);
    void insert(fxEvent* event);
    ///@}
    /// Takes the front event out and gives it to the caller (`delete`); null
    /// when the queue is empty.
    fxEvent* get();
    /// Removes the event from the queue that it is in and deletes it. One that is in no
    /// queue is deleted, too, and counted down here, so remove only events of this queue.
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
    fxEvent* head;       ///< The event delivered next, or null.
    fxEvent* tail;       ///< The event delivered last, or null.
    unsigned int count;  ///< Number of events that wait.

    /// Calls `isDoomed(event, argument)` on every event and deletes those for which it does
    /// not return 0. Events that are added behind the last one meanwhile are not tested.
    void removeWhere(unsigned char (*isDoomed)(fxEvent*, void*), void* argument);
    /// Whether every event that waits was made by a send.
    bool hasOnlySentMessages() const { return others == 0; }
    /// Deletes every message that leads to `input`, in their order, if that takes no walk
    /// over the queue; returns whether it has done so, or the queue has been destroyed.
    /// Requires: hasOnlySentMessages(), and no send makes further messages for the input.
    bool removeIndexed(fxInputChannel* input);
    /// To be called before waiting messages lead to another input.
    void forgetInputs();

private:
    friend class fxEvent;
    friend class fxEventHandler;
    class Index;
    class Use;
    class Walk;

    void join(fxEvent* event, fxEvent* before, fxEvent* after);
    void link(fxEvent* event, fxEvent* before, fxEvent* after);
    void unlink(fxEvent* event);

    unsigned int others;           // events that wait and were not made by a send
    std::unique_ptr<Index> index;  // a walk, which ends after the list of walks
    fxWalks<Walk> walks;
    fxWalks<Use> uses;
};

/// A function of a queue that continues after code of the program has run, which may have
/// destroyed the queue.
class fxEventQueue::Use : public fxWalk<Use> {
public:
    /// Of this queue.
    explicit Use(fxEventQueue& queue) : fxWalk(queue.uses) {}
    /// Whether the queue exists.
    bool goesOn() const { return !isOrphan(); }
};

extern FX_API unsigned long fxET_Unknown;       ///< 0
extern FX_API unsigned long fxET_MessageEvent;  ///< 1

#endif
