// Step 2: queued and immediate sends.
#include "Vent.h"

int main() {
    fxInitializeToolkit();
    House house;
    Alarm alarm;
    Vent vent;
    Log log;
    fxConnect(&house, "celsius", &alarm, "celsius");  // the alarm receives first
    fxConnect(&house, "celsius", &log, "reading");
    fxConnect(&alarm, "excess", &vent, "excess");
    fxConnect(&alarm, "excess", &log, "alarm");
    fxConnect(&vent, "change", &house, "change");

    std::printf("at once:\n");
    house.set(33);

    std::printf("queued:\n");
    sending = fxObj::fxSendQueued;
    house.set(33);
    fx_theEventHandler->drain();

    std::printf("with a display:\n");
    Display display;
    fxConnect(&house, "celsius", &display, "text");
    house.set(20);
    house.set(21);
    house.set(22);
    fx_theEventHandler->drain();
    fxCleanupGlobalOrderings();
}
