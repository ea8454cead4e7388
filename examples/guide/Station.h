// Step 3: readings come in through a pipe, at the pace of a timer.
#ifndef GUIDE_STATION_H
#define GUIDE_STATION_H

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "Vent.h"

// Sends on each line that arrives at the descriptor (adopted), and its end.
class Feed : public fxSelectHandler {
public:
    explicit Feed(int descriptor)
        : fxSelectHandler(descriptor, true),
          line(addOutput<const char*>("line")),
          end(addOutput<void>("end")) {
        fcntl(fd, F_SETFL, O_NONBLOCK);
        fx_theExecutive->addSelectHandler(this);
    }
    const char* className() const override { return "Feed"; }

    void handleRead() override {
        char bytes[256];
        const ssize_t count = read(fd, bytes, sizeof bytes);
        if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;  // the next poll asks again
        if (count > 0) {
            take(bytes, static_cast<unsigned int>(count));
            return;
        }
        fx_theExecutive->removeSelectHandler(this);  // or an end is found for ever
        end.send();
    }

private:
    // A line may arrive in pieces, and several at once.
    void take(const char* bytes, unsigned int count) {
        text.append(bytes, count);
        unsigned int position;
        while ((position = text.next(0, '\n')) != text.length()) {
            line.send(text.head(position));
            text.remove(0, position + 1);
        }
    }

    fxOutput<const char*> line;
    fxOutput<void> end;
    fxStr text;  // that has come without its line end
};

// Stands for the thermometer: writes the next line a moment after the last one
// was taken, and hangs up after the last.
class Thermometer : public fxTimer {
public:
    // `descriptor` is adopted, `readings_` borrowed and ended by a null.
    Thermometer(int descriptor, const char* const* readings_)
        : fd(descriptor), readings(readings_) {
        addInput<&Thermometer::startTimer>("next");
        setInterval(0.01f);
        startTimer();
    }

    void tick() override {
        if (!fx_theEventHandler->isEmpty()) {
            startTimer();  // what the last reading set off goes on: later, then
        } else if (*readings != nullptr) {
            dprintf(fd, "%s\n", *readings++);
        } else {
            close(fd);
        }
    }

private:
    int fd;
    const char* const* readings;
};

// The program: lives until the feed ends.
class Station : public fxApplication {
public:
    Station(Alarm& alarm, Log& log) {
        addInput<&Station::close>("end");
        house.connect("celsius", &log, "reading");
        house.connect("celsius", &alarm, "celsius");
        alarm.connect("excess", &log, "alarm");
        alarm.connect("excess", &vent, "excess");
        vent.connect("change", &house, "change");
    }
    const char* className() const override { return "Station"; }
    void initialize(int, char**) override {}

    bool run(const char* const* readings) {
        int ends[2];
        if (pipe(ends) != 0) return false;
        Feed feed(ends[0]);
        Thermometer thermometer(ends[1], readings);
        feed.connect("line", &house, "celsius");     // text to float
        feed.connect("line", &thermometer, "next");  // no value: that one came is enough
        feed.connect("end", this, "end");
        fx_theExecutive->open();
        fx_theExecutive->loop();
        fx_theEventHandler->drain();  // the loop ends at once, whatever still waits
        return true;
    }

private:
    House house;
    Vent vent;
};

// What the thermometer says in the steps from here on.
inline const char* const someDay[] = {"21.5", "24", "31", "26.5", "33.5", nullptr};

#endif
