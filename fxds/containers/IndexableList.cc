#include "fxds/IndexableList.h"

#include <algorithm>

// Invariants:
// (1) The chain from the head holds `count` links and ends with null.
// (2) The tail is one of them, but not always the last, because splicing behind
//     the last position leaves it in its place (see the header).
// (3) cachedLink is null or a link of the chain.
//
// So every walk is ready to meet the end early, links joined behind the tail go
// between it and its follower, and the remembered link is dropped when it
// leaves the list even though its position differs: no link is lost, and no
// removed one is kept.

namespace {

fxLinkItem* endOf(fxLinkItem* link) {
    while (link->next != nullptr) link = link->next;
    return link;
}

}  // namespace

fxIndexableList::fxIndexableList()
    : head(nullptr), tail(nullptr), cachedIndex(0), cachedLink(nullptr), count(0) {}

fxIndexableList::fxIndexableList(fxLinkItem* first) : fxIndexableList() {
    FX_ASSERT(first == nullptr || first->prev == nullptr);
    adopt(first);
}

// Adopts the chain: finds its end and counts it.
void fxIndexableList::adopt(fxLinkItem* first) {
    head = first;
    tail = nullptr;
    count = 0;
    for (fxLinkItem* link = first; link != nullptr; link = link->next) {
        tail = link;
        ++count;
    }
    remember(0, head);
}

void fxIndexableList::remember(long index, fxLinkItem* link) const {
    cachedIndex = index;
    cachedLink = link;
}

fxLinkItem* fxIndexableList::findLink(long index) const {
    if (cachedLink == nullptr) remember(0, head);
    return fxFindInList<fxLinkItem>({head, tail, count, cachedIndex, cachedLink}, index);
}

// Puts the chain [first, last] between `before`, or the start of the list, and
// the links behind.
void fxIndexableList::join(fxLinkItem* before, fxLinkItem* first, fxLinkItem* last) {
    fxLinkItem*& place = before != nullptr ? before->next : head;
    first->prev = before;
    last->next = place;
    if (place != nullptr) place->prev = last;
    place = first;
}

long fxIndexableList::insertAt(long index, fxLinkItem* link) {
    FX_ASSERT(link != nullptr && link != head && link->prev == nullptr);
    if (head == nullptr) remember(0, link);
    fxLinkItem* after = index < count ? findLink(index) : nullptr;
    if (after != nullptr) {
        join(after->prev, link, link);
        if (index <= cachedIndex) ++cachedIndex;
    } else {
        join(tail, link, link);
        tail = link;
    }
    return ++count;
}

// Takes the link out and clears it; the caller adjusts the remembered position.
void fxIndexableList::detach(fxLinkItem* link) {
    if (link->prev != nullptr) link->prev->next = link->next;
    if (link->next != nullptr) link->next->prev = link->prev;
    if (link == head) head = link->next;
    if (link == tail) tail = link->prev;
    // A tail that is not the last link can be the first one.
    if (tail == nullptr && head != nullptr) tail = endOf(head);
    link->next = link->prev = nullptr;
    --count;
}

void fxIndexableList::unlink(fxLinkItem* link) {
    FX_ASSERT(link != nullptr && (link->prev != nullptr || link == head));
    detach(link);
    remember(0, head);
}

fxLinkItem* fxIndexableList::unlinkAt(long index) {
    fxLinkItem* link = findLink(index);
    if (link == nullptr) return nullptr;
    if (index < cachedIndex) {
        --cachedIndex;
    } else if (index == cachedIndex) {
        if (link->next != nullptr) {
            remember(index, link->next);
        } else if (link->prev != nullptr) {
            remember(index - 1, link->prev);
        } else {
            remember(0, nullptr);
        }
    }
    detach(link);
    if (cachedLink == link) remember(0, head);
    return link;
}

void fxIndexableList::split(fxLinkItem* link) {
    if (link == nullptr) return;
    FX_ASSERT(link->prev != nullptr || link == head);
    if (link == head) {
        adopt(nullptr);
        return;
    }
    link->prev->next = nullptr;
    link->prev = nullptr;
    adopt(head);
}

fxLinkItem* fxIndexableList::splitAt(long index) {
    fxLinkItem* link = findLink(index);
    if (link == nullptr) return nullptr;
    const long keptIndex = cachedIndex;
    fxLinkItem* keptLink = cachedLink;
    split(link);
    if (keptIndex < index && holds(keptLink)) remember(keptIndex, keptLink);
    return link;
}

bool fxIndexableList::holds(const fxLinkItem* link) const {
    return std::find(begin(), end(), link) != end();
}

// Joins the chain of `other` in behind `before`, or at the start.
void fxIndexableList::take(fxLinkItem* before, fxIndexableList& other) {
    join(before, other.head, endOf(other.tail));
    count += other.count;
    remember(0, nullptr);
    other.adopt(nullptr);
}

void fxIndexableList::takeAtEnd(fxIndexableList& other) {
    fxLinkItem* newTail = other.tail;
    take(tail, other);
    tail = newTail;
}

long fxIndexableList::insertListAt(long index, fxIndexableList* other) {
    FX_ASSERT(other != nullptr);
    if (other == this || other->isEmpty()) return 0;
    const long moved = other->count;
    fxLinkItem* after = findLink(index);
    if (after != nullptr) {
        take(after->prev, *other);
    } else {
        takeAtEnd(*other);
    }
    return moved;
}

long fxIndexableList::appendListAt(long index, fxIndexableList* other) {
    FX_ASSERT(other != nullptr);
    if (other == this || other->isEmpty()) return count;
    fxLinkItem* before = index < count ? findLink(index) : nullptr;
    if (before != nullptr) {
        take(before, *other);
    } else {
        takeAtEnd(*other);
    }
    return count;
}
