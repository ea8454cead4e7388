#include "Keyboard.h"

#include <unistd.h>

#include <cerrno>

#include "fxds/Exec.h"

namespace {

struct KeyMessage {
    char key;
    const char* output;
};
const KeyMessage keyMessages[] = {{'q', "quit"},   {'p', "pause"},      {'+', "longer"},
                                  {'=', "longer"}, {'-', "shorter"},    {'s', "smoothing"},
                                  {'S', "save"},   {'w', "save"},       {'?', "help"},
                                  {'h', "help"},   {'\f', "draw again"}};

}  // namespace

// The descriptor is a copy, because a select handler closes its own.
Keyboard::Keyboard()
    : fxSelectHandler(dup(STDIN_FILENO), true), isTerminal(isatty(STDIN_FILENO) != 0) {
    for (const KeyMessage& message : keyMessages) {
        if (getOutput(message.output) == nullptr) addOutput<void>(message.output);
    }
    if (fd >= 0) fx_theExecutive->addSelectHandler(this);
}

Keyboard::~Keyboard() {
    if (fd >= 0) fx_theExecutive->removeSelectHandler(this);
}

void Keyboard::handleRead() {
    char keys[64];
    const ssize_t count = read(fd, keys, sizeof keys);
    // Reading never waits here, so "nothing" from a ready terminal is its end. An input
    // that is no terminal, such as /dev/null, just has no keys.
    if (count == 0 || (count < 0 && errno != EINTR && errno != EAGAIN)) {
        fx_theExecutive->removeSelectHandler(this);
        if (isTerminal) sendVoid(getOutput("quit"));
    }
    for (ssize_t i = 0; i < count; ++i) {
        for (const KeyMessage& message : keyMessages) {
            if (message.key == keys[i]) sendVoid(getOutput(message.output));
        }
    }
}
