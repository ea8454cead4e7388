#include "Monitor.h"

#include <unistd.h>

#include <ctime>
#include <limits>

#include "fxds/Exec.h"

// A tick of the timer is queued for the samplers first, then for the counting
// and for the screen or the report. The samplers' values go through at once, so
// what is shown is always one complete sample. In a replay the player has the
// samplers' place and tells itself when a sample is complete.

namespace {

// The intervals that the keys step through.
const float intervalSteps[] = {0.1F, 0.2F, 0.5F, 1, 2, 5, 10, 30, 60};

float processorCount() { return static_cast<float>(sysconf(_SC_NPROCESSORS_ONLN)); }

double secondsSince1970() {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

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

Monitor::Monitor(const Options& options, Recording* replayed)
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
      time(addOutput<double>("time")),
      message(addOutput<const char*>("message")),
      recordPath(options.record),
      sampleCount(0),
      smoothingOn(false) {
    addInput<&Monitor::quit>("quit");
    addInput<&Monitor::togglePause>("pause");
    addInput<&Monitor::lengthenInterval>("longer");
    addInput<&Monitor::shortenInterval>("shorter");
    addInput<&Monitor::toggleSmoothing>("toggle smoothing");
    addInput<&Monitor::save>("save");
    addInput<&Monitor::countSample>("count");
    addInput<&Monitor::endReplay>("end");
    timer.setInterval(options.intervalSeconds);
    for (Quantity* quantity : quantities) gauges.append(&quantity->gauge);

    if (replayed != nullptr) {
        player = std::make_unique<Player>(*replayed);
        connectPlayer();
    } else {
        recorder = std::make_unique<Recorder>();
        connectSamplers();
        connectSources();
        connectRecorder();
    }
    signals.connect("quit", this, "quit");
    if (options.samples > 0) {
        connectReport(options.samples);
    } else {
        connectScreen();
    }
}

Monitor::~Monitor() { fx_theExecutive->remove(this); }

void Monitor::connectSamplers() {
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
    timer.connect("tick", this, "count");
}

void Monitor::connectSources() {
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
    }
}

void Monitor::connectRecorder() {
    for (Quantity* quantity : quantities) {
        const char* const name = quantity->gauge.getName();
        recorder->addQuantity(name);
        quantity->gauge.connect("shown", recorder.get(), valueChannel(name));
        quantity->alarm.connect("active", recorder.get(), alarmChannel(name));
    }
    connect("time", recorder.get(), "time");
    timer.connect("tick", recorder.get(), "finish");
}

void Monitor::connectPlayer() {
    for (Quantity* quantity : quantities) {
        const char* const name = quantity->gauge.getName();
        player->connect(valueChannel(name), &quantity->gauge, "level");
        player->connect(alarmChannel(name), &quantity->gauge, "alarm");
    }
    connect("prime", player.get(), "next");
    timer.connect("tick", player.get(), "next");
    player->connect("sent", this, "count");
    player->connect("end", this, "end");
}

void Monitor::connectScreen() {
    terminal = std::make_unique<Terminal>();
    display = std::make_unique<Display>(*terminal, gauges, status);
    keyboard = std::make_unique<Keyboard>();

    keyboard->connect("quit", this, "quit");
    keyboard->connect("pause", this, "pause");
    keyboard->connect("longer", this, "longer");
    keyboard->connect("shorter", this, "shorter");
    if (recorder != nullptr) {
        keyboard->connect("smoothing", this, "toggle smoothing");
        keyboard->connect("save", this, "save");
    }

    connect("interval", &status, "interval");
    connect("samples", &status, "samples");
    connect("paused", &status, "paused");
    connect("smoothing", &status, "smoothing");
    connect("message", &status, "message");
    connect("time", &status, "time");
    for (Sampler* sampler : samplers) sampler->connect("notice", &status, "notice");

    connect("prime", display.get(), "redraw");
    connect("changed", display.get(), "redraw");
    timer.connect("tick", display.get(), "redraw");
    signals.connect("resized", display.get(), "redraw");
    signals.connect("suspend", display.get(), "suspend");
    if (player != nullptr) {
        player->connect("time", &status, "time");
        smoothing.send(player->getRecording().smoothing, fxSendNow);
    } else {
        setSmoothing(true);
    }
}

void Monitor::connectReport(int lines) {
    report = std::make_unique<Report>(gauges, lines);
    for (Sampler* sampler : samplers) sampler->connect("notice", report.get(), "notice");
    if (player != nullptr) {
        player->connect("time", report.get(), "time");
        player->connect("sent", report.get(), "print");
    } else {
        connect("time", report.get(), "time");
        timer.connect("tick", report.get(), "print");
    }
    report->connect("done", this, "quit");
}

void Monitor::initialize(int, char**) {
    interval.send(timer.getInterval(), fxSendNow);
    samples.send(sampleCount, fxSendNow);
    time.send(secondsSince1970(), fxSendNow);
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
    if (isOpen && recorder != nullptr && !recordPath.isEmpty()) saveTo(recordPath, failure);
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

bool Monitor::saveTo(const fxStr& path, fxStr& error) {
    Recording& recording = recorder->getRecording();
    recording.intervalSeconds = timer.getInterval();
    recording.smoothing = smoothingOn;
    return saveRecording(recording, path, error);
}

void Monitor::save() {
    fxStr path = recordPath;
    if (path.isEmpty()) {
        const time_t now = std::time(nullptr);
        tm parts = {};
        localtime_r(&now, &parts);
        path.format("monitor-%04d%02d%02d-%02d%02d%02d.rec", parts.tm_year + 1900, parts.tm_mon + 1,
                    parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
    }
    fxStr words;
    if (saveTo(path, words)) {
        words.format("saved %u samples to %s", recorder->getRecording().sampleCount(),
                     path.c_str());
    }
    message.send(words, fxSendNow);
    changed.send();
}

void Monitor::countSample() {
    samples.send(++sampleCount, fxSendNow);
    if (recorder != nullptr) time.send(secondsSince1970(), fxSendNow);
}

void Monitor::endReplay() {
    if (report != nullptr) {
        close();
        return;
    }
    timer.stopTimer();
    paused.send(true, fxSendNow);
    message.send("end of the recording", fxSendNow);
    changed.send();
}
