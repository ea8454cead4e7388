#include <ostream>
#include <unordered_map>

#include "flow/Element.h"
#include "flow/Text.h"
#include "flow/text/Problems.h"

// An object is a record of three columns: inputs; name, class and settings; outputs. The
// channels are ports, numbered in the order of their description.

namespace {

// Text inside a record's label: bounded, and without characters that have a meaning there.
std::string inLabel(std::string_view text) {
    std::string result;
    for (const char c : fxFlowDetail::printable(fxFlowCut(text))) {
        if (std::string_view("{}|<>\"\\").find(c) != std::string_view::npos) result += '\\';
        result += c;
    }
    return result;
}

void writePorts(std::ostream& out, char prefix, const std::vector<fxElementChannel>& channels) {
    for (size_t i = 0; i < channels.size(); ++i) {
        out << (i > 0 ? "|" : "") << '<' << prefix << i << "> " << inLabel(channels[i].name)
            << " : " << inLabel(channels[i].typeName());
    }
}

void writeObject(std::ostream& out, size_t number, const fxFlowText::Object& object) {
    out << "    o" << number << " [label=\"{{";
    writePorts(out, 'i', object.kind->inputs);
    out << "}|" << inLabel(object.name.text) << "\\n" << inLabel(object.className.text);
    for (const fxFlowText::Setting& each : object.settings) {
        out << "\\n" << inLabel(each.name.text) << " = " << inLabel(each.value.text);
    }
    out << "|{";
    writePorts(out, 'o', object.kind->outputs);
    out << "}}\"];\n";
}

// The position of the channel in the description.
size_t numberOf(const std::vector<fxElementChannel>& channels, const std::string& name) {
    size_t number = 0;
    while (number < channels.size() && channels[number].name != name) ++number;
    return number;
}

std::string labelOf(fxFlowDelivery delivery, const fxFlowType& from, const fxFlowType& to) {
    std::string label;
    if (delivery != fxFlowDelivery::queued) label = fxFlowDeliveryName(delivery);
    if (from.number() == to.number() || to.number() == fxDT_void) return label;
    if (!label.empty()) label += ", ";
    label += fxDataTypeName(from.number());
    return (label += " to ") += fxDataTypeName(to.number());
}

}  // namespace

void fxFlowText::writeDot(std::ostream& out) const {
    out << "digraph flow {\n    rankdir=LR;\n    node [shape=record];\n";
    std::unordered_map<std::string_view, size_t> numbers;
    for (size_t i = 0; i < objects.size(); ++i) {
        if (objects[i].kind == nullptr || !numbers.emplace(objects[i].name.text, i).second)
            continue;
        writeObject(out, i, objects[i]);
    }
    for (const Connection& each : connections) {
        const auto from = numbers.find(each.from.object.text);
        const auto to = numbers.find(each.to.object.text);
        if (from == numbers.end() || to == numbers.end()) continue;
        const auto& outputs = objects[from->second].kind->outputs;
        const auto& inputs = objects[to->second].kind->inputs;
        const size_t output = numberOf(outputs, each.from.channel.text);
        const size_t input = numberOf(inputs, each.to.channel.text);
        if (output == outputs.size() || input == inputs.size()) continue;
        out << "    o" << from->second << ":o" << output << " -> o" << to->second << ":i" << input;
        const std::string label =
            labelOf(each.delivery, *outputs[output].type, *inputs[input].type);
        if (!label.empty()) out << " [label=\"" << inLabel(label) << "\"]";
        out << ";\n";
    }
    out << "}\n";
}
