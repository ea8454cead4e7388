// Runs the flow of a file until it ends, and changes it with the file.
#ifndef FXFLOW_RUNNER_H
#define FXFLOW_RUNNER_H

#include <memory>
#include <string>

#include "Door.h"
#include "FlowFile.h"
#include "FlowFolder.h"
#include "Options.h"
#include "flow/Flow.h"

class Runner : public fxObj {
public:
    /// `options` is borrowed.
    explicit Runner(const Options& options);
    const char* className() const override { return "Runner"; }

    /// Runs the flow. Returns the status to exit with.
    int run();

private:
    bool begin();
    bool load(const fxFlowText& read);
    void change();
    bool apply(fxFlowText read, bool isFirst);
    void openDoor();
    template <class Work>
    void attempt(Work work);
    void loop();
    void finishQueue();
    bool end();

    const Options& options;
    const std::string& path;
    FlowFolder folder;
    FileWatch files;
    fxFlow flow;
    std::unique_ptr<Door> door;  // looks into the flow
    fxFlowText text;             // from which the flow was made
    bool isEnding = false;
    bool hasFailed = false;
};

#endif
