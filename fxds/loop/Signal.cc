#include "fxds/Signal.h"

#include <atomic>
#include <csignal>

#include "fxds/Exec.h"
#include "fxds/Wakeup.h"
#include "fxds/loop/HandlerTable.h"

// A signal handler may run in any thread at any time, even while the last object is being
// destroyed. So its data is never freed: a flag for each signal, and one fxWakeup, which is
// in the executive's table only while there are objects.
//
// Invariants:
// (1) Exactly the signals of the valid objects have count > 0, and our handler, unless the
//     program has installed another one.
// (2) After a flag is set, wake() is called. So a flag that is set after takeCalls() is
//     seen in this turn or in the next one.

namespace {

constexpr char outputName[] = "signal";
constexpr int signalCount = NSIG;

struct Caught {
    std::atomic<bool> hasCome{false};
    int count = 0;            // of objects
    struct sigaction before;  // while count > 0
};
static_assert(std::atomic<bool>::is_always_lock_free, "it is set in signal handlers");

Caught caught[signalCount];
std::atomic<fxWakeup*> wakeup{nullptr};

void noteSignal(int number) {
    caught[number].hasCome.store(true);
    wakeup.load()->wake();
}

bool canCatch(int number) {
    if (number <= 0 || number >= signalCount) return false;
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL}) {
        if (number == fault) return false;
    }
    return true;
}

bool install(int number) {
    struct sigaction action = {};
    action.sa_handler = noteSignal;
    action.sa_flags = SA_RESTART;
    sigfillset(&action.sa_mask);
    return sigaction(number, &action, &caught[number].before) == 0;
}

void uninstall(int number) {
    struct sigaction now;
    if (sigaction(number, nullptr, &now) != 0) return;
    const bool isOurs = (now.sa_flags & SA_SIGINFO) == 0 && now.sa_handler == noteSignal;
    if (isOurs) sigaction(number, &caught[number].before, nullptr);
}

}  // namespace

class fxSignal::Catcher : public fxWakeup {
public:
    // The only catcher, registered; null when the system has no descriptor left.
    static Catcher* get() {
        if (only() == nullptr) {
            auto* const made = new Catcher;
            if (!made->isValid()) {
                delete made;
                return nullptr;
            }
            wakeup.store(made);
        }
        fxExec::theExecutive()->addSelectHandler(only());
        return only();
    }
    const char* className() const override { return "fxSignal"; }

    static bool add(fxSignal& object) {
        Catcher* const catcher = canCatch(object.number) ? get() : nullptr;
        if (catcher == nullptr) return false;
        Caught& entry = caught[object.number];
        if (entry.count == 0 && !install(object.number)) {
            catcher->rest();
            return false;
        }
        ++entry.count;
        fxSignal** link = &catcher->first;
        while (*link != nullptr) link = &(*link)->next;
        *link = &object;
        return true;
    }

    // The last object drops a signal that has arrived and was not delivered.
    static void remove(fxSignal& object) {
        fxSignal** link = &only()->first;
        while (*link != &object) link = &(*link)->next;
        *link = object.next;
        Caught& entry = caught[object.number];
        if (--entry.count == 0) {
            uninstall(object.number);
            entry.hasCome.store(false);
        }
        only()->rest();
    }

    // The messages are queued: no receiver runs here.
    void handleRead() override {
        if (!takeCalls()) return;
        bool hasCome[signalCount];
        for (int i = 0; i < signalCount; ++i) hasCome[i] = caught[i].hasCome.exchange(false);
        for (fxSignal* object = first; object != nullptr; object = object->next) {
            if (hasCome[object->number]) object->signal().send(object->number);
        }
    }

private:
    // A loop waits while a handler is registered, so this one leaves without objects.
    void rest() {
        if (first == nullptr) fxHandlerTable::forget(this);
    }

    static Catcher* only() { return static_cast<Catcher*>(wakeup.load()); }

    fxSignal* first = nullptr;
};

fxSignal::fxSignal(int number_) : number(number_), valid(false), next(nullptr) {
    addOutput(outputName, fxDT_int);
    valid = Catcher::add(*this);
}

fxSignal::~fxSignal() {
    if (valid) Catcher::remove(*this);
}

const char* fxSignal::className() const { return "fxSignal"; }

fxOutputView<int> fxSignal::signal() const { return getOutput<int>(outputName); }
