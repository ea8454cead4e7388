// Step 4: properties.
#include "Settings.h"

int main() {
    fxInitializeToolkit();
    sending = fxObj::fxSendQueued;
    TunedAlarm alarm;
    setNumber(alarm, "limit", 25);
    setText(alarm, "place", "south wall");
    describe(alarm);

    Log log;
    Station station(alarm, log);
    const bool isDone = station.run(someDay);

    alarm.removeProperty("limit");
    std::printf("without the property: %g\n", static_cast<double>(alarm.limit()));
    fxCleanupGlobalOrderings();
    return isDone ? 0 : 1;
}
