#include "Monitor.h"

#include <unistd.h>

#include <limits>

#include "fxds/Exec.h"

// A tick of the timer is queued for the samplers first, then for the counting
// and for the screen or the report. The samplers' values go through at once, so
// what is shown is always one complete sample.

namespace {

// The intervals that the keys step through.
const float intervalSteps[] = {0.1F, 0.2F, 0.5F, 1, 2, 5, 10, 30, 60};

float processorCount() { return static_cast<float>(sysconf(_SC_NPROCESSORS_ONLN)); }

constexpr double never = std::numeric_limits<double>::infinity();

// Gives an object the property "name", by which it is told from its likes in the
// graph.
void setName(fxObj& object, const fxStr& name) {
    static const unsigned short tag = fxProperty::allocNewTag("name");
    object.setProperty(new fxProperty(tag, name));
}

}  // namespace

Quantity::Quantity(const char* name, Gauge::Unit unit, float fullScale, double alarmAt,
                   double calmAt)
    : alarm(alarmAt, calmAt), gauge(name, unit, fullScale), source(nullptr), sourceOutput(nullptr) {
    alarm.connect("active", &gauge, "alarm");
    setName(smoothing, name);
    setName(alarm, name);
    setName(gauge, name);
}

void Quantity::setSource(fxObj& object, const char* output) {
    source = &object;
    sourceOutput = output;
}

void Quantity::setSmoothing(bool on) {
    if (on) {
        joinDirectly(&fxObj::disconnect);
        joinSmoothed(&fxObj::connect);
    } else {
        joinSmoothed(&fxObj::disconnect);
        joinDirectly(&fxObj::connect);
    }
}

void Quantity::joinSmoothed(Join join) {
    (source->*join)(sourceOutput, &smoothing, "value");
    (smoothing.*join)("smooth", &gauge, "level");
    (smoothing.*join)("smooth", &alarm, "value");
}

void Quantity::joinDirectly(Join join) {
    (source->*join)(sourceOutput, &gauge, "level");
    (source->*join)(sourceOutput, &alarm, "value");
}

Monitor::Monitor(const Options& options)
    : cpuSampler(options.procDirectory),
      memorySampler(options.procDirectory),
      loadSampler(options.procDirectory),
      netSampler(options.procDirectory),
      cpuRate(100),
      receivedRate(1),
      sentRate(1),
      cpu("cpu", Gauge::percent, 100, 90, 80),
      memory("memory", Gauge::percent, 100, 90, 85),
      swap("swap", Gauge::percent, 100, 50, 40),
      load("load", Gauge::plain, processorCount(), 2 * processorCount(), processorCount()),
      received("net in", Gauge::bytesPerSecond, 1000, never, never),
      sent("net out", Gauge::bytesPerSecond, 1000, never, never),
      samplers{&cpuSampler, &memorySampler, &loadSampler, &netSampler},
      quantities{&cpu, &memory, &swap, &load, &received, &sent},
      timer(true),
      prime(addOutput<void>("prime")),
      changed(addOutput<void>("changed")),
      interval(addOutput<double>("interval")),
      paused(addOutput<bool>("paused")),
      smoothing(addOutput<bool>("smoothing")),
      samples(addOutput<int>("samples")),
      sampleCount(0),
      smoothingOn(false) {
    addInput<&Monitor::quit>("quit");
    addInput<&Monitor::togglePause>("pause");
    addInput<&Monitor::lengthenInterval>("longer");
    addInput<&Monitor::shortenInterval>("shorter");
    addInput<&Monitor::toggleSmoothing>("toggle smoothing");
    addInput<&Monitor::countSample>("count");
    timer.setInterval(options.intervalSeconds);

    connectSources();
    signals.connect("quit", this, "quit");
    if (options.samples > 0) {
        connectReport(options.samples);
    } else {
        connectScreen();
    }
}

Monitor::~Monitor() { fx_theExecutive->remove(this); }

void Monitor::connectSources() {
    setName(cpuRate, "cpu");
    setName(receivedRate, "net in");
    setName(sentRate, "net out");
    for (Sampler* sampler : samplers) {
        connect("prime", sampler, "sample");
        timer.connect("tick", sampler, "sample");
    }
    cpuSampler.connect("total", &cpuRate, "base");
    cpuSampler.connect("busy", &cpuRate, "count");
    netSampler.connect("time", &receivedRate, "base");
    netSampler.connect("received", &receivedRate, "count");
    netSampler.connect("time", &sentRate, "base");
    netSampler.connect("sent", &sentRate, "count");

    cpu.setSource(cpuRate, "rate");
    memory.setSource(memorySampler, "used");
    swap.setSource(memorySampler, "swap");
    load.setSource(loadSampler, "one");
    received.setSource(receivedRate, "rate");
    sent.setSource(sentRate, "rate");
    memorySampler.connect("detail", &memory.gauge, "detail");
    memorySampler.connect("swapDetail", &swap.gauge, "detail");
    loadSampler.connect("detail", &load.gauge, "detail");
    for (Quantity* quantity : quantities) {
        connect("smoothing", &quantity->smoothing, "restart");
        quantity->setSmoothing(false);
        gauges.append(&quantity->gauge);
    }
    timer.connect("tick", this, "count");
}

void Monitor::connectScreen() {
    terminal = std::make_unique<Terminal>();
    display = std::make_unique<Display>(*terminal, gauges, status);
    keyboard = std::make_unique<Keyboard>();

    keyboard->connect("quit", this, "quit");
    keyboard->connect("pause", this, "pause");
    keyboard->connect("longer", this, "longer");
    keyboard->connect("shorter", this, "shorter");
    keyboard->connect("smoothing", this, "toggle smoothing");

    connect("interval", &status, "interval");
    connect("samples", &status, "samples");
    connect("paused", &status, "paused");
    connect("smoothing", &status, "smoothing");
    for (Sampler* sampler : samplers) sampler->connect("notice", &status, "notice");

    connect("prime", display.get(), "redraw");
    connect("changed", display.get(), "redraw");
    timer.connect("tick", display.get(), "redraw");
    signals.connect("resized", display.get(), "redraw");
    signals.connect("suspend", display.get(), "suspend");
    setSmoothing(true);
}

void Monitor::connectReport(int lines) {
    report = std::make_unique<Report>(gauges, lines);
    for (Sampler* sampler : samplers) sampler->connect("notice", report.get(), "notice");
    timer.connect("tick", report.get(), "print");
    report->connect("done", this, "quit");
}

void Monitor::initialize(int, char**) {
    interval.send(timer.getInterval(), fxSendNow);
    samples.send(sampleCount, fxSendNow);
}

void Monitor::open() {
    fxApplication::open();
    if (terminal != nullptr) terminal->enter();
    prime.send();
    timer.startTimer();
}

void Monitor::close() {
    timer.stopTimer();
    if (terminal != nullptr) terminal->leave();
    fxApplication::close();
}

void Monitor::togglePause() {
    const bool pause = timer.isActive();
    if (pause) {
        timer.stopTimer();
    } else {
        timer.startTimer();
    }
    paused.send(pause, fxSendNow);
    changed.send();
}

void Monitor::lengthenInterval() { stepInterval(+1); }
void Monitor::shortenInterval() { stepInterval(-1); }

void Monitor::stepInterval(int direction) {
    const float now = timer.getInterval();
    float next = now;
    for (const float step : intervalSteps) {
        if (direction < 0 && step < now) next = step;
        if (direction > 0 && step > now && next == now) next = step;
    }
    timer.setInterval(next);
    if (timer.isActive()) timer.startTimer();
    interval.send(next, fxSendNow);
    changed.send();
}

void Monitor::toggleSmoothing() {
    setSmoothing(!smoothingOn);
    changed.send();
}

void Monitor::setSmoothing(bool on) {
    smoothingOn = on;
    for (Quantity* quantity : quantities) quantity->setSmoothing(on);
    smoothing.send(on, fxSendNow);
}

void Monitor::countSample() { samples.send(++sampleCount, fxSendNow); }
