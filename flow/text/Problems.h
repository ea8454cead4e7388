// Collects what is wrong with a flow. Private to the library.
#ifndef FLOW_TEXT_PROBLEMS_H
#define FLOW_TEXT_PROBLEMS_H

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "flow/Text.h"

/// Adds problems to those of a flow, up to a number that nobody reads to its end: a text
/// of nothing but faults must not take more room than it has.
class fxFlowProblems {
public:
    static constexpr size_t most = 1000;

    explicit fxFlowProblems(std::vector<fxFlowProblem>& problems_) : problems(problems_) {}

    bool isFull() const { return problems.size() >= most; }
    void add(const fxFlowPlace& place, std::string text, bool isWarning = false);

    std::vector<fxFlowProblem>& problems;  // borrowed
};

/// A name or value as problems show it: in quotes, and cut where it is long.
std::string fxFlowShown(std::string_view value);

#endif
