#include "fxds/Network.h"

#include <algorithm>
#include <map>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "fxds/Property.h"
#include "fxds/Str.h"
#include "fxds/VoidPtrDict.h"
#include "fxds/dataflow/TraceLines.h"

// Objects are found breadth first, along connections in both directions, and
// numbered as they are found. Each becomes one record of three columns: inputs,
// class and properties, outputs. Channels become ports, numbered by name.
//
// Invariant: `objects` has each object once, at the index that is its number;
// explore() has followed all connections of those before its position.

namespace {

template <class Channel>
using Channels = std::vector<std::pair<std::string, Channel*>>;

template <class Channel>
Channels<Channel> channelsOf(fxVoidPtrDict* table) {
    Channels<Channel> channels;
    if (table == nullptr) return channels;
    for (auto [name, channel] : *table) {
        if (channel != nullptr) channels.emplace_back(name.c_str(), static_cast<Channel*>(channel));
    }
    std::sort(channels.begin(), channels.end());
    return channels;
}

// Text inside a record's label.
std::string escaped(const std::string& text) {
    std::string result;
    for (char c : text) {
        if (std::string("{}|<>\"\\ ").find(c) != std::string::npos) result += '\\';
        result += c;
    }
    return result;
}

class Network {
public:
    void find(fxObj* object) {
        if (object == nullptr || !numbers.emplace(object, objects.size()).second) return;
        objects.push_back(object);
    }

    // Follows the connections of all objects found, which finds more.
    void explore() {
        for (size_t i = 0; i < objects.size(); ++i) {  // NOLINT(modernize-loop-convert): it grows
            for (auto& [name, output] : channelsOf<fxOutputChannel>(objects[i]->getOutputs())) {
                for (unsigned int k = 0; k < output->getNumberOfConnections(); ++k) {
                    find((*output)[k]->target()->getOwner());
                }
            }
            for (auto& [name, input] : channelsOf<fxInputChannel>(objects[i]->getInputs())) {
                if (input->getOutputs() == nullptr) continue;
                for (void* output : *input->getOutputs()) {
                    find(static_cast<fxOutputChannel*>(output)->getOwner());
                }
            }
        }
    }

    void write(std::ostream& out) const {
        out << "digraph network {\n    rankdir=LR;\n    node [shape=record];\n";
        for (size_t i = 0; i < objects.size(); ++i) writeObject(out, i);
        for (size_t i = 0; i < objects.size(); ++i) writeEdges(out, i);
        out << "}\n";
    }

private:
    template <class Channel>
    static void writePorts(std::ostream& out, char prefix, const Channels<Channel>& channels) {
        for (size_t i = 0; i < channels.size(); ++i) {
            out << (i > 0 ? "|" : "") << '<' << prefix << i << "> " << escaped(channels[i].first)
                << " : " << fxDataTypeName(channels[i].second->getType());
        }
    }

    void writeObject(std::ostream& out, size_t index) const {
        fxObj& object = *objects[index];
        out << "    o" << index << " [label=\"{{";
        writePorts(out, 'i', channelsOf<fxInputChannel>(object.getInputs()));
        out << "}|" << escaped(fxTraceLines::classNameOf(object));
        for (unsigned int i = 0; i < object.getNumberOfProperties(); ++i) {
            writeProperty(out, *object.getProperty(i));
        }
        out << "|{";
        writePorts(out, 'o', channelsOf<fxOutputChannel>(object.getOutputs()));
        out << "}}\"];\n";
    }

    static void writeProperty(std::ostream& out, const fxProperty& property) {
        if (property.getDestructor() == fxObj::dt_input_dict ||
            property.getDestructor() == fxObj::dt_output_dict) {
            return;
        }
        const char* const name = property.getName();
        out << "\\n";
        if (name != nullptr) {
            out << escaped(name);
        } else {
            out << "property " << property.getTag();
        }
        out << " : " << fxDataTypeName(property.getType());
        const unsigned short kind = property.getKind();
        if (kind == fxDT_long) out << " = " << property.getAsLong();
        if (kind == fxDT_double) out << " = " << property.getAsDouble();
        if (kind == fxDT_fxStr) out << " = " << escaped(property.getAsStr().c_str());
    }

    void writeEdges(std::ostream& out, size_t index) const {
        const auto outputs = channelsOf<fxOutputChannel>(objects[index]->getOutputs());
        for (size_t i = 0; i < outputs.size(); ++i) {
            fxOutputChannel& output = *outputs[i].second;
            for (unsigned int k = 0; k < output.getNumberOfConnections(); ++k) {
                out << "    o" << index << ":o" << i << " -> ";
                writeTarget(out, *output[k]->target());
                if (output[k]->isConverter()) {
                    out << " [label=\"" << fxDataTypeName(output.getType()) << " to ";
                    out << fxDataTypeName(output[k]->target()->getType()) << "\"]";
                }
                out << ";\n";
            }
        }
    }

    // An input whose name another has taken has no port.
    void writeTarget(std::ostream& out, const fxInputChannel& input) const {
        const auto found = numbers.find(input.getOwner());
        if (found == numbers.end()) {
            out << "gone";
            return;
        }
        out << 'o' << found->second;
        const auto inputs = channelsOf<fxInputChannel>(found->first->getInputs());
        for (size_t i = 0; i < inputs.size(); ++i) {
            if (inputs[i].second == &input) out << ":i" << i;
        }
    }

    std::vector<fxObj*> objects;
    std::map<fxObj*, size_t> numbers;
};

}  // namespace

void fxDumpNetwork(std::ostream& out, std::initializer_list<fxObj*> roots) {
    Network network;
    for (fxObj* root : roots) network.find(root);
    network.explore();
    network.write(out);
}
