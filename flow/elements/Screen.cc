// Elements for a person who watches: the time of day and a picture on the terminal.
#include <chrono>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "flow/Element.h"
#include "flow/Terminal.h"
#include "flow/elements/Settings.h"

namespace {

class Clock final : public fxElement {
public:
    const char* className() const override { return "Clock"; }

    // In a test, which does not start it, days begin with the test's own time.
    void ask() {
        tm parts = {};
        const auto passed =
            std::chrono::duration_cast<std::chrono::seconds>(time().now().time_since_epoch());
        const time_t now = hasStarted() ? std::time(nullptr) : static_cast<time_t>(passed.count());
        (hasStarted() ? localtime_r : gmtime_r)(&now, &parts);
        char shown[1024];
        text.send(fxStr(shown, static_cast<unsigned int>(
                                   std::strftime(shown, sizeof shown, format.c_str(), &parts))),
                  fxSendNow);
    }

    static std::string whyNotFormat(const std::string& form) {
        if (form.empty()) return "is empty";
        return form.size() <= 100 ? fxFlowDetail::whyZeroByte(form) : "is longer than 100 bytes";
    }

    fxStr format;
    fxOutputView<fxStr> text;
};

class Terminal final : public fxElement {
public:
    const char* className() const override { return "Terminal"; }

    // In a test, which does not start it, the terminal is a plain one of 80 columns.
    void measure() {
        fxStr words;
        if (hasStarted() && fxTerminal::canDraw()) {
            const fxLook now = fxTerminal::look();
            words = (now.colour ? "colour " : "") | fxStr(now.unicode ? "unicode" : "");
        }
        look.send(words, fxSendNow);
        columns.send(hasStarted() ? static_cast<int>(fxTerminal::columns()) : 80, fxSendNow);
    }

    fxOutputView<int> columns;
    fxOutputView<fxStr> look;
};

// Draws on the terminal. Without a terminal, lines pass through to be printed.
class Screen final : public fxElement {
public:
    ~Screen() override {
        if (terminal != nullptr) isTaken = false;
    }
    const char* className() const override { return "Screen"; }

    std::string start() override {
        if (!fxTerminal::canDraw()) return "";
        if (isTaken) return "there is another Screen, but one terminal only";
        isTaken = true;
        terminal = std::make_unique<fxTerminal>();
        terminal->enter();
        return "";
    }

    void draw(const fxStr& picture) {
        if (terminal == nullptr) return;
        std::vector<fxStr> lines;
        for (unsigned int at = 0; at < picture.length();) lines.push_back(picture.token(at, '\n'));
        if (lines.empty()) lines.emplace_back();
        const fxStr last = lines.back();
        lines.pop_back();
        terminal->draw(lines, last);
    }
    void passOn(const fxStr& text) {
        if (terminal == nullptr) line.send(text, fxSendNow);
    }

    fxOutputView<fxStr> line;

private:
    static inline bool isTaken = false;  // one of them has the terminal

    std::unique_ptr<fxTerminal> terminal;
};

}  // namespace

FX_ELEMENT(Clock, "tells the time of day") {
    element.reachesOutside();
    element.property("format", &Clock::format, "%H:%M:%S", "the text, as strftime() makes it")
        .testedBy(Clock::whyNotFormat);
    element.input("ask", &Clock::ask, "sends the time");
    element.output("text", &Clock::text, "the time");
}

FX_ELEMENT(Terminal, "tells how large the terminal is, and what it can show") {
    element.reachesOutside();
    element.input("measure", &Terminal::measure, "sends that");
    element.output("look", &Terminal::look, "words of unicode, colour");
    element.output("columns", &Terminal::columns, "its width");
}

FX_ELEMENT(Screen, "draws a picture on the terminal, or passes lines on where there is none") {
    element.reachesOutside();
    element.input("picture", &Screen::draw, "lines to draw, in place of those before");
    element.input("line", &Screen::passOn, "what to pass on where the output is no terminal");
    element.output("line", &Screen::line, "a line for where the output is no terminal");
}
