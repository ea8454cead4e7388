// fxflow: runs, checks, tests and shows flows.
#include <cstdio>
#include <iostream>

#include "Catalogue.h"
#include "FlowFile.h"
#include "Look.h"
#include "Options.h"
#include "Runner.h"
#include "TestReport.h"
#include "fxds/Converter.h"
#include "fxds/Globals.h"

namespace {

typedef Options::Command Command;

int check(const Options& options) {
    bool isGood = true;
    for (const std::string& path : options.words) {
        fxFlowText text = readFlow(path, options);
        text.check();
        isGood = tellProblems(text.problems) && isGood;
    }
    return isGood ? 0 : failed;
}

// Its objects are made, and those that reach nothing outside are started.
int draw(const Options& options) {
    fxFlow flow(fxFlow::Purpose::testing);
    if (!tellProblems(flow.apply(readFlow(options.words[0], options)))) return failed;
    flow.writeDot(std::cout);
    return 0;
}

int write(const Options& options) {
    fxFlowText text = readFlow(options.words[0], options);
    text.check();
    if (!tellProblems(text.problems)) return failed;
    std::cout << text.write();
    return 0;
}

int perform(const Options& options) {
    switch (options.command) {
        case Command::run:
            return Runner(options).run();
        case Command::check:
            return check(options);
        case Command::dot:
            return draw(options);
        case Command::text:
            return write(options);
        case Command::list:
            listClasses();
            return 0;
        case Command::describe:
            return describeClasses(options.words);
        case Command::test:
            return runTests(options);
        case Command::tap:
            return tap(options);
        case Command::top:
            return top(options);
        case Command::show:
            return show(options);
        case Command::running:
            return listRunning();
    }
    return trouble;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    int status = readOptions(argc, argv, options);
    if (status != -1) return status;
    fxInitializeToolkit();
    fxConverter::createMoreConverters();
    status = loadPlugins(options) ? perform(options) : failed;
    std::cout.flush();
    if (std::fflush(stdout) != 0 || !std::cout) {
        complain("standard output cannot be written");
        status = trouble;
    }
    fxCleanupGlobalOrderings();
    return status;
}
