#include "fxds/ReadNotifier.h"

namespace {

constexpr char readableName[] = "readable";

}  // namespace

fxReadNotifier::fxReadNotifier(int fd_) : fxSelectHandler(fd_, 1) {
    addOutput(readableName, fxDT_void);
    serve();
}

const char* fxReadNotifier::className() const { return "fxReadNotifier"; }

fxOutputView<void> fxReadNotifier::readable() const { return getOutput<void>(readableName); }

void fxReadNotifier::handleRead() { readable().send(fxSendNow); }
