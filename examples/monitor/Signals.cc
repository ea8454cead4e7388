#include "Signals.h"

#include <csignal>

// The handler only notes what came and wakes the loop, which then looks.

namespace {

const int handledSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGWINCH, SIGTSTP};

const fxWakeup* loopWakeup = nullptr;
volatile sig_atomic_t quitCame = 0;  // which signal it was
volatile sig_atomic_t resizeCame = 0;
volatile sig_atomic_t suspendCame = 0;

void note(int signalNumber) {
    if (signalNumber == SIGWINCH) {
        resizeCame = 1;
    } else if (signalNumber == SIGTSTP) {
        suspendCame = 1;
    } else {
        quitCame = signalNumber;
    }
    loopWakeup->wake();
}

// A signal that is ignored, as SIGHUP is under nohup, stays so.
void handleAll(void (*handler)(int)) {
    for (const int signalNumber : handledSignals) {
        struct sigaction action;
        if (sigaction(signalNumber, nullptr, &action) != 0 || action.sa_handler == SIG_IGN)
            continue;
        action = {};
        action.sa_handler = handler;
        action.sa_flags = SA_RESTART;
        sigaction(signalNumber, &action, nullptr);
    }
}

}  // namespace

Signals::Signals()
    : quit(addOutput<void>("quit")),
      resized(addOutput<void>("resized")),
      suspend(addOutput<void>("suspend")) {
    addInput<&Signals::look>("look");
    wakeup.connect("wakeup", this, "look");
    loopWakeup = &wakeup;
    handleAll(note);
}

Signals::~Signals() { handleAll(SIG_DFL); }

int Signals::quitSignal() { return quitCame; }

void Signals::look() {
    if (suspendCame != 0) {
        suspendCame = 0;
        suspend.send();
    }
    if (resizeCame != 0) {
        resizeCame = 0;
        resized.send();
    }
    if (quitCame != 0) quit.send();
}
