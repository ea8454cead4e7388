// Step 3: timers and descriptors in the loop.
#include "Station.h"

int main() {
    fxInitializeToolkit();
    sending = fxObj::fxSendQueued;
    Alarm alarm;
    Log log;
    Station station(alarm, log);
    const bool isDone = station.run(someDay);
    std::printf("%u lines\n", log.lines.length());
    fxCleanupGlobalOrderings();
    return isDone ? 0 : 1;
}
