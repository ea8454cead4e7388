// A running flow: objects and connections made from a text, and changed with it.
#ifndef FLOW_FLOW_H
#define FLOW_FLOW_H

#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "flow/Element.h"
#include "flow/Text.h"
#include "flow/Time.h"
#include "fxds/Obj.h"
#include "fxds/StreamFault.h"

/// A network of elements that a text describes.
///
///     fxFlowText text = fxFlowText::load("errors.flow");
///     fxFlow flow;
///     for (const fxFlowProblem& problem : flow.apply(text)) print(problem.line());
///     fx_theExecutive->run();
///
/// Objects may be dropped, and the flow may be destroyed, while described inputs and alarms of
/// the flow's time run: what is dropped then ends afterwards. The flow holds its objects; one
/// that ends all the same is not used any more.
///
/// Needs fxInitializeToolkit(). A flow belongs to the loop's thread.
class FX_API fxFlow : public fxObj {
public:
    /// What a flow is made for.
    enum class Purpose {
        running,  ///< All elements start.
        testing   ///< Those that reach outside the flow do not: a test sends in their place.
    };

    /// `time` is borrowed.
    explicit fxFlow(Purpose purpose = Purpose::running, fxFlowTime& time = fxFlowTime::steady());
    fxFlow(const fxFlow&) = delete;
    fxFlow& operator=(const fxFlow&) = delete;
    ~fxFlow() override;

    const char* className() const override;

    /// Makes the flow that of the text, from nothing or from what it was: objects of which
    /// the text says the same keep their state and their connections, others are made and
    /// dropped. Plug-ins that the text names are loaded. Returns what is wrong; when that is
    /// an error nothing has changed.
    std::vector<fxFlowProblem> apply(fxFlowText text);

    /// Whether a value may still come of itself: an element is busy. What is queued does not
    /// count.
    bool isBusy() const;

    fxObj* find(std::string_view name) const;       ///< The object of this name, or null.
    std::string nameOf(const fxObj& object) const;  ///< "" for an object of others.
    fxFlowTime& time() const;                       ///< As it was given.

    /// The flow as it is now, with the properties as they are; see fxFlowText::write().
    std::string write() const;
    /// The flow as it is now as Graphviz dot text; see fxFlowText::writeDot().
    void writeDot(std::ostream& out) const;

    ///@{
    /// Saves the flow with what its elements remember in the file at `path`, and makes this
    /// flow the saved one, all of whose objects are new; apply() of the text that the saved one
    /// had keeps them. Loading changes nothing when it fails. Plug-ins that the flow needs must
    /// have been loaded: a saved flow loads none. What is queued is not saved. Neither is
    /// possible while the flow is changed. A saved flow, like a text, says which files are
    /// written and which commands run: load only what is trusted.
    [[nodiscard]] fxStreamFault save(const std::string& path);
    [[nodiscard]] fxStreamFault load(const std::string& path);
    ///@}
    /// Loads the saved flow, and makes it that of the text as apply() does, before anything
    /// starts: of the saved objects only those start of which the text says the same. Plug-ins
    /// that the text names are loaded. Adds what is wrong with the text to `problems`; when that
    /// is an error, or the flow cannot be loaded, nothing has changed.
    [[nodiscard]] fxStreamFault load(const std::string& path, fxFlowText text,
                                     std::vector<fxFlowProblem>& problems);

    /// Calls the watcher with each value, as text, that leaves an output, or that an output
    /// sends to an input; until the flow ends, a text has no such end, or `context` (borrowed)
    /// begins to end. Of an output and an input of one name, the output. Returns why not,
    /// or "".
    std::string watch(const std::string& object, const std::string& channel, fxObj* context,
                      fxFlowType::Watcher watcher);
    /// Sends a value to an input, or from an output where there is no such input; at once.
    /// Returns why not, or "".
    std::string send(const std::string& object, const std::string& channel,
                     const std::string& value);

    /// "alarm: cannot write: No space left on device": what elements complain of.
    const fxOutput<fxStr> complaint = addOutput<fxStr>("complaint");

private:
    friend class fxElement;
    friend bool fxFlowDetail::complainOf(const fxObj& object, const char* what);
    class Change;
    class Network;

    const std::shared_ptr<Network> network;  // held by what changes it
};

/// Loads the elements of a shared object, once. Returns why not, or "". It stays loaded. One
/// that describes an element of a name that there is already is refused.
FX_API std::string fxLoadPlugin(const std::string& path);
/// Whether fxLoadPlugin() has loaded the file at the path.
FX_API bool fxPluginIsLoaded(const std::string& path);

#endif
