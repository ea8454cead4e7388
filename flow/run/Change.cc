#include <algorithm>
#include <cstdlib>
#include <iterator>

#include "flow/run/Network.h"

// A change is a transaction: the steps before commit() make objects and relays that are
// connected to nothing, and only add to the tables of the network. Code of elements runs in
// make() and start() alone, and may do anything but change this flow again; the steps
// behind check which objects still exist. prepare() finds all channels, and commit() joins
// them with no code of elements in between.

namespace {

bool isNumber(unsigned short type) {
    return type == fxDT_int || type == fxDT_long || type == fxDT_float || type == fxDT_double ||
           type == fxDT_fxBool;
}

// The rule of the converters.
bool beginsWithNumber(const std::string& text) {
    char* end = nullptr;
    static_cast<void>(std::strtod(text.c_str(), &end));
    return end != text.c_str();
}

}  // namespace

fxFlow::Change::Change(std::shared_ptr<Network> network_, fxFlowText text_, Keep keep_)
    : network(std::move(network_)), text(std::move(text_)), keep(keep_) {
    if (network->isChanging) {
        problems.push_back(fxFlowDetail::problemAt({}, "the flow is being changed already"));
    } else {
        began = network->isChanging = true;
    }
}

fxFlow::Change::~Change() {
    for (std::unique_ptr<Member>& each : recalled) {
        if (each != nullptr) fresh.push_back(std::move(each));
    }
    for (const std::unique_ptr<Member>& each : fresh) network->leave(*each);
    if (began) network->isChanging = false;
    fxFlowDetail::bury(std::move(fresh));
}

bool fxFlow::Change::isFine() {
    if (network->flow == nullptr && problems.empty()) {
        problems.push_back(fxFlowDetail::problemAt({}, "the flow ended while it was changed"));
    }
    return std::all_of(problems.begin(), problems.end(),
                       [](const fxFlowProblem& each) { return each.isWarning; });
}

bool fxFlow::Change::check() {
    if (!began) return false;
    for (const fxFlowText::Word& plugin : text.plugins) {
        const std::string why = fxLoadPlugin(plugin.text);
        if (!why.empty()) problems.push_back(fxFlowDetail::problemAt(plugin.place, why));
    }
    if (problems.empty()) text.check();
    problems.insert(problems.begin(), text.problems.begin(), text.problems.end());
    return isFine();
}

template <class Call>
void fxFlow::Change::attempt(const Member& member, const fxFlowPlace& place, Call call) {
    std::string why = fxFlowDetail::outcomeOf(call);
    if (why.empty() && !member.isThere()) why = "it has ended itself";
    if (!why.empty()) {
        problems.push_back(fxFlowDetail::problemAt(place, member.name() + ": " + why));
    }
}

// Makes an object of the flow; null where that fails.
fxFlowDetail::Member* fxFlow::Change::add(const fxFlowText::Object& object, Network::Members& to) {
    fxRef<fxObj> made;
    const std::string why = fxFlowDetail::outcomeOf([&] {
        made = object.kind->make();
        return made != nullptr ? "" : "there is none";
    });
    if (!why.empty()) {
        problems.push_back(fxFlowDetail::problemAt(
            object.className.place, "cannot make a " + object.className.text + ": " + why));
        return nullptr;
    }
    to.push_back(std::make_unique<Member>(object, made));
    made = nullptr;  // the object may end itself
    Member& member = *to.back();
    if (network->flow != nullptr) network->enter(member);
    setUp(member);
    return &member;
}

void fxFlow::Change::setUp(const Member& member) {
    for (const fxFlowText::Setting& setting : member.said.settings) {
        const fxElementProperty* const property = member.said.kind->findProperty(setting.name.text);
        if (property == nullptr || !member.isThere()) continue;
        attempt(member, setting.value.place, [&] {
            property->set(*member.object, setting.value.text);
            return std::string();
        });
    }
    if (member.element() == nullptr) return;
    attempt(member, member.said.name.place, [&] { return member.element()->settle(); });
}

bool fxFlow::Change::recall(const fxFlowText& saved, const fxFlowText& given) {
    const bool isSame = std::equal(
        saved.objects.begin(), saved.objects.end(), given.objects.begin(), given.objects.end(),
        [](const fxFlowText::Object& one, const fxFlowText::Object& other) {
            return one.name.text == other.name.text && one.kind == other.kind;
        });
    if (!isSame) problems.push_back(fxFlowDetail::problemAt({}, "it has two different texts"));
    for (const auto* const found : {&saved.problems, &given.problems}) {
        std::copy_if(found->begin(), found->end(), std::back_inserter(problems),
                     [](const fxFlowProblem& each) { return !each.isWarning; });
    }
    for (size_t i = 0; isFine() && i < saved.objects.size(); ++i) {
        Member* const member = add(saved.objects[i], recalled);
        if (member != nullptr) member->said.settings = given.objects[i].settings;
    }
    return isFine();
}

bool fxFlow::Change::make() {
    const auto says = [](const Member* member, const fxFlowText::Object& object) {
        return member != nullptr && member->said.kind == object.kind && member->said == object;
    };
    std::unordered_map<std::string_view, std::unique_ptr<Member>*> saved;
    for (std::unique_ptr<Member>& each : recalled) saved[each->name()] = &each;
    members.reserve(text.objects.size());
    for (const fxFlowText::Object& object : text.objects) {
        if (object.kind == nullptr) continue;
        Member* const old = keep == Keep::same ? network->find(object.name.text) : nullptr;
        const auto found = saved.find(object.name.text);
        if (says(old, object)) {
            kept.insert(old);
            members.push_back(old);
        } else if (found != saved.end() && says(found->second->get(), object)) {
            members.push_back(found->second->get());
            fresh.push_back(std::move(*found->second));
        } else if (Member* const member = add(object, fresh)) {
            members.push_back(member);
        }
        if (network->flow == nullptr) break;
    }
    for (Member* const each : members) byName[each->name()] = each;
    return isFine();
}

bool fxFlow::Change::start() {
    for (const std::unique_ptr<Member>& each : fresh) {
        const bool isOff = network->purpose == Purpose::testing && each->said.kind->outside;
        if (isOff || each->element() == nullptr || network->flow == nullptr) continue;
        attempt(*each, each->said.name.place, [&] {
            each->element()->started = true;
            return each->element()->start();
        });
    }
    // Elements that have ended others are fine themselves.
    for (const Member* const each : members) {
        if (each->isThere() || !isFine()) continue;
        problems.push_back(fxFlowDetail::problemAt(
            each->said.name.place, each->name() + ": has been destroyed by another object"));
    }
    return isFine();
}

bool fxFlow::Change::stays(const fxFlowText::Connection& joint) const {
    const auto isKept = [&](const fxFlowText::End& end) {
        const auto found = byName.find(end.object.text);
        return found != byName.end() && kept.count(found->second) != 0;
    };
    return isKept(joint.from) && isKept(joint.to);
}

void fxFlow::Change::prepareJoint(const fxFlowText::Connection& joint) {
    const auto from = byName.find(joint.from.object.text);
    const auto to = byName.find(joint.to.object.text);
    if (from == byName.end() || to == byName.end()) return;  // reported by check()
    fxOutputChannel* source = from->second->output(joint.from.channel.text);
    fxInputChannel* const input = to->second->input(joint.to.channel.text);
    const auto tell = [&](const fxFlowText::End& end, const char* what) {
        problems.push_back(fxFlowDetail::problemAt(
            end.channel.place, end.object.text + " has no " + what + ' ' + end.channel.text));
    };
    if (source == nullptr) return tell(joint.from, "output");
    if (input == nullptr) return tell(joint.to, "input");
    if (!fxFlowDetail::leadsTo(source->getType(), input->getType())) {
        return tell(joint.to, "converter for its input");
    }
    if (joint.delivery != fxFlowDelivery::now) {
        const Network::RelayKey key(joint.from.object.text, joint.from.channel.text,
                                    joint.delivery);
        fxRef<fxObj>& relay = relays[key];
        const auto old = network->relays.find(key);
        if (relay == nullptr && kept.count(from->second) != 0 && old != network->relays.end()) {
            relay = old->second;
        } else if (relay == nullptr) {
            const fxElementKind& kind = *from->second->said.kind;
            relay = kind.findOutput(joint.from.channel.text)->type->makeRelay(joint.delivery);
            joins.push_back({source, relay->getInput("in")});
        }
        source = relay->getOutput("out");
    }
    if (before.count(fxFlowDetail::keyOf(joint)) != 0 && stays(joint)) return;
    joins.push_back({source, input});
    const bool isText = source->getType() == fxDT_fxStr || source->getType() == fxDT_CharPtr;
    if (isText && isNumber(input->getType())) mind(joint, source, input->getType());
}

void fxFlow::Change::mind(const fxFlowText::Connection& joint, fxOutputChannel* source,
                          unsigned short type) {
    fxObj* const target = byName[joint.to.object.text]->object;
    const std::string from = joint.from.object.text + '.' + joint.from.channel.text;
    const bool isTruth = type == fxDT_fxBool;
    // Complains of the first text that is no number, and then not again before a number
    // comes.
    const auto look = [its = network.get(), target, from, to = joint.to.channel.text, isTruth,
                       hasFailed = false](const std::string& value) mutable {
        const bool isFine =
            (isTruth && (value == "true" || value == "false")) || beginsWithNumber(value);
        const bool isFirst = !std::exchange(hasFailed, !isFine);
        if (isFine || !isFirst) return;
        its->complain(*target, '"' + fxFlowDetail::printable(value.substr(0, 60)) + "\" from " +
                                   from + " is no number for " + to);
    };
    const fxElementKind& kind = *byName[joint.from.object.text]->said.kind;
    minding[fxFlowDetail::keyOf(joint)] =
        kind.findOutput(joint.from.channel.text)->type->watch(source, target, look);
}

bool fxFlow::Change::prepare() {
    joints = fxFlowDetail::restrained(text);
    for (const fxFlowText::Connection& each : network->joints)
        before.insert(fxFlowDetail::keyOf(each));
    for (const fxFlowText::Connection& each : joints) {
        after.insert(fxFlowDetail::keyOf(each));
        prepareJoint(each);
    }
    return isFine();
}

void fxFlow::Change::commit() {
    for (const fxFlowText::Connection& each : network->joints) {
        if (after.count(fxFlowDetail::keyOf(each)) == 0 || !stays(each)) network->cut(each);
    }
    for (const Join& each : joins) each.from->add(each.to);

    std::unordered_map<const Member*, std::unique_ptr<Member>> owned;
    Network::Members dropped;
    for (std::unique_ptr<Member>& each : fresh) owned[each.get()] = std::move(each);
    fresh.clear();
    for (std::unique_ptr<Member>& each : network->members) {
        if (kept.count(each.get()) != 0) {
            owned[each.get()] = std::move(each);
        } else {
            dropped.push_back(std::move(each));
        }
    }
    network->members.clear();
    for (const Member* const each : members) network->members.push_back(std::move(owned[each]));
    network->byName = std::move(byName);
    network->joints = std::move(joints);
    network->relays.swap(relays);  // the old ones are destroyed with the change
    for (auto& [key, connection] : minding) network->minding[key] = std::move(connection);
    network->said = std::move(text);
    network->retire(std::move(dropped));
    network->updateWatches();
}
