// The two linked lists, against a vector.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <vector>

#include "fxds/GenericList.h"
#include "fxds/IndexableList.h"
#include "tests/support/TestSeed.h"

namespace {

int pool[1000];

struct OpenGenericList : GenericList {
    using GenericList::cachedIndex;
    using GenericList::cachedNode;
};

/// What a lookup among `size` leaves remembered: what is found at once, at the
/// ends, does not count.
void modelFind(long& remembered, long index, long size) {
    if (index > 0 && index < size - 1) remembered = index;
}

std::vector<void*> items(const GenericList& list) {
    std::vector<void*> result;
    const GenericNode* previous = nullptr;
    for (GenericNode* node = list.getHead(); node != nullptr; node = node->getNext()) {
        EXPECT_EQ(node->getPrev(), previous);
        previous = node;
        result.push_back(node->getItem());
    }
    EXPECT_EQ(list.getTail(), previous);
    EXPECT_EQ(list.getCount(), static_cast<long>(result.size()));
    return result;
}

// A list and what it must hold and remember.
struct GenericModel {
    void insert(unsigned long kind, long at, void* item) {
        const long places[] = {static_cast<long>(model.size()), 0, at};
        if (kind == 0) {
            EXPECT_EQ(list.append(item)->getItem(), item);
        }
        if (kind == 1) list.prepend(item);
        if (kind == 2) list.insertAt(at, item);
        remembered = places[kind];
        model.insert(model.begin() + remembered, item);
    }
    void removeAt(long at) {
        if (model.empty()) return;
        ASSERT_EQ(list.remove(at), model[static_cast<size_t>(at)]);
        model.erase(model.begin() + at);
        remembered = 0;
    }
    void removeItem(void* item) {
        const auto found = std::find(model.begin(), model.end(), item);
        ASSERT_EQ(list.remove(item), found == model.end() ? nullptr : item);
        if (found == model.end()) return;
        model.erase(found);
        remembered = 0;
    }
    // From any position to any other, near ones included.
    void findFrom(long at) {
        const long size = static_cast<long>(model.size());
        for (long i = at; i < std::min(at + 3, size); ++i) {
            ASSERT_EQ(list.findItem(i), model[static_cast<size_t>(i)]);
            modelFind(remembered, i, size);
        }
    }
    void expectRemembered() {
        ASSERT_EQ(list.cachedIndex, remembered);
        ASSERT_EQ(list.cachedNode == nullptr, model.empty());
        if (!model.empty()) {
            ASSERT_EQ(list.cachedNode->getItem(), model[static_cast<size_t>(remembered)]);
        }
    }

    OpenGenericList list;
    std::vector<void*> model;
    long remembered = 0;
};

TEST(GenericLists, AgreeWithAModel) {
    std::mt19937 rng(testSeed());
    GenericModel m;
    for (int step = 0; step < 20000 && !HasFailure(); ++step) {
        void* item = &pool[rng() % 1000];
        const long size = static_cast<long>(m.model.size());
        const long at = size > 0 ? static_cast<long>(rng()) % size : 0;
        const unsigned long kind = rng() % 8;
        if (kind < 3) m.insert(kind, at, item);
        if (kind == 3) m.removeAt(at);
        if (kind == 4) m.removeItem(item);
        if (kind > 4) m.findFrom(at);
        m.expectRemembered();
        if (step % 100 == 0) {
            ASSERT_EQ(items(m.list), m.model);
        }
    }
    EXPECT_EQ(std::vector<void*>(m.list.begin(), m.list.end()), m.model);
    GenericList copy(m.list);
    EXPECT_EQ(items(copy), m.model);
    const GenericList& itself = copy;
    copy = itself;
    GenericList assigned;
    assigned.append(&pool[0]);
    assigned = copy;
    EXPECT_EQ(items(assigned), m.model);
    m.list.clear();
    EXPECT_TRUE(m.list.isEmpty());
    EXPECT_EQ(m.list.remove(static_cast<void*>(&pool[1])), nullptr);
}

TEST(GenericLists, BadPositionsAreFatal) {
    GenericList list;
    GenericNode* only = list.append(&pool[0]);
    const char* bounds = "^List bounds violation in fxds/GenericList aborting \\.\\.\\.\n$";
    EXPECT_DEATH(list.findNode(1), bounds);
    EXPECT_DEATH(list.findNode(-1), bounds);
    EXPECT_DEATH(list.insertAt(-1, nullptr), bounds);
    EXPECT_DEATH(list.insertAt(2, nullptr), bounds);
    EXPECT_DEATH(GenericList().remove(0), bounds);
    EXPECT_DEATH(GenericList().remove(only),
                 "^List underflow in fxds/GenericList aborting \\.\\.\\.\n$");
    list.insertAt(1, &pool[1]);
    EXPECT_EQ(list.findItem(1), &pool[1]);
    list.remove(0);
    list.remove(list.getHead());
    EXPECT_EQ(list.getHead(), nullptr);
    EXPECT_EQ(list.getTail(), nullptr);
}

struct Link : fxLinkItem {
    Link() { ++alive; }
    Link(const Link& other) : fxLinkItem(other) { ++alive; }
    Link& operator=(const Link&) = default;
    ~Link() { --alive; }
    static int alive;
};
int Link::alive = 0;

struct OpenList : fxIndexableList {
    using fxIndexableList::cachedIndex;
    using fxIndexableList::cachedLink;
    using fxIndexableList::fxIndexableList;
};

class IndexableLists : public testing::Test {
protected:
    typedef std::vector<fxLinkItem*> Links;

    // Fresh links, strung together.
    Links chain(size_t n) {
        Links links;
        for (size_t i = 0; i < n; ++i) links.push_back(&store[used++]);
        for (size_t i = 0; i + 1 < n; ++i) {
            links[i]->next = links[i + 1];
            links[i + 1]->prev = links[i];
        }
        return links;
    }
    static void expectSame(fxIndexableList& list, const Links& model) {
        EXPECT_EQ(Links(collect(list.getHead())), model);
        EXPECT_EQ(list.getCount(), static_cast<long>(model.size()));
        EXPECT_EQ(list.getTail(), model.empty() ? nullptr : model.back());
        for (size_t i = 0; i < model.size(); ++i) {
            EXPECT_EQ(list.findLink(static_cast<long>(i)), model[i]);
        }
    }
    static Links collect(fxLinkItem* first) {
        Links links;
        const fxLinkItem* previous = nullptr;
        for (; first != nullptr; first = first->next) {
            EXPECT_EQ(first->prev, previous);
            previous = first;
            links.push_back(first);
        }
        return links;
    }
    std::vector<Link> store{20000};
    size_t used = 0;
};

// A list of links, what it must hold, and the position that it must remember.
class IndexableModel : public IndexableLists {
protected:
    long size() const { return static_cast<long>(model.size()); }
    fxLinkItem* item(long at) const {
        return at == size() ? nullptr : model[static_cast<size_t>(at)];
    }
    void find(long index, long size) {
        if (remembered < 0) remembered = 0;  // the search starts from the head
        modelFind(remembered, index, size);
    }
    void insertOne(long at) {
        const long before = size();
        fxLinkItem* link = chain(1)[0];
        EXPECT_EQ(list.insertAt(at, link), before + 1);
        model.insert(model.begin() + at, link);
        if (before == 0) {
            remembered = 0;
        } else if (at < before) {
            find(at, before);
            if (at <= remembered) ++remembered;
        }
    }
    void unlinkAt(long at) {
        const long before = size();
        if (before > 0) find(at, before);
        ASSERT_EQ(list.unlinkAt(at), item(at));
        if (at == before) return;
        model.erase(model.begin() + at);
        const bool hadNoSuccessor = at == remembered && at == before - 1;
        if (at < remembered || hadNoSuccessor) --remembered;
    }
    void unlink(long at) {
        if (at == size()) return;
        list.unlink(item(at));
        model.erase(model.begin() + at);
        remembered = model.empty() ? -1 : 0;
    }
    void splice(long at, size_t count, bool before) {
        if (!before && at == size() - 1) return;  // see SurviveOddSplices
        Links more = chain(count);
        fxIndexableList other(more.empty() ? nullptr : more[0]);
        const long added = static_cast<long>(count), grown = size() + added;
        ASSERT_EQ(before ? list.insertListAt(at, &other) : list.appendListAt(at, &other),
                  before ? added : grown);
        model.insert(model.begin() + (before ? at : std::min(at + 1, size())), more.begin(),
                     more.end());
        if (!more.empty()) remembered = -1;
        expectSame(other, {});
    }
    void split(long at, bool byPosition) {
        if (size() < 20 || at == size()) return;
        fxLinkItem* cut = item(at);
        if (byPosition) {
            find(at, size());
            EXPECT_EQ(list.splitAt(at), cut);
            if (remembered >= at) remembered = 0;
        } else {
            list.split(cut);
            remembered = 0;
        }
        if (at == 0) remembered = -1;
        EXPECT_EQ(collect(cut), Links(model.begin() + at, model.end()));
        model.resize(static_cast<size_t>(at));
    }
    void lookAt(long at) {
        EXPECT_EQ(list.findLink(at), item(at));
        if (size() > 0) find(at, size());
    }
    void expectRemembered() {
        // Splicing nothing in, or looking where nothing is, may look first.
        if (remembered < 0 && list.cachedLink != nullptr) remembered = 0;
        ASSERT_EQ(list.cachedLink, remembered < 0 ? nullptr : item(remembered));
        if (remembered >= 0) {
            ASSERT_EQ(list.cachedIndex, remembered);
        }
    }

    OpenList list;
    Links model;
    long remembered = -1;  // none
};

TEST_F(IndexableModel, AgreesWithTheList) {
    std::mt19937 rng(testSeed());
    for (int step = 0; step < 4000 && !HasFailure(); ++step) {
        const long at = static_cast<long>(rng()) % (size() + 1);
        const unsigned long kind = rng() % 8;
        if (kind < 2) insertOne(at);
        if (kind == 2) unlinkAt(at);
        if (kind == 3) unlink(at);
        if (kind == 4) splice(at, rng() % 4, rng() % 2 == 0);
        if (kind == 5) split(at, rng() % 2 == 0);
        if (kind > 5) lookAt(at);
        expectRemembered();
        if (step % 10 == 0) {
            expectSame(list, model);
            for (long i = 0; i < size(); ++i) find(i, size());
        }
    }
}

TEST_F(IndexableLists, SurviveOddSplices) {
    Links abc = chain(3);
    fxIndexableList list(abc[0]);
    EXPECT_EQ(list.insertList(&list), 0);
    EXPECT_EQ(list.appendList(&list), 3);
    fxIndexableList empty;
    EXPECT_EQ(list.appendListAt(0, &empty), 3);
    expectSame(list, abc);
    EXPECT_EQ(empty.findLink(0), nullptr);
    EXPECT_EQ(empty.splitAt(0), nullptr);
    EXPECT_EQ(list.findLink(-1), nullptr);

    // Behind the last position the tail stays: what lies beyond it is not found
    // from there, and no walk leaves the chain.
    Links de = chain(2);
    fxIndexableList more(de[0]);
    EXPECT_EQ(list.appendListAt(2, &more), 5);
    EXPECT_EQ(list.getTail(), abc[2]);
    EXPECT_EQ(list.findLink(4), abc[2]);
    for (long i = 0; i < 5; ++i) list.findLink(i);
    EXPECT_EQ(collect(list.getHead()).size(), 5u);

    fxIndexableList single(chain(1)[0]);
    fxIndexableList two(chain(2)[0]);
    EXPECT_EQ(single.appendListAt(0, &two), 3);
    // One step from the remembered head, one from the tail, which stayed there.
    EXPECT_EQ(single.findLink(1), nullptr) << "ties of the walk go backward";
}

TEST_F(IndexableLists, ForgetWhatLeavesThem) {
    const Links abc = chain(3);
    OpenList list(abc[0]);
    list.findLink(1);
    list.unlinkAt(2);
    list.unlinkAt(1);
    EXPECT_EQ(list.cachedIndex, 0) << "without a successor, the predecessor";
    EXPECT_EQ(list.cachedLink, abc[0]);

    // What is put before the last position goes before the tail that stayed,
    // and moves the remembered link without moving its position.
    fxIndexableList more(chain(9)[0]);
    list.appendListAt(0, &more);
    list.insert(chain(1)[0]);
    fxLinkItem* remembered = list.findLink(2);
    EXPECT_EQ(remembered->prev, abc[0]);
    for (int i = 0; i < 2; ++i) list.insertAt(list.getCount() - 1, chain(1)[0]);
    EXPECT_EQ(list.cachedLink, remembered);
    EXPECT_EQ(list.splitAt(list.getCount() - 1), abc[0]);
    EXPECT_EQ(list.getCount(), 3);
    EXPECT_EQ(list.cachedLink, list.getHead());
}

/// The links of a list, which is whole, with its tail and the remembered link in it.
long countLinks(OpenList& list) {
    long count = 0;
    bool hasTail = list.isEmpty(), hasRemembered = list.cachedLink == nullptr;
    const fxLinkItem* previous = nullptr;
    for (fxLinkItem* link : list) {
        EXPECT_EQ(link->prev, previous);
        previous = link;
        ++count;
        hasTail = hasTail || link == list.getTail();
        hasRemembered = hasRemembered || link == list.cachedLink;
    }
    EXPECT_TRUE(hasTail && hasRemembered && count == list.getCount());
    return count;
}

// Whatever is done after a tail has stayed behind, and what has gone is not
// touched again.
TEST(TailsLeftBehind, LoseNoLinkAndKeepNone) {
    std::mt19937 rng(testSeed());
    std::vector<OpenList> lists(3);
    long linked = 0;
    const auto drop = [&](fxLinkItem* link) {
        while (link != nullptr) {
            fxLinkItem* next = link->next;
            delete static_cast<Link*>(link);
            link = next;
            --linked;
        }
    };
    for (int step = 0; step < 30000; ++step) {
        OpenList& list = lists[rng() % lists.size()];
        OpenList& other = lists[rng() % lists.size()];
        const long at = static_cast<long>(rng()) % (list.getCount() + 3) - 1;
        switch (rng() % 10) {
            case 0:
            case 1:
            case 2:
                list.insertAt(at, new Link);
                ++linked;
                break;
            case 3:
            case 4:
                drop(list.unlinkAt(at));
                break;
            case 5: {
                fxLinkItem* link = list.getHead();
                if (link == nullptr) break;
                for (long i = 0; i < at; ++i) link = link->next != nullptr ? link->next : link;
                if (rng() % 4 != 0) {
                    list.unlink(link);
                } else {
                    list.split(link);
                }
                drop(link);
                break;
            }
            case 6:
                if (rng() % 8 == 0) drop(list.splitAt(at));
                break;
            case 7:
                list.insertListAt(at, &other);
                break;
            default:
                list.appendListAt(rng() % 2 == 0 ? list.getCount() - 1 : at, &other);
        }
        long found = 0;
        for (OpenList& each : lists) {
            each.findLink(static_cast<long>(rng()) % (each.getCount() + 2));
            found += countLinks(each);
        }
        ASSERT_EQ(found, linked) << "step " << step;
    }
    for (OpenList& each : lists) drop(each.splitAt(0));
    EXPECT_EQ(Link::alive, 0);
}

TEST(IndexableListOfOne, CopiesOfLinksStandInNoList) {
    Link link, second;
    fxIndexableList list(&link);
    list.append(&second);
    const Link copy(link);
    EXPECT_EQ(copy.getNext(), nullptr);
    second = copy;
    EXPECT_EQ(second.getPrev(), &link);
    list.split(&link);
    EXPECT_TRUE(list.isEmpty());
    EXPECT_EQ(link.getNext(), &second) << "what is cut off stays a chain";
    list.split(nullptr);
}

}  // namespace
