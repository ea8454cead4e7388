// Step 2: queued and immediate sends.
#include "Vent.h"

int main() {
    fxInitializeToolkit();
    House house;
    Alarm alarm;
    Vent vent;
    Log log;
    house.connect("celsius", &alarm, "celsius");  // the alarm is told first
    house.connect("celsius", &log, "reading");
    alarm.connect("excess", &vent, "excess");
    alarm.connect("excess", &log, "alarm");
    vent.connect("change", &house, "change");

    std::printf("at once:\n");
    house.set(33);

    std::printf("queued:\n");
    sending = fxObj::fxSendQueued;
    house.set(33);
    fx_theEventHandler->drain();

    std::printf("with a display:\n");
    Display display;
    house.connect("celsius", &display, "text");
    house.set(20);
    house.set(21);
    house.set(22);
    fx_theEventHandler->drain();
    fxCleanupGlobalOrderings();
}
