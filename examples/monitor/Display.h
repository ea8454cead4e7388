// The two ways of showing the gauges: drawn in place, and line by line.
#ifndef MONITOR_DISPLAY_H
#define MONITOR_DISPLAY_H

#include <vector>

#include "flow/Gauge.h"
#include "flow/Terminal.h"

/// The last line of the display. Its inputs take the texts and numbers that it shows; the
/// connections convert them.
class StatusLine : public fxObj {
public:
    StatusLine();
    const char* className() const override { return "StatusLine"; }

    void setTime(double seconds) { time = seconds; }
    void setInterval(const char* text) { interval = text; }
    void setSamples(const char* text) { samples = text; }
    void setPaused(int on) { paused = on != 0; }
    void setSmoothing(int on) { smoothing = on != 0; }
    /// Notices stay; a message is replaced by the next one and is shown for some seconds.
    void addNotice(const fxStr& text);
    void setMessage(const fxStr& text);

    /// At most `width` columns: parts that do not fit are left out.
    fxStr text(unsigned int width) const;
    /// Message and notices, each on a line.
    fxStr notices() const;

private:
    fxStr interval;
    fxStr samples;
    fxStr noticeText;  // ends in a line end
    fxStr message;
    double time;  // seconds since 1970
    double messageTime = 0;
    bool paused;
    bool smoothing;
};

/// Draws gauges and status line over the last picture after a message on its input
/// "redraw", once for all messages of a turn of the loop.
class Display : public fxObj {
public:
    /// Everything is borrowed.
    Display(fxTerminal& terminal, const std::vector<fxGauge*>& gauges, const StatusLine& status);
    const char* className() const override { return "Display"; }

    void redraw();
    /// Draws on a screen with unknown content.
    void drawAgain();
    /// Shows the help for the keys in place of the gauges, and the gauges again.
    void toggleHelp();
    /// Gives the terminal back, stops the process and takes the terminal again when it is
    /// continued.
    void suspend();

private:
    std::vector<fxStr> lines(unsigned int width) const;

    fxTerminal& terminal;
    const fxLook look;
    const std::vector<fxGauge*>& gauges;
    const StatusLine& status;
    bool isHelping = false;
};

/// Prints one line for each message on its input "print", to standard output, until it has
/// printed the requested number; then it sends "done".
class Report : public fxObj {
public:
    /// The gauges are borrowed.
    Report(const std::vector<fxGauge*>& gauges, int lines);
    const char* className() const override { return "Report"; }

    void setTime(double seconds) { time = seconds; }
    void print();
    /// Writes the notice to standard error.
    void complain(const char* notice);

private:
    const std::vector<fxGauge*>& gauges;
    const fxOutput<void> done = addOutput<void>("done");
    int linesLeft;
    double time;  // seconds since 1970
};

#endif
