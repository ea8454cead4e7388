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

namespace {

// `explain` gives the reason, if they cannot be joined.
template <class Explain>
fxConnection join(fxOutputChannel* output, fxObj* target, const char* name, Explain explain) {
    fxInputChannel* const input = target != nullptr ? target->getInput(name) : nullptr;
    fxConnection connection(output, input);
    if (connection.whyNot().isEmpty()) return connection;
    const std::string why = explain();
    if (fxTrace::isOn(fxTrace::connects)) fxTraceLines::notConnecting(why);
    return fxConnection(fxStr(why));
}

}  // namespace

fxConnection fxConnect(fxObj* source, const char* output, fxObj* target, const char* input) {
    fxOutputChannel* const from = source != nullptr ? source->getOutput(output) : nullptr;
    return join(from, target, input,
                [&] { return fxExplain::whyNotJoined(source, output, target, input); });
}

fxConnection fxConnect(fxOutputChannel* output, fxObj* target, const char* input) {
    return join(output, target, input,
                [&] { return fxExplain::whyNotJoined(output, target, input); });
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

// `why` with both ends before it; "" if it is empty.
std::string explained(const std::string& source, const std::string& target,
                      const std::string& why) {
    if (why.empty()) return why;
    std::string text = source + " -> " + target + ": " + why;
    const auto isControl = [](char c) { return (c >= 0 && c < ' ') || c == '\x7F'; };
    std::replace_if(text.begin(), text.end(), isControl, '?');  // names may hold anything
    return text;
}

std::string explained(fxObj* source, const char* output, const fxOutputChannel* from, fxObj* target,
                      const char* input) {
    const fxInputChannel* const to = target != nullptr ? target->getInput(input) : nullptr;
    std::string why;
    if (source == nullptr && from == nullptr) {
        why = "there is no source";
    } else if (target == nullptr) {
        why = "there is no target";
    } else if (from == nullptr) {
        why = missing(*source, "output", output, source->getOutputNames());
    } else if (to == nullptr) {
        why = missing(*target, "input", input, target->getInputNames());
    } else {
        why = fxDetail::unlikeTypes(from->getType(), to->getType());
    }
    return explained(described(source, output, from), described(target, input, to), why);
}

}  // namespace

std::string fxExplain::whyNotJoined(fxObj* source, const char* output, fxObj* target,
                                    const char* input) {
    return explained(source, output, source != nullptr ? source->getOutput(output) : nullptr,
                     target, input);
}

std::string fxExplain::whyNotJoined(const fxOutputChannel* output, fxObj* target,
                                    const char* input) {
    if (output == nullptr) return explained(nullptr, nullptr, nullptr, target, input);
    return explained(output->getOwner(), output->getName(), output, target, input);
}

std::string fxExplain::whyNotJoined(const fxOutputChannel& output, const fxInputChannel& input) {
    return explained(described(output.getOwner(), output.getName(), &output),
                     described(input.getOwner(), input.getName(), &input),
                     fxDetail::unlikeTypes(output.getType(), input.getType()));
}
