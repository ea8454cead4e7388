#include "fxds/IndexableList.h"

// Splicing behind the last position leaves the tail where it was (see the
// header), so every walk must be ready to meet the end of the chain early.

namespace {

// Links [first, last], a chain of its own, in between two neighbours, each of
// which may be null.
void linkBetween(fxLinkItem* before, fxLinkItem* first, fxLinkItem* last, fxLinkItem* after) {
    first->prev = before;
    last->next = after;
    if (before != nullptr) before->next = first;
    if (after != nullptr) after->prev = last;
}

}  // namespace

fxIndexableList::fxIndexableList()
    : head(nullptr), tail(nullptr), cachedIndex(0), cachedLink(nullptr), count(0) {}

fxIndexableList::fxIndexableList(fxLinkItem* first) : fxIndexableList() { adopt(first); }

// Makes the chain this list's own: finds its end and counts it.
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

void fxIndexableList::remember(long index, fxLinkItem* link) {
    cachedIndex = index;
    cachedLink = link;
}

fxLinkItem* fxIndexableList::findLink(long index) {
    if (cachedLink == nullptr) remember(0, head);
    return fxFindInList<fxLinkItem>({head, tail, count, cachedIndex, cachedLink}, index);
}

long fxIndexableList::insertAt(long index, fxLinkItem* link) {
    fxLinkItem* after = index < count ? findLink(index) : nullptr;
    if (count == 0) {
        head = tail = link;
        link->next = link->prev = nullptr;
        remember(0, link);
    } else if (after == nullptr) {
        linkBetween(tail, link, link, nullptr);
        tail = link;
    } else {
        linkBetween(after->prev, link, link, after);
        if (after == head) head = link;
        if (index <= cachedIndex) ++cachedIndex;
    }
    return ++count;
}

// Takes the link out and clears it; the remembered position is the caller's.
void fxIndexableList::detach(fxLinkItem* link) {
    if (link->prev != nullptr) link->prev->next = link->next;
    if (link->next != nullptr) link->next->prev = link->prev;
    if (link == head) head = link->next;
    if (link == tail) tail = link->prev;
    link->next = link->prev = nullptr;
    --count;
}

void fxIndexableList::unlink(fxLinkItem* link) {
    detach(link);
    remember(0, head);
}

fxLinkItem* fxIndexableList::unlinkAt(long index) {
    fxLinkItem* link = findLink(index);
    if (link == nullptr) return nullptr;
    fxLinkItem* successor = link->next;
    fxLinkItem* predecessor = link->prev;
    detach(link);
    if (index < cachedIndex) {
        --cachedIndex;
    } else if (index == cachedIndex) {
        if (successor != nullptr) {
            remember(index, successor);
        } else if (predecessor != nullptr) {
            remember(index - 1, predecessor);
        } else {
            remember(0, nullptr);
        }
    }
    return link;
}

void fxIndexableList::split(fxLinkItem* link) {
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
    if (keptIndex < index) remember(keptIndex, keptLink);
    return link;
}

// Ends every splice: what `other` held is counted here, and it is left empty.
long fxIndexableList::spliced(fxIndexableList& other) {
    const long moved = other.count;
    count += moved;
    remember(0, nullptr);
    other.adopt(nullptr);
    return moved;
}

long fxIndexableList::insertListAt(long index, fxIndexableList* other) {
    if (other == this || other->head == nullptr) return 0;
    fxLinkItem* after = findLink(index);
    if (after != nullptr) {
        linkBetween(after->prev, other->head, other->tail, after);
        if (after == head) head = other->head;
    } else {
        linkBetween(tail, other->head, other->tail, nullptr);
        if (head == nullptr) head = other->head;
        tail = other->tail;
    }
    return spliced(*other);
}

long fxIndexableList::appendListAt(long index, fxIndexableList* other) {
    if (other == this || other->head == nullptr) return count;
    fxLinkItem* before = index < count ? findLink(index) : nullptr;
    if (before != nullptr) {
        linkBetween(before, other->head, other->tail, before->next);
    } else {
        linkBetween(tail, other->head, other->tail, nullptr);
        if (head == nullptr) head = other->head;
        tail = other->tail;
    }
    spliced(*other);
    return count;
}
