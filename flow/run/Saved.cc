#include <functional>

#include "flow/run/Network.h"
#include "fxds/Save.h"
#include "fxds/XdrEvolution.h"

// A saved flow is one object: the edition, the text as it was given, and the text with the
// present properties; and for each object its name, the state that its element transcribes,
// and the name again, which detects an element that reads more or less than it has written.
// The elements are no objects of the graph: the second text makes them beside those of the
// flow, and then they read their state. The text of the change, and of later ones, is
// compared with the first text.

namespace {

// The root of the graph. It runs the Content of the save() or load() under way, once: a
// stream may contain others.
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

// For a scope: the work of the next root.
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

std::vector<fxFlowDetail::Member*> existing(const fxFlowDetail::Members& all) {
    std::vector<fxFlowDetail::Member*> members;
    for (const auto& each : all) {
        if (each->isThere()) members.push_back(each.get());
    }
    return members;
}

// The states of elements. Their code runs here and may do anything: the flow may drop all
// members, but they exist as long as the flow is under Acting.
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
    const std::shared_ptr<Network> hold = network;       // elements may destroy the flow
    const Change nothing(hold, {}, Change::Keep::same);  // no other change may begin meanwhile
    if (!nothing.problems.empty()) {
        return faultOf(fxStreamFault::unwritable, path, firstError(nothing.problems));
    }
    const std::vector<fxFlowDetail::Member*> members = existing(hold->members);
    fxFlowText given = hold->givenText();
    fxFlowText now = hold->textNow();
    now.plugins.clear();
    given.plugins.clear();
    std::string text = now.write();
    std::string givenText = given.write();
    const Content content(
        [&](fxTranscriber& t) { return fxXdrAll(t, givenText, text) && xdrStates(t, members); });
    const fxRef<fxSavedFlow> root = new fxSavedFlow;
    return fxSave(path, root);
}

fxStreamFault fxFlow::Change::load(const std::shared_ptr<Network>& network, const std::string& path,
                                   const fxFlowText* text, std::vector<fxFlowProblem>& told) {
    std::unique_ptr<Change> change;
    bool isFlow = false;
    const auto begin = [&](fxFlowText of) {
        change = std::make_unique<Change>(network, std::move(of), Keep::nothing);
        return change->check();
    };
    const auto tell = [&] {
        told.insert(told.end(), change->problems.begin(), change->problems.end());
        return fxStreamFault();
    };
    if (text != nullptr && !begin(*text)) return tell();
    const Content content([&](fxTranscriber& t) {
        std::string texts[2];
        if (!t.isReading() || !fxXdrAll(t, texts[0], texts[1])) return false;
        fxFlowText given = fxFlowText::parseAlone(texts[0], "saved flow");
        fxFlowText saved = fxFlowText::parseAlone(texts[1], "saved flow");
        given.check();
        saved.check();
        isFlow = true;
        if ((change != nullptr || begin(given)) && change->recall(saved, given)) {
            return xdrStates(t, existing(change->recalled));
        }
        return t.refuse(firstError(change->problems).c_str());
    });
    const fxLoaded<fxSavedFlow> loaded = fxLoad<fxSavedFlow>(path);
    if (loaded.fault()) return loaded.fault();
    if (!isFlow) return faultOf(fxStreamFault::foreign, path, "");
    if (change->make() && change->start() && change->prepare()) change->commit();
    return tell();
}

fxStreamFault fxFlow::load(const std::string& path) {
    const fxFlowDetail::Acting under;
    std::vector<fxFlowProblem> problems;
    fxStreamFault fault = Change::load(network, path, nullptr, problems);
    const std::string error = firstError(problems);
    return fault || error.empty() ? fault : faultOf(fxStreamFault::refused, path, error);
}

fxStreamFault fxFlow::load(const std::string& path, const fxFlowText& text,
                           std::vector<fxFlowProblem>& problems) {
    const fxFlowDetail::Acting under;
    return Change::load(network, path, &text, problems);
}
