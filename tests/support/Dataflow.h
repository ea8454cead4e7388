// Objects and bookkeeping that the tests of the dataflow core share.
#ifndef FXDS_TESTS_DATAFLOW_H
#define FXDS_TESTS_DATAFLOW_H

#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <string>
#include <vector>

#include "fxds/fxds.h"
#include "tests/support/TestSeed.h"

// A value that counts how many of it there are.
class CountedData : public fxValueData<int> {
public:
    explicit CountedData(int v) : fxValueData(fxDT_int, v) { ++alive; }
    ~CountedData() override {
        --alive;
        if (onDeath) onDeath();
    }
    std::function<void()> onDeath;
    static inline int alive = 0;
};

// Has one int output, "out", and one int input, "in", that notes what arrives
// and then does what the test wants.
class Node : public fxObj {
public:
    explicit Node(fxBool replace = 0) {
        ++alive;
        out = fxObj::addOutput("out", fxDT_int);
        in = fxObj::addInput<&Node::receive>("in", replace);
    }
    ~Node() override { --alive; }
    const char* className() const override { return "Node"; }

    void receive(int value) {
        seen.push_back(value);
        const auto action = onReceive;  // which may destroy this node
        if (action) action(value);
    }
    void feed(Node& target) { connect("out", &target, "in"); }

    fxOutputChannel* out;
    fxInputChannel* in;
    std::vector<int> seen;
    std::function<void(int)> onReceive;
    static inline int alive = 0;
};

// Starts the library, and checks that a test leaves nothing behind.
class Dataflow : public testing::Test {
protected:
    Dataflow() { fxInitializeToolkit(); }
    ~Dataflow() override {
        EXPECT_EQ(fx_theEventHandler->getCount(), 0u) << "events left in the queue";
        EXPECT_EQ(Node::alive, 0) << "objects left alive";
        EXPECT_EQ(CountedData::alive, 0) << "values left alive";
    }
    static void distribute() { fx_theEventHandler->distributeEvents(); }
    typedef std::vector<int> Seen;
};

#endif
