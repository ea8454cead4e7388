// The connections that watch an end. For the sources of this folder only.
#ifndef FLOW_RUN_WATCH_H
#define FLOW_RUN_WATCH_H

#include <string>
#include <utility>
#include <vector>

#include "flow/run/Network.h"

// Watches the values that an output sends, or those that all outputs and relays send to an
// input: as many connections from these to the watcher.
struct FX_LOCAL fxFlow::Network::Watch {
    Watch(std::string object_, std::string channel_, fxObj* context_, fxFlowType::Watcher watcher_)
        : object(std::move(object_)),
          channel(std::move(channel_)),
          context(context_),
          watcher(std::move(watcher_)),
          life(context_) {}

    // Updates the connections; returns false when the end or the context is gone.
    bool update(const Network& its);

    const std::string object;
    const std::string channel;
    fxObj* const context;  // dangles once `life` has ended
    const fxFlowType::Watcher watcher;
    const fxFlowDetail::LifeSign life;

private:
    struct Source {
        fxOutputChannel* output;  // dangles when it has gone
        const fxFlowType* type;
        fxConnection connection;
    };
    std::vector<Source> sources;
};

#endif
