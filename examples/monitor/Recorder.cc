#include "Recorder.h"

#include <cmath>
#include <limits>

fxStr valueChannel(const char* quantity) { return fxStr("value ") | quantity; }
fxStr alarmChannel(const char* quantity) { return fxStr("alarm ") | quantity; }

Recorder::Recorder() : recording(new Recording), unfinished(nullptr), time(0) {
    recording->take();
    addInput<&Recorder::setTime>("time");
    addInput<&Recorder::finish>("finish");
}

Recorder::~Recorder() {
    for (void* slot : slots) delete static_cast<Slot*>(slot);
    if (unfinished != nullptr) unfinished->release();
    recording->release();
}

void Recorder::addQuantity(const char* name) {
    Slot* const slot = new Slot{this, static_cast<int>(recording->names.length())};
    slots.append(slot);
    recording->names.append(name);
    // Inputs of one function for many: here the closure is the slot.
    addInput(valueChannel(name), fxDT_float, slot, reinterpret_cast<void (*)()>(takeValue));
    addInput(alarmChannel(name), fxDT_fxBool, slot, reinterpret_cast<void (*)()>(takeAlarm));
}

Sample& Recorder::current() {
    if (unfinished == nullptr) {
        unfinished = new Sample;
        unfinished->take();
        for (unsigned int i = 0; i < recording->names.length(); ++i) {
            unfinished->values.append(std::numeric_limits<float>::quiet_NaN());
        }
    }
    return *unfinished;
}

void Recorder::takeValue(void* slot, float value) {
    const Slot& place = *static_cast<Slot*>(slot);
    place.recorder->current().values[static_cast<unsigned int>(place.index)] = value;
}

void Recorder::takeAlarm(void* slot, unsigned char isActive) {
    const Slot& place = *static_cast<Slot*>(slot);
    place.recorder->recording->add(
        new AlarmEvent(place.index, isActive != 0, &place.recorder->current()));
}

void Recorder::finish() {
    current().time = time;
    recording->add(unfinished);
    unfinished->release();
    unfinished = nullptr;
    if (recording->sampleCount() > mostSamples) recording->dropSamples(mostSamples / 4);
}

Player::Player(Recording& recording_)
    : recording(recording_),
      time(addOutput<double>("time")),
      sent(addOutput<void>("sent")),
      end(addOutput<void>("end")),
      nextSample(0),
      nextAlarm(0) {
    recording.take();
    addInput<&Player::sendNext>("next");
    for (const fxStr& name : recording.names) {
        addOutput<float>(valueChannel(name));
        addOutput<bool>(alarmChannel(name));
    }
}

Player::~Player() { recording.release(); }

void Player::sendNext() {
    if (nextSample == recording.sampleCount()) {
        end.send();
        return;
    }
    const Sample& sample = recording.sampleAt(nextSample++);
    time.send(sample.time, fxSendNow);
    for (unsigned int i = 0; i < recording.names.length(); ++i) {
        if (!std::isnan(sample.values[i])) {
            sendFloat(getOutput(valueChannel(recording.names[i])), sample.values[i], fxSendNow);
        }
    }
    for (; nextAlarm < recording.alarmCount(); ++nextAlarm) {
        const AlarmEvent& event = recording.alarmAt(nextAlarm);
        if (event.sample != &sample) break;
        const fxStr& name = recording.names[static_cast<unsigned int>(event.quantity)];
        sendBool(getOutput(alarmChannel(name)), event.isActive, fxSendNow);
    }
    sent.send(fxSendNow);
}
