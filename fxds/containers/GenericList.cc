#include "fxds/GenericList.h"

#include "fxds/Fatal.h"

// Invariants, between any two calls:
// (1) `count` nodes are linked from head to tail, in both directions. The list owns them,
//     and no item.
// (2) cachedNode is null, or the node at position cachedIndex.
//
// Adding remembers the new node's position; removing by node falls back to the head,
// because the position of the removed node is not known. A node unlinks itself from its
// neighbours in its destructor. So a removal corrects ends, count and remembered node
// first, and then deletes the node.

namespace {

[[noreturn]] void die(const char* what) { fxFatal("%s in fxds/GenericList aborting ...", what); }

}  // namespace

GenericNode::~GenericNode() {
    if (prev != nullptr) prev->next = next;
    if (next != nullptr) next->prev = prev;
}

GenericList::GenericList()
    : count(0), cachedIndex(0), head(nullptr), tail(nullptr), cachedNode(nullptr) {}

GenericList::GenericList(const GenericList& source) : GenericList() {
    for (void* item : source) append(item);
}

GenericList& GenericList::operator=(const GenericList& source) {
    if (&source == this) return *this;
    clear();
    for (void* item : source) append(item);
    return *this;
}

GenericList::~GenericList() { clear(); }

void GenericList::remember(long index, GenericNode* node) const {
    cachedIndex = index;
    cachedNode = node;
}

GenericNode* GenericList::findNode(long index) const {
    if (index < 0 || index >= count) die("List bounds violation");
    return fxFindInList<GenericNode>({head, tail, count, cachedIndex, cachedNode}, index);
}

GenericNode* GenericList::append(void* item) {
    GenericNode* node = new GenericNode(item);
    node->prev = tail;
    (tail != nullptr ? tail->next : head) = node;
    tail = node;
    remember(count++, node);
    return node;
}

GenericNode* GenericList::prepend(void* item) {
    GenericNode* node = new GenericNode(item);
    node->next = head;
    (head != nullptr ? head->prev : tail) = node;
    head = node;
    ++count;
    remember(0, node);
    return node;
}

GenericNode* GenericList::insertAt(long index, void* item) {
    if (index < 0 || index > count) die("List bounds violation");
    if (index == 0) return prepend(item);
    if (index == count) return append(item);
    GenericNode* before = findNode(index - 1);
    GenericNode* node = new GenericNode(item);
    node->prev = before;
    node->next = before->next;
    before->next->prev = node;
    before->next = node;
    ++count;
    remember(index, node);
    return node;
}

void* GenericList::remove(GenericNode* node) {
    if (head == nullptr) die("List underflow");
    if (node == head) head = node->next;
    if (node == tail) tail = node->prev;
    --count;
    remember(0, head);
    void* item = node->item;
    delete node;
    return item;
}

void* GenericList::remove(void* item) {
    for (GenericNode* node = head; node != nullptr; node = node->next) {
        if (node->item == item) return remove(node);
    }
    return nullptr;
}

void* GenericList::remove(long index) { return remove(findNode(index)); }

void GenericList::clear() {
    while (head != nullptr) remove(head);
}
