#include "flow/run/Watch.h"

#include <algorithm>

#include "fxds/detail/Suggestion.h"

namespace {

// The message for a channel that the object does not have.
std::string missing(const fxFlowDetail::Member& member, const std::string& channel) {
    std::vector<std::string_view> known;
    for (const fxElementChannel& each : member.said.kind->outputs) known.push_back(each.name);
    for (const fxElementChannel& each : member.said.kind->inputs) known.push_back(each.name);
    return member.name() + " has no channel \"" + channel + '"' +
           fxDetail::suggestion(channel, known);
}

}  // namespace

bool fxFlow::Network::Watch::update(const Network& its) {
    const Member* const member = its.find(object);
    if (member == nullptr || !life.isThere()) return false;
    std::vector<Source> now;
    if (const fxElementChannel* const output = member->said.kind->findOutput(channel)) {
        now.push_back({member->output(channel), output->type, {}});
    } else if (member->said.kind->findInput(channel) != nullptr) {
        for (const fxFlowText::Connection& joint : its.joints) {
            if (joint.to.object.text != object || joint.to.channel.text != channel) continue;
            const Member* const from = its.find(joint.from.object.text);
            if (from == nullptr) continue;
            const fxElementChannel& end = *from->said.kind->findOutput(joint.from.channel.text);
            now.push_back({its.sourceOf(joint), end.type, {}});
        }
    } else {
        return false;
    }
    for (Source& each : now) {
        const auto old = std::find_if(sources.begin(), sources.end(), [&](const Source& source) {
            return source.output == each.output && source.connection.isConnected();
        });
        if (old != sources.end()) {
            std::swap(each.connection, old->connection);
        } else if (each.output != nullptr) {
            each.connection = each.type->watch(each.output, context, watcher);
        }
    }
    sources.swap(now);
    for (Source& each : now) each.connection.disconnect();
    return true;
}

std::string fxFlow::Network::watch(const std::string& object, const std::string& channel,
                                   fxObj* context, fxFlowType::Watcher watcher) {
    const Member* const member = find(object);
    if (member == nullptr) return "there is no object \"" + object + '"';
    const fxElementKind& kind = *member->said.kind;
    if (kind.findOutput(channel) == nullptr && kind.findInput(channel) == nullptr) {
        return missing(*member, channel);
    }
    auto made = std::make_unique<Watch>(object, channel, context != nullptr ? context : flow,
                                        std::move(watcher));
    if (!made->update(*this)) return "the context has ended";
    if (watches.size() >= watchesToSweep) {
        const auto isOver = [](const std::unique_ptr<Watch>& each) {
            return !each->life.isThere();
        };
        watches.erase(std::remove_if(watches.begin(), watches.end(), isOver), watches.end());
        watchesToSweep = 2 * watches.size() + 16;
    }
    watches.push_back(std::move(made));
    return "";
}

void fxFlow::Network::updateWatches() {
    const auto isOver = [this](const std::unique_ptr<Watch>& each) { return !each->update(*this); };
    watches.erase(std::remove_if(watches.begin(), watches.end(), isOver), watches.end());
}

std::string fxFlow::Network::send(const std::string& object, const std::string& channel,
                                  const std::string& value) {
    const Member* const member = find(object);
    if (member == nullptr) return "there is no object \"" + object + '"';
    const fxElementKind& kind = *member->said.kind;
    const fxElementChannel* const input = kind.findInput(channel);
    const fxElementChannel* const described = input != nullptr ? input : kind.findOutput(channel);
    if (described == nullptr) return missing(*member, channel);
    fxInputChannel* const to = input != nullptr ? member->input(channel) : nullptr;
    fxOutputChannel* const from = input == nullptr ? member->output(channel) : nullptr;
    if (to == nullptr && from == nullptr) return object + " has lost its \"" + channel + '"';
    const std::string typeName = described->typeName();
    const fxFlowType& type = *described->type;
    bool isSent = false;
    if (from != nullptr) {
        isSent = type.send(from, value);
    } else {
        fxOutputChannel sender(to->getType());
        sender.add(to);
        for (const std::unique_ptr<Watch>& each : watches) {
            if (each->object == object && each->channel == channel && each->life.isThere() &&
                kind.findOutput(channel) == nullptr) {
                type.watch(&sender, each->context, each->watcher);
            }
        }
        isSent = type.send(&sender, value);
    }
    if (isSent) return "";
    return type.number() == fxDT_void ? "it takes no value" : '"' + value + "\" is no " + typeName;
}
