// Tests of flows: the `test` blocks of a text, run on separate networks.
#ifndef FLOW_TESTER_H
#define FLOW_TESTER_H

#include <string>
#include <vector>

#include "flow/Text.h"
#include "fxds/Config.h"

/// The result of a test of a flow.
struct FX_API fxFlowTestResult {
    std::string name;     ///< Of the test.
    fxFlowPlace place;    ///< Of the test; where it failed, of the step.
    std::string failure;  ///< "expected 6 from rate.value, got 5"; "" for a test that passed.
    double seconds = 0;   ///< The time that it took.

    /// In the form of compilers: "errors.flow:21:5: error: ..."; "" for a test that passed.
    std::string line() const;
};

///@{
/// Runs one test of a flow, or all tests of the text. Each gets a separate network, in
/// which nothing reaches outside and time passes only by `pass`; all queued values are
/// delivered after each step. A test fails at its first step that does not hold, or in
/// which an element complains. If the flow cannot be made, every test fails.
///
///     const fxFlowText text = fxFlowText::load("level.flow");
///     for (const fxFlowTestResult& each : fxRunFlowTests(text)) EXPECT_EQ(each.line(), "");
///
/// `expect` takes the next value of an end since the last one it took, in the order in
/// which they came; `expect last` and `expect no` take all of them. Two numbers are the
/// same when they agree to nine digits, those of type float when they agree to six.
///
/// Needs fxInitializeToolkit(); a test that connects numbers to texts, also
/// fxConverter::createMoreConverters(), which the program fxflow calls.
FX_API fxFlowTestResult fxRunFlowTest(const fxFlowText& text, const fxFlowText::Test& test);
FX_API std::vector<fxFlowTestResult> fxRunFlowTests(const fxFlowText& text);
///@}

#endif
