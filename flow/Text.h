// The text of a flow: its statements, and all problems in it.
#ifndef FLOW_TEXT_H
#define FLOW_TEXT_H

#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "flow/ValueType.h"

class fxElementKind;

/// The name of a file, held once for all places in it.
class fxFlowFile {
public:
    fxFlowFile() = default;  ///< Of no file.
    ///@{
    /// Implicit, so that places are written as {"errors.flow", 3, 1}.
    fxFlowFile(std::string name_) : held(std::make_shared<const std::string>(std::move(name_))) {}
    fxFlowFile(const char* name_) : fxFlowFile(std::string(name_)) {}
    ///@}

    /// View, as long as a copy exists; "" for no file.
    std::string_view name() const { return held != nullptr ? std::string_view(*held) : ""; }
    /// Whether both have the same name.
    bool operator==(const fxFlowFile& other) const { return name() == other.name(); }

private:
    std::shared_ptr<const std::string> held;
};

/// Where in the text of a flow something is. Lines and columns count from 1, columns in
/// bytes; 0 for what has no place, such as a setting of the command line.
struct fxFlowPlace {
    fxFlowFile file;          ///< As load() or parse() was given it.
    unsigned int line = 0;    ///< From 1.
    unsigned int column = 0;  ///< Of the first byte, from 1.
};

/// Something that is wrong with a flow, or deserves a warning.
struct FX_API fxFlowProblem {
    fxFlowPlace place;  ///< Where it is.
    std::string text;   ///< Without the place: "Lines has no output \"lin\"; it has: end, line".
    bool isWarning = false;  ///< Whether the flow works all the same.
    bool isOfCheck = false;  ///< Whether fxFlowText::check() found it.

    /// As compilers write it: "errors.flow:7:5: error: ..."; without a place only the rest.
    std::string line() const;
};

/// A flow as text: objects with their properties, connections, and tests.
/// docs/flow/grammar.md has the grammar.
///
///     log   = Lines file="/var/log/app.log" follow=yes
///     error = Match pattern="ERROR|FATAL"
///     log.line -> error.text (newest)
///
/// Reading and checking a text makes no object and opens nothing but the files that it
/// includes. All that is wrong is found, not only the first of it.
class FX_API fxFlowText {
public:
    /// What a statement names, with its place.
    struct Word {
        std::string text;   ///< Without quotes and backslashes.
        fxFlowPlace place;  ///< Of its first byte.
    };
    /// `PROPERTY=VALUE`
    struct Setting {
        Word name;   ///< Of the property.
        Word value;  ///< As text.
    };
    /// `NAME = CLASS {PROPERTY=VALUE}`
    struct Object {
        Word name;                            ///< By which connections refer to it.
        Word className;                       ///< Of the element.
        std::vector<Setting> settings;        ///< In the order of the text.
        const fxElementKind* kind = nullptr;  ///< Set by check(); null for an unknown class.

        bool operator==(const Object& other) const;  ///< Whether both say the same.
    };
    /// One end of a connection: `object.channel`.
    struct End {
        Word object;   ///< Its name.
        Word channel;  ///< The name of the output or input.
    };
    /// `END -> END (DELIVERY)`
    struct Connection {
        End from;                                          ///< An output.
        End to;                                            ///< An input.
        fxFlowDelivery delivery = fxFlowDelivery::queued;  ///< How values travel.

        bool operator==(const Connection& other) const;  ///< Whether both say the same.
    };
    /// One line of a test.
    struct Step {
        /// What it does.
        enum class Kind {
            send,        ///< `send END [VALUE] [COUNT times]`: from an output, or to an input
            pass,        ///< `pass SECONDS`: lets time pass
            expect,      ///< `expect END [VALUE]`: that is the next value, or any
            expectLast,  ///< `expect last END VALUE`: that is the last of all that came
            expectNo     ///< `expect no END`: there is none
        };
        Kind kind;                ///< Which of them.
        End end;                  ///< Of all but `pass`.
        bool hasValue = false;    ///< Whether there is a value.
        Word value;               ///< To send or expect, as text.
        unsigned long count = 1;  ///< How often to send.
        double seconds = 0;       ///< To pass.
        fxFlowPlace place;        ///< Of its first word.
    };
    /// `test "WHAT" { ... }`
    struct Test {
        Word name;                ///< What it shows.
        std::vector<Step> steps;  ///< In their order.
    };

    ///@{
    /// Reads a text, or the file at a path, with the files that it includes, relative to
    /// the one that includes them. `name` is what places call the text.
    static fxFlowText parse(std::string_view text, const std::string& name);
    static fxFlowText load(const std::string& path);
    ///@}
    /// Reads a text that may lead to no other file: "include" and "use" are problems.
    static fxFlowText parseAlone(std::string_view text, const std::string& name);

    /// Gives a property of an object another value, as `--set log.file=...` does. An object
    /// that there is none of is a problem.
    void set(const std::string& object, const std::string& property, const std::string& value);

    /// Looks up classes, names, types and converters, and warns of circles that only
    /// immediate connections make. Adds to `problems`, in place of what an earlier check
    /// found, and brings them into the order of the text. Plug-ins are to be loaded before. Returns
    /// whether there is no error.
    bool check();
    /// The connections, by index, that close a circle of immediate connections alone. A
    /// flow delivers these through the queue.
    std::vector<size_t> closingConnections() const;

    bool hasErrors() const;  ///< Whether a problem is more than a warning.
    /// The object of this name, or null. Cost: it is looked for from the first on.
    const Object* find(std::string_view object) const;
    /// The same flow in one text without includes and comments; reading it gives the same
    /// objects and connections. Tests are left out.
    std::string write() const;
    /// The flow as Graphviz dot text; deliveries other than "queued" and conversions are
    /// labels of edges. What check() does not know is left out.
    void writeDot(std::ostream& out) const;

    std::vector<Object> objects;          ///< In the order of the text.
    std::vector<Connection> connections;  ///< Likewise.
    std::vector<Test> tests;              ///< Likewise.
    std::vector<Word> plugins;            ///< Paths of shared objects, complete.
    std::vector<std::string> files;       ///< What was read, the flow itself first.
    std::vector<fxFlowProblem> problems;  ///< What reading and check() have found.
    std::vector<std::string> unread;      ///< Objects whose statements have a fault.
    bool isWhole = true;                  ///< Whether every file was read to its end.
};

/// A value as a flow writes it: bare where that is possible, in quotes otherwise.
FX_API std::string fxFlowQuoted(std::string_view value);

namespace fxFlowDetail {

/// What to say behind `X has no output "lin"`: the nearest name, or all that there are.
FX_API std::string suggestion(std::string_view wanted, const std::vector<std::string>& known);

/// The text for a terminal or a report: control characters, and bytes that are no character
/// of UTF-8, are written as \xHH.
FX_API std::string printable(std::string_view text);

}  // namespace fxFlowDetail

#endif
