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
/// Objects may be dropped, and the flow may be destroyed, while described inputs and alarms
/// of the flow's time run: dropped objects are destroyed afterwards. The flow holds its
/// objects; the destruction of one nevertheless is a complaint, and the flow goes on without
/// it until apply() makes it anew.
///
/// Needs fxInitializeToolkit(). A flow belongs to the loop's thread.
class FX_API fxFlow : public fxObj {
public:
    /// The purpose of a flow.
    enum class Purpose {
        running,  ///< All elements start.
        testing   ///< Elements that reach outside do not start: a test sends in their place.
    };

    /// `time` is borrowed.
    explicit fxFlow(Purpose purpose = Purpose::running, fxFlowTime& time = fxFlowTime::steady());
    fxFlow(const fxFlow&) = delete;
    fxFlow& operator=(const fxFlow&) = delete;
    ~fxFlow() override;

    const char* className() const override;

    /// Makes this the flow of the text, from nothing or from its present state: objects
    /// that the text describes as before keep their state and their connections, others are
    /// made and dropped. Plug-ins that the text names are loaded. Returns the problems; if
    /// one is an error, nothing has changed.
    std::vector<fxFlowProblem> apply(fxFlowText text);

    /// Whether a value may come without an outside call: an element is busy. Queued values
    /// do not count.
    bool isBusy() const;

    fxObj* find(std::string_view name) const;       ///< The object of this name, or null.
    std::string nameOf(const fxObj& object) const;  ///< "" for an object of others.
    fxFlowTime& time() const;                       ///< As it was given.

    /// The flow as it is now, with the properties as they are; see fxFlowText::write(). A
    /// property whose value no text could give it is written as it was given.
    std::string write() const;
    /// The flow as it is now as Graphviz dot text; see fxFlowText::writeDot().
    void writeDot(std::ostream& out) const;

    ///@{
    /// Saves the flow, with the state of its elements, in the file at `path`; makes this
    /// flow the saved one, all of whose objects are new. apply() of the text that the saved
    /// one had keeps them. Loading changes nothing when it fails. Plug-ins that the flow
    /// needs must have been loaded: a saved flow loads none. Queued values are not saved.
    /// Neither is possible while the flow is changed. A saved flow, like a text, names the
    /// files to write and the commands to run: load only trusted ones.
    [[nodiscard]] fxStreamFault save(const std::string& path);
    [[nodiscard]] fxStreamFault load(const std::string& path);
    ///@}
    /// Loads the saved flow, and makes it that of the text as apply() does, before anything
    /// starts: of the saved objects only those start that the text describes as before.
    /// Plug-ins that the text names are loaded. Adds the problems of the text to `problems`;
    /// if one is an error, or the flow cannot be loaded, nothing has changed.
    [[nodiscard]] fxStreamFault load(const std::string& path, const fxFlowText& text,
                                     std::vector<fxFlowProblem>& problems);

    /// Calls the watcher with each value, as text, that leaves an output, or that an output
    /// sends to an input; until the flow ends, a text has no such end, or `context`
    /// (borrowed) begins to end. If an output and an input have one name, the output is
    /// watched. Returns the reason why not, or "".
    std::string watch(const std::string& object, const std::string& channel, fxObj* context,
                      fxFlowType::Watcher watcher);
    /// Sends a value to an input, or from an output if there is no such input; at once.
    /// Returns the reason why not, or "".
    std::string send(const std::string& object, const std::string& channel,
                     const std::string& value);

    /// Complaints of elements: "alarm: cannot write: No space left on device".
    const fxOutput<fxStr> complaint = addOutput<fxStr>("complaint");

private:
    friend class fxElement;
    friend bool fxFlowDetail::complainOf(const fxObj& object, const char* what);
    class Change;
    class Network;

    const std::shared_ptr<Network> network;  // held by changes under way
};

/// Loads the elements of a shared object, once. Returns the reason why not, or "". It stays
/// loaded as it is: another file that takes its place later is not loaded. One with a faulty
/// description, or that describes an element of an existing name, is refused as a whole. Its
/// static variables are initialised in this process: an exception there ends the program.
FX_API std::string fxLoadPlugin(const std::string& path);
/// Whether fxLoadPlugin() has loaded the file at the path.
FX_API bool fxPluginIsLoaded(const std::string& path);

#endif
