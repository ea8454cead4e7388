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
};

// Reads what has the tests of a flow: the file beside it, or the flow itself.
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

// As build servers read it.
bool writeReport(const char* path, const std::vector<Suite>& suites) {
    FILE* const file = std::fopen(path, "we");
    if (file == nullptr) return false;
    std::fputs("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites>\n", file);
    for (const Suite& suite : suites) {
        const auto failures =
            std::count_if(suite.results.begin(), suite.results.end(),
                          [](const fxFlowTestResult& each) { return !each.failure.empty(); });
        std::fprintf(file, "  <testsuite name=\"%s\" tests=\"%zu\" failures=\"%td\">\n",
                     escaped(suite.path).c_str(), suite.results.size(), failures);
        for (const fxFlowTestResult& each : suite.results) {
            std::fprintf(file, R"(    <testcase name="%s" classname="%s" time="%.6f")",
                         escaped(each.name).c_str(), escaped(suite.path).c_str(), each.seconds);
            if (each.failure.empty()) {
                std::fputs("/>\n", file);
            } else {
                std::fprintf(file, "><failure message=\"%s\">%s</failure></testcase>\n",
                             escaped(each.failure).c_str(), escaped(each.line()).c_str());
            }
        }
        std::fputs("  </testsuite>\n", file);
    }
    std::fputs("</testsuites>\n", file);
    const bool isGood = std::ferror(file) == 0;
    return std::fclose(file) == 0 && isGood;
}

}  // namespace

int runTests(const Options& options) {
    std::vector<Suite> suites;
    size_t count = 0;
    size_t failures = 0;
    bool isTroubled = false;
    for (const std::string& path : options.words) {
        fxFlowText text = readTests(path, options);
        bool isLoaded = true;
        for (const fxFlowText::Word& plugin : text.plugins) {
            const std::string why = fxLoadPlugin(plugin.text);
            if (!why.empty()) text.problems.push_back({plugin.place, why});
            isLoaded = isLoaded && why.empty();
        }
        if (isLoaded) text.check();
        const bool isGood = tellProblems(text.problems);
        if (isGood && text.tests.empty()) complain(path + " has no tests");
        if (!isGood || text.tests.empty()) {
            isTroubled = true;
            continue;
        }
        suites.push_back({path, {}});
        std::printf("%s\n", printable(path).c_str());
        for (const fxFlowText::Test& test : text.tests) {
            suites.back().results.push_back(fxRunFlowTest(text, test));
            const fxFlowTestResult& result = suites.back().results.back();
            const bool isPassed = result.failure.empty();
            std::printf("  %s  %s\n", isPassed ? "ok    " : "FAILED",
                        printable(result.name).c_str());
            if (!isPassed) std::printf("    %s\n", printable(result.line()).c_str());
            std::fflush(stdout);
            ++count;
            failures += isPassed ? 0 : 1;
        }
    }
    std::printf("%zu tests, %zu failed\n", count, failures);
    if (options.junitPath != nullptr && !writeReport(options.junitPath, suites)) {
        complain(std::string(options.junitPath) + ": " + std::strerror(errno));
        isTroubled = true;
    }
    return failures != 0 ? failed : isTroubled ? trouble : 0;
}
