#include "Display.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <ctime>

namespace {

// The time of day as hh:mm:ss.
fxStr timeOfDay(double seconds) {
    const time_t when = static_cast<time_t>(seconds);
    tm parts = {};
    localtime_r(&when, &parts);
    fxStr text;
    text.format("%02d:%02d:%02d", parts.tm_hour, parts.tm_min, parts.tm_sec);
    return text;
}

const char* const helpLines[] = {"q     quit",
                                 "p     pause, and go on",
                                 "+ -   longer, shorter interval",
                                 "s     smoothing on or off",
                                 "w S   save the recording now",
                                 "^L    draw again",
                                 "?     back to the values",
                                 "",
                                 "Red: past its limit."};

}  // namespace

StatusLine::StatusLine() : time(0), paused(false), smoothing(false) {
    addInput<&StatusLine::setTime>("time");
    addInput<&StatusLine::setInterval>("interval");
    addInput<&StatusLine::setSamples>("samples");
    addInput<&StatusLine::setPaused>("paused");
    addInput<&StatusLine::setSmoothing>("smoothing");
    addInput<&StatusLine::addNotice>("notice");
    addInput<&StatusLine::setMessage>("message");
}

void StatusLine::addNotice(const fxStr& text) {
    noticeText.append(text);
    noticeText.append('\n');
}

void StatusLine::setMessage(const fxStr& text) {
    message = text;
    messageTime = time;
}

// The message goes first: on a small screen it must not be cut off.
fxStr StatusLine::notices() const {
    constexpr double shownSeconds = 5;
    const bool isOver = message.isEmpty() || time - messageTime > shownSeconds;
    return isOver ? noticeText : fxStr(message | "\n" | noticeText);
}

fxStr StatusLine::text(unsigned int width) const {
    const fxStr parts[] = {"  every " | interval | " s", paused ? "  PAUSED" : "",
                           fxStr("  smoothing ") | (smoothing ? "on" : "off"),
                           "  sample " | samples, "  ? help  q quit"};
    fxStr line = timeOfDay(time);
    for (const fxStr& part : parts) {
        if (line.length() + part.length() > width) break;
        line.append(part);
    }
    return line.length() > width ? line.head(width) : line;
}

Display::Display(fxTerminal& terminal_, const std::vector<fxGauge*>& gauges_,
                 const StatusLine& status_)
    : terminal(terminal_), look(fxTerminal::look()), gauges(gauges_), status(status_) {
    addInput<&Display::redraw>("redraw", true);
    addInput<&Display::drawAgain>("draw again");
    addInput<&Display::toggleHelp>("help");
    addInput<&Display::suspend>("suspend");
}

// All but the status line.
std::vector<fxStr> Display::lines(unsigned int width) const {
    const auto cut = [width](const fxStr& text) {
        return text.head(std::min(text.length(), width));
    };
    std::vector<fxStr> result;
    if (isHelping) {
        for (const char* const line : helpLines) result.push_back(cut(line));
        return result;
    }
    for (const fxGauge* gauge : gauges) {
        if (gauge->isPresent()) result.push_back(gauge->row(width, look));
    }
    const fxStr notices = status.notices();
    for (unsigned int at = 0; at < notices.length();)
        result.push_back(cut(notices.token(at, '\n')));
    return result;
}

void Display::redraw() {
    const unsigned int width = fxTerminal::columns();
    terminal.draw(lines(width), status.text(width));
}

void Display::drawAgain() {
    terminal.write("\33[2J");
    redraw();
}

void Display::toggleHelp() {
    isHelping = !isHelping;
    redraw();
}

void Display::suspend() {
    terminal.leave();
    raise(SIGSTOP);
    terminal.enter();
    redraw();
}

Report::Report(const std::vector<fxGauge*>& gauges_, int lines)
    : gauges(gauges_), linesLeft(lines), time(0) {
    addInput<&Report::setTime>("time");
    addInput<&Report::print>("print");
    addInput<&Report::complain>("notice");
}

void Report::print() {
    if (linesLeft == 0) return;
    fxStr line = timeOfDay(time);
    for (const fxGauge* gauge : gauges) {
        if (!gauge->isPresent()) continue;
        line = line | "  " | gauge->getName() | " " | gauge->valueText() |
               (gauge->hasAlarm() ? "!" : "");
    }
    std::printf("%s\n", line.c_str());
    // Each line at once: a pipe may lead to a program that waits for it.
    if (std::fflush(stdout) != 0) linesLeft = 1;
    if (--linesLeft == 0) done.send();
}

void Report::complain(const char* notice) { std::fprintf(stderr, "monitor: %s\n", notice); }
