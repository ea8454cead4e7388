// The event queue and its walks.

#include "tests/support/Dataflow.h"

namespace {

class Probe : public fxEvent {
public:
    explicit Probe(int id_ = 0) : fxEvent(fxET_Unknown), id(id_) { ++alive; }
    ~Probe() override {
        --alive;
        if (onDeath) onDeath();
    }
    void deliver() override {
        delivered.push_back(id);
        const auto action = onDeliver;  // which may destroy this event
        if (action) action();
    }
    int id;
    std::function<void()> onDeliver, onDeath;
    static inline std::vector<int> delivered;
    static inline int alive = 0;
};

class Events : public Dataflow {
protected:
    Events() { Probe::delivered.clear(); }
    ~Events() override { EXPECT_EQ(Probe::alive, 0); }
    fxEventHandler& handler = *fx_theEventHandler;
    static std::vector<int> ids(const fxEventQueue& queue) {
        std::vector<int> result;
        const fxEvent* previous = nullptr;
        for (fxEvent* e = queue.getHead(); e != nullptr; e = e->getNext()) {
            EXPECT_EQ(e->getPrev(), previous);
            previous = e;
            result.push_back(static_cast<Probe*>(e)->id);
        }
        EXPECT_EQ(queue.getTail(), previous);
        EXPECT_EQ(queue.getCount(), result.size());
        return result;
    }
};

TEST_F(Events, AreNumberedAndPrinted) {
    const unsigned long before = fxEvent::nextSequenceNumber;
    Probe probe(1);
    EXPECT_EQ(probe.getSequence(), before + 1);
    Node node;
    fxMessageEvent message(node.in, new CountedData(1));
    fxMessageEvent copy(message);
    EXPECT_EQ(copy.getSequence(), message.getSequence());
    EXPECT_EQ(copy.getType(), fxET_MessageEvent);
    EXPECT_EQ(node.in->refCount, 3u);
    char text[128] = {};
    FILE* file = fmemopen(text, sizeof text, "w");
    probe.dump(file);
    message.dump(file);
    std::fclose(file);
    EXPECT_EQ(std::string(text), "Event: seq=" + std::to_string(before + 1) +
                                     " type=0\nEvent: seq=" + std::to_string(before + 2) +
                                     " type=" + std::to_string(fxET_MessageEvent) + "\n");
    EXPECT_EQ(probe.getChannel(), nullptr);
    EXPECT_EQ(message.getChannel(), node.in);
}

TEST_F(Events, AnEventOfNoQueueIsRemovedAllTheSame) {
    fxEventQueue queue;
    // It is deleted, and counted.
    queue.append(new Probe);
    queue.append(new Probe);
    auto* const stranger = new Probe;
    EXPECT_FALSE(queue.contains(stranger));
    EXPECT_TRUE(queue.contains(queue.getTail()));
    queue.remove(stranger);
    EXPECT_EQ(queue.getCount(), 1u);
    for (int i = 0; i < 2; ++i) delete queue.get();
    EXPECT_TRUE(queue.isEmpty());
}

TEST_F(Events, DistributionTakesAsManyAsWaitAtItsStart) {
    for (int id : {1, 2, 3}) {
        auto* probe = new Probe(id);
        probe->onDeliver = [this, id] { handler.postEvent(new Probe(10 * id)); };
        handler.postEvent(probe);
    }
    distribute();
    EXPECT_EQ(Probe::delivered, (Seen{1, 2, 3}));
    EXPECT_EQ(ids(handler), (std::vector<int>{10, 20, 30}));
    static_cast<Probe*>(handler.getHead())->onDeliver = [this] {
        handler.postEvent(new Probe(5), 1);
    };
    distribute();
    EXPECT_EQ(Probe::delivered, (Seen{1, 2, 3, 10, 5, 20})) << "the front goes first";
    distribute();
    distribute();
}

TEST_F(Events, DeliveriesMayRemoveDistributeAndDestroy) {
    auto* nested = new Probe(1);
    nested->onDeliver = [] { distribute(); };
    handler.postEvent(nested);
    handler.postEvent(new Probe(2));
    distribute();
    EXPECT_EQ(Probe::delivered, (Seen{1, 2}));

    auto* again = new Probe(3);
    again->onDeliver = [&] {
        if (Probe::delivered.size() < 5) handler.postEvent(again);
    };
    handler.postEvent(again);
    for (int i = 0; i < 4; ++i) distribute();
    EXPECT_EQ(Probe::delivered, (Seen{1, 2, 3, 3, 3})) << "an event may post itself again";

    // What becomes then of the event, while it is still being delivered.
    const std::function<void(Probe*)> ends[] = {
        [](Probe*) { distribute(); },
        [this](Probe* event) { handler.remove(event); },
        [this](Probe*) { delete handler.get(); },
    };
    for (const auto& end : ends) {
        auto* reposted = new Probe(4);
        reposted->onDeliver = [this, reposted, &end] {
            reposted->onDeliver = nullptr;
            handler.postEvent(reposted);
            end(reposted);
        };
        handler.postEvent(reposted);
        distribute();
        EXPECT_EQ(Probe::alive, 0);
    }
    auto* mortal = new Probe(5);
    mortal->onDeliver = [mortal] { delete mortal; };
    handler.postEvent(mortal);
    distribute();
    EXPECT_EQ(Probe::alive, 0);

    auto* receiver = new Node;
    Node sender;
    sender.feed(*receiver);
    receiver->onReceive = [&](int) { delete std::exchange(receiver, nullptr); };
    for (int v : {1, 2}) fxObj::sendInt(sender.out, v);
    distribute();
    EXPECT_EQ(receiver, nullptr);
}

TEST_F(Events, ThrowingEndsADeliveryAsReturningDoes) {
    auto* const kept = new Probe(2);
    handler.postEvent(new Probe(1));
    handler.postEvent(kept);
    static_cast<Probe*>(handler.getHead())->onDeliver = [] { throw 1; };
    EXPECT_THROW(handler.distributeEvents(), int);
    EXPECT_EQ(Probe::alive, 1);

    // One that has changed hands before stays with its owner.
    kept->onDeliver = [&] {
        handler.postEvent(kept);
        kept->onDeliver = nullptr;
        throw 2;
    };
    EXPECT_THROW(handler.distributeEvents(), int);
    EXPECT_EQ(Probe::alive, 1);
    handler.distributeEvents();
    EXPECT_EQ(Probe::delivered, (std::vector<int>{1, 2, 2}));
}

TEST_F(Events, RemovalSurvivesWhatItsCallbacksRemove) {
    // The predicate and a dying event each take others out of the queue.
    std::vector<Probe*> probes;
    for (int id = 0; id < 8; ++id) {
        probes.push_back(new Probe(id));
        handler.postEvent(probes.back());
    }
    probes[2]->onDeath = [&] {
        handler.remove(probes[3]);
        handler.remove(probes[4]);
    };
    struct Context {
        fxEventHandler& handler;
        std::vector<int> asked;
    } context{handler, {}};
    handler.removeEvents(
        [](fxEvent* event, void* argument) -> unsigned char {
            auto& c = *static_cast<Context*>(argument);
            const int id = static_cast<Probe*>(event)->id;
            c.asked.push_back(id);
            if (id == 5) {
                c.handler.remove(event);
                return 1;
            }
            return id == 2 || id == 7;
        },
        &context);
    EXPECT_EQ(context.asked, (std::vector<int>{0, 1, 2, 5, 6, 7}));
    EXPECT_EQ(ids(handler), (std::vector<int>{0, 1, 6}));
    distribute();
}

TEST_F(Events, MessagesOfOneChannelAreRemovedAlone) {
    Node sender, a(1), b;
    sender.feed(a);
    sender.feed(b);
    fxObj::sendInt(sender.out, 1);
    handler.postEvent(new Probe(3));
    EXPECT_NE(a.in->pending, nullptr);
    handler.removeMessageEvents(a.in);
    EXPECT_EQ(a.in->pending, nullptr);
    EXPECT_EQ(handler.getCount(), 2u);
    EXPECT_EQ(handler.getHead()->getChannel(), b.in);
    distribute();
    EXPECT_EQ(b.seen, Seen{1});
    // A pending message that the application took out is not deleted under it.
    fxObj::sendInt(sender.out, 2);
    fxEvent* taken = handler.get();
    EXPECT_EQ(taken->getChannel(), a.in);
    fxObj::sendInt(sender.out, 3);
    delete taken;
    distribute();
    EXPECT_EQ(a.seen, Seen{3});
}

}  // namespace
