// The socket by which other terminals look into a running flow.
#ifndef FXFLOW_DOOR_H
#define FXFLOW_DOOR_H

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "flow/Flow.h"
#include "fxds/Clock.h"
#include "fxds/Lines.h"
#include "fxds/Ref.h"
#include "fxds/SelectHandler.h"

class Door;

// Both sides send lines. A visitor requests:
//
//     tap OBJECT.CHANNEL    each value of this end from now on
//     tap                   of every output
//     top N                 the N outputs that sent the most since it last asked
//     show                  the text of the flow
//
// and receives
//
//     v MILLISECONDS OBJECT.CHANNEL VALUE    a value, as a flow writes it, and when
//     d N                                    N values are left out here: it reads slowly
//     r COUNT TOTAL OBJECT.CHANNEL VALUE     a row of top: since it last asked, in all, the last
//     t MILLISECONDS N M                     the end of a top: the time for which COUNTs count,
//                                            of N outputs of M objects
//     s LINE                                 a line of the text
//     .                                      its end
//     n TEXT                                 a note for the user
//     e TEXT                                 why there is no answer

/// A connection from another terminal.
class Visitor : public fxObj {
public:
    static constexpr size_t longestValue = 4096;  ///< Of values in bytes; the rest is cut.

    /// `fd` is adopted, `door` is borrowed.
    Visitor(int fd, Door& door);
    const char* className() const override { return "Visitor"; }

    /// Watches the same ends in a changed flow.
    void watchAgain();
    /// Sends the waiting lines, as far as that is possible at once.
    void leave();

private:
    struct Watched {
        bool isTapped = false;
        unsigned long total = 0;  // of its values
        unsigned long asked = 0;  // the total at the latest request of top
        std::string last;
    };
    typedef std::map<std::string, Watched> Ends;  // by "OBJECT.CHANNEL"
    class Context;

    void take(std::string_view request);
    void tap(const std::string& end);
    void top(unsigned long rows);
    void show();
    std::string add(const std::string& end, bool isTapped);
    std::string watch(Ends::value_type& end);
    void notice(Ends::value_type& end, const std::string& value);
    std::string shown(const std::string& end, const std::string& value) const;
    void sendDropped();

    Door& door;
    fxLineReader reader;
    fxLineWriter writer;
    Ends ends;
    bool isCounting = false;    // whether top was requested
    unsigned long dropped = 0;  // values since "d"
    fxAlarm::Time asked;        // the time of the latest request of top
    fxRef<fxObj> context;       // ends with the watching
};

/// Lets the user's own programs in, `mostVisitors` at once.
class Door : public fxSelectHandler {
public:
    static constexpr size_t mostVisitors = 16;

    /// `fd`, a socket that listens, is adopted; the flow is borrowed.
    Door(int fd, fxFlow& flow);
    const char* className() const override { return "Door"; }

    /// Sets the text of the flow. To be called when the flow has been made or changed.
    void setText(const fxFlowText& text);
    void drop(Visitor& visitor);  ///< Releases it.
    void closeAll();              ///< Closes all connections.

    fxFlow& getFlow() const { return flow; }
    /// All outputs of the flow, "OBJECT.CHANNEL", and whether values leave them.
    const std::map<std::string, bool>& getOutputs() const { return outputs; }
    size_t getObjectCount() const { return objectCount; }

    void handleRead() override;

private:
    fxFlow& flow;
    std::map<std::string, bool> outputs;
    size_t objectCount = 0;
    std::vector<fxRef<Visitor>> visitors;
};

#endif
