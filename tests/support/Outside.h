// A loop whose handlers, descriptors and children are counted, for tests of what
// reaches it from outside.
#ifndef FXDS_TESTS_OUTSIDE_H
#define FXDS_TESTS_OUTSIDE_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <string>
#include <vector>

#include "fxds/fxds.h"
#include "tests/support/Surroundings.h"

typedef std::vector<std::string> Log;

struct Thrown {};

class Outside : public testing::Test {
protected:
    Outside() {
        fxInitializeToolkit();
        fxSignal first(SIGUSR1);  // opens what stays open
        fxClockTimer().start(fxAlarm::Span(0));
        descriptors = openDescriptors();
    }
    ~Outside() override {
        fx_theExecutive->getReadSet();
        EXPECT_EQ(fx_theExecutive->nfds, 0) << "handlers left";
        EXPECT_EQ(openDescriptors(), descriptors) << "descriptors left open";
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "children left";
    }
    static void turn() { fx_theExecutive->poll(0); }
    // Turns until it is so; an exception ends only a turn.
    static void until(const std::function<bool()>& isSo) {
        for (int turns = 0; turns < 10000 && !isSo(); ++turns) {
            try {
                fx_theExecutive->poll(10);
            } catch (const Thrown&) {
            }
        }
        EXPECT_TRUE(isSo());
    }
    // Notes the lines, and the end as a number in brackets.
    void note(fxLineReader& reader) {
        fxConnect(reader.line(), [this](const std::string& line) { log.push_back(line); });
        fxConnect(reader.end(), [this](int error) { noteEnd(error); });
    }
    void noteEnd(int error) { log.push_back("[" + std::to_string(error) + "]"); }
    bool hasEnded() const { return !log.empty() && log.back()[0] == '['; }

    Log log;
    int descriptors;
};

struct Pipe {
    explicit Pipe(bool isSocket = false) {
        EXPECT_EQ(isSocket ? socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends)
                           : pipe2(ends, O_CLOEXEC),
                  0);
    }
    int ends[2];
};

#endif
