// Texts of flows. An input is a text; whatever it holds, what was read of it is written
// and read back as the same, and problems name places in it.
#include <algorithm>
#include <string>
#include <string_view>

#include "flow/Text.h"
#include "fxds/Globals.h"
#include "tests/fuzz/Input.h"

namespace {

// A folder that is not there: nothing beside the text is read.
const std::string name = "/nowhere/fuzzed.flow";

std::string lineOf(std::string_view text, unsigned int number) {
    for (; number > 1 && !text.empty(); --number) {
        text.remove_prefix(std::min(text.find('\n'), text.size() - 1) + 1);
    }
    return std::string(text.substr(0, text.find('\n')));
}

void checkProblem(const fxFlowProblem& problem, std::string_view text) {
    const auto lines = 1 + std::count(text.begin(), text.end(), '\n');
    FUZZ_REQUIRE(problem.place.file.name() == name);
    FUZZ_REQUIRE(problem.place.line >= 1 && problem.place.line <= lines);
    FUZZ_REQUIRE(problem.place.column >= 1);
    FUZZ_REQUIRE(problem.place.column <= lineOf(text, problem.place.line).size() + 1);
    FUZZ_REQUIRE(!problem.text.empty());
    FUZZ_REQUIRE(fxFlowDetail::printable(problem.text) == problem.text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static const bool isPrepared = (fxInitializeToolkit(), true);
    FUZZ_REQUIRE(isPrepared);
    const std::string text = FuzzInput(bytes, size).rest();
    fxFlowText flow = fxFlowText::parse(text, name);

    const fxFlowText again = fxFlowText::parse(flow.write(), name);
    FUZZ_REQUIRE(again.problems.empty());
    FUZZ_REQUIRE(again.objects == flow.objects);
    FUZZ_REQUIRE(again.connections == flow.connections);
    FUZZ_REQUIRE(again.plugins.size() == flow.plugins.size());
    FUZZ_REQUIRE(again.write() == flow.write());

    const size_t faults = flow.problems.size();
    const bool isFine = flow.check();
    FUZZ_REQUIRE(faults == 0 || !isFine);
    FUZZ_REQUIRE(flow.problems.size() >= faults);
    const size_t all = flow.problems.size();
    FUZZ_REQUIRE(flow.check() == isFine && flow.problems.size() == all);
    for (const fxFlowProblem& each : flow.problems) checkProblem(each, text);
    return 0;
}
