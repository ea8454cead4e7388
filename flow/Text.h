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

/// The name of a file, stored once for all places in it.
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

/// A place in the text of a flow. Lines and columns count from 1, columns in bytes; 0 means
/// no place, as for a setting of the command line.
struct fxFlowPlace {
    fxFlowFile file;          ///< As load() or parse() was given it.
    unsigned int line = 0;    ///< From 1.
    unsigned int column = 0;  ///< Of the first byte, from 1.
};

/// An error in a flow, or a warning.
struct FX_API fxFlowProblem {
    fxFlowPlace place;  ///< Its place.
    std::string text;   ///< Without the place: "Lines has no output \"lin\"; it has: end, line".
    bool isWarning = false;  ///< Whether the flow works all the same.
    bool isOfCheck = false;  ///< Whether fxFlowText::check() found it.

    /// In the form of compilers: "errors.flow:7:5: error: ..."; without a place only the
    /// rest.
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
/// includes. All problems are found, not only the first.
class FX_API fxFlowText {
public:
    /// A word of a statement, with its place.
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

        bool operator==(const Object& other) const;  ///< Whether both are the same.
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
        fxFlowDelivery delivery = fxFlowDelivery::queued;  ///< How values are delivered.

        bool operator==(const Connection& other) const;  ///< Whether both are the same.
    };
    /// One line of a test.
    struct Step {
        /// The kinds of steps.
        enum class Kind {
            send,        ///< `send END [VALUE] [COUNT times]`: from an output, or to an input
            pass,        ///< `pass SECONDS`: lets time pass
            expect,      ///< `expect END [VALUE]`: the next value is this one, or any
            expectLast,  ///< `expect last END VALUE`: the last of all values is this one
            expectNo     ///< `expect no END`: there is no value
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
        Word name;                ///< Its title.
        std::vector<Step> steps;  ///< In their order.
    };

    ///@{
    /// Reads a text, or the file at a path, with the files that it includes, relative to
    /// the one that includes them. `name` is the name of the text in places.
    static fxFlowText parse(std::string_view text, const std::string& name);
    static fxFlowText load(const std::string& path);
    ///@}
    /// Reads a text that may not refer to other files: "include" and "use" are problems.
    static fxFlowText parseAlone(std::string_view text, const std::string& name);

    /// Gives a property of an object another value, as `--set log.file=...` does. An
    /// unknown object is a problem.
    void set(const std::string& object, const std::string& property, const std::string& value);

    /// Looks up classes, names, types and converters, and warns of circles that only
    /// immediate connections make. Replaces the problems of an earlier check in `problems`,
    /// and sorts them in the order of the text. Plug-ins must have been loaded. Returns
    /// whether there is no error.
    bool check();
    /// The connections, by index, that close a circle of immediate connections alone. A
    /// flow delivers these through the queue.
    std::vector<size_t> closingConnections() const;

    bool hasErrors() const;  ///< Whether a problem is an error.
    /// The object of this name, or null. Cost: a search from the first one.
    const Object* find(std::string_view object) const;
    /// The same flow in one text without includes and comments; reading it gives the same
    /// objects and connections. Tests are left out.
    std::string write() const;
    /// The flow as Graphviz dot text; deliveries other than "queued" and conversions are
    /// labels of edges. Parts unknown to check() are left out.
    void writeDot(std::ostream& out) const;

    std::vector<Object> objects;          ///< In the order of the text.
    std::vector<Connection> connections;  ///< Likewise.
    std::vector<Test> tests;              ///< Likewise.
    std::vector<Word> plugins;            ///< Paths of shared objects, complete.
    std::vector<std::string> files;       ///< The files read, the flow itself first.
    std::vector<fxFlowProblem> problems;  ///< Found by reading and by check().
    std::vector<std::string> unread;      ///< Objects whose statements have a fault.
    bool isWhole = true;                  ///< Whether every file was read to its end.
};

/// A value in the notation of flows: bare if possible, otherwise in quotes.
FX_API std::string fxFlowQuoted(std::string_view value);

namespace fxFlowDetail {

/// Continues `X has no output "lin"`: the nearest name, or all names.
FX_API std::string suggestion(std::string_view wanted, const std::vector<std::string>& known);

/// The text for a terminal or a report: control characters, and bytes that are no character
/// of UTF-8, are written as \xHH.
FX_API std::string printable(std::string_view text);

}  // namespace fxFlowDetail

#endif
