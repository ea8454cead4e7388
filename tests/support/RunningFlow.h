// A flow that runs in the loop, for tests of what its elements do outside.
#ifndef FXDS_TESTS_RUNNINGFLOW_H
#define FXDS_TESTS_RUNNINGFLOW_H

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>

#include "flow/Flow.h"
#include "fxds/Converter.h"
#include "fxds/Exec.h"
#include "fxds/Globals.h"

struct RunningFlow {
    explicit RunningFlow(const std::string& text) {
        if (!fxConverter::hasMoreConverters) fxConverter::createMoreConverters();
        fxConnect(flow.complaint, &flow,
                  [this](const fxStr& what) { complaints += what.toStdString() + "\n"; });
        for (const fxFlowProblem& each : flow.apply(fxFlowText::parse(text, "test.flow"))) {
            ADD_FAILURE() << each.line();
        }
    }

    /// Turns the loop until it is so, for a minute at most. Returns whether it is.
    bool runUntil(const std::function<bool()>& isDone) const {
        const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
        while (!isDone() && std::chrono::steady_clock::now() < end) fx_theExecutive->poll(1);
        return isDone();
    }

    std::string complaints;
    fxFlow flow;
};

#endif
