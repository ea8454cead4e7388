#include "Monitor.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <ctime>
#include <limits>

#include "Elements.h"
#include "fxds/Exec.h"
#include "fxds/PropertyAccess.h"
#include "fxds/Save.h"

// A tick of the timer is queued for the samplers first, then for the counting and for the
// screen or the report. The samplers' values go through at once, so the display always
// shows one complete sample. In a replay the player takes the samplers' place and sends
// "sent" after each sample.

namespace {

// The intervals that the keys step through.
const float intervalSteps[] = {0.1F, 0.2F, 0.5F, 1, 2, 5, 10, 30, 60};

double processorCount() { return static_cast<double>(sysconf(_SC_NPROCESSORS_ONLN)); }

double secondsSince1970() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration<double>(now).count();
}

constexpr double never = std::numeric_limits<float>::max();

fxRef<fxObj> makeSampler(const char* kind, const Options& options) {
    return makeElement(kind, {{"every", "0"}, {"proc", options.procDirectory}});
}

// The graph shows the property.
void setName(fxObj& object, const char* name) { fxSetProperty(object, "name", name); }

}  // namespace

Quantity::Quantity(const char* name, const char* unit, double fullScale, double alarmAt,
                   double calmAt)
    : smoothing(makeElement("Smooth", {})),
      alarm(makeElement("Level", {{"high", fxStr(alarmAt, "%g")}, {"low", fxStr(calmAt, "%g")}})),
      gauge(name, unit, fullScale) {
    fxConnect(alarm, "active", &gauge, "alarm");
    setName(*smoothing, name);
    setName(*alarm, name);
    setName(gauge, name);
}

void Quantity::setSource(fxObj& object, const char* output) {
    source = &object;
    sourceOutput = output;
}

void Quantity::setSmoothing(bool on) {
    for (fxScopedConnection& joint : joints) joint.disconnect();
    fxObj* const last = on ? smoothing.get() : source;
    const char* const lastOutput = on ? "value" : sourceOutput;
    if (on) joints[0] = fxConnect(source, sourceOutput, smoothing, "value");
    joints[1] = fxConnect(last, lastOutput, &gauge, "level");
    joints[2] = fxConnect(last, lastOutput, alarm, "level");
}

Monitor::Monitor(const Options& options, const fxRef<Recording>& replayed)
    : cpuSampler(makeSampler("Cpu", options)),
      memorySampler(makeSampler("Memory", options)),
      loadSampler(makeSampler("Load", options)),
      diskSampler(makeSampler("Disk", options)),
      netSampler(makeSampler("Net", options)),
      cpu("cpu", "percent", 100, 90, 80),
      memory("memory", "percent", 100, 90, 85),
      swap("swap", "percent", 100, 50, 40),
      load("load", "number", processorCount(), 2 * processorCount(), processorCount()),
      tasks("tasks", "count", 100, never, never),
      read("read", "bytes", 1000, never, never),
      written("write", "bytes", 1000, never, never),
      received("net in", "bytes", 1000, never, never),
      sent("net out", "bytes", 1000, never, never),
      samplers{cpuSampler, memorySampler, loadSampler, diskSampler, netSampler},
      quantities{&cpu, &memory, &swap, &load, &tasks, &read, &written, &received, &sent},
      recordPath(options.record),
      intervalSeconds(options.intervalSeconds) {
    addInput<&Monitor::quit>("quit");
    addInput<&Monitor::quitBy>("quit by");
    addInput<&Monitor::togglePause>("pause");
    addInput<&Monitor::lengthenInterval>("longer");
    addInput<&Monitor::shortenInterval>("shorter");
    addInput<&Monitor::toggleSmoothing>("toggle smoothing");
    addInput<&Monitor::save>("save");
    addInput<&Monitor::countSample>("count");
    addInput<&Monitor::endReplay>("end");
    for (Quantity* quantity : quantities) gauges.push_back(&quantity->gauge);

    if (replayed) {
        player = std::make_unique<Player>(replayed);
        connectPlayer();
    } else {
        recorder = std::make_unique<Recorder>();
        connectSamplers();
        connectSources();
        connectRecorder();
    }
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) connectSignal(number, *this, "quit by");
    if (options.samples > 0) {
        connectReport(options.samples);
    } else {
        connectScreen();
    }
}

Monitor::~Monitor() { fx_theExecutive->remove(this); }

void Monitor::connectSamplers() {
    for (fxObj* sampler : samplers) {
        static_cast<fxElement*>(sampler)->start();
        fxConnect(this, "prime", sampler, "sample");
        fxConnect(&timer, "tick", sampler, "sample");
    }
    fxConnect(&timer, "tick", this, "count");
}

void Monitor::connectSources() {
    const struct {
        Quantity& quantity;
        fxObj& sampler;
        const char* value;
        const char* presence;
        const char* detail;
    } sources[] = {{cpu, *cpuSampler, "used", nullptr, nullptr},
                   {memory, *memorySampler, "used", nullptr, "detail"},
                   {swap, *memorySampler, "swap", "hasSwap", "swapDetail"},
                   {load, *loadSampler, "one", nullptr, "detail"},
                   {tasks, *loadSampler, "tasks", nullptr, "running"},
                   {read, *diskSampler, "in", "exists", nullptr},
                   {written, *diskSampler, "out", "exists", nullptr},
                   {received, *netSampler, "in", "exists", nullptr},
                   {sent, *netSampler, "out", "exists", nullptr}};
    for (const auto& [quantity, sampler, value, presence, detail] : sources) {
        quantity.setSource(sampler, value);
        if (presence != nullptr) fxConnect(&sampler, presence, &quantity.gauge, "present");
        if (detail != nullptr) fxConnect(&sampler, detail, &quantity.gauge, "detail");
    }
    fxConnect(cpuSampler, "cores", &cpu.gauge, "parts");
    for (Quantity* quantity : quantities) {
        fxConnect(this, "smoothing", quantity->smoothing, "restart");
        quantity->setSmoothing(false);
    }
}

void Monitor::connectRecorder() {
    for (Quantity* quantity : quantities) {
        const char* const name = quantity->gauge.getName();
        recorder->addQuantity(name);
        fxConnect(&quantity->gauge, "shown", recorder.get(), valueChannel(name));
        fxConnect(quantity->alarm, "active", recorder.get(), alarmChannel(name));
        fxConnect(&quantity->gauge, "existence", recorder.get(), presentChannel(name));
    }
    fxConnect(this, "time", recorder.get(), "time");
    fxConnect(&timer, "tick", recorder.get(), "finish");
}

// Not every recording has each quantity.
void Monitor::connectPlayer() {
    const Recording& recording = player->getRecording();
    for (Quantity* quantity : quantities) {
        const char* const name = quantity->gauge.getName();
        const bool isRecorded = recording.names.find(name) != fxArray::notFound;
        quantity->gauge.setPresent(isRecorded && recording.isPresent(name));
        if (!isRecorded) continue;
        fxConnect(player.get(), valueChannel(name), &quantity->gauge, "level");
        fxConnect(player.get(), alarmChannel(name), &quantity->gauge, "alarm");
    }
    fxConnect(this, "prime", player.get(), "next");
    fxConnect(&timer, "tick", player.get(), "next");
    fxConnect(player.get(), "sent", this, "count");
    fxConnect(player.get(), "end", this, "end");
}

void Monitor::connectScreen() {
    terminal = std::make_unique<fxTerminal>();
    display = std::make_unique<Display>(*terminal, gauges, status);
    keyboard = std::make_unique<Keyboard>();

    fxConnect(keyboard.get(), "quit", this, "quit");
    fxConnect(keyboard.get(), "pause", this, "pause");
    fxConnect(keyboard.get(), "longer", this, "longer");
    fxConnect(keyboard.get(), "shorter", this, "shorter");
    fxConnect(keyboard.get(), "help", display.get(), "help");
    fxConnect(keyboard.get(), "draw again", display.get(), "draw again");
    if (recorder != nullptr) {
        fxConnect(keyboard.get(), "smoothing", this, "toggle smoothing");
        fxConnect(keyboard.get(), "save", this, "save");
    }

    fxConnect(this, "interval", &status, "interval");
    fxConnect(this, "samples", &status, "samples");
    fxConnect(this, "paused", &status, "paused");
    fxConnect(this, "smoothing", &status, "smoothing");
    fxConnect(this, "message", &status, "message");
    fxConnect(this, "time", &status, "time");
    for (fxObj* sampler : samplers) fxConnect(sampler, "notice", &status, "notice");

    fxConnect(this, "prime", display.get(), "redraw");
    fxConnect(this, "changed", display.get(), "redraw");
    fxConnect(&timer, "tick", display.get(), "redraw");
    connectSignal(SIGWINCH, *display, "redraw");
    connectSignal(SIGTSTP, *display, "suspend");
    if (player != nullptr) {
        fxConnect(player.get(), "time", &status, "time");
        smoothing.send(player->getRecording().smoothing, fxSendNow);
    } else {
        setSmoothing(true);
    }
}

void Monitor::connectReport(int lines) {
    report = std::make_unique<Report>(gauges, lines);
    for (fxObj* sampler : samplers) fxConnect(sampler, "notice", report.get(), "notice");
    fxConnect(this, "message", report.get(), "notice");
    if (player != nullptr) {
        fxConnect(player.get(), "time", report.get(), "time");
        fxConnect(player.get(), "sent", report.get(), "print");
    } else {
        fxConnect(this, "time", report.get(), "time");
        fxConnect(&timer, "tick", report.get(), "print");
    }
    fxConnect(report.get(), "done", this, "quit");
}

// A signal that is ignored, as SIGHUP is under nohup, stays ignored.
void Monitor::connectSignal(int number, fxObj& target, const char* input) {
    struct sigaction action;
    if (sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) return;
    signals.push_back(std::make_unique<fxSignal>(number));
    fxConnect(signals.back().get(), "signal", &target, input);
}

// Without an interval, as fast as the loop turns.
void Monitor::startTimer() {
    const std::chrono::duration<float> seconds(intervalSeconds);
    const auto span = std::chrono::duration_cast<fxAlarm::Span>(seconds);
    timer.startEvery(std::max(span, fxAlarm::Span(1)));
}

void Monitor::initialize(int, char**) {
    interval.send(intervalSeconds, fxSendNow);
    samples.send(sampleCount, fxSendNow);
    time.send(secondsSince1970(), fxSendNow);
}

void Monitor::open() {
    fxApplication::open();
    if (terminal != nullptr) terminal->enter();
    prime.send();
    startTimer();
}

void Monitor::quitBy(int signalNumber) {
    quitSignal = signalNumber;
    close();
}

void Monitor::close() {
    timer.stop();
    if (terminal != nullptr) terminal->leave();
    if (isOpen) failure = saveRecord().text();
    fxApplication::close();
}

void Monitor::togglePause() {
    const bool pause = timer.isActive();
    if (pause) {
        timer.stop();
    } else {
        startTimer();
    }
    paused.send(pause, fxSendNow);
    changed.send();
}

void Monitor::lengthenInterval() { stepInterval(+1); }
void Monitor::shortenInterval() { stepInterval(-1); }

void Monitor::stepInterval(int direction) {
    const float now = intervalSeconds;
    float next = now;
    for (const float step : intervalSteps) {
        if (direction < 0 && step < now) next = step;
        if (direction > 0 && step > now && next == now) next = step;
    }
    intervalSeconds = next;
    if (timer.isActive()) startTimer();
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

fxStreamFault Monitor::saveTo(const fxStr& path) {
    Recording& recording = recorder->getRecording();
    recording.intervalSeconds = intervalSeconds;
    recording.smoothing = smoothingOn;
    return fxSave(path, &recording);
}

fxStreamFault Monitor::saveRecord() {
    return recorder == nullptr || recordPath.isEmpty() ? fxStreamFault() : saveTo(recordPath);
}

// Limits the loss when the monitor ends abruptly, as by a power failure. For a long
// recording, saving takes at most a twentieth of the time.
void Monitor::saveNowAndThen() {
    const auto begin = std::chrono::steady_clock::now();
    if (begin < nextSave) return;
    const fxStreamFault fault = saveRecord();
    const auto end = std::chrono::steady_clock::now();
    nextSave = end + 20 * (end - begin);
    if (fault && !hasSavingFailed) message.send(fault.text(), fxSendNow);
    hasSavingFailed = static_cast<bool>(fault);
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
    if (const fxStreamFault fault = saveTo(path)) {
        message.send(fault.text(), fxSendNow);
    } else {
        const fxStr count = fxStr::number(recorder->getRecording().sampleCount());
        message.send("saved " | count | " samples to " | path, fxSendNow);
    }
    changed.send();
}

void Monitor::countSample() {
    constexpr int samplesPerSave = 10;
    samples.send(++sampleCount, fxSendNow);
    if (sampleCount % samplesPerSave == 0) saveNowAndThen();
    if (recorder != nullptr) time.send(secondsSince1970(), fxSendNow);
}

void Monitor::endReplay() {
    if (report != nullptr) {
        close();
        return;
    }
    timer.stop();
    paused.send(true, fxSendNow);
    message.send("end of the recording", fxSendNow);
    changed.send();
}
