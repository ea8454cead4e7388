// Recording the displayed values, and replaying them.
#ifndef MONITOR_RECORDER_H
#define MONITOR_RECORDER_H

#include <vector>

#include "Recording.h"
#include "fxds/Obj.h"
#include "fxds/Ref.h"

/// The names of the channels for a quantity.
fxStr valueChannel(const char* quantity);
fxStr alarmChannel(const char* quantity);
fxStr presentChannel(const char* quantity);

/// Records the quantities that come in on "value NAME" and their alarms on "alarm NAME",
/// and on "present NAME" whether the measured thing exists. A message on "finish" ends a
/// sample. At most `mostSamples` are kept: when there are more, the oldest quarter is
/// dropped.
class Recorder : public fxObj {
public:
    static constexpr unsigned int mostSamples = 100000;

    Recorder();
    const char* className() const override { return "Recorder"; }

    /// Adds the inputs for a quantity, whose name is borrowed.
    void addQuantity(const char* name);

    void setTime(double seconds) { time = seconds; }
    void finish();

    Recording& getRecording() { return *recording; }

private:
    Sample& current();

    const fxRef<Recording> recording = fxMake<Recording>();
    fxRef<Sample> unfinished;  // null between samples
    double time = 0;
};

/// Sends the samples of a recording one after the other: each message on "next" sends the
/// time of one sample on "time", its values on "value NAME", the alarms that it raised or
/// ended on "alarm NAME", and then "sent". After the last sample it sends "end" instead.
class Player : public fxObj {
public:
    explicit Player(fxRef<Recording> recording);
    const char* className() const override { return "Player"; }

    void sendNext();

    const Recording& getRecording() const { return *recording; }

private:
    const fxRef<Recording> recording;
    const fxOutput<double> time = addOutput<double>("time");
    const fxOutput<void> sent = addOutput<void>("sent");
    const fxOutput<void> end = addOutput<void>("end");
    std::vector<fxOutputView<float>> values;  // of each quantity
    std::vector<fxOutputView<bool>> alarms;
    unsigned int nextSample = 0;
    unsigned int nextAlarm = 0;
};

#endif
