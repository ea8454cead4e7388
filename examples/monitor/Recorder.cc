#include "Recorder.h"

#include <cmath>
#include <limits>
#include <utility>

fxStr valueChannel(const char* quantity) { return fxStr("value ") | quantity; }
fxStr alarmChannel(const char* quantity) { return fxStr("alarm ") | quantity; }
fxStr presentChannel(const char* quantity) { return fxStr("present ") | quantity; }

Recorder::Recorder() {
    addInput<&Recorder::setTime>("time");
    addInput<&Recorder::finish>("finish");
}

void Recorder::addQuantity(const char* name) {
    const unsigned int index = recording->names.length();
    recording->names.append(name);
    addInput(valueChannel(name), [this, index](float value) { current().values[index] = value; });
    addInput(presentChannel(name),
             [this, name](bool isPresent) { recording->setPresent(name, isPresent); });
    addInput(alarmChannel(name), [this, index](bool isActive) {
        recording->add(fxMake<AlarmEvent>(static_cast<int>(index), isActive, &current()));
    });
}

Sample& Recorder::current() {
    if (!unfinished) {
        unfinished = fxMake<Sample>();
        for (unsigned int i = 0; i < recording->names.length(); ++i) {
            unfinished->values.append(std::numeric_limits<float>::quiet_NaN());
        }
    }
    return *unfinished;
}

void Recorder::finish() {
    current().time = time;
    recording->add(unfinished);
    unfinished.reset();
    if (recording->sampleCount() > mostSamples) recording->dropSamples(mostSamples / 4);
}

Player::Player(fxRef<Recording> recording_) : recording(std::move(recording_)) {
    addInput<&Player::sendNext>("next");
    for (const fxStr& name : recording->names) {
        values.push_back(addOutput<float>(valueChannel(name)));
        alarms.push_back(addOutput<bool>(alarmChannel(name)));
    }
}

void Player::sendNext() {
    if (nextSample == recording->sampleCount()) {
        end.send();
        return;
    }
    const Sample& sample = recording->sampleAt(nextSample++);
    time.send(sample.time, fxSendNow);
    for (unsigned int i = 0; i < values.size(); ++i) {
        if (!std::isnan(sample.values[i])) values[i].send(sample.values[i], fxSendNow);
    }
    for (; nextAlarm < recording->alarmCount(); ++nextAlarm) {
        const AlarmEvent& event = recording->alarmAt(nextAlarm);
        if (event.sample != &sample) break;
        alarms[static_cast<unsigned int>(event.quantity)].send(event.isActive, fxSendNow);
    }
    sent.send(fxSendNow);
}
