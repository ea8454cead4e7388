// Values of a program's own types in channels, converters and properties.
#include <cstdio>
#include <memory>
#include <string>

#include "fxds/fxds.h"

namespace garden {

struct Reading {
    std::string place;
    double celsius;
};

enum class Window { shut, open };

// A large value: its copies share one picture.
typedef std::shared_ptr<const std::string> Picture;

}  // namespace garden

FX_CHANNEL_VALUE(garden::Reading, "Reading")
FX_CHANNEL_VALUE(garden::Window, "Window")
FX_CHANNEL_VALUE(garden::Picture, "Picture")

class Sensor : public fxObj {
public:
    const char* className() const override { return "Sensor"; }

    const fxOutput<garden::Reading> measured = addOutput<garden::Reading>("measured");
    const fxOutput<garden::Picture> seen = addOutput<garden::Picture>("seen");
};

class Panel : public fxObj {
public:
    Panel() {
        addInput("reading", [](const garden::Reading& reading) {
            std::printf("%s: %g degrees\n", reading.place.c_str(), reading.celsius);
        });
        addInput("window", [](garden::Window window) {
            std::printf("window %s\n", window == garden::Window::open ? "open" : "shut");
        });
        addInput("picture", [](const garden::Picture& picture) {
            std::printf("picture %s, %ld owners\n", picture->c_str(), picture.use_count());
        });
    }
    const char* className() const override { return "Panel"; }
};

int main() {
    fxInitializeToolkit();
    Sensor sensor;
    Panel panel;
    fxConnect(&sensor, "measured", &panel, "reading");
    fxConnect(&sensor, "seen", &panel, "picture");
    sensor.measured.send({"south wall", 24.5});  // queued: a copy waits
    sensor.seen.send(std::make_shared<std::string>("wall.png"));
    fx_theEventHandler->drain();

    std::printf("%s\n", fxConnect(&sensor, "measured", &panel, "window").whyNot().c_str());
    fxConverter::add([](const garden::Reading& reading) {
        return reading.celsius > 30 ? garden::Window::open : garden::Window::shut;
    });
    fxConnect(&sensor, "measured", &panel, "window");
    sensor.measured.send({"north wall", 31}, fxObj::fxSendNow);

    fxBindProperty(panel, "last", sensor.measured);
    sensor.measured.send({"roof", 29}, fxObj::fxSendNow);
    const garden::Reading none{"nowhere", 0};
    std::printf("last: %s\n", fxGetProperty(panel, "last", none).place.c_str());
    fxCleanupGlobalOrderings();
}
