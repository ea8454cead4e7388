#include <functional>

#include "flow/run/Network.h"
#include "fxds/Save.h"
#include "fxds/XdrEvolution.h"

// A saved flow is one object: the edition, the text as it was given and the text with the
// properties as they are, and for each object its name, what its element transcribes, and the
// name again, which shows an element that took more or less than it had written. The objects
// are no objects of the graph: the second text makes them beside those of the flow, and then
// they read their part. The first text is what the next change of the flow compares with.

namespace {

// The root of the graph. It does what the save() or load() under way gives it to do, once: a
// stream may hold others.
class fxSavedFlow : public fxXDRObj {
    FX_TRANSCRIBABLE(fxSavedFlow)

    typedef std::function<bool(fxTranscriber&)> Content;
    inline static const Content* content = nullptr;  // borrowed
};

FX_TRANSCRIBABLE_TYPE(fxSavedFlow, "fxFlow", 1);

fxBool fxSavedFlow::xdr(fxTranscriber& t) {
    const Content* const mine = std::exchange(content, nullptr);
    if (mine == nullptr) return t.refuse("a flow is loaded by a flow");
    int edition = 1;
    return fxXdrEdition(t, this, edition) && (*mine)(t);
}

// For a scope: what the next root does.
class Content {
public:
    explicit Content(fxSavedFlow::Content does) : content(std::move(does)) {
        fxSavedFlow::content = &content;
    }
    Content(const Content&) = delete;
    Content& operator=(const Content&) = delete;
    ~Content() { fxSavedFlow::content = nullptr; }

private:
    const fxSavedFlow::Content content;
};

bool refuse(fxTranscriber& t, const std::string& name, const std::string& why) {
    return t.refuse((name + ": " + why).c_str());
}

bool xdrName(fxTranscriber& t, const fxFlowDetail::Member& member) {
    std::string name = member.name();
    if (!fxXdr(t, name)) return false;
    return name == member.name() || refuse(t, member.name(), "has other state than it saves");
}

// The states of elements, whose code runs here and may do anything.
bool xdrStates(fxTranscriber& t, const std::vector<fxFlowDetail::Member*>& members) {
    for (const fxFlowDetail::Member* const each : members) {
        bool isDone = false;
        const std::string why = fxFlowDetail::outcomeOf([&] {
            isDone = xdrName(t, *each) &&
                     (each->element() == nullptr || each->element()->xdrState(t)) &&
                     xdrName(t, *each);
            return "";
        });
        if (!why.empty()) return refuse(t, each->name(), why);
        if (!isDone) return false;
        if (!each->isThere()) return refuse(t, each->name(), "it has ended itself");
    }
    return true;
}

fxStreamFault faultOf(fxStreamFault::Kind kind, const std::string& path, std::string reason) {
    fxStreamFault fault;
    fault.kind = kind;
    fault.path = path;
    fault.reason = std::move(reason);
    return fault;
}

std::string firstError(const std::vector<fxFlowProblem>& problems) {
    for (const fxFlowProblem& each : problems) {
        if (!each.isWarning) return each.line();
    }
    return "";
}

}  // namespace

fxStreamFault fxFlow::save(const std::string& path) {
    const fxFlowDetail::Acting under;
    const std::shared_ptr<Network> hold = network;       // elements may end the flow
    const Change nothing(hold, {}, Change::Keep::same);  // and may not change it meanwhile
    if (!nothing.problems.empty()) {
        return faultOf(fxStreamFault::unwritable, path, firstError(nothing.problems));
    }
    fxFlowText now = hold->textNow();
    fxFlowText given = hold->said;
    now.plugins.clear();
    given.plugins.clear();
    std::string text = now.write();
    std::string givenText = given.write();
    std::vector<fxFlowDetail::Member*> members;
    for (const auto& each : hold->members) members.push_back(each.get());
    const Content content(
        [&](fxTranscriber& t) { return fxXdrAll(t, givenText, text) && xdrStates(t, members); });
    const fxRef<fxSavedFlow> root = new fxSavedFlow;
    return fxSave(path, root);
}

fxStreamFault fxFlow::load(const std::string& path) {
    const fxFlowDetail::Acting under;
    const std::shared_ptr<Network> hold = network;  // elements may end the flow
    std::unique_ptr<Change> change;
    const Content content([&](fxTranscriber& t) {
        std::string given;
        std::string text;
        if (!t.isReading() || !fxXdrAll(t, given, text)) return false;
        change = std::make_unique<Change>(hold, fxFlowText::parseAlone(text, "saved flow"),
                                          Change::Keep::nothing);
        if (change->check() && change->make() &&
            change->give(fxFlowText::parseAlone(given, "saved flow"))) {
            return xdrStates(t, change->all());
        }
        return t.refuse(firstError(change->problems).c_str());
    });
    const fxLoaded<fxSavedFlow> loaded = fxLoad<fxSavedFlow>(path);
    if (loaded.fault()) return loaded.fault();
    if (change == nullptr) return faultOf(fxStreamFault::foreign, path, "");
    if (!change->start() || !change->prepare()) {
        return faultOf(fxStreamFault::refused, path, firstError(change->problems));
    }
    change->commit();
    return {};
}
