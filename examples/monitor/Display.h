// The two ways of showing the gauges: drawn in place, and line by line.
#ifndef MONITOR_DISPLAY_H
#define MONITOR_DISPLAY_H

#include "Gauge.h"
#include "Terminal.h"
#include "fxds/VoidPtrArray.h"

/// The last line of the display. Everything arrives as the text or the number
/// that it shows, whatever its source deals in.
class StatusLine : public fxObj {
public:
    StatusLine();
    const char* className() const override { return "StatusLine"; }

    void setTime(double seconds) { time = seconds; }
    void setInterval(const char* text) { interval = text; }
    void setSamples(const char* text) { samples = text; }
    void setPaused(int on) { paused = on != 0; }
    void setSmoothing(int on) { smoothing = on != 0; }
    /// Notices stay, a message makes way for the next.
    void addNotice(const fxStr& text);
    void setMessage(const fxStr& text) { message = text; }

    /// At most `width` columns.
    fxStr text(unsigned int width) const;
    /// Message and notices, each on a line.
    fxStr notices() const;

private:
    fxStr interval;
    fxStr samples;
    fxStr noticeText;  // ends in a line end
    fxStr message;
    double time;  // seconds since 1970
    bool paused;
    bool smoothing;
};

/// Draws gauges and status line over the last picture when its input "redraw"
/// is told to. However often it is told to in one turn of the loop, it draws
/// once.
class Display : public fxObj {
public:
    /// Everything is borrowed; the array is one of Gauge*.
    Display(Terminal& terminal, const fxVoidPtrArray& gauges, const StatusLine& status);
    const char* className() const override { return "Display"; }

    void redraw();
    /// Gives the terminal back, stops the process and takes it up again when
    /// it is continued.
    void suspend();

private:
    Terminal& terminal;
    const fxVoidPtrArray& gauges;
    const StatusLine& status;
};

/// Prints one line for each message on its input "print", to standard output,
/// until it has printed as many as it should; then it sends "done".
class Report : public fxObj {
public:
    /// The gauges are borrowed; the array is one of Gauge*.
    Report(const fxVoidPtrArray& gauges, int lines);
    const char* className() const override { return "Report"; }

    void setTime(double seconds) { time = seconds; }
    void print();
    /// Says on standard error that something is missing.
    void complain(const char* notice);

private:
    const fxVoidPtrArray& gauges;
    const fxOutput<void> done;
    int linesLeft;
    double time;  // seconds since 1970
};

#endif
