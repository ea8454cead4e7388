#include <algorithm>
#include <unordered_map>

#include "flow/run/Network.h"

// A "now" connection makes one send from within another. Connections that close a circle
// are queued, and then those that make chains of sends too deep for the stack.

namespace {

constexpr unsigned int deepest = 100;  // sends in one another

struct Node {
    std::vector<size_t> outgoing;  // the "now" connections that begin here
    size_t next = 0;               // of `outgoing`, to be followed
    unsigned int depth = 0;        // of the deepest chain that begins here
};

typedef std::unordered_map<std::string, Node> Nodes;

// Follows the connections from one object on, each once; queues those that would go too
// deep. Requires: they make no circle.
void follow(Node& first, Nodes& nodes, std::vector<fxFlowText::Connection>& joints) {
    std::vector<Node*> path = {&first};
    while (!path.empty()) {
        Node& node = *path.back();
        if (node.next == node.outgoing.size()) {
            path.pop_back();
            continue;
        }
        fxFlowText::Connection& joint = joints[node.outgoing[node.next]];
        Node& target = nodes[joint.to.object.text];
        if (target.next < target.outgoing.size()) {
            path.push_back(&target);
            continue;  // comes back here when the target's depth is known
        }
        ++node.next;
        if (target.depth + 1 > deepest) {
            joint.delivery = fxFlowDelivery::queued;
        } else {
            node.depth = std::max(node.depth, target.depth + 1);
        }
    }
}

}  // namespace

std::vector<fxFlowText::Connection> fxFlowDetail::restrained(const fxFlowText& text) {
    std::vector<fxFlowText::Connection> joints = text.connections;
    for (const size_t closing : text.closingConnections()) {
        joints[closing].delivery = fxFlowDelivery::queued;
    }
    Nodes nodes;
    for (size_t i = 0; i < joints.size(); ++i) {
        if (joints[i].delivery != fxFlowDelivery::now) continue;
        nodes[joints[i].from.object.text].outgoing.push_back(i);
        nodes[joints[i].to.object.text];
    }
    for (const fxFlowText::Object& each : text.objects) {
        const auto found = nodes.find(each.name.text);
        if (found != nodes.end()) follow(found->second, nodes, joints);
    }
    return joints;
}
