#include "flow/Terminal.h"

#include <langinfo.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>

// The sequences are those of ECMA-48, which every terminal of a Linux system takes, the
// console and its emulators alike. Not terminfo: every program that links this library
// would depend on it, for a dozen sequences that its entries for these terminals agree on.
// A terminal that takes none is named by TERM=dumb; canDraw() is false there. Colours are
// the terminal's own red and green, so that they suit a light and a dark background.
//
// The data needed to give the terminal back is in static storage, and giving it back uses
// calls that are allowed in signal handlers: a dying process can do it, once, whatever the
// cause.

namespace {

constexpr char takeOver[] = "\33[?1049h\33[?25l";
constexpr char giveBack[] = "\33[?25h\33[?1049l";

termios savedAttributes;
bool hasSavedAttributes = false;
volatile sig_atomic_t isTaken = 0;

void writeAll(const char* text, size_t length) {
    while (length > 0) {
        const ssize_t written = write(STDOUT_FILENO, text, length);
        if (written < 0 && errno != EINTR) return;
        if (written < 0) continue;
        text += written;
        length -= static_cast<size_t>(written);
    }
}

void restore() {
    if (isTaken == 0) return;
    isTaken = 0;
    writeAll(giveBack, sizeof giveBack - 1);
    if (hasSavedAttributes) tcsetattr(STDIN_FILENO, TCSADRAIN, &savedAttributes);
}

void restoreAndDie(int signalNumber) {
    restore();
    raise(signalNumber);  // the handler was installed for one signal only
}

// Existing handlers of these signals, such as a sanitizer's, stay installed.
void restoreOnErrors() {
    for (const int signalNumber : {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL}) {
        struct sigaction action;
        if (sigaction(signalNumber, nullptr, &action) != 0 || action.sa_handler != SIG_DFL)
            continue;
        action = {};
        action.sa_handler = restoreAndDie;
        action.sa_flags = static_cast<int>(SA_RESETHAND | SA_NODEFER);
        sigaction(signalNumber, &action, nullptr);
    }
}

// The encoding of the locale; of one that is not installed, the encoding in its name.
bool localeIsUtf8() {
    const locale_t locale = newlocale(LC_CTYPE_MASK, "", nullptr);
    if (locale != nullptr) {
        const bool isUtf8 = std::strcmp(nl_langinfo_l(CODESET, locale), "UTF-8") == 0;
        freelocale(locale);
        return isUtf8;
    }
    for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char* const value = std::getenv(name);
        if (value != nullptr && *value != '\0')
            return strcasestr(value, "utf-8") != nullptr || strcasestr(value, "utf8") != nullptr;
    }
    return false;
}

// Kinds of terminals without colours.
bool hasColour(const std::string& kind) {
    for (const char* const plain : {"vt1", "vt2", "vt3", "ansi-m", "linux-m", "sun"}) {
        if (kind.compare(0, std::strlen(plain), plain) == 0) return false;
    }
    return kind.find("-mono") == std::string::npos && kind.find("-vt") == std::string::npos;
}

}  // namespace

fxTerminal::fxTerminal() {
    hasSavedAttributes = tcgetattr(STDIN_FILENO, &savedAttributes) == 0;
    restoreOnErrors();
    std::atexit(restore);
}

fxTerminal::~fxTerminal() { leave(); }

bool fxTerminal::canDraw() {
    const char* const kind = std::getenv("TERM");
    return isatty(STDOUT_FILENO) != 0 && kind != nullptr && *kind != '\0' &&
           std::strcmp(kind, "dumb") != 0;
}

void fxTerminal::enter() {
    isTaken = 1;
    if (hasSavedAttributes) {
        termios attributes = savedAttributes;
        attributes.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        // A read takes what is there and never waits.
        attributes.c_cc[VMIN] = 0;
        attributes.c_cc[VTIME] = 0;
        tcsetattr(STDIN_FILENO, TCSADRAIN, &attributes);
    }
    writeAll(takeOver, sizeof takeOver - 1);
}

void fxTerminal::leave() { restore(); }

fxLook fxTerminal::look() {
    const char* const noColour = std::getenv("NO_COLOR");
    const char* const kind = std::getenv("TERM");
    fxLook look;
    look.colour = (noColour == nullptr || *noColour == '\0') && kind != nullptr && hasColour(kind);
    look.unicode = localeIsUtf8();
    return look;
}

unsigned int fxTerminal::columns() {
    winsize size;
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

unsigned int fxTerminal::rows() {
    winsize size;
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 ? size.ws_row : 24;
}

// Each line ends by clearing what an earlier, wider picture left behind it. The last one
// has no line end, so that nothing scrolls.
void fxTerminal::draw(const std::vector<fxStr>& lines, const fxStr& last) const {
    unsigned int rowsLeft = rows() - 1;
    fxStr picture = "\33[H";
    for (const fxStr& line : lines) {
        if (rowsLeft-- == 0) break;
        picture.append(line);
        picture.append("\33[K\r\n");
    }
    picture.append(last);
    picture.append("\33[J");
    write(picture);
}

void fxTerminal::write(const fxStr& text) const {
    if (isTaken != 0) writeAll(text.c_str(), text.length());
}
