#include "flow/Flow.h"

#include "flow/run/Network.h"

fxFlow::fxFlow(Purpose purpose, fxFlowTime& time)
    : network(std::make_shared<Network>(*this, purpose, time)) {}

fxFlow::~fxFlow() { network->end(); }

const char* fxFlow::className() const { return "fxFlow"; }

std::vector<fxFlowProblem> fxFlow::apply(fxFlowText text) {
    const fxFlowDetail::Acting under;
    Change change(network, std::move(text), Change::Keep::same);
    if (change.check() && change.make() && change.start() && change.prepare()) change.commit();
    return std::move(change.problems);
}

bool fxFlow::isBusy() const {
    for (const auto& each : network->members) {
        const fxElement* const element = each->element();
        if (element != nullptr && element->isBusy()) return true;
    }
    return false;
}

fxObj* fxFlow::find(std::string_view name) const {
    const fxFlowDetail::Member* const member = network->find(name);
    return member != nullptr ? member->object : nullptr;
}

std::string fxFlow::nameOf(const fxObj& object) const {
    const fxFlowDetail::Member* const member = network->memberOf(object);
    return member != nullptr ? member->name() : "";
}

fxFlowTime& fxFlow::time() const { return network->time; }

std::string fxFlow::write() const { return network->textNow().write(); }

void fxFlow::writeDot(std::ostream& out) const {
    fxFlowText text = network->textNow();
    text.connections = network->joints;
    text.writeDot(out);
}

std::string fxFlow::watch(const std::string& object, const std::string& channel, fxObj* context,
                          fxFlowType::Watcher watcher) {
    return network->watch(object, channel, context, std::move(watcher));
}

std::string fxFlow::send(const std::string& object, const std::string& channel,
                         const std::string& value) {
    const std::shared_ptr<Network> hold = network;  // receivers may destroy the flow
    return hold->send(object, channel, value);
}
