// A visitor never makes the flow wait, nor grow without bound: lines to it are limited by
// its writer, beyond which values are counted instead of kept, and while that is full
// nothing is read from it. A row of top is made on request.
#include "Door.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <iterator>

#include "FlowFolder.h"
#include "Options.h"
#include "flow/Element.h"
#include "fxds/Exec.h"

namespace {

constexpr size_t requestLimit = 65536;
constexpr size_t fullBytes = size_t{1} << 20;
constexpr size_t drainedBytes = size_t{1} << 18;
constexpr size_t shownBytes = 200;  // of a value in a row of top
constexpr unsigned long mostRows = 1000;

std::string cut(const std::string& value, size_t length) {
    return value.size() <= length ? value : value.substr(0, length) + "...";
}

long wallMilliseconds() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

}  // namespace

class Visitor::Context : public fxObj {
public:
    const char* className() const override { return "Watching"; }
};

Visitor::Visitor(int fd, Door& door_)
    : door(door_),
      reader(fd, requestLimit),
      writer(reader, fullBytes, drainedBytes),
      asked(fxAlarm::Clock::now()),
      context(new Context) {
    fxConnect(reader.line(), this, [this](const fxStr& line) {
        const fxRef<Visitor> hold(this);
        take(line.view());
        if (writer.isFull()) reader.pause();
    });
    fxConnect(reader.end(), this, [this](int) { door.drop(*this); });
    fxConnect(writer.end(), this, [this](int) { door.drop(*this); });
    fxConnect(writer.drained(), this, [this] {
        sendDropped();
        reader.resume();
    });
}

void Visitor::take(std::string_view request) {
    if (request == "tap") {
        for (const auto& end : door.getOutputs()) tap(end.first);
    } else if (request.substr(0, 4) == "tap ") {
        tap(std::string(request.substr(4)));
    } else if (request.substr(0, 4) == "top ") {
        top(std::strtoul(std::string(request.substr(4)).c_str(), nullptr, 10));
    } else if (request == "show") {
        show();
    } else {
        writer.writeLine("e this flow does not understand what it is asked");
    }
}

void Visitor::tap(const std::string& end) {
    const std::string why = add(end, true);
    if (!why.empty()) writer.writeLine("e " + printable(why));
}

// Watches an end, unless it does so already. Returns the reason why not, or "".
std::string Visitor::add(const std::string& end, bool isTapped) {
    const auto [place, isNew] = ends.emplace(end, Watched());
    std::string why = isNew ? watch(*place) : "";
    if (why.empty()) {
        place->second.isTapped |= isTapped;
    } else {
        ends.erase(place);
    }
    return why;
}

std::string Visitor::watch(Ends::value_type& end) {
    const size_t dot = end.first.find('.');
    if (dot == std::string::npos) return end.first + " is not OBJECT.CHANNEL";
    return door.getFlow().watch(end.first.substr(0, dot), end.first.substr(dot + 1), context,
                                [this, &end](const std::string& value) { notice(end, value); });
}

void Visitor::watchAgain() {
    context = new Context;
    for (auto end = ends.begin(); end != ends.end();) {
        const std::string why = watch(*end);
        if (!why.empty() && end->second.isTapped) writer.writeLine("n " + printable(why));
        end = why.empty() || end->second.isTapped ? std::next(end) : ends.erase(end);
    }
    if (!isCounting) return;
    for (const auto& end : door.getOutputs()) add(end.first, false);
}

void Visitor::notice(Ends::value_type& end, const std::string& value) {
    ++end.second.total;
    if (isCounting) end.second.last.assign(value, 0, shownBytes + 1);
    if (!end.second.isTapped) return;
    if (writer.isFull()) {
        ++dropped;
        return;
    }
    sendDropped();
    writer.writeLine("v " + std::to_string(wallMilliseconds()) + ' ' + end.first + ' ' +
                     shown(end.first, cut(value, longestValue)));
}

// A value in the notation of a flow; nothing for the messages of an end without values.
std::string Visitor::shown(const std::string& end, const std::string& value) const {
    const auto output = door.getOutputs().find(end);
    const bool hasValues = output == door.getOutputs().end() || output->second;
    return hasValues || !value.empty() ? fxFlowQuoted(value) : "";
}

void Visitor::sendDropped() {
    if (dropped != 0) writer.writeLine("d " + std::to_string(dropped));
    dropped = 0;
}

void Visitor::top(unsigned long rows) {
    if (!isCounting) {
        isCounting = true;
        for (const auto& end : door.getOutputs()) add(end.first, false);
    }
    std::vector<const Ends::value_type*> order;
    for (const auto& each : ends) order.push_back(&each);
    const auto isBefore = [](const auto* a, const auto* b) {
        const unsigned long counts[] = {a->second.total - a->second.asked,
                                        b->second.total - b->second.asked};
        if (counts[0] != counts[1]) return counts[0] > counts[1];
        const bool isSame = a->second.total == b->second.total;
        return isSame ? a->first < b->first : a->second.total > b->second.total;
    };
    rows = std::min<unsigned long>({rows, mostRows, order.size()});
    const auto end = order.begin() + static_cast<std::ptrdiff_t>(rows);
    std::partial_sort(order.begin(), end, order.end(), isBefore);
    order.erase(end, order.end());
    for (const auto* each : order) {
        const Watched& watched = each->second;
        writer.writeLine(
            "r " + std::to_string(watched.total - watched.asked) + ' ' +
            std::to_string(watched.total) + ' ' + each->first + ' ' +
            (watched.total != 0 ? shown(each->first, cut(watched.last, shownBytes)) : ""));
    }
    const fxAlarm::Time now = fxAlarm::Clock::now();
    const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(now - asked);
    writer.writeLine("t " + std::to_string(passed.count()) + ' ' + std::to_string(ends.size()) +
                     ' ' + std::to_string(door.getObjectCount()));
    asked = now;
    for (auto& each : ends) each.second.asked = each.second.total;
}

void Visitor::show() {
    const std::string text = door.getFlow().write();
    for (size_t at = 0, end; at < text.size(); at = end + 1) {
        end = std::min(text.find('\n', at), text.size());
        writer.writeLine("s " + text.substr(at, end - at));
    }
    writer.writeLine(".");
}

void Visitor::leave() {
    sendDropped();
    writer.flush();
}

Door::Door(int fd_, fxFlow& flow_) : fxSelectHandler(fd_, 1), flow(flow_) { serve(); }

void Door::setText(const fxFlowText& text) {
    outputs.clear();
    objectCount = text.objects.size();
    for (const fxFlowText::Object& object : text.objects) {
        const fxElementKind* const kind = fxElementKind::find(object.className.text);
        if (kind == nullptr) continue;
        for (const fxElementChannel& each : kind->outputs) {
            outputs[object.name.text + '.' + each.name] = each.typeNumber() != fxDT_void;
        }
    }
    for (const fxRef<Visitor>& each : visitors) each->watchAgain();
}

void Door::drop(Visitor& visitor) {
    const auto place = std::find(visitors.begin(), visitors.end(), &visitor);
    if (place == visitors.end()) return;
    const fxRef<Visitor> last = *place;  // destroyed when `visitors` is in order again
    visitors.erase(place);
}

void Door::closeAll() {
    for (const fxRef<Visitor>& each : visitors) each->leave();
    visitors.clear();
}

void Door::handleRead() {
    const int socket = accept4(fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (socket < 0 && (errno == EMFILE || errno == ENFILE || errno == ENOMEM)) {
        setWishes(false, false);  // the next one is let in when there may be room again
        fxAfter(std::chrono::seconds(1), this, [this] { setWishes(true, false); });
    }
    if (socket < 0) return;
    const bool isOwn = isOwnPeer(socket);
    if (!isOwn || visitors.size() == mostVisitors || !fxExec::canServe(socket)) {
        constexpr std::string_view why = "e too many others look into this flow\n";
        if (isOwn) static_cast<void>(::send(socket, why.data(), why.size(), MSG_NOSIGNAL));
        close(socket);
        return;
    }
    visitors.push_back(new Visitor(socket, *this));
}
