// Collects the problems of a flow. Private to the library.
#ifndef FLOW_TEXT_PROBLEMS_H
#define FLOW_TEXT_PROBLEMS_H

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "flow/Text.h"

/// Adds problems to those of a flow, up to `most`: a text of faults only would take a
/// hundred times its size.
class fxFlowProblems {
public:
    static constexpr size_t most = 1000;
    static constexpr size_t mostNames = 20;  ///< The most that a problem lists.

    explicit fxFlowProblems(std::vector<fxFlowProblem>& problems_, bool isOfCheck_ = false)
        : problems(problems_), isOfCheck(isOfCheck_) {}

    bool isFull() const { return problems.size() >= most; }
    void add(const fxFlowPlace& place, std::string text, bool isWarning = false);

private:
    std::vector<fxFlowProblem>& problems;  // borrowed
    const bool isOfCheck;
};

/// A name or value, cut if it is long: a long one may be named a thousand times.
std::string fxFlowCut(std::string_view value);
/// The same in quotes.
std::string fxFlowShown(std::string_view value);

#endif
