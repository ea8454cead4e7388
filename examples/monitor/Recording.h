// The saved data of the monitor: samples, alarms and settings.
#ifndef MONITOR_RECORDING_H
#define MONITOR_RECORDING_H

#include <vector>

#include "fxds/FloatArray.h"
#include "fxds/Ref.h"
#include "fxds/Str.h"
#include "fxds/StrArray.h"
#include "fxds/StrSet.h"
#include "fxds/Xdr.h"

/// The values of all quantities at one time.
class Sample : public fxXDRObj {
    FX_TRANSCRIBABLE(Sample)

    double time = 0;      ///< Seconds since 1970.
    fxFloatArray values;  ///< In the order of Recording::names; NaN: no value.
};

/// An alarm that began or ended.
class AlarmEvent : public fxXDRObj {
    FX_TRANSCRIBABLE(AlarmEvent)

    AlarmEvent() = default;
    AlarmEvent(int quantity_, bool isActive_, Sample* sample_)
        : quantity(quantity_), isActive(isActive_), sample(sample_) {}

    int quantity = 0;       ///< Index in Recording::names.
    bool isActive = false;  ///< Whether it began.
    fxRef<Sample> sample;   ///< The sample that raised or ended it.
};

/// The history of one run. The samples and alarms are shared.
class Recording : public fxXDRObj {
    FX_TRANSCRIBABLE(Recording)

    void add(Sample* sample) { samples.emplace_back(sample); }
    void add(AlarmEvent* event) { alarms.emplace_back(event); }
    /// Drops the oldest samples, and the alarms that they raised or ended.
    void dropSamples(unsigned int count);

    const Sample& sampleAt(unsigned int index) const { return *samples[index]; }
    const AlarmEvent& alarmAt(unsigned int index) const { return *alarms[index]; }
    unsigned int sampleCount() const { return static_cast<unsigned int>(samples.size()); }
    unsigned int alarmCount() const { return static_cast<unsigned int>(alarms.size()); }

    ///@{
    /// Whether the measured thing exists, such as swap, as last set.
    void setPresent(const char* name, bool isPresent);
    bool isPresent(const char* name) const { return !absent.contains(name); }
    ///@}

    /// Whether all references are valid: data from a file may be of the right form and yet
    /// make no sense.
    bool isConsistent() const;

    fxStrArray names;           ///< Of the quantities.
    float intervalSeconds = 0;  ///< Between samples, as last set.
    bool smoothing = false;     ///< As last set.

private:
    fxStrSet absent;                        // names of quantities
    std::vector<fxRef<Sample>> samples;     // oldest first
    std::vector<fxRef<AlarmEvent>> alarms;  // oldest first
};

/// The recording in the file, or null with one line for the user in `error`.
fxRef<Recording> loadRecording(const char* path, fxStr& error);

#endif
