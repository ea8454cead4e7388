#include "Catalogue.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "Options.h"
#include "flow/Element.h"
#include "flow/Text.h"

namespace {

// Rows of columns, of which all but the last are as wide as their widest text.
typedef std::vector<std::vector<std::string>> Rows;

void print(const Rows& rows, const char* indent) {
    std::vector<size_t> widths;
    for (const auto& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
    }
    for (const auto& row : rows) {
        std::string line = indent;
        for (size_t i = 0; i < row.size(); ++i) {
            line += row[i];
            if (i + 1 < row.size()) line.append(widths[i] - row[i].size() + 2, ' ');
        }
        line.erase(line.find_last_not_of(' ') + 1);
        std::printf("%s\n", line.c_str());
    }
}

void add(std::string& list, const std::string& fact) { list += (list.empty() ? "" : ", ") + fact; }

std::string rangeOf(const fxElementProperty& property) {
    const bool hasLowest = std::isfinite(property.lowest);
    const bool hasHighest = std::isfinite(property.highest);
    const std::string lowest = fxFlowDetail::textOf(property.lowest);
    const std::string highest = fxFlowDetail::textOf(property.highest);
    if (hasLowest && hasHighest) return lowest + " to " + highest;
    if (hasLowest) return "at least " + lowest;
    return hasHighest ? "at most " + highest : "";
}

// "in s, at least 0, usually 60"
std::string factsOf(const fxElementProperty& property) {
    std::string facts;
    if (!property.unitName.empty()) add(facts, "in " + property.unitName);
    if (const std::string range = rangeOf(property); !range.empty()) add(facts, range);
    std::string choices;
    for (const std::string& choice : property.choices) {
        choices += (choices.empty() ? "" : "|") + fxFlowQuoted(choice);
    }
    if (!choices.empty()) add(facts, choices);
    add(facts, property.isRequired ? "required" : "usually " + fxFlowQuoted(property.standard));
    return facts;
}

void describe(const fxElementKind& kind) {
    std::printf("%s: %s\n", kind.name.c_str(), kind.sentence.c_str());
    Rows rows;
    for (const fxElementProperty& property : kind.properties) {
        rows.push_back(
            {property.name, property.type, property.sentence + " (" + factsOf(property) + ")"});
    }
    if (!rows.empty()) std::printf("\nproperties\n");
    print(rows, "  ");
    for (const bool isInput : {true, false}) {
        rows.clear();
        for (const fxElementChannel& channel : isInput ? kind.inputs : kind.outputs) {
            rows.push_back({channel.name, channel.typeName(), channel.sentence});
        }
        if (!rows.empty()) std::printf("\n%s\n", isInput ? "inputs" : "outputs");
        print(rows, "  ");
    }
}

}  // namespace

void listClasses() {
    Rows rows;
    for (const fxElementKind* kind : fxElementKind::all()) {
        rows.push_back({kind->name, kind->sentence});
    }
    print(rows, "");
}

int describeClasses(const std::vector<std::string>& names) {
    int status = 0;
    bool isFirst = true;
    for (const std::string& name : names) {
        const fxElementKind* const kind = fxElementKind::find(name);
        if (kind != nullptr) {
            if (!isFirst) std::printf("\n");
            isFirst = false;
            describe(*kind);
            continue;
        }
        std::vector<std::string> known;
        for (const fxElementKind* each : fxElementKind::all()) known.push_back(each->name);
        complain("there is no class \"" + name + '"' + fxFlowDetail::suggestion(name, known));
        status = failed;
    }
    return status;
}
