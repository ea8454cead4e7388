// Writing down what is shown, and showing it again.
#ifndef MONITOR_RECORDER_H
#define MONITOR_RECORDER_H

#include "Recording.h"
#include "fxds/Obj.h"

/// The names of the channels for a quantity.
fxStr valueChannel(const char* quantity);
fxStr alarmChannel(const char* quantity);

/// Writes down the quantities that come in on "value NAME" and their alarms on
/// "alarm NAME". A message on "finish" ends a sample. At most `mostSamples` are
/// kept: when there are more, the oldest quarter is forgotten.
class Recorder : public fxObj {
public:
    static constexpr unsigned int mostSamples = 100000;

    Recorder();
    ~Recorder() override;
    const char* className() const override { return "Recorder"; }

    /// Adds the inputs for a quantity.
    void addQuantity(const char* name);

    void setTime(double seconds) { time = seconds; }
    void finish();

    Recording& getRecording() { return *recording; }

private:
    // The closure of the inputs of one quantity.
    struct Slot {
        Recorder* recorder;
        int index;
    };

    static void takeValue(void* slot, float value);
    static void takeAlarm(void* slot, unsigned char isActive);
    Sample& current();

    Recording* const recording;  // shared
    fxVoidPtrArray slots;        // of Slot*, owned
    Sample* unfinished;          // shared; null between samples
    double time;
};

/// Sends the samples of a recording one after the other: each message on
/// "next" sends the time of one sample on "time", its values on "value NAME",
/// the alarms that it raised or ended on "alarm NAME", and then "sent". When
/// nothing is left it sends "end" instead.
class Player : public fxObj {
public:
    explicit Player(Recording& recording);
    ~Player() override;
    const char* className() const override { return "Player"; }

    void sendNext();

    const Recording& getRecording() const { return recording; }

private:
    Recording& recording;  // shared
    const fxOutput<double> time;
    const fxOutput<void> sent;
    const fxOutput<void> end;
    unsigned int nextSample;
    unsigned int nextAlarm;
};

#endif
