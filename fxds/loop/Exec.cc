#include "fxds/Exec.h"

#include <fcntl.h>
#include <sys/select.h>
#include <sys/times.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

#include "fxds/Application.h"
#include "fxds/EventHandler.h"
#include "fxds/Fatal.h"
#include "fxds/SelectHandler.h"
#include "fxds/Timer.h"
#include "fxds/base/StartUp.h"
#include "fxds/dataflow/TraceLines.h"
#include "fxds/loop/HandlerTable.h"

// Functions that poll() calls may change everything that poll() uses.
//
// Invariants:
// (1) The result of a select() is on poll()'s own stack and names only descriptors. The
//     handler of each is looked up again before every call.
// (2) A handler that is destroyed leaves all tables (fxHandlerTable).
// (3) Lists of functions are walked by index up to their current length. Walks over the
//     list of applications are registered, and removal corrects them.
// (4) An application that is destroyed while it is listed is in `destroyed`
//     (markDestroyed()): its address is compared but never followed.
// (5) The sets, nfds and minFd describe the handlers at the time of the latest change of
//     the table, unless `dirty` is set.
// (6) `loops` is the number of loop() and run() calls under way. isQuitting is cleared when
//     one ends.
// (7) An executive owns its table, and nothing that it lists: handlers, functions and
//     applications are borrowed.
//
// The functions that poll() calls may throw. Between two calls nothing is pending that the
// next poll() does not find again: descriptors stay ready, events stay queued, and walks
// are unregistered by destructors.

fxExec* fx_theExecutive = nullptr;
fxExec* fxExec::allExecs = nullptr;

namespace {

constexpr int bitsPerWord = 64;
constexpr float longestWait = 1e8F;     // seconds; a bound that every timeval can hold
constexpr double ticksPerSecond = 100;  // of times(), fixed by the kernel's interface

void setBit(fxSelectSet& set, unsigned int descriptor) {
    set.bits[descriptor / bitsPerWord] |= 1UL << (descriptor % bitsPerWord);
}

// Entries removed meanwhile shorten the walk; added ones wait for the next poll.
void callFunctions(const char* phase, const fxStubFuncArray& functions) {
    const unsigned int count = functions.length();
    if (fxTrace::isOn(fxTrace::loop)) fxTraceLines::phase("%s, functions %u", phase, count);
    for (unsigned int i = 0; i < count && i < functions.length(); ++i) functions[i]();
}

template <class Array, class Item>
void removeFirst(Array& array, Item item) {
    const unsigned int index = array.find(item);
    if (index != fxArray::notFound) array.remove(index, 1);
}

bool eventsWait() { return fx_theEventHandler != nullptr && !fx_theEventHandler->isEmpty(); }

void distributeEvents() {
    if (fx_theEventHandler == nullptr) return;
    if (fxTrace::isOn(fxTrace::loop)) {
        fxTraceLines::phase("distribute, events %u", fx_theEventHandler->getCount());
    }
    fx_theEventHandler->distributeEvents();
}

void advanceTimers(float seconds) {
    if (fxTrace::isOn(fxTrace::loop)) fxTraceLines::phase("timers, %g s passed", double{seconds});
    fxTimer::alarm(seconds);
}

// The report of the latest poll without handlers; null after a poll with handlers.
const char* toldLast = nullptr;

// A program without handlers spins, and its timers never tick. Reports that once, until it
// changes. `isLooping`: called from loop() or run().
void tellThatNothingWaits([[maybe_unused]] bool isLooping) {
    const char* const text = fxTimer::activeTimers != nullptr
                                 ? "timers stand still: no select handler is registered"
                                 : "nothing waits: no select handler is registered";
    const bool isNew = std::exchange(toldLast, text) != text;
    if (isNew && fxTrace::isOn(fxTrace::loop)) fxTraceLines::phase("%s", text);
#ifdef FXDS_CHECKED
    static bool isTold = false;
    const bool isSpinning = isLooping && !isNew && !eventsWait();
    if (isTold || (fxTimer::activeTimers == nullptr && !isSpinning)) return;
    std::fprintf(stderr, "fxExec::poll: %s; make an fxWakeup\n", text);
    isTold = true;
#endif
}

timeval toTimeval(float seconds) {
    if (seconds < -1) seconds = -1;
    if (seconds > longestWait) seconds = longestWait;
    const long whole = static_cast<long>(seconds);
    const float fraction = seconds - static_cast<float>(whole);
    return {whole, static_cast<long>(static_cast<double>(fraction) * 1000000.0)};
}

void requireStartUp(const fxExec* exec) { fxStartUp::require(exec, "fx_theExecutive"); }

bool isOpenDescriptor(int fd) {
    const int callersErrno = errno;
    const bool isOpen = fcntl(fd, F_GETFD) != -1;
    errno = callersErrno;
    return isOpen;
}

unsigned long clockTicks() { return static_cast<unsigned long>(times(nullptr)); }

float secondsSince(unsigned long start) {
    const float ticks = static_cast<float>(clockTicks() - start);
    return static_cast<float>(static_cast<double>(ticks) / ticksPerSecond);
}

}  // namespace

// Argument and result of one select(): copies of as many words of the sets as the
// descriptors take. The system looks at no more.
//
// Two words are enough for the usual program. More come from the heap, because polls may be
// nested deeply on a small stack.
class fxExec::ReadySets {
public:
    enum Kind { readable, writable, exceptional };
    static constexpr int none = INT_MAX;

    explicit ReadySets(const fxExec& exec)
        : fdCount(exec.nfds), wordCount((fdCount + bitsPerWord - 1) / bitsPerWord) {
        unsigned long* place = few;
        if (wordCount > fewWords) {
            many.reset(new unsigned long[static_cast<size_t>(kinds * wordCount)]);
            place = many.get();
        }
        fill(exec, place);
    }

    // Restores the sets for another select(). Requires: nothing was left out.
    void refill(const fxExec& exec) { fill(exec, many != nullptr ? many.get() : few); }

    int select(timeval wait) {
        if (fxTrace::isOn(fxTrace::loop)) {
            const double microseconds = static_cast<double>(wait.tv_usec);
            fxTraceLines::phase("select, at most %g s",
                                static_cast<double>(wait.tv_sec) + microseconds / 1000000.0);
        }
        return call(wait);
    }

    // The same as select(), without the trace line of the wait.
    int call(timeval wait) {
        const int result = ::select(fdCount, reinterpret_cast<fd_set*>(sets[readable]),
                                    reinterpret_cast<fd_set*>(sets[writable]),
                                    reinterpret_cast<fd_set*>(sets[exceptional]), &wait);
        if (result < 0 && fxTrace::isOn(fxTrace::loop)) {
            fxTraceLines::phase("select failed: %s", std::strerror(errno));
        }
        return result;
    }

    bool has(Kind kind, int descriptor) const {
        return sets[kind] != nullptr &&
               (sets[kind][descriptor / bitsPerWord] >> (descriptor % bitsPerWord) & 1) != 0;
    }

    // The number of sets that contain the descriptor.
    int countOf(int descriptor) const {
        return has(readable, descriptor) + has(writable, descriptor) + has(exceptional, descriptor);
    }

    void leaveOut(int descriptor) {
        if (descriptor >= fdCount) return;
        for (unsigned long* set : sets) {
            if (set != nullptr)
                set[descriptor / bitsPerWord] &= ~(1UL << (descriptor % bitsPerWord));
        }
    }

    // The lowest descriptor from `descriptor` on that is in a set, or `none`.
    int next(int descriptor) const {
        while (descriptor < fdCount) {
            unsigned long word = 0;
            for (const unsigned long* set : sets) {
                if (set != nullptr) word |= set[descriptor / bitsPerWord];
            }
            word >>= descriptor % bitsPerWord;
            if (word != 0) return descriptor + __builtin_ctzl(word);
            descriptor += bitsPerWord - descriptor % bitsPerWord;
        }
        return none;
    }

private:
    static constexpr int kinds = 3;
    static constexpr int fewWords = 2;

    void fill(const fxExec& exec, unsigned long* place) {
        copy(readable, place, exec.hasRead, exec.readSet);
        copy(writable, place, exec.hasWrite, exec.writeSet);
        copy(exceptional, place, exec.hasException, exec.exceptionSet);
    }
    void copy(Kind kind, unsigned long*& place, unsigned char isAsked, const fxSelectSet& set) {
        sets[kind] = isAsked ? place : nullptr;
        if (isAsked) place = std::copy_n(set.bits, wordCount, place);
    }

    const int fdCount;
    const int wordCount;
    unsigned long* sets[kinds];  // null: no handler wants this kind
    unsigned long few[kinds * fewWords];
    std::unique_ptr<unsigned long[]> many;
};

// A walk over the applications.
struct fxExec::Walk : fxWalk<Walk> {
    explicit Walk(fxExec& exec) : fxWalk(exec.walks), next(0) {}

    unsigned int next;  // index of the application to call next
};

// The applications that were open when close() was called, each once. Null for one that has
// been destroyed, because a new one may have its address.
struct fxExec::Closing : fxWalk<Closing> {
    explicit Closing(fxExec& exec) : fxWalk(exec.closings) {
        for (void* application : exec.applications) {
            if (exec.isDestroyed(application)) continue;
            if (!static_cast<fxApplication*>(application)->isOpen) continue;
            if (open.find(application) == fxArray::notFound) open.append(application);
        }
    }

    fxVoidPtrArray open;
};

fxExec::fxExec()
    : minFd(noHandler),
      nfds(0),
      dirty(0),
      hasRead(0),
      hasWrite(0),
      hasException(0),
      readSet{},
      writeSet{},
      exceptionSet{},
      handlers{},
      reserved(0),
      table(new fxHandlerTable(handlers, maxHandlers, dirty)),
      nextExec(allExecs) {
    allExecs = this;
}

fxExec::~fxExec() {
    delete table;
    fxExec** link = &allExecs;
    while (*link != this) link = &(*link)->nextExec;
    *link = nextExec;
}

fxExec* fxExec::theExecutive() {
    if (fx_theExecutive == nullptr) fx_theExecutive = new fxExec;
    return fx_theExecutive;
}

// Defined here, so that SelectHandler.cc does not depend on the executive.
bool fxSelectHandler::serve() {
    if (fd >= 0 && !fxExec::canServe(fd)) {
        close(fd);
        fd = -1;
    }
    if (fd >= 0) fxExec::theExecutive()->addSelectHandler(this);
    return fd >= 0;
}

void fxExec::addSelectHandler(fxSelectHandler* handler) {
    requireStartUp(this);
    table->set(descriptorOf(handler, "addSelectHandler"), handler);
}

void fxExec::removeSelectHandler(fxSelectHandler* handler) {
    table->set(descriptorOf(handler, "removeSelectHandler"), nullptr);
}

void fxExec::addPreSelectFunc(void (*function)()) { preSelectFuncs.append(function); }

void fxExec::addPostSelectFunc(void (*function)()) { postSelectFuncs.append(function); }

void fxExec::removePreSelectFunc(void (*function)()) { removeFirst(preSelectFuncs, function); }

void fxExec::removePostSelectFunc(void (*function)()) { removeFirst(postSelectFuncs, function); }

// A destroyed application at the same address leaves the list first: from now on the
// address denotes the new one.
void fxExec::add(fxApplication* application) {
    if (isDestroyed(application)) {
        while (contains(application)) remove(application);
    }
    applications.append(application);
}

void fxExec::remove(fxApplication* application) {
    const unsigned int index = applications.find(application);
    if (index == fxArray::notFound) return;
    applications.remove(index, 1);
    walks.each([index](Walk& walk) {
        if (index < walk.next) --walk.next;
    });
    if (!contains(application)) removeFirst(destroyed, static_cast<void*>(application));
}

bool fxExec::contains(fxApplication* application) const {
    return applications.find(application) != fxArray::notFound;
}

void fxExec::initialize(int argc, char** argv) {
    requireStartUp(this);
    walkApplications(
        [argc, argv](fxApplication* application) { application->initialize(argc, argv); });
}

void fxExec::open() {
    requireStartUp(this);
    walkApplications([](fxApplication* application) { application->open(); });
}

void fxExec::close() {
    requireStartUp(this);
    Closing closing(*this);
    for (unsigned int i = 0; i < closing.open.length(); ++i) {
        auto* const application = static_cast<fxApplication*>(closing.open[i]);
        if (application != nullptr && contains(application) && application->isOpen) {
            application->close();
        }
    }
}

fxSelectSet fxExec::getReadSet() {
    if (dirty) updateSelectState();
    return readSet;
}

fxSelectSet fxExec::getWriteSet() {
    if (dirty) updateSelectState();
    return writeSet;
}

fxSelectSet fxExec::getExceptionSet() {
    if (dirty) updateSelectState();
    return exceptionSet;
}

bool fxExec::willBlock() {
    if (dirty) updateSelectState();
    if (nfds == 0) return false;
    return ReadySets(*this).select({0, 0}) == 0;
}

// The order is part of the interface: functions before the wait, handlers in the order of
// their descriptors, functions after it, events. The sets are brought up to date first, so
// a handler that a pre-select function registers is usually waited for from the next poll
// on. The time that passes in select() goes to the timers before any handler is called.
void fxExec::poll(float seconds) {
    requireStartUp(this);
    if (dirty) updateSelectState();
    if (nfds == 0) {
        tellThatNothingWaits(loops > 0);
        distributeEvents();
        return;
    }
    toldLast = nullptr;
    callFunctions("pre-select", preSelectFuncs);
    ReadySets ready(*this);
    if (!table->closed.empty()) leaveOutClosed(ready);
    const int found = wait(ready, seconds);
    if (found > 0) callHandlers(ready, found);
    callFunctions("post-select", postSelectFuncs);
    distributeEvents();
}

// Polls once, and then while goesOn() is true and quit() has not been called.
template <class Condition>
void fxExec::pollWhile(Condition goesOn) {
    struct Running {
        explicit Running(fxExec& exec_) : exec(exec_) { ++exec.loops; }
        Running(const Running&) = delete;
        Running& operator=(const Running&) = delete;
        ~Running() {
            --exec.loops;
            exec.isQuitting = false;
        }
        fxExec& exec;
    } running(*this);
    do {
        poll(1000.0F);
    } while (!isQuitting && goesOn());
}

void fxExec::loop() {
    requireStartUp(this);
    pollWhile([this] { return !applications.isEmpty(); });
}

void fxExec::run() {
    requireStartUp(this);
    pollWhile([] { return true; });
}

// Prevents calls of an application that is being destroyed while it is listed.
void fxExec::markDestroyed(fxApplication* application) {
    for (fxExec* exec = allExecs; exec != nullptr; exec = exec->nextExec) {
        exec->closings.each([application](Closing& closing) {
            const unsigned int index = closing.open.find(application);
            if (index != fxArray::notFound) closing.open[index] = nullptr;
        });
        if (exec->contains(application) && !exec->isDestroyed(application)) {
            exec->destroyed.append(application);
        }
    }
}

bool fxExec::isDestroyed(void* application) const {
    return destroyed.find(application) != fxArray::notFound;
}

template <class Visit>
void fxExec::walkApplications(Visit visit) {
    Walk walk(*this);
    while (walk.next < applications.length()) {
        void* const application = applications[walk.next++];
        if (!isDestroyed(application)) visit(static_cast<fxApplication*>(application));
    }
}

int fxExec::descriptorOf(const fxSelectHandler* handler, const char* operation) {
    const int fd = handler->fd;
    if (!canServe(fd)) {
        fxFatal("fxExec::%s: descriptor %d is not in 0..%d", operation, fd, maxDescriptors - 1);
    }
    return fd;
}

// nfds counts handlers without wishes as well: 0 means that there is no handler.
void fxExec::updateSelectState() {
    minFd = noHandler;
    nfds = 0;
    hasRead = hasWrite = hasException = 0;
    readSet = writeSet = exceptionSet = fxSelectSet{};
    for (int fd = 0; fd < table->end(); ++fd) {
        const fxSelectHandler* handler = table->at(fd);
        if (handler == nullptr) continue;
        if (handler->wantRead) {
            setBit(readSet, static_cast<unsigned int>(fd));
            hasRead = 1;
        }
        if (handler->wantWrite) {
            setBit(writeSet, static_cast<unsigned int>(fd));
            hasWrite = 1;
        }
        if (handler->wantException) {
            setBit(exceptionSet, static_cast<unsigned int>(fd));
            hasException = 1;
        }
        if (nfds == 0) minFd = static_cast<unsigned short>(fd);
        nfds = static_cast<unsigned short>(fd + 1);
    }
    dirty = 0;
}

// Waits in select() and advances the timers by the time that passed. Returns the result of
// select() and keeps its errno.
int fxExec::wait(ReadySets& ready, float seconds) {
    if (std::isnan(seconds) || eventsWait() || (isQuitting && loops != 0)) seconds = 0;

    fxTimer* const first = fxTimer::activeTimers;
    if (first == nullptr) return select(ready, seconds);

    const float remaining = first->delta;
    const unsigned long start = clockTicks();
    const bool shortened = seconds > remaining;
    const int result = select(ready, shortened ? remaining : seconds);
    const int selectErrno = errno;
    // times() counts in hundredths and may show less than has passed. A wait that ended
    // because the timer was due therefore counts in full.
    if (result == 0 && shortened) {
        advanceTimers(remaining);
    } else {
        const float elapsed = secondsSince(start);
        if (remaining - elapsed > 0) {
            first->delta = remaining - elapsed;
        } else {
            advanceTimers(elapsed);
        }
    }
    errno = selectErrno;
    return result;
}

// A bad descriptor makes every select() fail that contains it. After the first failure the
// closed descriptors are collected, and left out from then on.
int fxExec::select(ReadySets& ready, float seconds) {
    const timeval wait = toTimeval(seconds);
    const bool waits = wait.tv_sec > 0 || wait.tv_usec > 0;
    int result = 0;
    if (waits && table->closed.empty() && !fxTrace::isOn(fxTrace::loop) && table->expectsReady()) {
        result = ready.call({0, 0});
        table->wasReady(result != 0);
        if (result == 0) ready.refill(*this);
    }
    if (result == 0) result = ready.select(wait);
    if (result >= 0 || errno != EBADF) return result;
    for (int fd = ready.next(0); fd < nfds; fd = ready.next(fd + 1)) {
        if (isOpenDescriptor(fd)) continue;
        table->closed.push_back(fd);
        if (fxTrace::isOn(fxTrace::loop)) fxTraceLines::phase("fd %d is closed, left out", fd);
    }
    errno = EBADF;
    return result;
}

// Each poll checks again, because a closed number may have been given to another file.
void fxExec::leaveOutClosed(ReadySets& ready) {
    const auto isOver = [this](int fd) { return table->at(fd) == nullptr || isOpenDescriptor(fd); };
    std::vector<int>& closed = table->closed;
    closed.erase(std::remove_if(closed.begin(), closed.end(), isOver), closed.end());
    for (const int fd : closed) ready.leaveOut(fd);
}

// Three calls for each descriptor, each only while the handler found for it is still the
// registered one. At most `found` bits are examined: the system does not clear bits above
// the highest descriptor that the process has ever opened.
void fxExec::callHandlers(const ReadySets& ready, int found) {
    const int lowest = minFd;
    for (int fd = ready.next(0); found > 0 && fd < nfds; fd = ready.next(fd + 1)) {
        found -= ready.countOf(fd);
        if (fd < lowest) continue;
        fxSelectHandler* const handler = table->at(fd);
        const auto serves = [&](ReadySets::Kind kind, const char* what) {
            const bool isServed =
                ready.has(kind, fd) && handler != nullptr && table->at(fd) == handler;
            if (isServed && fxTrace::isOn(fxTrace::loop))
                fxTraceLines::phase("%s, fd %d", what, fd);
            return isServed;
        };
        if (serves(ReadySets::readable, "read")) handler->handleRead();
        if (serves(ReadySets::writable, "write")) handler->handleWrite();
        if (serves(ReadySets::exceptional, "exception")) handler->handleException();
    }
}
