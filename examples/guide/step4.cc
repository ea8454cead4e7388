// Step 4: properties.
#include "Settings.h"

int main() {
    fxInitializeToolkit();
    sending = fxObj::fxSendQueued;
    TunedAlarm alarm;
    fxSetProperty(alarm, "limit", 25.0);
    fxSetProperty(alarm, "place", "south wall");
    describe(alarm);

    Log log;
    Station station(alarm, log);
    const bool isDone = station.run(someDay);

    fxConnect(alarm.propertyChanged("limit"), [&alarm] {
        std::printf("the limit is %g now\n", static_cast<double>(alarm.limit()));
    });
    alarm.removeProperty("limit");
    fxCleanupGlobalOrderings();
    return isDone ? 0 : 1;
}
