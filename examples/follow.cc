// A log follower: follow [-s STATE] FILE EXPRESSION...
//
// Prints the lines of FILE that match an expression, those that are there and those
// that come; "-" is standard input, to its end. SIGUSR1 prints how often each
// expression has matched; SIGTERM and SIGINT too, and end the program. With a STATE
// file it goes on where it has ended, and counts on. A file that was replaced or cut
// is read from its start.
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "fxds/fxds.h"

// The state that survives the program.
class State : public fxXDRObj {
    FX_TRANSCRIBABLE(State)

    fxFilePlace place;
    fxStrArray expressions;
    fxLongArray counts;
};
FX_TRANSCRIBABLE_TYPE(State, "follow.State", 1);

fxBool State::xdr(fxTranscriber& t) {
    int edition = 1;
    if (!fxXdrEdition(t, this, edition)) return false;
    if (!fxXdrAll(t, place.file, place.offset, expressions, counts)) return false;
    return counts.length() == expressions.length() || t.refuse("not one count for each expression");
}

class Follower : public fxApplication {
public:
    Follower(const char* path_, const char* statePath_) : path(path_), statePath(statePath_) {
        for (const int number : {SIGTERM, SIGINT, SIGUSR1}) {
            signals.push_back(std::make_unique<fxSignal>(number));
            fxConnect(signals.back()->signal(), this, [this](int n) {
                report();
                if (n != SIGUSR1) close();
            });
        }
    }
    const char* className() const override { return "Follower"; }

    // Adds the expression. Returns whether it compiles; otherwise reports the reason.
    bool add(const char* expression) {
        expressions.push_back(std::make_unique<fxRegEx>(expression));
        state.expressions.append(expression);
        state.counts.append(0L);
        return expressions.back()->isValid();
    }

    bool load() {
        if (statePath == nullptr) return true;
        fxLoaded<State> loaded = fxLoadOrMake<State>(statePath);
        if (!loaded) {
            std::fprintf(stderr, "%s\n", loaded.fault().text().c_str());
            return false;
        }
        state.place = loaded->place;
        for (unsigned int i = 0; i < state.expressions.length(); ++i) {
            const unsigned int known = loaded->expressions.find(state.expressions[i]);
            if (known != fxArray::notFound) state.counts[i] = loaded->counts[known];
        }
        return true;
    }

    void initialize(int, char**) override {}
    void open() override {
        fxApplication::open();
        if (std::strcmp(path, "-") == 0) {
            input = std::make_unique<fxLineReader>(STDIN_FILENO);
            fxConnect(input->line(), this, [this](const fxStr& line) { take(line); });
            fxConnect(input->end(), this, [this](int) {
                report();
                close();
            });
            return;
        }
        file = std::make_unique<fxFileFollower>(path, state.place);
        fxConnect(file->line(), this, [this](const fxStr& line) { take(line); });
    }
    void close() override {
        if (file != nullptr) state.place = file->getPlace();
        if (statePath != nullptr) {
            if (const fxStreamFault fault = fxSave(statePath, &state)) {
                std::fprintf(stderr, "%s\n", fault.text().c_str());
                status = 1;
            }
        }
        fxApplication::close();
    }
    int status = 0;

private:
    void take(const fxStr& line) {
        bool matches = false;
        for (unsigned int i = 0; i < expressions.size(); ++i) {
            int start = -1;
            int end = -1;
            expressions[i]->bracket(line, start, end);
            if (start < 0) continue;
            ++state.counts[i];
            matches = true;
        }
        if (matches) std::printf("%s\n", line.c_str());
        std::fflush(stdout);
    }

    void report() {
        for (unsigned int i = 0; i < expressions.size(); ++i) {
            std::printf("%ld %s\n", state.counts[i], state.expressions[i].c_str());
        }
        std::fflush(stdout);
    }

    const char* const path;
    const char* const statePath;
    State state;
    std::vector<std::unique_ptr<fxRegEx>> expressions;
    std::vector<std::unique_ptr<fxSignal>> signals;
    std::unique_ptr<fxLineReader> input;
    std::unique_ptr<fxFileFollower> file;
};

int main(int argc, char** argv) {
    fxInitializeToolkit();
    const char* statePath = nullptr;
    for (int option; (option = getopt(argc, argv, "s:")) != -1;) {
        if (option == 's') statePath = optarg;
    }
    if (argc - optind < 2) {
        std::fputs("usage: follow [-s STATE] FILE EXPRESSION...\n", stderr);
        return 2;
    }
    Follower follower(argv[optind], statePath);
    for (int i = optind + 1; i < argc; ++i) {
        if (follower.add(argv[i])) continue;
        std::fprintf(stderr, "follow: no expression: %s\n", argv[i]);
        fx_theExecutive->remove(&follower);
        return 2;
    }
    if (!follower.load()) return 1;
    fx_theExecutive->open();
    fx_theExecutive->loop();
    return follower.status;
}
