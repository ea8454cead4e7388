#include "Recording.h"

#include "Options.h"
#include "fxds/Save.h"
#include "fxds/XdrEvolution.h"

FX_TRANSCRIBABLE_TYPE(Sample, "monitor.Sample", 1);
FX_TRANSCRIBABLE_TYPE(AlarmEvent, "monitor.AlarmEvent", 1);
FX_TRANSCRIBABLE_TYPE(Recording, "monitor.Recording", 1);

fxBool Sample::xdr(fxTranscriber& t) {
    int edition = 1;
    return fxXdrEdition(t, this, edition) && fxXdrAll(t, time, values);
}

fxBool AlarmEvent::xdr(fxTranscriber& t) {
    int edition = 1;
    return fxXdrEdition(t, this, edition) && fxXdrAll(t, quantity, isActive, sample);
}

// Edition 2 adds the names of absent quantities.
fxBool Recording::xdr(fxTranscriber& t) {
    int edition = 2;
    return fxXdrEdition(t, this, edition) &&
           fxXdrAll(t, names, intervalSeconds, smoothing, samples, alarms) &&
           (edition < 2 || fxXdr(t, absent));
}

void Recording::dropSamples(unsigned int count) {
    for (unsigned int i = 0; i < count; ++i) {
        while (!alarms.empty() && alarms.front()->sample == samples[i]) {
            alarms.erase(alarms.begin());
        }
    }
    samples.erase(samples.begin(), samples.begin() + count);
}

void Recording::setPresent(const char* name, bool isPresent) {
    if (isPresent) {
        absent.remove(name);
    } else {
        absent.add(name);
    }
}

bool Recording::isConsistent() const {
    constexpr double latest = 1e11;  // some thousand years; also keeps out NaN
    if (!(intervalSeconds >= shortestInterval && intervalSeconds <= longestInterval)) return false;
    fxStrSet distinct;
    for (const fxStr& name : names) distinct.add(name);
    if (distinct.size() != names.length()) return false;
    for (const fxRef<Sample>& sample : samples) {
        if (sample == nullptr || sample->values.length() != names.length() ||
            !(sample->time >= 0 && sample->time < latest))
            return false;
    }
    for (const fxRef<AlarmEvent>& event : alarms) {
        if (event == nullptr || event->sample == nullptr || event->quantity < 0 ||
            static_cast<unsigned int>(event->quantity) >= names.length())
            return false;
    }
    return true;
}

fxRef<Recording> loadRecording(const char* path, fxStr& error) {
    const fxLoaded<Recording> recording = fxLoad<Recording>(path);
    if (!recording) {
        error = recording.fault().text();
    } else if (!recording->isConsistent()) {
        error.format("%s holds no recording that makes sense", path);
    } else {
        return recording.get();
    }
    return nullptr;
}
