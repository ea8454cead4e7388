// The state of a running flow. For the sources of this folder only.
#ifndef FLOW_RUN_NETWORK_H
#define FLOW_RUN_NETWORK_H

#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "flow/Flow.h"

/// Not exported with the enclosing class.
#define FX_LOCAL __attribute__((visibility("hidden")))

namespace fxFlowDetail {

// Whether an object (borrowed) exists, however it ends.
class LifeSign {
public:
    explicit LifeSign(
        fxObj* object, std::function<void()> atEnd = [] {})
        : output(fxDT_void) {
        // The last copy of the receiver goes when the object begins to end.
        const std::shared_ptr<void> ending(nullptr, [atEnd = std::move(atEnd)](void*) { atEnd(); });
        fxConnect(fxOutputView<void>(&output), object, [ending] {});
    }
    bool isThere() const { return output.getNumberOfConnections() != 0; }

private:
    fxOutputChannel output;  // connected to the object until that begins to end
};

// An object of a flow, which holds it, unless it has been destroyed nevertheless.
class Member {
public:
    Member(fxFlowText::Object said_, const fxRef<fxObj>& object_);
    Member(const Member&) = delete;
    Member& operator=(const Member&) = delete;
    ~Member();

    bool isThere() const { return life.isThere(); }
    const std::string& name() const { return said.name.text; }
    fxElement* element() const { return isThere() ? asElement : nullptr; }

    ///@{
    // The channel, if the object exists and has one of the described type.
    fxOutputChannel* output(const std::string& channel) const;
    fxInputChannel* input(const std::string& channel) const;
    ///@}

    fxFlowText::Object said;       // its description in the text; the kind is not null
    fxObj* const object;           // dangles once it is destroyed
    std::function<void()> atLoss;  // called when it is destroyed; null outside of a flow

private:
    fxElement* const asElement;
    const LifeSign life;
};

typedef std::vector<std::unique_ptr<Member>> Members;

// Keeps the members until none of them can be active any more: see Acting.
void bury(Members members);

// The result of the call, or its exception as text.
template <class Call>
std::string outcomeOf(Call call) {
    try {
        return call();
    } catch (const std::exception& thrown) {
        return *thrown.what() != '\0' ? thrown.what() : "an exception without a text";
    } catch (...) {
        return "an exception of an unknown kind";
    }
}

// While a plug-in is loaded: its descriptions, which are taken back unless they are kept.
class Describing {
public:
    Describing() : previous(std::exchange(current, this)) {}
    Describing(const Describing&) = delete;
    Describing& operator=(const Describing&) = delete;
    ~Describing();

    std::string fault;  // of the first faulty description; "" for none
    std::vector<std::pair<std::string, const fxElementKind*>> entered;  // may dangle
    bool isKept = false;

    static Describing* current;  // the innermost, or null

private:
    Describing* const previous;
};

// A problem at a place.
fxFlowProblem problemAt(const fxFlowPlace& place, std::string text);

// The connections of a text. Those that make endless or very deep immediate sends are
// queued.
std::vector<fxFlowText::Connection> restrained(const fxFlowText& text);

// A key that differs between different connections.
std::string keyOf(const fxFlowText::Connection& joint);

// Whether a connection of the two types is possible.
bool leadsTo(unsigned short from, unsigned short to);

}  // namespace fxFlowDetail

// Invariants, outside of Change::commit():
// (1) `members` has a member for each object of `said`, in its order; byName has the same.
// (2) Each connection of `joints` is made if both ends exist: directly if it is "now", else
//     from the relay for its output and delivery, which the output leads to.
// (3) A relay is in `relays` exactly while a connection of `joints` needs it.
// (4) `minding` has a connection for each of `joints` that makes numbers of texts.
// (5) byObject has the members, those that a change under way has made, and the retired.
// (6) isChanging is set while a change is under way. Others are refused then.
class FX_LOCAL fxFlow::Network {
public:
    typedef fxFlowDetail::Member Member;
    typedef fxFlowDetail::Members Members;
    typedef std::tuple<std::string, std::string, fxFlowDelivery> RelayKey;  // object, channel
    struct Watch;

    Network(fxFlow& flow_, Purpose purpose_, fxFlowTime& time_);
    Network(const Network&) = delete;
    Network& operator=(const Network&) = delete;
    ~Network();

    void end();  // of the flow

    Member* find(std::string_view name) const;    // one whose object exists; or null
    Member* memberOf(const fxObj& object) const;  // the same, by byObject
    // The source of the values of the connection: an output or a relay's; or null.
    fxOutputChannel* sourceOf(const fxFlowText::Connection& joint) const;
    void cut(const fxFlowText::Connection& joint);
    void complain(const fxObj& object, const std::string& text) const;
    fxFlowText givenText() const;  // of the objects that exist
    // With the present properties. One whose value the property would not take stays as
    // given: the text can be read.
    fxFlowText textNow() const;

    ///@{
    // Add the member's object to the flow, and remove it.
    void enter(Member& member);
    void leave(Member& member);
    ///@}
    // Reports, with the next delivery of the queue, that a member's object has been
    // destroyed although the flow has not dropped it.
    void lose(const Member& member);
    // Takes members out of the flow; they are destroyed with the next delivery of the
    // queue.
    void retire(Members dropped);

    std::string watch(const std::string& object, const std::string& channel, fxObj* context,
                      fxFlowType::Watcher watcher);
    void updateWatches();
    std::string send(const std::string& object, const std::string& channel,
                     const std::string& value);

    fxFlow* flow;  // null when it has ended
    const Purpose purpose;
    fxFlowTime& time;
    bool isChanging = false;

    fxFlowText said;
    Members members;
    std::vector<fxFlowText::Connection> joints;
    std::map<RelayKey, fxRef<fxObj>> relays;
    std::map<std::string, fxScopedConnection> minding;  // by keyOf(); see Change::mind()
    std::unordered_map<std::string_view, Member*> byName;
    std::unordered_map<const fxObj*, Member*> byObject;
    Members retired;
    std::vector<std::unique_ptr<Watch>> watches;
    size_t watchesToSweep = 16;  // at this number, those without a context are removed

    static std::vector<Network*>& all();

private:
    fxOutputChannel retiring;  // leads to the destruction of the retired
    fxOutputChannel losing;    // leads to the complaints of lose()
};

// A change of a network: everything new is made beside the old state, and then replaces it.
class FX_LOCAL fxFlow::Change {
public:
    typedef fxFlowDetail::Member Member;

    // Whether members that are described as before are kept.
    enum class Keep { same, nothing };

    Change(std::shared_ptr<Network> network_, fxFlowText text_, Keep keep_);
    Change(const Change&) = delete;
    Change& operator=(const Change&) = delete;
    ~Change();

    // Makes the network that of the text, or without one that of the saved text, with the
    // saved state at the path. Adds the problems of the text to `told`.
    static fxStreamFault load(const std::shared_ptr<Network>& network, const std::string& path,
                              const fxFlowText* text, std::vector<fxFlowProblem>& told);

    ///@{
    // The steps, in this order; each returns whether there is no error.
    bool check();
    // Only for load(): makes the objects of a saved flow, with their last settings. make()
    // takes over those that the text describes as the text given to the saved flow did.
    bool recall(const fxFlowText& saved, const fxFlowText& given);
    bool make();
    bool start();
    bool prepare();
    ///@}
    void commit();

    std::vector<fxFlowProblem> problems;  // all problems

private:
    struct Join {
        fxOutputChannel* from;
        fxInputChannel* to;
    };

    bool isFine();
    Member* add(const fxFlowText::Object& object, Network::Members& to);
    void setUp(const Member& member);
    void prepareJoint(const fxFlowText::Connection& joint);
    // Complains of texts that a connection converts to numbers and that do not begin with
    // one.
    void mind(const fxFlowText::Connection& joint, fxOutputChannel* source, unsigned short type);
    // Runs code of the member's; its exception or result is a problem.
    template <class Call>
    void attempt(const Member& member, const fxFlowPlace& place, Call call);
    bool stays(const fxFlowText::Connection& joint) const;

    const std::shared_ptr<Network> network;
    fxFlowText text;
    const Keep keep;
    bool began = false;            // isChanging was set by this one
    std::vector<Member*> members;  // kept and made; those of the text
    Network::Members fresh;        // made, and not committed
    Network::Members recalled;     // null for those that make() has taken over
    std::unordered_set<const Member*> kept;
    std::unordered_map<std::string_view, Member*> byName;
    std::vector<fxFlowText::Connection> joints;
    std::unordered_set<std::string> before, after;  // the connections so far, and those to be
    std::map<Network::RelayKey, fxRef<fxObj>> relays;
    std::map<std::string, fxScopedConnection> minding;
    std::vector<Join> joins;  // to be made
};

#endif
