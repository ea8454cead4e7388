// The two linked lists, against a vector.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
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

typedef std::vector<void*> Items;

Items items(const GenericList& list) {
    const GenericNode* previous = nullptr;
    for (GenericNode* node = list.getHead(); node != nullptr; node = node->getNext()) {
        EXPECT_EQ(node->getPrev(), previous);
        previous = node;
    }
    EXPECT_EQ(list.getTail(), previous);
    const Items result(list.begin(), list.end());
    EXPECT_EQ(list.getCount(), static_cast<long>(result.size()));
    return result;
}

// The position found or made last is remembered, but for the ends, which are at hand.
TEST(GenericLists, AgreeWithAModel) {
    std::mt19937 rng(testSeed());
    OpenGenericList list;
    Items model;
    for (int step = 0; step < 20000 && !HasFailure(); ++step) {
        void* const item = &pool[rng() % 1000];
        const auto size = static_cast<long>(model.size());
        const long at = size > 0 ? static_cast<long>(rng()) % size : 0;
        const long places[] = {size, 0, at};
        const unsigned long kind = rng() % 8;
        const auto found = std::find(model.begin(), model.end(), item);
        if (kind < 3) {
            EXPECT_TRUE(kind != 0 || list.append(item)->getItem() == item);
            if (kind == 1) list.prepend(item);
            if (kind == 2) list.insertAt(at, item);
            model.insert(model.begin() + places[kind], item);
            EXPECT_EQ(list.cachedIndex, places[kind]);
        } else if (kind == 3 && size > 0) {
            EXPECT_EQ(list.remove(at), model[static_cast<size_t>(at)]);
            model.erase(model.begin() + at);
        } else if (kind == 4) {
            EXPECT_EQ(list.remove(item), found == model.end() ? nullptr : item);
            if (found != model.end()) model.erase(found);
        }
        for (long i = at; kind > 4 && i < std::min(at + 3, size); ++i) {
            EXPECT_EQ(list.findItem(i), model[static_cast<size_t>(i)]);
            EXPECT_TRUE(i == 0 || i == size - 1 || list.cachedIndex == i);
        }
        EXPECT_TRUE(model.empty() ? list.cachedNode == nullptr
                                  : list.cachedNode->getItem() ==
                                        model[static_cast<size_t>(list.cachedIndex)]);
        EXPECT_TRUE(step % 100 != 0 || items(list) == model);
    }
    GenericList copy(list), assigned;
    const GenericList& itself = copy;
    copy = itself;
    assigned.append(&pool[0]);
    assigned = copy;
    EXPECT_TRUE(items(copy) == model && items(assigned) == model);
    list.clear();
    EXPECT_TRUE(list.isEmpty());
    EXPECT_EQ(list.remove(static_cast<void*>(&pool[1])), nullptr);
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
    list.remove(0);
    list.remove(list.getHead());
    EXPECT_TRUE(list.getHead() == nullptr && list.getTail() == nullptr);
}

struct Link : fxLinkItem {
    Link() { ++alive; }
    Link(const Link& other) : fxLinkItem(other) { ++alive; }
    Link& operator=(const Link&) = default;
    ~Link() { --alive; }
    static inline int alive = 0;
};

struct OpenList : fxIndexableList {
    using fxIndexableList::cachedIndex;
    using fxIndexableList::cachedLink;
    using fxIndexableList::fxIndexableList;
};

typedef std::vector<fxLinkItem*> Links;

// A list and its links in order. Where something was spliced in behind the last position,
// which leaves the tail where it was, positions are what the list says: an odd list only
// has to keep its links.
struct IndexableModel {
    long size() const { return static_cast<long>(links.size()); }
    Links::iterator placeOf(long at) {
        return at < 0 || at >= size() ? links.end() : links.begin() + at;
    }
    void insertAt(long at) {
        Link* const link = new Link;
        EXPECT_EQ(list.insertAt(at, link), size() + 1);
        links.insert(placeOf(at), link);
    }
    void splice(long at, IndexableModel& other, bool isBefore) {
        const long moved = this == &other ? 0 : other.size();
        const long answer =
            isBefore ? list.insertListAt(at, &other.list) : list.appendListAt(at, &other.list);
        EXPECT_EQ(answer, isBefore ? moved : size() + moved);
        if (moved == 0) return;
        const auto place = placeOf(at);
        links.insert(place == links.end() || isBefore ? place : place + 1, other.links.begin(),
                     other.links.end());
        other.links.clear();
    }
    // One link, or all from it on, by position or by itself.
    void take(long at, bool isByPosition, bool isAll) {
        const auto place = placeOf(at);
        fxLinkItem* const expected = place != links.end() ? *place : nullptr;
        fxLinkItem* link = expected;
        if (isByPosition) {
            link = isAll ? list.splitAt(at) : list.unlinkAt(at);
            EXPECT_TRUE(isOdd || link == expected);
        } else if (link != nullptr) {
            isAll ? list.split(link) : list.unlink(link);
        }
        for (const fxLinkItem* previous = nullptr; link != nullptr;) {
            EXPECT_TRUE(!isAll || link->prev == previous) << "what is cut off stays a chain";
            links.erase(std::find(links.begin(), links.end(), link));
            previous = link;
            link = isAll ? link->next : nullptr;
            delete static_cast<const Link*>(previous);
        }
    }
    void expectSame(long at) {
        const Links found(list.begin(), list.end());
        const fxLinkItem* previous = nullptr;
        for (const fxLinkItem* link : list) {
            EXPECT_EQ(link->getPrev(), previous);
            previous = link;
        }
        EXPECT_EQ(list.getCount(), size());
        EXPECT_TRUE(
            isOdd ? std::is_permutation(found.begin(), found.end(), links.begin(), links.end())
                  : found == links);
        links = found;
        fxLinkItem* const sought = list.findLink(at);
        const auto cached = placeOf(list.cachedIndex);
        if (isOdd) return;
        EXPECT_EQ(list.getTail(), previous);
        EXPECT_EQ(sought, placeOf(at) == links.end() ? nullptr : *placeOf(at));
        EXPECT_TRUE(list.cachedLink == nullptr || *cached == list.cachedLink);
        EXPECT_TRUE(at <= 0 || at >= size() - 1 || list.cachedIndex == at);
    }

    OpenList list;
    Links links;
    bool isOdd = false;
};

TEST(IndexableLists, AgreeWithAModel) {
    std::mt19937 rng(testSeed());
    for (int round = 0; round < 60; ++round) {
        IndexableModel lists[3];
        for (auto& each : lists) each.isOdd = round % 2 == 0;
        for (int step = 0; step < 1000 && !HasFailure(); ++step) {
            IndexableModel& one = lists[rng() % 3];
            const long at = static_cast<long>(rng()) % (one.size() + 3) - 1;
            const unsigned long kind = rng() % 10;
            const bool isBefore = rng() % 2 == 0;
            if (kind < 4) one.insertAt(at);
            if (kind > 3 && kind < 7) one.take(at, rng() % 4 != 0, false);
            if (kind == 7 && one.size() > 15) one.take(at, rng() % 4 != 0, true);
            const long place = rng() % 4 == 0 ? one.size() - 1 : at;
            if (kind > 7 && (one.isOdd || isBefore || place != one.size() - 1)) {
                one.splice(place, lists[rng() % 3], isBefore);
            }
            long alive = 0;
            for (IndexableModel& each : lists) {
                each.expectSame(static_cast<long>(rng()) % (each.size() + 2));
                alive += each.size();
            }
            ASSERT_EQ(Link::alive, alive) << "step " << step;
        }
        for (IndexableModel& each : lists) each.take(0, false, true);
    }
}

TEST(IndexableLists, CopiesOfLinksAreInNoList) {
    Link link, second;
    fxIndexableList list(&link);
    list.append(&second);
    const Link copy(link);
    EXPECT_EQ(copy.getNext(), nullptr);
    second = copy;
    EXPECT_EQ(second.getPrev(), &link);
    list.split(nullptr);
    EXPECT_EQ(list.getTail(), &second);
    // One step from the head, one from the tail, which stays behind.
    Link ends[2], first;
    fxIndexableList more(&ends[0]), single(&first);
    more.append(&ends[1]);
    EXPECT_EQ(single.appendListAt(0, &more), 3);
    EXPECT_EQ(single.findLink(1), nullptr) << "ties of the walk go backward";
}

}  // namespace
