// The executive: waits for descriptors and timers and distributes events.
#ifndef FXDS_EXEC_H
#define FXDS_EXEC_H

#include "fxds/Config.h"
#include "fxds/StubFuncArray.h"
#include "fxds/VoidPtrArray.h"
#include "fxds/detail/Walk.h"

class fxApplication;
class fxExec;
class fxHandlerTable;
class fxSelectHandler;

/// A set of file descriptors in the layout that select() takes, 16 times as
/// large as the system's own: bit i of the words, lowest first, is descriptor i.
struct FX_API fxSelectSet {
    /// Requires: 0 <= descriptor < 16384.
    bool isSet(int descriptor) const {
        FX_ASSERT(descriptor >= 0 && descriptor < 16384);
        return (bits[descriptor / 64] >> (descriptor % 64) & 1) != 0;
    }

    unsigned long bits[256];  ///< Of 64 descriptors each.
};

/// The main loop. Each poll() calls the pre-select functions, waits until a
/// handler's descriptor is ready, a timer is due or the time is over, advances
/// the timers, calls the handlers of what is ready, then the post-select
/// functions, and last distributes the events that are queued.
///
/// Nothing waits without a handler: while none is registered, poll() only
/// distributes events and returns at once, timers stand still and loop() spins.
/// A program that has only timers registers an fxWakeup.
///
/// Everything may be called from within the functions, handlers, ticks and
/// receivers that poll() runs, poll() included; they may add, remove and
/// destroy handlers, functions and applications. Only the executive itself must
/// stay. It serves the thread that runs it and no other.
class FX_API fxExec {
public:
    /// Descriptors that can be served: [0, maxHandlers).
    static constexpr int maxHandlers = 100;
    /// What minFd is when there is no handler.
    static constexpr unsigned short noHandler = maxHandlers + 1;

    fxExec();
    fxExec(const fxExec&) = delete;
    fxExec& operator=(const fxExec&) = delete;
    /// Leaves handlers and applications alone.
    ~fxExec();

    /// The executive fx_theExecutive, made if there is none yet.
    static fxExec* theExecutive();

    // Handlers.

    /// Serves `handler` (borrowed; taken out when it is destroyed) from the next poll() on, in
    /// place of any other that has its descriptor. Registered while handlers are being called, for
    /// a descriptor that was found ready and whose turn is still to come, it is served right then.
    /// Fatal for a descriptor outside [0, 100).
    void addSelectHandler(fxSelectHandler* handler);

    /// Stops serving the descriptor of `handler`, whichever handler it has; it
    /// is not called any more, in a poll() under way either. Fatal for a
    /// descriptor outside [0, 100).
    void removeSelectHandler(fxSelectHandler* handler);

    ///@{
    /// Functions to call before and after each wait, in order; one added twice
    /// is called twice. What is added meanwhile is first called next time. When
    /// a function is removed meanwhile the rest move up by one, so that the one
    /// that takes the place just served is left out this time.
    void addPreSelectFunc(void (*function)());
    void addPostSelectFunc(void (*function)());
    /// Removes the first such entry; nothing when there is none.
    void removePreSelectFunc(void (*function)());
    void removePostSelectFunc(void (*function)());
    ///@}

    // Applications.

    /// Registers the application (borrowed), which keeps loop() running until
    /// it is removed.
    void add(fxApplication* application);
    /// Removes the first such entry; nothing when there is none.
    void remove(fxApplication* application);
    /// Whether the application is registered. One that was destroyed without
    /// having been opened or removed still is.
    bool contains(fxApplication* application) const;

    ///@{
    /// Calls its namesake on the applications in the order of registration,
    /// those added meanwhile included, those that go meanwhile left out.
    void initialize(int argc, char** argv);
    void open();
    ///@}
    /// Closes the applications that are open when it is called, likewise.
    void close();

    ///@{
    /// The descriptors that are waited for.
    fxSelectSet getReadSet();
    fxSelectSet getWriteSet();
    fxSelectSet getExceptionSet();
    ///@}

    /// Whether no descriptor is ready now. Neither timers nor queued events
    /// count. False when there is no handler or the descriptors are bad.
    bool willBlock();

    /// One pass of the loop, which waits at most `seconds`; not at all when
    /// events are queued or no handler is registered. NaN counts as 0, more
    /// than three years as three years. A failed select(), as with a negative
    /// time, calls no handler; all else is done, and the timers' work leaves
    /// the select()'s errno as it was.
    void poll(float seconds);

    /// Polls until no application is registered, at least once.
    void loop();

    // The state, for inspection. The bounds and sets are up to date when `dirty`
    // is 0; the next poll() or query of a set brings them up to date.

    unsigned short minFd;  ///< Lowest descriptor with a handler, or noHandler.
    unsigned short nfds;   ///< Highest descriptor with a handler, plus 1; or 0.
    unsigned char dirty;   ///< Whether a handler came or went.
    ///@{
    /// Whether the set of this kind has any member.
    unsigned char hasRead;
    unsigned char hasWrite;
    unsigned char hasException;
    ///@}
    ///@{
    /// What select() is asked for; see getReadSet().
    fxSelectSet readSet;
    fxSelectSet writeSet;
    fxSelectSet exceptionSet;
    ///@}
    fxSelectHandler* handlers[maxHandlers];  ///< By descriptor; null: none.
    fxStubFuncArray preSelectFuncs;          ///< Called before each wait, in this order.
    fxStubFuncArray postSelectFuncs;         ///< Called after each wait, in this order.
    fxVoidPtrArray applications;             ///< of fxApplication*
    unsigned long reserved;                  ///< Not used.

private:
    friend class fxApplication;
    struct ReadySets;
    struct Walk;

    static void markDestroyed(fxApplication* application);
    bool isDestroyed(void* application) const;
    template <class Visit>
    void walkApplications(unsigned int end, Visit visit);

    int descriptorOf(const fxSelectHandler* handler, const char* operation) const;
    void updateSelectState();
    int wait(ReadySets& ready, float seconds) const;
    void callHandlers(const ReadySets& ready);

    fxHandlerTable* const table;  // over `handlers`
    fxVoidPtrArray destroyed;     // applications that are destroyed but still counted
    fxWalks<Walk> walks;
    fxExec* nextExec;

    static fxExec* allExecs;
};

/// The executive that applications register with and that start-up makes,
/// unless there is one.
extern FX_API fxExec* fx_theExecutive;

#endif
