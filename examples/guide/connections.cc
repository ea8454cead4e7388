// Callables, connections as values, values of your own, references and alarms.
#include <chrono>
#include <cstdio>

#include "fxds/fxds.h"

struct Point {
    double x, y;
};
FX_CHANNEL_VALUE(Point, "Point")

// A thing that moves, and sends its place.
class Ship : public fxObj {
public:
    Ship() {
        addInput("steer", [this](const Point& by) {
            place = {place.x + by.x, place.y + by.y};
            moved.send(place, fxObj::fxSendNow);
        });
    }
    const char* className() const override { return "Ship"; }

    fxOutput<Point> moved = addOutput<Point>("moved");

private:
    Point place = {0, 0};
};

class Chart : public fxObj {
public:
    const char* className() const override { return "Chart"; }
    void mark(const Point& place) { std::printf("chart: %g, %g\n", place.x, place.y); }
};

class Bridge : public fxObj {
public:
    fxOutput<Point> wheel = addOutput<Point>("wheel");
    const char* className() const override { return "Bridge"; }
};

static void join(Bridge& bridge, Ship& ship) {
    const fxConnection wrong = fxConnect(&bridge, "wheel", &ship, "ster");
    std::printf("%s\n", wrong.whyNot().c_str());

    fxConnection helm = fxConnect(&bridge, "wheel", &ship, "steer");
    {
        Chart chart;
        fxConnect(ship.moved, &chart, &Chart::mark);  // until the chart ends
        bridge.wheel.send({1, 2}, fxObj::fxSendNow);
    }
    int moves = 0;
    const fxScopedConnection counting = fxConnect(ship.moved, [&moves] { ++moves; });
    bridge.wheel.send({1, 0}, fxObj::fxSendNow);
    helm.disconnect();
    bridge.wheel.send({1, 0}, fxObj::fxSendNow);
    std::printf("%d move, %s\n", moves, helm ? "connected" : "cut");
}

static void remember(Bridge& bridge) {
    // Distances along the way, without a class for it.
    fxConverter::add([](const Point& p) { return p.x * p.x + p.y * p.y; });
    fxObj log;
    log.addInput("square", [](double square) { std::printf("square %g\n", square); });
    fxConnect(&bridge, "wheel", &log, "square");

    fxBindProperty(log, "last", bridge.wheel);
    fxConnect(log.propertyChanged("last"),
              [&log] { std::printf("last: %g\n", fxGetProperty<Point>(log, "last").y); });
    bridge.wheel.send({3, 4}, fxObj::fxSendNow);
}

static void wait() {
    using namespace std::chrono_literals;
    int blinks = 0;
    const fxRef<fxAlarm> blinking = fxEvery(2ms, [&blinks] { ++blinks; });
    bool isOver = false;
    fxAfter(15ms, [&isOver] { isOver = true; });
    while (!isOver) fx_theExecutive->poll(1);
    blinking->stop();
    std::printf("blinked: %s\n", blinks > 0 ? "yes" : "no");
}

int main() {
    fxInitializeToolkit();
    Bridge bridge;
    const fxRef<Ship> ship = fxMake<Ship>();  // goes with its last reference
    join(bridge, *ship);
    remember(bridge);
    wait();
    fxCleanupGlobalOrderings();
}
