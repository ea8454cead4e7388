#include "flow/run/Network.h"

#include <algorithm>

#include "flow/run/Watch.h"
#include "fxds/Converter.h"

// Objects that a flow drops may be active: a receiver further up the stack may have made
// the flow change. So they are destroyed later: those that a change drops with the next
// delivery of the queue, those of a flow that ends at once; and none before the last Acting
// is gone.

namespace {

struct Graveyard {
    unsigned int acting = 0;
    fxFlowDetail::Members buried;

    void empty() {
        while (acting == 0 && !buried.empty()) fxFlowDetail::Members().swap(buried);
    }
};

Graveyard& graveyard() {
    static Graveyard& only = *new Graveyard;  // elements may be destroyed after static variables
    return only;
}

}  // namespace

fxFlowDetail::Acting::Acting() { ++graveyard().acting; }

fxFlowDetail::Acting::~Acting() {
    --graveyard().acting;
    graveyard().empty();
}

void fxFlowDetail::bury(Members members) {
    Members& buried = graveyard().buried;
    for (std::unique_ptr<Member>& each : members) buried.push_back(std::move(each));
    graveyard().empty();
}

bool fxFlowDetail::complainOf(const fxObj& object, const char* what) {
    for (fxFlow::Network* const network : fxFlow::Network::all()) {
        if (network->memberOf(object) == nullptr) continue;
        network->complain(object, what);
        return true;
    }
    const Members& buried = graveyard().buried;
    return std::any_of(buried.begin(), buried.end(),
                       [&](const auto& each) { return each->object == &object; });
}

fxFlowDetail::Member::Member(fxFlowText::Object said_, const fxRef<fxObj>& object_)
    : said(std::move(said_)),
      object(object_.get()),
      asElement(dynamic_cast<fxElement*>(object)),
      life(object, [this] {
          if (atLoss) atLoss();
      }) {
    object->take();
}

fxFlowDetail::Member::~Member() {
    if (isThere()) object->release();
}

fxOutputChannel* fxFlowDetail::Member::output(const std::string& channel) const {
    const fxElementChannel* const described = said.kind->findOutput(channel);
    if (described == nullptr || !isThere()) return nullptr;
    return object->getOutput(channel.c_str(), described->typeNumber());
}

fxInputChannel* fxFlowDetail::Member::input(const std::string& channel) const {
    const fxElementChannel* const described = said.kind->findInput(channel);
    if (described == nullptr || !isThere()) return nullptr;
    fxInputChannel* const input = object->getInput(channel.c_str());
    return input != nullptr && input->getType() == described->typeNumber() ? input : nullptr;
}

std::string fxFlowDetail::keyOf(const fxFlowText::Connection& joint) {
    std::string key;
    for (const fxFlowText::Word* each :
         {&joint.from.object, &joint.from.channel, &joint.to.object, &joint.to.channel}) {
        (key += each->text) += '\0';
    }
    return key += fxFlowDeliveryName(joint.delivery);
}

bool fxFlowDetail::leadsTo(unsigned short from, unsigned short to) {
    return from == to || to == fxDT_void || fxConverter::converts(from, to);
}

fxFlowProblem fxFlowDetail::problemAt(const fxFlowPlace& place, std::string text) {
    fxFlowProblem problem;
    problem.place = place;
    problem.text = std::move(text);
    return problem;
}

std::vector<fxFlow::Network*>& fxFlow::Network::all() {
    static std::vector<Network*>& networks = *new std::vector<Network*>;
    return networks;
}

fxFlow::Network::Network(fxFlow& flow_, Purpose purpose_, fxFlowTime& time_)
    : flow(&flow_), purpose(purpose_), time(time_), retiring(fxDT_void), losing(fxDT_fxStr) {
    all().push_back(this);
    fxConnect(fxOutputView<void>(&retiring), flow, [this] {
        for (const std::unique_ptr<Member>& each : retired) leave(*each);
        fxFlowDetail::bury(std::exchange(retired, {}));
    });
    fxConnect(fxOutputView<fxStr>(&losing), flow,
              [this](const fxStr& what) { flow->complaint.send(what, fxSendNow); });
}

fxFlow::Network::~Network() {
    all().erase(std::remove(all().begin(), all().end(), this), all().end());
}

void fxFlow::Network::end() {
    flow = nullptr;
    while (!byObject.empty()) leave(*byObject.begin()->second);
    watches.clear();
    for (const fxFlowText::Connection& each : joints) cut(each);
    joints.clear();
    relays.clear();
    byName.clear();
    Members ending = std::exchange(members, {});
    for (std::unique_ptr<Member>& each : retired) ending.push_back(std::move(each));
    retired.clear();
    fxFlowDetail::bury(std::move(ending));
}

void fxFlow::Network::enter(Member& member) {
    byObject[member.object] = &member;
    member.atLoss = [this, &member] { lose(member); };
    if (fxElement* const element = member.element()) element->flow = flow;
}

void fxFlow::Network::leave(Member& member) {
    member.atLoss = nullptr;
    const auto found = byObject.find(member.object);
    if (found != byObject.end() && found->second == &member) byObject.erase(found);
    if (fxElement* const element = member.element()) element->flow = nullptr;
}

fxFlow::Network::Member* fxFlow::Network::find(std::string_view name) const {
    const auto found = byName.find(name);
    return found != byName.end() && found->second->isThere() ? found->second : nullptr;
}

fxFlow::Network::Member* fxFlow::Network::memberOf(const fxObj& object) const {
    const auto found = byObject.find(&object);
    return found != byObject.end() && found->second->isThere() ? found->second : nullptr;
}

fxOutputChannel* fxFlow::Network::sourceOf(const fxFlowText::Connection& joint) const {
    if (joint.delivery == fxFlowDelivery::now) {
        const Member* const from = find(joint.from.object.text);
        return from != nullptr ? from->output(joint.from.channel.text) : nullptr;
    }
    const auto relay =
        relays.find(RelayKey(joint.from.object.text, joint.from.channel.text, joint.delivery));
    return relay != relays.end() ? relay->second->getOutput("out") : nullptr;
}

void fxFlow::Network::cut(const fxFlowText::Connection& joint) {
    minding.erase(fxFlowDetail::keyOf(joint));
    const Member* const to = find(joint.to.object.text);
    fxInputChannel* const input = to != nullptr ? to->input(joint.to.channel.text) : nullptr;
    fxOutputChannel* const output = sourceOf(joint);
    if (input != nullptr && output != nullptr) output->remove(input);
}

void fxFlow::Network::complain(const fxObj& object, const std::string& text) const {
    if (flow == nullptr) return;
    const Member* const member = memberOf(object);
    if (member == nullptr) return;
    flow->complaint.send(member->name() + ": " + text, fxSendNow);
}

void fxFlow::Network::lose(const Member& member) {
    const auto found = byName.find(member.name());
    if (flow == nullptr || found == byName.end() || found->second != &member) return;
    fxOutputView<fxStr>(&losing).send(
        fxStr(member.name() + ": has been destroyed; the flow goes on without it"));
}

void fxFlow::Network::retire(Members dropped) {
    if (dropped.empty()) return;
    for (std::unique_ptr<Member>& each : dropped) retired.push_back(std::move(each));
    sendVoid(&retiring);
}

fxFlowText fxFlow::Network::givenText() const {
    fxFlowText text = said;
    text.tests.clear();
    text.problems.clear();
    const auto isGone = [this](const std::string& name) { return find(name) == nullptr; };
    text.objects.erase(std::remove_if(text.objects.begin(), text.objects.end(),
                                      [&](const auto& object) { return isGone(object.name.text); }),
                       text.objects.end());
    text.connections.erase(std::remove_if(text.connections.begin(), text.connections.end(),
                                          [&](const auto& each) {
                                              return isGone(each.from.object.text) ||
                                                     isGone(each.to.object.text);
                                          }),
                           text.connections.end());
    return text;
}

fxFlowText fxFlow::Network::textNow() const {
    fxFlowText text = givenText();
    for (fxFlowText::Object& object : text.objects) {
        for (const fxElementProperty& property : object.kind->properties) {
            const Member* const member = find(object.name.text);
            if (member == nullptr) break;
            std::string value;
            const std::string why = fxFlowDetail::outcomeOf([&] {
                value = property.get(*member->object);
                return property.whyNot(value);
            });
            if (!why.empty()) continue;
            const auto setting =
                std::find_if(object.settings.begin(), object.settings.end(),
                             [&](const auto& each) { return each.name.text == property.name; });
            if (setting != object.settings.end()) {
                setting->value.text = value;
            } else if (value != property.standard) {
                object.settings.push_back({{property.name, {}}, {value, {}}});
            }
        }
    }
    return text;
}
