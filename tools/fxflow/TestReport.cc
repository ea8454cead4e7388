#include "TestReport.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "FlowFile.h"
#include "flow/Flow.h"
#include "flow/Tester.h"

namespace {

// The tests of a file.
struct Suite {
    std::string path;
    std::vector<fxFlowTestResult> results;
    std::string fault;  // because of which it was not tested

    size_t failures() const {
        return static_cast<size_t>(
            std::count_if(results.begin(), results.end(),
                          [](const fxFlowTestResult& each) { return !each.failure.empty(); }));
    }
};

// Reads the text with the tests of a flow: the file beside it, or the flow
// itself.
fxFlowText readTests(const std::string& path, const Options& options) {
    const std::string beside = path + ".test";
    struct stat status;
    if (stat(beside.c_str(), &status) != 0) return readFlow(path, options);
    fxFlowText text = readFlow(beside, options);
    struct stat flow;
    if (stat(path.c_str(), &flow) != 0) return text;
    const bool isIncluded =
        std::any_of(text.files.begin(), text.files.end(), [&flow](const std::string& file) {
            struct stat each;
            return stat(file.c_str(), &each) == 0 && each.st_dev == flow.st_dev &&
                   each.st_ino == flow.st_ino;
        });
    if (!isIncluded) {
        const std::string name = path.substr(path.rfind('/') + 1);
        fxFlowProblem problem;
        problem.place = {beside, 1, 1};
        problem.text = "does not include the flow: include " + fxFlowQuoted(name);
        text.problems.push_back(std::move(problem));
    }
    return text;
}

std::string escaped(const std::string& text) {
    std::string xml;
    for (const char c : printable(text)) {
        switch (c) {
            case '&':
                xml += "&amp;";
                break;
            case '<':
                xml += "&lt;";
                break;
            case '>':  // "]]>" may not be in text
                xml += "&gt;";
                break;
            case '"':
                xml += "&quot;";
                break;
            default:
                xml += c;
        }
    }
    return xml;
}

// A test of the report, with its failure, if any.
void writeCase(FILE* file, const Suite& suite, const fxFlowTestResult& result, const char* kind) {
    std::fprintf(file, R"(    <testcase name="%s" classname="%s" time="%.6f")",
                 escaped(result.name).c_str(), escaped(suite.path).c_str(), result.seconds);
    if (result.failure.empty()) {
        std::fputs("/>\n", file);
    } else {
        std::fprintf(file, "><%s message=\"%s\">%s</%s></testcase>\n", kind,
                     escaped(result.failure).c_str(), escaped(result.line()).c_str(), kind);
    }
}

// In the format of build servers.
bool writeReport(const char* path, const std::vector<Suite>& suites) {
    FILE* const file = std::fopen(path, "we");
    if (file == nullptr) return false;
    std::fputs("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites>\n", file);
    for (const Suite& suite : suites) {
        const size_t errors = suite.fault.empty() ? 0 : 1;
        std::fprintf(
            file, "  <testsuite name=\"%s\" tests=\"%zu\" failures=\"%zu\" errors=\"%zu\">\n",
            escaped(suite.path).c_str(), suite.results.size() + errors, suite.failures(), errors);
        for (const fxFlowTestResult& each : suite.results) {
            writeCase(file, suite, each, "failure");
        }
        if (errors != 0) writeCase(file, suite, {suite.path, {}, suite.fault, 0}, "error");
        std::fputs("  </testsuite>\n", file);
    }
    std::fputs("</testsuites>\n", file);
    const bool isGood = std::ferror(file) == 0;
    return std::fclose(file) == 0 && isGood;
}

// The flow of a file with its tests, checked with its plug-ins.
fxFlowText checkedTests(const std::string& path, const Options& options) {
    fxFlowText text = readTests(path, options);
    bool isLoaded = true;
    for (const fxFlowText::Word& plugin : text.plugins) {
        const std::string why = fxLoadPlugin(plugin.text);
        if (!why.empty()) text.problems.push_back({plugin.place, why});
        isLoaded = isLoaded && why.empty();
    }
    if (isLoaded) text.check();
    return text;
}

// Runs the tests of a flow, and prints the results.
void run(const fxFlowText& text, Suite& suite) {
    std::printf("%s\n", printable(suite.path).c_str());
    for (const fxFlowText::Test& test : text.tests) {
        suite.results.push_back(fxRunFlowTest(text, test));
        const fxFlowTestResult& result = suite.results.back();
        const bool isPassed = result.failure.empty();
        std::printf("  %s  %s\n", isPassed ? "ok    " : "FAILED", printable(result.name).c_str());
        if (!isPassed) std::printf("    %s\n", printable(result.line()).c_str());
        std::fflush(stdout);
    }
}

}  // namespace

int runTests(const Options& options) {
    std::vector<Suite> suites;
    size_t count = 0;
    size_t failures = 0;
    size_t faulty = 0;
    bool isTroubled = false;
    for (const std::string& path : options.words) {
        Suite suite = {path, {}, ""};
        const fxFlowText text = checkedTests(path, options);
        if (!tellProblems(text.problems)) {
            const auto first = std::find_if(text.problems.begin(), text.problems.end(),
                                            [](const auto& each) { return !each.isWarning; });
            suite.fault = first->line();
            ++faulty;
        } else if (text.tests.empty()) {
            complain(path + " has no tests");
            isTroubled = true;
            continue;
        } else {
            run(text, suite);
        }
        count += suite.results.size();
        failures += suite.failures();
        suites.push_back(std::move(suite));
    }
    std::printf("%s, %zu failed%s\n", counted(count, "test").c_str(), failures,
                faulty == 0 ? "" : (", not tested: " + counted(faulty, "file")).c_str());
    if (options.junitPath != nullptr && !writeReport(options.junitPath, suites)) {
        complain(std::string(options.junitPath) + ": " + std::strerror(errno));
        isTroubled = true;
    }
    return failures + faulty != 0 ? failed : isTroubled ? trouble : 0;
}
