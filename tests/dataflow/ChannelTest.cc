// Misuse, exceptions and ends of channels and events; TortureTest does what receivers may
// do meanwhile.

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

// An event that ends while it is delivered.
struct Probe : fxEvent {
    Probe() : fxEvent(fxET_Unknown) { ++alive; }
    ~Probe() override { --alive; }
    void deliver() override { delete this; }
    static inline int alive = 0;
};

class Channels : public Dataflow {
protected:
    ~Channels() override { EXPECT_EQ(Probe::alive, 0); }
    static void now(Node& node, int value) { fxObj::sendInt(node.out, value, fxObj::fxSendNow); }

    Node sender, a;
};

TEST_F(Channels, UnknownNamesAndModesDoNothing) {
    fxObj empty;
    sender.connect("out", nullptr, "in");
    sender.connect("no such output", &a, "in");
    sender.connect("out", &a, "no such input");
    sender.connect("out", &empty, "in");
    empty.connect("out", &a, "in");
    empty.disconnect("out", &a, "in");
    empty.removeInput("in");
    empty.removeOutput("out");
    EXPECT_EQ(sender.out->getNumberOfConnections(), 0u);
    (*sender.getInputs())["asked for"];
    (*sender.getOutputs())["asked for"];
    EXPECT_TRUE(sender.getInputNames() == a.getInputNames());
    std::ostringstream network;
    fxDumpNetwork(network, &sender);
    EXPECT_EQ(network.str().find("asked for"), std::string::npos);
    fxObj::sendData(nullptr, new CountedData(1), fxObj::fxSendNow);
    EXPECT_FALSE(fxInputChannel(fxDT_int, nullptr, nullptr, 2).isReplacing());
    // Modes that do not exist neither deliver nor delete.
    sender.feed(a);
    auto* data = new CountedData(9);
    fxObj::sendData(sender.out, data, static_cast<fxObj::fxSendFlags>(7));
    fxObj::sendInt(sender.out, 9, static_cast<fxObj::fxSendFlags>(7));
    EXPECT_EQ(CountedData::alive, 1);
    delete data;
    EXPECT_EQ(a.seen, Seen{});
}

class Meter : public fxObj {
public:
    void set(int value_) { value = value_; }
    int value = 0;
};

// Adds the input before the object is a Late, and connects it.
template <class Derived>
class Early : public fxObj {
public:
    explicit Early(Node& source) {
        this->template addInput<&Derived::set>("in");
        source.connect("out", this, "in");
    }
};
class Late : public Early<Late> {
public:
    using Early::Early;
    void set(int value_) { value = value_; }
    int value = 0;
};

// What can only be seen when it happens.
TEST_F(Channels, MisuseIsFatal) {
    Late late(sender);
    now(sender, 3);
    EXPECT_EQ(late.value, 3);
    fxObj other;
    other.addInput("long", fxDT_long, nullptr, asFunction(count<long>));
    a.addInput<&Meter::set>("set");
    fxInputChannel* const ofOther = other.addInput<&Meter::set>("set");
    sender.feed(a);
    fxInputChannel unconnected(fxDT_int, nullptr, nullptr, 0);
    fxIntData one(1);
    const std::string ofMeter = " input \"set\" is for objects of class Meter\n$";
    const std::pair<std::function<void()>, std::string> rows[] = {
        {[&] { sender.connect("out", &other, "long"); },
         "^fxds: Node.out \\(int\\) -> fxObj.long \\(long\\): no converter leads from int to long "
         "\\(fxConverter::createMoreConverters\\(\\) adds some\\)\nCan't convert from 2 to 3\n$"},
        {[&] { a.in->remove(a.out); }, "^ic/oc connections busted\n$"},
        {[&] { unconnected.add(sender.out), unconnected.disconnect(); },
         "^ic/oc connections busted\n$"},
        {[&] { sender.connect("out", &a, "set"); }, "^Node:" + ofMeter},
        {[&] { ofOther->call(1); }, "^fxObj:" + ofMeter},
        {[&] { a.getInput("set")->deliver(&one); }, "^Node:" + ofMeter},
    };
    for (const auto& [misuse, words] : rows) EXPECT_DEATH(misuse(), words);
}

#ifdef FXDS_CHECKED
TEST_F(Channels, CheckedMisuseIsFatal) {
    sender.feed(a);
    auto* const held = new CountedData(1);
    held->take();
    fxInputChannel* const none = a.addInput("none", fxDT_int, nullptr, nullptr);
    auto* const converter =
        static_cast<fxConverter*>(fxConverter::findConverter(fxDT_int, fxDT_float));
    const std::pair<std::function<void()>, const char*> rows[] = {
        {[&] { a.in->call(1L); }, "areTakenBy"},
        {[&] { sender.out->deliver(0.5f); }, "areTakenBy"},
        {[&] { converter->call("1"); }, "areTakenBy"},
        {[&] { fxObj::sendLong(sender.out, 1); }, "getType"},
        {[&] { fxObj::sendData(sender.out, new fxVoidData); }, "getType"},
        {[&] { fxObj::sendData(sender.out, nullptr); }, "data != nullptr"},
        {[&] { fxObj::sendData(sender.out, held, fxObj::fxSendNow); }, "count == 0"},
        {[&] { none->call(1); }, "function != nullptr"},
        {[&] { static_cast<fxConverter*>(fx_theConverters)->splice(a.in); }, "isConverter"},
        {[&] { converter->splice(nullptr); }, "input != nullptr"},
        {[&] { fxMessageEvent(a.in, nullptr); }, "data != nullptr"},
        {[&] { a.setProperty(nullptr); }, "property != nullptr"},
        {[&] { fxProperty(0, &a).setAsLong(1); }, "type == fxDT_long"},
        {[&] { fxProperty(0, 5L).setAsObjPtr(&a); }, "type == fxDT_ObjPtr"},
        {[&] { fxProperty(0, 5L).setAsStr(fxStr("text")); }, "type == fxDT_fxStr"},
        {[&] { fxProperty(0, fxStr("")).setAsVoidPtr(nullptr, nullptr); }, "type == fxDT_VoidPtr"},
        {[&] { static_cast<void>(*RPtr<Counted>()); }, "pointer != nullptr"},
        {[&] { fxStrArray_type.upcast(&a, fxStrSet_type); }, "isA"},
    };
    for (const auto& [misuse, words] : rows) EXPECT_DEATH(misuse(), words);
    held->release();
    delete converter;
}
#endif

TEST_F(Channels, EventsAreNumberedAndPrinted) {
    const unsigned long before = fxEvent::nextSequenceNumber;
    Probe probe;
    fxMessageEvent message(a.in, new CountedData(1)), copy(message);
    EXPECT_TRUE(probe.getSequence() == before + 1 && copy.getSequence() == before + 2);
    EXPECT_EQ(copy.getType(), fxET_MessageEvent);
    EXPECT_EQ(a.in->refCount, 3u);
    char text[128] = {};
    FILE* file = fmemopen(text, sizeof text, "w");
    probe.dump(file);
    message.dump(file);
    std::fclose(file);
    EXPECT_EQ(std::string(text), "Event: seq=" + std::to_string(before + 1) +
                                     " type=0\nEvent: seq=" + std::to_string(before + 2) +
                                     " type=" + std::to_string(fxET_MessageEvent) + "\n");
    EXPECT_TRUE(probe.getChannel() == nullptr && message.getChannel() == a.in);
}

TEST_F(Channels, EventsKnowTheOneQueueThatTheyWaitIn) {
    auto* const kept = new Probe;
    {
        fxEventQueue queue;
        queue.append(new Probe);
        queue.insert(kept);
        EXPECT_DEATH(fx_theEventHandler->postEvent(kept),
                     "^fxEventQueue: the event seq=[0-9]+ type=0 waits already\n$");
        EXPECT_TRUE(queue.getHead() == kept && queue.contains(queue.getTail()));
        delete queue.getTail();  // leaves by itself
        queue.append(new Probe);
        auto* const stranger = new Probe;
        EXPECT_FALSE(queue.contains(stranger));
        queue.remove(stranger);  // is deleted, and counted
        EXPECT_EQ(queue.getCount(), 1u);
        fx_theEventHandler->remove(queue.getTail());
        EXPECT_TRUE(queue.getTail() == kept && kept->getNext() == nullptr);
    }
    fx_theEventHandler->postEvent(kept);  // waits nowhere since its queue has ended
    distribute();
}

// By the end of a value: in distributions, a send that replaces it, and the end of an input.
// What waits then is in no queue, and is deleted here.
TEST_F(Channels, HandlersMayEndInTheirOperations) {
    enum { distributing, draining, replacing, ending };
    fxEventHandler* const usual = fx_theEventHandler;
    for (const auto& [way, waiting] :
         {std::pair(distributing, 2U), {draining, 2U}, {replacing, 1U}, {ending, 80U}}) {
        auto* const handler = fx_theEventHandler = new fxEventHandler;
        std::vector<fxEvent*> left;
        auto* const value = new CountedData(1);
        value->onDeath = [&] {
            for (auto* event = handler->getHead(); event != nullptr; event = event->getNext()) {
                left.push_back(event);
            }
            fx_theEventHandler = usual;
            delete handler;
        };
        auto* const end = new Node(way == replacing);
        sender.feed(*end);
        fxObj::sendData(sender.out, value);
        sender.feed(a);
        for (int sent = 0; sent < (way == ending ? 40 : 1); ++sent) fxObj::sendInt(sender.out, 2);
        if (way == distributing) handler->distributeEvents();
        if (way == draining) handler->drain();
        delete end;
        EXPECT_EQ(left.size(), waiting) << "way " << way;
        for (fxEvent* event : left) delete event;
        sender.disconnect("out", &a, "in");
    }
    EXPECT_EQ(a.seen, Seen());
}

// A message that names another channel than the one that it holds.
struct Bound : fxMessageEvent {
    Bound(fxInputChannel* held, fxInputChannel* named)
        : fxMessageEvent(held, new CountedData(1)), channel(named) {}
    void deliver() override {}
    fxInputChannel* getChannel() override { return channel; }
    fxInputChannel* channel;
};

TEST_F(Channels, MessagesGoWithTheChannelThatTheyName) {
    for (int way = 0; way < 3; ++way) {
        auto* end = new Node;
        sender.feed(*end);
        fx_theEventHandler->postEvent(new Bound(sender.in, end->in));
        if (way == 0) end->in->flush();
        if (way == 1) end->removeInput("in");
        if (way == 2) end->addInput("in", fxDT_void, nullptr, nullptr);
        EXPECT_EQ(fx_theEventHandler->isEmpty(), way != 2);
        delete end;
        sender.in->flush();  // looks at what waits
        EXPECT_TRUE(fx_theEventHandler->isEmpty()) << "way " << way;
    }
}

TEST_F(Channels, InputsOfADestroyedObjectAreMuted) {
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

TEST_F(Channels, ExceptionsLeaveThroughTheCallThatLedToThem) {
    fxObj end;
    auto* const raise = asFunction<int>([](void*, int) { throw 1; });
    auto* const raiseByte = asFunction<unsigned char>([](void*, unsigned char) { throw 1; });
    end.addInput("plain", fxDT_int, nullptr, raise);
    end.addInput("replacing", fxDT_int, nullptr, raise, 1);
    end.addInput("converted", fxDT_fxBool, nullptr, raiseByte);
    end.addInput("void", fxDT_void, nullptr, reinterpret_cast<void (*)()>(+[](void*) { throw 1; }));
    for (const fxStr& name : end.getInputNames()) {
        sender.connect("out", &end, name);
        fxInputChannel* const input = end.getInput(name);
        fxInputChannel* const entry = (*sender.out)[0];
        const auto holders = [&] { return std::pair(input->refCount, entry->refCount); };
        const auto before = holders();
        for (const auto how : {fxObj::fxSendNow, fxObj::fxSendQueued}) {
            const auto send = [&](fxData* data) {
                fxObj::sendData(sender.out, data, how);
                distribute();
            };
            EXPECT_THROW(send(new CountedData(1)), int);
        }
        EXPECT_THROW(now(sender, 1), int);
        EXPECT_EQ(holders(), before) << name.c_str();
        EXPECT_EQ(CountedData::alive, 0);
        sender.disconnect("out", &end, name);
    }
    fxConnect(end.propertyChanged("inputs"), [] { throw 1; });
    end.setProperty(new fxProperty(fxProperty::allocNewTag("behind"), new Node));
    EXPECT_THROW(end.removeAllProperties(), int);
    EXPECT_EQ(Node::alive, 2) << "what comes behind is let go of";
}

}  // namespace
