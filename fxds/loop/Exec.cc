#include "fxds/Exec.h"

#include <sys/select.h>
#include <sys/times.h>

#include <cerrno>
#include <cmath>

#include "fxds/Application.h"
#include "fxds/EventHandler.h"
#include "fxds/Fatal.h"
#include "fxds/SelectHandler.h"
#include "fxds/Timer.h"
#include "fxds/dataflow/TraceLines.h"
#include "fxds/loop/HandlerTable.h"

// What poll() calls may change everything that poll() looks at. So the result
// of a select() stands on poll()'s own stack and tells only about descriptors;
// the handler of each is looked up again before every call, and a handler that
// is destroyed leaves all tables (fxHandlerTable). Lists of functions are walked
// by index under their current length, the list of applications by walks that
// removal corrects. An application that is destroyed while it is still counted
// is marked (markDestroyed()): its address is compared but never followed.

fxExec* fx_theExecutive = nullptr;
fxExec* fxExec::allExecs = nullptr;

namespace {

constexpr int bitsPerWord = 64;
constexpr int usedWords = (fxExec::maxHandlers + bitsPerWord - 1) / bitsPerWord;
constexpr float longestWait = 1e8F;     // seconds; a bound that every timeval can hold
constexpr double ticksPerSecond = 100;  // of times(), fixed by the kernel's interface

// As many of a set's words as handlers can have bits in. The kernel looks at no
// more than its first argument says.
struct UsedBits {
    unsigned long words[usedWords];

    bool isSet(int descriptor) const {
        return (words[descriptor / bitsPerWord] >> (descriptor % bitsPerWord) & 1) != 0;
    }
    fd_set* forSystem() { return reinterpret_cast<fd_set*>(words); }
};

UsedBits usedPart(const fxSelectSet& set) {
    UsedBits used;
    for (int i = 0; i < usedWords; ++i) used.words[i] = set.bits[i];
    return used;
}

void setBit(fxSelectSet& set, unsigned int descriptor) {
    set.bits[descriptor / bitsPerWord] |= 1UL << (descriptor % bitsPerWord);
}

// Entries that are removed meanwhile shorten the walk; added ones wait.
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

timeval toTimeval(float seconds) {
    if (seconds < -1) seconds = -1;
    if (seconds > longestWait) seconds = longestWait;
    const long whole = static_cast<long>(seconds);
    const float fraction = seconds - static_cast<float>(whole);
    return {whole, static_cast<long>(static_cast<double>(fraction) * 1000000.0)};
}

unsigned long clockTicks() { return static_cast<unsigned long>(times(nullptr)); }

float secondsSince(unsigned long start) {
    const float ticks = static_cast<float>(clockTicks() - start);
    return static_cast<float>(static_cast<double>(ticks) / ticksPerSecond);
}

}  // namespace

// What a select() found, with the conditions that it was asked for.
struct fxExec::ReadySets {
    explicit ReadySets(const fxExec& exec)
        : hasRead(exec.hasRead),
          hasWrite(exec.hasWrite),
          hasException(exec.hasException),
          read(hasRead ? usedPart(exec.readSet) : UsedBits{}),
          write(hasWrite ? usedPart(exec.writeSet) : UsedBits{}),
          exception(hasException ? usedPart(exec.exceptionSet) : UsedBits{}) {}

    int select(int fdCount, timeval wait) {
        if (fxTrace::isOn(fxTrace::loop)) {
            const double microseconds = static_cast<double>(wait.tv_usec);
            fxTraceLines::phase("select, at most %g s",
                                static_cast<double>(wait.tv_sec) + microseconds / 1000000.0);
        }
        return ::select(fdCount, hasRead ? read.forSystem() : nullptr,
                        hasWrite ? write.forSystem() : nullptr,
                        hasException ? exception.forSystem() : nullptr, &wait);
    }

    const bool hasRead;
    const bool hasWrite;
    const bool hasException;
    UsedBits read;
    UsedBits write;
    UsedBits exception;
};

// A walk over the applications.
struct fxExec::Walk : fxWalk<Walk> {
    Walk(fxExec& exec, unsigned int end_) : fxWalk(exec.walks), next(0), end(end_) {}

    unsigned int next;  // index of the application to call next
    unsigned int end;   // indices from here on are not visited
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

void fxExec::addSelectHandler(fxSelectHandler* handler) {
    table->set(descriptorOf(handler, "addSelectHandler"), handler);
}

void fxExec::removeSelectHandler(fxSelectHandler* handler) {
    table->set(descriptorOf(handler, "removeSelectHandler"), nullptr);
}

void fxExec::addPreSelectFunc(void (*function)()) { preSelectFuncs.append(function); }

void fxExec::addPostSelectFunc(void (*function)()) { postSelectFuncs.append(function); }

void fxExec::removePreSelectFunc(void (*function)()) { removeFirst(preSelectFuncs, function); }

void fxExec::removePostSelectFunc(void (*function)()) { removeFirst(postSelectFuncs, function); }

// A destroyed application at this address leaves the list first: from now on the
// address means the new one.
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
        if (index < walk.end) --walk.end;
    });
    if (!contains(application)) removeFirst(destroyed, static_cast<void*>(application));
}

bool fxExec::contains(fxApplication* application) const {
    return applications.find(application) != fxArray::notFound;
}

void fxExec::initialize(int argc, char** argv) {
    walkApplications(fxArray::notFound, [argc, argv](fxApplication* application) {
        application->initialize(argc, argv);
    });
}

void fxExec::open() {
    walkApplications(fxArray::notFound, [](fxApplication* application) { application->open(); });
}

void fxExec::close() {
    walkApplications(applications.length(), [](fxApplication* application) {
        if (application->isOpen) application->close();
    });
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
    if (minFd == noHandler) return false;
    return ReadySets(*this).select(nfds, {0, 0}) == 0;
}

void fxExec::poll(float seconds) {
    if (dirty) updateSelectState();
    if (minFd == noHandler) {
        distributeEvents();
        return;
    }
    callFunctions("pre-select", preSelectFuncs);
    ReadySets ready(*this);
    if (wait(ready, seconds) > 0) callHandlers(ready);
    callFunctions("post-select", postSelectFuncs);
    distributeEvents();
}

void fxExec::loop() {
    do {
        poll(1000.0F);
    } while (!applications.isEmpty());
}

// Keeps an application that is being destroyed from being called where it is
// still counted.
void fxExec::markDestroyed(fxApplication* application) {
    for (fxExec* exec = allExecs; exec != nullptr; exec = exec->nextExec) {
        if (exec->contains(application) && !exec->isDestroyed(application)) {
            exec->destroyed.append(application);
        }
    }
}

bool fxExec::isDestroyed(void* application) const {
    return destroyed.find(application) != fxArray::notFound;
}

template <class Visit>
void fxExec::walkApplications(unsigned int end, Visit visit) {
    Walk walk(*this, end);
    while (walk.next < walk.end && walk.next < applications.length()) {
        void* const application = applications[walk.next++];
        if (!isDestroyed(application)) visit(static_cast<fxApplication*>(application));
    }
}

int fxExec::descriptorOf(const fxSelectHandler* handler, const char* operation) const {
    const int fd = handler->fd;
    if (!table->has(fd)) {
        fxFatal("fxExec::%s: descriptor %d is not in 0..%d", operation, fd, maxHandlers - 1);
    }
    return fd;
}

void fxExec::updateSelectState() {
    minFd = noHandler;
    nfds = 0;
    hasRead = hasWrite = hasException = 0;
    readSet = writeSet = exceptionSet = fxSelectSet{};
    for (unsigned short fd = 0; fd < maxHandlers; ++fd) {
        const fxSelectHandler* handler = handlers[fd];
        if (handler == nullptr) continue;
        if (handler->wantRead) {
            setBit(readSet, fd);
            hasRead = 1;
        }
        if (handler->wantWrite) {
            setBit(writeSet, fd);
            hasWrite = 1;
        }
        if (handler->wantException) {
            setBit(exceptionSet, fd);
            hasException = 1;
        }
        if (fd < minFd) minFd = fd;
        nfds = static_cast<unsigned short>(fd + 1);
    }
    dirty = 0;
}

// Waits in select() and lets the timers have the time that it took. Answers
// what select() did, and leaves its errno.
int fxExec::wait(ReadySets& ready, float seconds) const {
    if (std::isnan(seconds) || eventsWait()) seconds = 0;

    fxTimer* const first = fxTimer::activeTimers;
    if (first == nullptr) return ready.select(nfds, toTimeval(seconds));

    const float remaining = first->delta;
    const unsigned long start = clockTicks();
    const bool shortened = seconds > remaining;
    const int result = ready.select(nfds, toTimeval(shortened ? remaining : seconds));
    const int selectErrno = errno;
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

// Three calls for each descriptor, each only while the handler found for it is
// still the one registered.
void fxExec::callHandlers(const ReadySets& ready) {
    for (int fd = minFd; fd < nfds; ++fd) {
        fxSelectHandler* const handler = handlers[fd];
        const auto serves = [&](const UsedBits& set, const char* what) {
            const bool isServed = set.isSet(fd) && handler != nullptr && handlers[fd] == handler;
            if (isServed && fxTrace::isOn(fxTrace::loop))
                fxTraceLines::phase("%s, fd %d", what, fd);
            return isServed;
        };
        if (serves(ready.read, "read")) handler->handleRead();
        if (serves(ready.write, "write")) handler->handleWrite();
        if (serves(ready.exception, "exception")) handler->handleException();
    }
}
