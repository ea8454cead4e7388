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

/// The main loop. Each poll() calls the pre-select functions, waits until a handler's
/// descriptor is ready, a timer is due or the time is over, advances the timers, calls the
/// handlers of ready descriptors, then the post-select functions, and last distributes the
/// events that are queued by then.
///
/// Descriptors 0 to 16383 are served. Every open file of the process uses one, so a program
/// with many of them checks canServe() for a descriptor that the system has chosen, such as
/// that of an accepted connection.
///
/// A descriptor that is closed while its handler is registered makes one poll()
/// serve no handlers. From then on it is left out until its number is open again,
/// and all others are served; FXDS_TRACE=loop reports it.
///
/// Nothing waits without a handler: while none is registered, poll() only distributes
/// events and returns at once, timers do not advance and loop() spins. A program that has
/// only timers registers an fxWakeup. The trace of the loop reports missing handlers, and a
/// checked build reports on standard error, once, that timers stand still or that loop()
/// spins, as when serve() has been forgotten.
///
/// Everything may be called from within the functions, handlers, ticks and
/// receivers that poll() runs, poll() included; they may add, remove and
/// destroy handlers, functions and applications. Only the executive itself must
/// stay. It serves the thread that runs it and no other.
///
/// A process made by fork() shares all descriptors with its parent, those of the library
/// too: input that one of them reads is lost to the other. So only one of the two polls. If
/// that is the parent, the child calls exec() or _exit().
///
/// An exception from any of them leaves poll() and loop(), initialize(), open() or close()
/// at once. Nothing is lost: the next poll() finds the same descriptors ready, and the
/// events behind the one whose delivery has failed are still queued.
class FX_API fxExec {
public:
    /// Descriptors that can be served: [0, maxDescriptors).
    static constexpr int maxDescriptors = 16384;
    static constexpr int maxHandlers = 100;  ///< Entries of `handlers`.
    /// The value of minFd without a handler; then nfds is 0.
    static constexpr unsigned short noHandler = maxHandlers + 1;

    fxExec();
    fxExec(const fxExec&) = delete;
    fxExec& operator=(const fxExec&) = delete;
    /// Does not touch handlers and applications.
    ~fxExec();

    /// The executive fx_theExecutive, made if there is none yet.
    static fxExec* theExecutive();

    // Handlers.

    /// Whether a handler of this descriptor can be registered.
    static bool canServe(int descriptor) { return descriptor >= 0 && descriptor < maxDescriptors; }

    /// Serves `handler` (borrowed; removed when it is destroyed) from the next poll() on,
    /// in place of any other that has its descriptor. Registered while handlers are being
    /// called, for a descriptor that was found ready and whose turn is still to come, it is
    /// served right then. Fatal for a descriptor that canServe() refuses.
    void addSelectHandler(fxSelectHandler* handler);

    /// Stops serving the descriptor of `handler`, whichever handler it has; it
    /// is not called any more, in a poll() under way either. Fatal for a
    /// descriptor that canServe() refuses.
    void removeSelectHandler(fxSelectHandler* handler);

    ///@{
    /// Functions to call before and after each wait, in order; one added twice is called
    /// twice. One that is added meanwhile is first called next time. When a function is
    /// removed meanwhile the rest move up by one, so that the one that takes the place just
    /// served is skipped this time.
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
    /// Calls the function of this name on the applications in the order of registration,
    /// including those added meanwhile and without those removed meanwhile.
    void initialize(int argc, char** argv);
    void open();
    ///@}
    /// Closes the applications that are open when it is called, in the order of
    /// registration: each once, if it still exists, is registered and is open
    /// when its turn comes.
    void close();

    ///@{
    /// The set of descriptors that poll() waits for.
    fxSelectSet getReadSet();
    fxSelectSet getWriteSet();
    fxSelectSet getExceptionSet();
    ///@}

    /// Whether no descriptor is ready now. Neither timers nor queued events
    /// count. False when there is no handler or the descriptors are bad.
    bool willBlock();

    /// One pass of the loop, which waits at most `seconds`; not at all when
    /// events are queued, no handler is registered or quit()
    /// has been called for a loop under way. NaN counts as 0, more
    /// than three years as three years. A failed select(), as with a negative
    /// time, calls no handler; everything else is done, and errno keeps the value that
    /// select() has set.
    void poll(float seconds);

    /// Polls until no application is registered or quit() is called, at least once.
    /// Without an application this is a single turn: see run().
    void loop();
    /// Polls until quit() is called, whatever is registered.
    void run();

    /// Makes loop() or run() return when the turn under way is over: the innermost one if
    /// it is nested, the next one, after one turn that does not wait, if none is running.
    /// Applications stay registered and open, and events stay queued; a later loop() serves
    /// them. Other threads call this through an fxPostQueue.
    void quit() { isQuitting = true; }

    // The state, for inspection. The bounds and sets are up to date when `dirty`
    // is 0; the next poll() or query of a set brings them up to date.

    unsigned short minFd;  ///< Lowest descriptor with a handler; noHandler if nfds is 0.
    unsigned short nfds;   ///< Highest descriptor with a handler, plus 1; 0: no handler.
    unsigned char dirty;   ///< Whether a handler came or went.
    ///@{
    /// Whether the set of this kind has any member.
    unsigned char hasRead;
    unsigned char hasWrite;
    unsigned char hasException;
    ///@}
    ///@{
    /// The argument of select(); see getReadSet().
    fxSelectSet readSet;
    fxSelectSet writeSet;
    fxSelectSet exceptionSet;
    ///@}
    /// By descriptor, for those below maxHandlers; null: none.
    fxSelectHandler* handlers[maxHandlers];
    fxStubFuncArray preSelectFuncs;   ///< Called before each wait, in this order.
    fxStubFuncArray postSelectFuncs;  ///< Called after each wait, in this order.
    fxVoidPtrArray applications;      ///< of fxApplication*
    unsigned long reserved;           ///< Not used.

private:
    friend class fxApplication;
    class ReadySets;
    struct Closing;
    struct Walk;

    static void markDestroyed(fxApplication* application);
    bool isDestroyed(void* application) const;
    template <class Visit>
    void walkApplications(Visit visit);
    template <class Condition>
    void pollWhile(Condition goesOn);

    static int descriptorOf(const fxSelectHandler* handler, const char* operation);
    void updateSelectState();
    void leaveOutClosed(ReadySets& ready);
    int select(ReadySets& ready, float seconds);
    int wait(ReadySets& ready, float seconds);
    void callHandlers(const ReadySets& ready, int found);

    fxHandlerTable* const table;  // `handlers` and those of higher descriptors
    fxVoidPtrArray destroyed;     // applications that are destroyed but still counted
    fxWalks<Walk> walks;
    fxWalks<Closing> closings;
    fxExec* nextExec;
    bool isQuitting = false;  // whether quit() was called and no loop() has returned since
    unsigned int loops = 0;   // of loop() and run() under way

    static fxExec* allExecs;
};

/// The executive that applications register with and that start-up makes,
/// unless there is one. Before, it is null: initialize(), open(), close(), poll(), loop(),
/// run() and addSelectHandler() are fatal then, with a sentence.
extern FX_API fxExec* fx_theExecutive;

#endif
