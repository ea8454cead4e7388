#include "Recording.h"

#include "Options.h"
#include "fxds/Save.h"
#include "fxds/XdrEvolution.h"

// Samples are counted: the recording holds each, and so do the alarms that they
// raised. A reader makes objects that nobody holds; they are taken when all
// pointers are there, however often a stream may have named the same object.

FX_TRANSCRIBABLE_TYPE(Sample, "monitor.Sample", 1);
FX_TRANSCRIBABLE_TYPE(AlarmEvent, "monitor.AlarmEvent", 1);
FX_TRANSCRIBABLE_TYPE(Recording, "monitor.Recording", 1);

fxBool Sample::xdr(fxTranscriber& t) {
    int edition = 1;
    return fxXdrEdition(t, this, edition) && fxXdrAll(t, time, values);
}

AlarmEvent::AlarmEvent(int quantity_, bool isActive_, Sample* sample_)
    : quantity(quantity_), isActive(isActive_), sample(sample_) {
    sample->take();
}

AlarmEvent::~AlarmEvent() {
    if (sample != nullptr) sample->release();
}

fxBool AlarmEvent::xdr(fxTranscriber& t) {
    int edition = 1;
    return fxXdrEdition(t, this, edition) && fxXdrAll(t, quantity, isActive) &&
           fxXdrObject(t, sample);
}

void AlarmEvent::xdrSuccess(fxTranscriber& t) {
    if (t.isReading() && sample != nullptr) sample->take();
}

namespace {

void takeAll(const fxVoidPtrArray& objects) {
    for (void* object : objects) {
        if (object != nullptr) static_cast<fxRCObj*>(object)->take();
    }
}

void releaseAll(fxVoidPtrArray& objects) {
    for (void* object : objects) {
        if (object != nullptr) static_cast<fxRCObj*>(object)->release();
    }
    objects.resize(0);
}

}  // namespace

Recording::~Recording() {
    releaseAll(alarms);
    releaseAll(samples);
}

fxBool Recording::xdr(fxTranscriber& t) {
    int edition = 1;
    return fxXdrEdition(t, this, edition) && fxXdrAll(t, names, intervalSeconds, smoothing) &&
           fxXdrObjects<Sample>(t, samples) && fxXdrObjects<AlarmEvent>(t, alarms);
}

void Recording::xdrSuccess(fxTranscriber& t) {
    if (!t.isReading()) return;
    takeAll(samples);
    takeAll(alarms);
}

void Recording::add(Sample* sample) {
    sample->take();
    samples.append(sample);
}

void Recording::add(AlarmEvent* event) {
    event->take();
    alarms.append(event);
}

void Recording::dropSamples(unsigned int count) {
    for (unsigned int i = 0; i < count; ++i) {
        while (alarms.length() > 0 && alarmAt(0).sample == samples[i]) {
            static_cast<AlarmEvent*>(alarms[0])->release();
            alarms.remove(0);
        }
        static_cast<Sample*>(samples[i])->release();
    }
    samples.remove(0, count);
}

const Sample& Recording::sampleAt(unsigned int index) const {
    return *static_cast<const Sample*>(samples[index]);
}

const AlarmEvent& Recording::alarmAt(unsigned int index) const {
    return *static_cast<const AlarmEvent*>(alarms[index]);
}

bool Recording::isConsistent() const {
    constexpr double latest = 1e11;  // some thousand years; also keeps out NaN
    if (!(intervalSeconds >= shortestInterval && intervalSeconds <= longestInterval)) return false;
    for (const void* entry : samples) {
        const Sample* const sample = static_cast<const Sample*>(entry);
        if (sample == nullptr || sample->values.length() != names.length() ||
            !(sample->time >= 0 && sample->time < latest))
            return false;
    }
    for (const void* entry : alarms) {
        const AlarmEvent* const event = static_cast<const AlarmEvent*>(entry);
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
