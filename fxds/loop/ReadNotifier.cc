#include "fxds/ReadNotifier.h"

namespace {

constexpr char readableName[] = "readable";

}  // namespace

fxReadNotifier::fxReadNotifier(int fd_) : fxSelectHandler(fd_, 1) {
    addOutput(readableName, fxDT_void);
    serve();
}

const char* fxReadNotifier::className() const { return "fxReadNotifier"; }

fxOutputView<void> fxReadNotifier::readable() {
    return fxOutputView<void>(getOutput(readableName, fxDT_void));
}

void fxReadNotifier::handleRead() { readable().send(fxSendNow); }
