// Connections and sending by example; TortureTest does what receivers may do meanwhile.
#include "tests/support/Dataflow.h"

namespace {

// A receiving function that needs no object: counts what it is called for.
template <class T>
void count(void* calls, T) {
    ++*static_cast<int*>(calls);
}

template <class T>
void (*asFunction(void (*function)(void*, T)))() {
    return reinterpret_cast<void (*)()>(function);
}

class Channels : public Dataflow {
protected:
    // One sender and three receivers, connected in order.
    void fanOut() {
        for (Node* node : {&a, &b, &c}) sender.feed(*node);
    }
    static void now(Node& node, int value) { fxObj::sendInt(node.out, value, fxObj::fxSendNow); }

    Node sender, a, b, c;
};

TEST_F(Channels, ConnectOnceAndBothEndsKnow) {
    sender.feed(a);
    sender.feed(a);
    EXPECT_EQ(sender.out->getNumberOfConnections(), 1u);
    EXPECT_EQ(a.in->getOutputs()->length(), 1u);
    EXPECT_EQ(a.in->refCount, 2u);
    EXPECT_TRUE(sender.out->isConnectedTo(a.in));
    sender.connect("out", nullptr, "in");
    sender.connect("no such output", &a, "in");
    sender.connect("out", &a, "no such input");
    fxObj empty;
    sender.connect("out", &empty, "in");
    empty.connect("out", &a, "in");
    empty.disconnect("out", &a, "in");
    empty.removeInput("in");
    empty.removeOutput("out");
    EXPECT_EQ(sender.out->getNumberOfConnections(), 1u);
    sender.disconnect("out", &a, "in");
    sender.disconnect("out", &a, "in");
    EXPECT_EQ(sender.out->getNumberOfConnections(), 0u);
    EXPECT_EQ(a.in->refCount, 1u);
    now(sender, 1);
    EXPECT_TRUE(a.seen.empty());
}

TEST_F(Channels, ConvertersAreSplicedInAndGoWithTheInput) {
    fxObj target;
    static int got;
    got = -1;
    auto receive = reinterpret_cast<void (*)()>(+[](void*, unsigned char v) { got = v; });
    fxInputChannel* in = target.addInput("bool", fxDT_fxBool, nullptr, receive);
    sender.connect("out", &target, "bool");
    EXPECT_TRUE((*sender.out)[0]->isConverter());
    EXPECT_TRUE(sender.out->isConnectedTo(in));
    EXPECT_EQ((*sender.out)[0]->target(), in);
    now(sender, 257);
    EXPECT_EQ(got, 1);
    fxObj::sendInt(sender.out, 2);
    target.removeInput("bool");
    EXPECT_EQ(sender.out->getNumberOfConnections(), 0u);
    distribute();
    EXPECT_EQ(got, 1) << "what waited behind the converter is discarded";

    fxObj longTarget;
    longTarget.addInput("long", fxDT_long, nullptr, nullptr);
    EXPECT_DEATH(sender.connect("out", &longTarget, "long"), "^Can't convert from 2 to 3\n$");
    EXPECT_DEATH(
        {
            sender.feed(a);
            a.in->remove(b.out);
        },
        "^ic/oc connections busted\n$");
}

TEST_F(Channels, VoidInputsTakeAnythingWithoutItsValue) {
    fxObj target;
    static int calls;
    calls = 0;
    target.addInput("void", fxDT_void, nullptr,
                    reinterpret_cast<void (*)()>(+[](void*) { ++calls; }));
    sender.connect("out", &target, "void");
    EXPECT_FALSE((*sender.out)[0]->isConverter());
    now(sender, 1);
    fxObj::sendInt(sender.out, 2);
    fxObj::sendData(sender.out, new CountedData(3), fxObj::fxSendNow);
    distribute();
    EXPECT_EQ(calls, 3);
}

TEST_F(Channels, SendModesOrderAndDeleteTheirValues) {
    fanOut();
    std::vector<std::string> order;
    for (auto [node, name] : {std::pair(&a, "a"), {&b, "b"}, {&c, "c"}}) {
        node->onReceive = [&order, label = std::string(name)](int v) {
            order.push_back(label + std::to_string(v));
        };
    }
    fxObj::sendData(sender.out, new CountedData(1), fxObj::fxSendQueued);
    fxObj::sendData(sender.out, new CountedData(2), fxObj::fxSendUrgent);
    EXPECT_EQ(CountedData::alive, 2);
    fxObj::sendData(sender.out, new CountedData(3), fxObj::fxSendNow);
    EXPECT_EQ(CountedData::alive, 2);
    distribute();
    EXPECT_EQ(CountedData::alive, 0);
    EXPECT_EQ(order,
              (std::vector<std::string>{"a3", "b3", "c3", "c2", "b2", "a2", "a1", "b1", "c1"}));
    Node alone;
    fxObj::sendData(alone.out, new CountedData(1), fxObj::fxSendQueued);
    fxObj::sendData(nullptr, new CountedData(1), fxObj::fxSendNow);
    EXPECT_EQ(CountedData::alive, 0);
    // Modes that do not exist neither deliver nor delete.
    auto* data = new CountedData(9);
    fxObj::sendData(sender.out, data, static_cast<fxObj::fxSendFlags>(7));
    EXPECT_EQ(CountedData::alive, 1);
    delete data;
}

TEST_F(Channels, ReplacingInputsKeepOnlyTheNewestMessage) {
    Node newest(1);
    sender.feed(newest);
    sender.feed(a);
    for (int v : {1, 2}) fxObj::sendInt(sender.out, v);
    distribute();
    EXPECT_EQ(newest.seen, Seen{2});
    EXPECT_EQ(a.seen, (Seen{1, 2}));
    fxObj::sendInt(sender.out, 3);
    now(sender, 4);
    EXPECT_EQ(newest.in->pending, nullptr);
    fxObj::sendInt(sender.out, 5);
    fxObj::sendInt(sender.out, 0, static_cast<fxObj::fxSendFlags>(7));
    distribute();
    EXPECT_EQ(newest.seen, (Seen{2, 4}));
    // The same value object twice: the old message goes after the new one came.
    auto* data = new CountedData(6);
    sender.disconnect("out", &a, "in");
    fxObj::sendData(sender.out, data);
    fxObj::sendData(sender.out, data);
    distribute();
    EXPECT_EQ(newest.seen, (Seen{2, 4, 6}));
    EXPECT_EQ(fxInputChannel(fxDT_int, nullptr, nullptr, 2).isReplacing(), false);
}

TEST_F(Channels, ReceiversMayDestroyAnything) {
    // Who dies: the receiver itself, one served, one to come, the sender, the output.
    for (int victim = 0; victim < 6; ++victim) {
        auto* source = new Node;
        std::vector<Node*> ends = {new Node, new Node, new Node};
        for (Node* end : ends) source->feed(*end);
        bool sourceDied = false;
        std::vector<int> reached;
        for (int i = 0; i < 3; ++i) {
            ends[static_cast<size_t>(i)]->onReceive = [&, i](int) {
                reached.push_back(i);
                if (i != 1) return;
                if (victim < 3) delete std::exchange(ends[static_cast<size_t>(victim)], nullptr);
                if (victim == 3) delete source;
                sourceDied = victim == 3;
                if (victim == 4) source->removeOutput("out");
                if (victim == 5) ends[1]->removeInput("in");
            };
        }
        now(*source, 1);
        const bool lastIsServed = victim != 2 && victim != 3 && victim != 4;
        EXPECT_EQ(reached, lastIsServed ? (Seen{0, 1, 2}) : (Seen{0, 1})) << "victim " << victim;
        for (Node* end : ends) delete end;
        if (!sourceDied) delete source;
    }
}

TEST_F(Channels, ConvertersSurviveTheirInputsDeath) {
    auto* end = new fxObj;
    static fxObj* victim;
    victim = end;
    end->addInput("bool", fxDT_fxBool, end, reinterpret_cast<void (*)()>(+[](void*, unsigned char) {
                      delete std::exchange(victim, nullptr);
                  }));
    sender.connect("out", end, "bool");
    sender.feed(a);
    now(sender, 1);
    EXPECT_EQ(victim, nullptr);
    EXPECT_EQ(a.seen, Seen{1});
    EXPECT_EQ(sender.out->getNumberOfConnections(), 1u);
}

TEST_F(Channels, ReplacedInputsStayConnectedUntilTheirObjectDies) {
    auto* end = new Node;
    sender.feed(*end);
    fxInputChannel* old = end->in;
    end->in = end->addInput<&Node::receive>("in");
    now(sender, 1);
    EXPECT_EQ(end->seen, Seen{1}) << "through the old channel";
    EXPECT_FALSE(sender.out->isConnectedTo(end->in));
    EXPECT_TRUE(sender.out->isConnectedTo(old));
    fxObj::sendInt(sender.out, 2);
    delete end;
    EXPECT_EQ(sender.out->getNumberOfConnections(), 0u);
    EXPECT_EQ(fx_theEventHandler->getCount(), 0u);
}

TEST_F(Channels, ValuesMayDestroyTheReceiverTheyWaitedFor) {
    // Withdrawing the old message runs code that destroys the very receiver.
    auto* end = new Node(1);
    sender.feed(*end);
    auto* first = new CountedData(1);
    first->onDeath = [&] { delete std::exchange(end, nullptr); };
    fxObj::sendData(sender.out, first);
    fxObj::sendData(sender.out, new CountedData(2));
    EXPECT_EQ(end, nullptr);
    EXPECT_EQ(CountedData::alive, 0);
}

TEST_F(Channels, SendingAtOnceMayDestroyItsReceiverBeforeReachingIt) {
    // The value that is withdrawn destroys the receiver of the newer one, which
    // comes boxed, bare and through a converter.
    for (int way = 0; way < 3; ++way) {
        auto* end = new fxObj;
        int heard = 0;
        end->addInput("int", fxDT_int, &heard, asFunction(count<int>), 1);
        end->addInput("bool", fxDT_fxBool, &heard, asFunction(count<unsigned char>), 1);
        sender.connect("out", end, way == 2 ? "bool" : "int");
        auto* old = new CountedData(1);
        old->onDeath = [&] { delete std::exchange(end, nullptr); };
        fxObj::sendData(sender.out, old);
        if (way == 0) fxObj::sendData(sender.out, new CountedData(2), fxObj::fxSendNow);
        if (way != 0) now(sender, 2);
        EXPECT_EQ(end, nullptr);
        EXPECT_EQ(heard, 0) << "way " << way;
    }
}

TEST_F(Channels, DyingObjectsHearNothing) {
    static Node* source;
    source = &sender;
    const auto sendMore = [] {
        now(*source, 1);
        fxObj::sendInt(source->out, 2);
    };
    auto* end = new fxObj;
    int heard = 0;
    // Released before the inputs: a property whose tag is lower than theirs.
    end->setProperty(new fxProperty(0, &heard, [](void*) { now(*source, 1); }));
    end->addInput("in", fxDT_int, &heard, asFunction(count<int>));
    sender.connect("out", end, "in");
    end->addInput("in", fxDT_int, &heard, asFunction(count<int>));
    sender.connect("out", end, "in");
    auto* value = new CountedData(1);
    value->onDeath = sendMore;
    fxObj::sendData(sender.out, value);
    fxObj::sendInt(sender.out, 3, fxObj::fxSendUrgent);
    fxEvent* taken = fx_theEventHandler->get();
    delete end;
    taken->deliver();
    delete taken;
    EXPECT_EQ(heard, 0);
    EXPECT_EQ(fx_theEventHandler->getCount(), 0u);

    // Nor does an input that was removed, while its object lives on.
    value = new CountedData(1);
    value->onDeath = sendMore;
    sender.feed(a);
    fxObj::sendData(sender.out, value);
    a.removeInput("in");
    EXPECT_EQ(a.seen, Seen{});
    EXPECT_EQ(fx_theEventHandler->getCount(), 0u);
}

TEST_F(Channels, ChannelNamesMayBeUsedForOtherProperties) {
    fxObj odd;
    odd.setProperty(new fxProperty(fxProperty::findTag("inputs"), 5));
    EXPECT_EQ(odd.getInputs(), nullptr);
    sender.connect("out", &odd, "in");
    odd.removeInput("in");
    // One that makes way for the channels and takes them along.
    static fxObj* self;
    self = &odd;
    for (const char* name : {"inputs", "outputs"}) {
        const unsigned short tag = fxProperty::findTag(name);
        odd.setProperty(new fxProperty(tag, static_cast<void*>(nullptr),
                                       [](void*) { self->removeAllProperties(); }));
        odd.addInput("in", fxDT_int, nullptr, nullptr);
        odd.addOutput("out", fxDT_int);
    }
    Node* copied = new Node(a);
    EXPECT_EQ(copied->getNumberOfProperties(), 0u) << "copies carry no channels";
    ++Node::alive;
    delete copied;
}

}  // namespace
