// The event queue and its walks.
#include <memory>
#include <string>

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

TEST_F(Events, KnowTheOneQueueThatTheyWaitIn) {
    auto* const kept = new Probe(1);
    {
        fxEventQueue queue;
        queue.append(new Probe(2));
        queue.insert(kept);
        EXPECT_DEATH(handler.postEvent(kept),
                     "^fxEventQueue: the event seq=[0-9]+ type=0 waits already\n$");
        EXPECT_EQ(ids(queue), (Seen{1, 2}));
        EXPECT_TRUE(queue.contains(queue.getTail()));
        delete queue.getTail();  // leaves by itself
        queue.append(new Probe(3));
        auto* const stranger = new Probe;
        EXPECT_FALSE(queue.contains(stranger));
        queue.remove(stranger);  // is deleted, and counted
        EXPECT_EQ(queue.getCount(), 1u);
        handler.remove(queue.getTail());
    }
    handler.postEvent(kept);  // waits nowhere since its queue has ended
    distribute();
    EXPECT_EQ(Probe::delivered, Seen{1});
}

// A message that names another channel than the one that it holds.
struct Bound : fxMessageEvent {
    Bound(fxInputChannel* held, fxInputChannel* named)
        : fxMessageEvent(held, new CountedData(1)), channel(named) {}
    void deliver() override {}
    fxInputChannel* getChannel() override { return channel; }
    fxInputChannel* channel;
};

TEST_F(Events, MessagesGoWithTheChannelThatTheyName) {
    Node other;
    for (int way = 0; way < 3; ++way) {
        auto* end = new Node;
        other.feed(*end);
        handler.postEvent(new Bound(other.in, end->in));
        if (way == 0) end->in->flush();
        if (way == 1) end->removeInput("in");
        if (way == 2) end->addInput("in", fxDT_void, nullptr, nullptr);
        EXPECT_EQ(handler.isEmpty(), way != 2);
        delete end;
        other.in->flush();  // looks at what waits
        EXPECT_TRUE(handler.isEmpty()) << "way " << way;
    }
}

TEST_F(Events, AnEventMayEndWhileItIsDelivered) {
    auto* mortal = new Probe(5);
    mortal->onDeliver = [mortal] { delete mortal; };
    handler.postEvent(mortal);
    distribute();
    EXPECT_EQ(Probe::alive, 0);
}

}  // namespace
