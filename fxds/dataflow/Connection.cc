#include "fxds/Connection.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fxds/StrArray.h"
#include "fxds/dataflow/Explain.h"
#include "fxds/dataflow/TraceLines.h"
#include "fxds/detail/Suggestion.h"

// A connection is identified by its two ends. The input counts as watched, so the channel,
// though not its receiver, exists until its last watcher is destroyed, and its list of the
// outputs that feed it can be searched. An output in that list exists, and its serial
// number distinguishes it from an earlier one at the same address.
//
// Invariants:
// (1) `input` counts as one watcher of its channel. A connection without one joins nothing,
//     whatever `output` is.
// (2) `output` may dangle. It is compared, and followed only after the input's list has
//     been found to contain it.
// (3) Of all copies of a failed result at most one has a reason and `isAsked` not set: that
//     one reports the failure.
//
// The receiver belongs to the input channel, which ends with its last holder, watched or
// not. So a connection keeps some bytes, but neither an object nor a callable.

fxConnection::Input::Input(fxInputChannel* channel_) : channel(channel_) {
    if (channel != nullptr) channel->watch();
}

fxConnection::Input::~Input() {
    if (channel != nullptr) channel->unwatch();
}

fxConnection::fxConnection(fxOutputChannel* output_, fxInputChannel* input_) {
    if (output_ == nullptr || input_ == nullptr) {
        reason = output_ == nullptr ? "there is no output" : "there is no input";
        return;
    }
    const std::string why = fxDetail::unlikeTypes(output_->getType(), input_->getType());
    if (!why.empty()) {
        reason = fxStr(why);
        return;
    }
    input = Input(input_);
    output = output_;
    serial = output_->serial;
    if (!output_->isConnectedTo(input_)) output_->add(input_);
}

fxConnection::fxConnection(const fxConnection& other)
    : input(other.input),
      output(other.output),
      serial(other.serial),
      isAsked(std::exchange(other.isAsked, true)),
      reason(other.reason) {}

// The old state ends with `other`, which reports a failure that was not asked for.
fxConnection& fxConnection::operator=(fxConnection other) noexcept {
    std::swap(input, other.input);
    std::swap(output, other.output);
    std::swap(serial, other.serial);
    std::swap(isAsked, other.isAsked);
    std::swap(reason, other.reason);
    return *this;
}

// An input that cannot be joined has no holder but this function. It ends here, which also
// takes it out of the list of its context.
fxConnection fxConnection::adopt(fxOutputChannel* output, fxObj* context, fxInputChannel* input) {
    const fxRef<fxInputChannel> held(input);  // deletes it if there is no other holder
    if (context != nullptr) context->adoptInput(input);
    return fxConnection(output, input);
}

bool fxConnection::isJoined() const {
    return input.get() != nullptr && input.get()->findOutput(output) != fxArray::notFound &&
           output->serial == serial;
}

void fxConnection::disconnect() {
    if (isJoined()) output->remove(input.get());
}

fxScopedConnection& fxScopedConnection::operator=(fxScopedConnection&& other) noexcept {
    fxScopedConnection last(std::move(other));  // cut at the end: the cut may re-enter here
    std::swap(connection, last.connection);
    return *this;
}

fxConnection fxScopedConnection::release() { return std::exchange(connection, fxConnection()); }

void fxConnection::tellReason() const noexcept {
    std::fprintf(stderr, "fxConnect: %s\n", reason.c_str());
}

fxConnection fxConnect(fxObj* source, const char* output, fxObj* target, const char* input) {
    fxOutputChannel* const from = source != nullptr ? source->getOutput(output) : nullptr;
    fxInputChannel* const to = target != nullptr ? target->getInput(input) : nullptr;
    fxConnection connection(from, to);
    if (connection.whyNot().isEmpty()) return connection;
    const std::string why = fxExplain::whyNotJoined(source, output, target, input);
    if (fxTrace::isOn(fxTrace::connects)) fxTraceLines::notConnecting(why);
    return fxConnection(fxStr(why));
}

namespace {

// The message about a name that an object does not have.
std::string missing(const fxObj& object, const char* kind, const char* name,
                    const fxStrArray& known) {
    const std::string_view wanted = name != nullptr ? name : "";
    std::string text = fxTraceLines::classNameOf(object) + " has no " + kind + " \"";
    (text += wanted) += '"';
    std::vector<std::string_view> names;
    for (const fxStr& each : known) names.push_back(each.view());
    return text + fxDetail::suggestion(wanted, names);
}

template <class Channel>
std::string described(fxObj* object, const char* name, const Channel* channel) {
    std::string text = object != nullptr ? fxTraceLines::classNameOf(*object) : "null";
    (text += '.') += name != nullptr ? name : "";
    if (channel != nullptr) ((text += " (") += fxDataTypeName(channel->getType())) += ')';
    return text;
}

}  // namespace

std::string fxExplain::whyNotJoined(fxObj* source, const char* output, fxObj* target,
                                    const char* input) {
    fxOutputChannel* const from = source != nullptr ? source->getOutput(output) : nullptr;
    fxInputChannel* const to = target != nullptr ? target->getInput(input) : nullptr;
    std::string why;
    if (source == nullptr || target == nullptr) {
        why = source == nullptr ? "there is no source" : "there is no target";
    } else if (from == nullptr) {
        why = missing(*source, "output", output, source->getOutputNames());
    } else if (to == nullptr) {
        why = missing(*target, "input", input, target->getInputNames());
    } else {
        why = fxDetail::unlikeTypes(from->getType(), to->getType());
    }
    if (why.empty()) return why;
    why = described(source, output, from) + " -> " + described(target, input, to) + ": " + why;
    const auto isControl = [](char c) { return (c >= 0 && c < ' ') || c == '\x7F'; };
    std::replace_if(why.begin(), why.end(), isControl, '?');  // names may hold anything
    return why;
}
