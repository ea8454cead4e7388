#include <algorithm>
#include <tuple>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "flow/Element.h"
#include "flow/Flow.h"
#include "flow/text/Circles.h"
#include "flow/text/Lexer.h"
#include "flow/text/Problems.h"
#include "fxds/detail/Suggestion.h"

// Everything is looked up in descriptions; no object is made. Names that a fault leaves
// unknown are not checked further: each fault is reported once.

namespace {

typedef fxFlowText::Word Word;

template <class Described>
std::vector<std::string_view> namesOf(const std::vector<Described>& all) {
    std::vector<std::string_view> names;
    names.reserve(all.size());
    for (const Described& each : all) names.emplace_back(each.name);
    return names;
}

// The path as a shell takes it.
std::string forShell(const std::string& path) {
    constexpr size_t most = 4096;  // the system opens no longer path
    if (fxFlowIsBare(path)) return path.substr(0, most);
    std::string quoted;
    for (const char c : path.substr(0, most)) quoted += c == '\'' ? "'\\''" : std::string(1, c);
    return fxFlowDetail::printable('\'' + quoted + '\'');
}

class Checking {
public:
    explicit Checking(fxFlowText& flow_)
        : flow(flow_),
          problems(flow_.problems, true),
          index(fxFlowIndexOf(flow_)),
          unread(flow_.unread.begin(), flow_.unread.end()) {}

    void check() {
        for (const Word& each : flow.plugins) checkPlugin(each);
        for (size_t i = 0; i < flow.objects.size(); ++i) checkObject(i);
        for (const auto& each : flow.connections) checkConnection(each);
        for (const fxFlowCircle& each : fxFlowCircles(flow, index)) {
            problems.add(flow.connections[each.connection].to.object.place,
                         each.way + " is a circle of immediate connections; this one is queued",
                         true);
        }
        for (const fxFlowText::Test& test : flow.tests) {
            for (const fxFlowText::Step& step : test.steps) checkStep(step);
        }
    }

private:
    enum class Way { output, input, either };

    void checkPlugin(const Word& plugin) {
        if (fxPluginIsLoaded(plugin.text)) return;
        problems.add(plugin.place,
                     "a check loads no plug-in but those of the command line; add --plugin " +
                         forShell(plugin.text));
        lacksPlugin = true;
    }

    void checkObject(size_t i) {
        fxFlowText::Object& object = flow.objects[i];
        const Word& name = object.name;
        const fxFlowText::Object& first = flow.objects[index[name.text]];
        if (&first != &object) {
            problems.add(name.place, fxFlowShown(name.text) + " is an object already, " +
                                         placeSeenFrom(first.name.place, name.place));
        }
        object.kind = fxElementKind::find(object.className.text);
        if (object.kind != nullptr) {
            checkSettings(object);
        } else if (!lacksPlugin) {
            tellMissing("there is no class", object.className, classNames(), "there are");
        }
    }

    void checkSettings(const fxFlowText::Object& object) {
        std::unordered_set<std::string_view> given;
        bool hasUnknown = false;  // one of which may be the missing name misspelt
        for (const fxFlowText::Setting& each : object.settings) {
            const std::string whole = fxFlowCut(object.name.text) + '.' + fxFlowCut(each.name.text);
            const fxElementProperty* const property = object.kind->findProperty(each.name.text);
            if (!given.insert(each.name.text).second) {
                problems.add(each.name.place, whole + " is given twice");
            } else if (property == nullptr) {
                hasUnknown = true;
                std::string what = each.name.place.line != 0 ? "" : whole + ": ";
                (what += object.kind->name) += " has no property";
                tellMissing(what, each.name, namesOf(object.kind->properties), "it has");
            } else if (const std::string why = property->whyNot(each.value.text); !why.empty()) {
                std::string what = whole + ": ";
                ((what += fxFlowShown(each.value.text)) += ' ') += fxFlowDetail::printable(why);
                problems.add(each.value.place, what);
            }
        }
        for (const fxElementProperty& each : object.kind->properties) {
            if (each.isRequired && !hasUnknown && given.count(each.name) == 0) {
                problems.add(object.className.place,
                             object.kind->name + " needs the property " + fxFlowShown(each.name));
            }
        }
    }

    void checkConnection(const fxFlowText::Connection& connection) {
        const fxElementChannel* const from = channel(connection.from, Way::output);
        const fxElementChannel* const to = channel(connection.to, Way::input);
        if (from == nullptr || to == nullptr) return;
        const auto whole = [](const fxFlowText::End& end) {
            return end.object.text + '.' + end.channel.text;
        };
        const std::string ends = whole(connection.from) + " -> " + whole(connection.to);
        const fxFlowPlace& place = connection.to.object.place;
        const auto [first, isNew] = connected.emplace(ends, &place);
        if (!isNew) {
            problems.add(place,
                         ends + " is connected already, " + placeSeenFrom(*first->second, place));
        }
        const std::string why = fxDetail::unlikeTypes(from->typeNumber(), to->typeNumber());
        if (!why.empty()) problems.add(place, ends + ": " + why);
    }

    void checkStep(const fxFlowText::Step& step) {
        if (step.kind == fxFlowText::Step::Kind::pass) return;
        const fxElementChannel* const end = channel(step.end, Way::either);
        if (end == nullptr || !step.hasValue || end->typeNumber() != fxDT_void) return;
        problems.add(step.value.place, step.end.object.text + '.' + end->name + " has no value");
    }

    // Null for an unknown one, which is reported if it is a fault by itself.
    const fxElementChannel* channel(const fxFlowText::End& end, Way way) {
        const auto found = index.find(end.object.text);
        if (found == index.end()) {
            if (flow.isWhole && unread.count(end.object.text) == 0) {
                tellMissing("there is no object", end.object, objectNames(), "there are");
            }
            return nullptr;
        }
        const fxElementKind* const kind = flow.objects[found->second].kind;
        if (kind == nullptr) return nullptr;
        const fxElementChannel* const output = kind->findOutput(end.channel.text);
        const fxElementChannel* const input = kind->findInput(end.channel.text);
        const fxElementChannel* const wanted =
            way == Way::input || (way == Way::either && output == nullptr) ? input : output;
        if (wanted != nullptr) return wanted;
        if (input != nullptr || output != nullptr) {
            problems.add(end.channel.place,
                         fxFlowShown(end.channel.text) +
                             (input != nullptr ? " is an input of " : " is an output of ") +
                             kind->name +
                             (input != nullptr ? ", not an output" : ", not an input"));
            return nullptr;
        }
        std::vector<std::string_view> names;
        if (way != Way::input) names = namesOf(kind->outputs);
        for (const fxElementChannel& each : kind->inputs) {
            if (way != Way::output) names.emplace_back(each.name);
        }
        const char* const what = way == Way::output  ? " has no output"
                                 : way == Way::input ? " has no input"
                                                     : " has no output or input";
        tellMissing(kind->name + what, end.channel, names, "it has");
        return nullptr;
    }

    // Suggests a name, as in `Lines has no output "lin"; did you mean "line"?`, while that
    // is not too much work: a thousand of ten thousand names would take minutes.
    void tellMissing(const std::string& what, const Word& wanted,
                     const std::vector<std::string_view>& known, const char* has) {
        const size_t work = wanted.text.size() * known.size();
        std::string text = what + ' ' + fxFlowShown(wanted.text);
        if (work <= workLeft) {
            text += fxDetail::suggestion(wanted.text, known, has, fxFlowProblems::mostNames);
            workLeft -= work;
        }
        problems.add(wanted.place, text);
    }

    static std::string placeSeenFrom(const fxFlowPlace& place, const fxFlowPlace& from) {
        const std::string text = "in line " + std::to_string(place.line);
        return place.file == from.file ? text : text + " of " + std::string(place.file.name());
    }

    const std::vector<std::string_view>& classNames() {
        if (classes.empty()) {
            for (const fxElementKind* each : fxElementKind::all()) classes.emplace_back(each->name);
        }
        return classes;
    }
    const std::vector<std::string_view>& objectNames() {
        if (objects.empty()) {
            for (const auto& each : flow.objects) objects.emplace_back(each.name.text);
            objects.insert(objects.end(), flow.unread.begin(), flow.unread.end());
        }
        return objects;
    }

    fxFlowText& flow;
    fxFlowProblems problems;
    fxFlowIndex index;
    const std::unordered_set<std::string_view> unread;
    std::unordered_map<std::string, const fxFlowPlace*> connected;  // where, by both ends
    std::vector<std::string_view> classes;                          // filled when needed
    std::vector<std::string_view> objects;                          // filled when needed
    size_t workLeft = 10'000'000;  // bytes of names to compare with
    bool lacksPlugin = false;
};

}  // namespace

bool fxFlowText::check() {
    problems.erase(std::remove_if(problems.begin(), problems.end(),
                                  [](const fxFlowProblem& each) { return each.isOfCheck; }),
                   problems.end());
    Checking(*this).check();
    // In the order of the text; problems without a place come first.
    std::unordered_map<std::string_view, size_t> order;
    for (const std::string& each : files) order.emplace(each, order.size() + 1);
    const auto key = [&order](const fxFlowProblem& each) {
        const auto file = order.find(each.place.file.name());
        return std::tuple(file != order.end() ? file->second : 0, each.place.line,
                          each.place.column);
    };
    std::stable_sort(problems.begin(), problems.end(),
                     [&](const auto& a, const auto& b) { return key(a) < key(b); });
    return !hasErrors();
}
