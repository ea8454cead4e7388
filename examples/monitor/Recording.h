// What the monitor saves: samples, alarms and settings.
#ifndef MONITOR_RECORDING_H
#define MONITOR_RECORDING_H

#include "fxds/FloatArray.h"
#include "fxds/Ref.h"
#include "fxds/Str.h"
#include "fxds/StrArray.h"
#include "fxds/VoidPtrArray.h"
#include "fxds/Xdr.h"

/// What all quantities showed at one time.
class Sample : public fxXDRObj {
    FX_TRANSCRIBABLE(Sample)

    double time = 0;      ///< Seconds since 1970.
    fxFloatArray values;  ///< In the order of Recording::names; NaN: there was none.
};

/// An alarm that began or ended.
class AlarmEvent : public fxXDRObj {
    FX_TRANSCRIBABLE(AlarmEvent)

    AlarmEvent() = default;
    AlarmEvent(int quantity, bool isActive, Sample* sample);
    AlarmEvent(const AlarmEvent&) = delete;
    AlarmEvent& operator=(const AlarmEvent&) = delete;
    ~AlarmEvent() override;
    void xdrSuccess(fxTranscriber& transcriber) override;

    int quantity = 0;          ///< Index in Recording::names.
    bool isActive = false;     ///< Whether it began.
    Sample* sample = nullptr;  ///< What raised or ended it. Shared.
};

/// The history of one run. The samples and alarms are shared.
class Recording : public fxXDRObj {
    FX_TRANSCRIBABLE(Recording)

    Recording() = default;
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;
    ~Recording() override;
    void xdrSuccess(fxTranscriber& transcriber) override;

    void add(Sample* sample);
    void add(AlarmEvent* event);
    /// Drops the oldest samples, and the alarms that they raised or ended.
    void dropSamples(unsigned int count);

    const Sample& sampleAt(unsigned int index) const;
    const AlarmEvent& alarmAt(unsigned int index) const;
    unsigned int sampleCount() const { return samples.length(); }
    unsigned int alarmCount() const { return alarms.length(); }

    /// Whether everything refers to something that is there: what comes from a
    /// file may be of the right form and yet make no sense.
    bool isConsistent() const;

    fxStrArray names;           ///< Of the quantities.
    float intervalSeconds = 0;  ///< Between samples, as last set.
    bool smoothing = false;     ///< As last set.

private:
    fxVoidPtrArray samples;  // of Sample*, oldest first
    fxVoidPtrArray alarms;   // of AlarmEvent*, oldest first
};

/// The recording in the file, or null with one line for the user in `error`.
fxRef<Recording> loadRecording(const char* path, fxStr& error);

#endif
