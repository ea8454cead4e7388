// Finding a position in a doubly linked list that remembers the last one. Part
// of the public headers, not of the interface.
#ifndef FXDS_DETAIL_LISTITERATOR_H
#define FXDS_DETAIL_LISTITERATOR_H

#include <cstddef>
#include <iterator>

/// The state that the lists keep: ends, length and the remembered position.
/// Node has `next` and `prev`.
template <class Node>
struct fxListPosition {
    Node* head;
    Node* tail;
    long count;
    long& cachedIndex;
    Node*& cachedNode;
};

/// The node at `index`, reached from the head, the tail or the remembered node,
/// whichever promises fewer steps; ties go to the backward walk. A walk makes
/// the position the remembered one. Null, with nothing remembered, outside the
/// list or when the chain is shorter than its count says.
template <class Node>
Node* fxFindInList(const fxListPosition<Node>& list, long index) {
    if (index < 0 || index >= list.count) return nullptr;
    if (index == 0) return list.head;
    if (index == list.count - 1) return list.tail;
    const long ahead = index - list.cachedIndex;
    if (ahead == 0) return list.cachedNode;

    const long fromTail = list.count - 1 - index;
    Node* node = list.cachedNode;
    long steps = ahead;  // negative: backwards
    if (ahead < 0 && index < -ahead) {
        node = list.head;
        steps = index;
    } else if (ahead > 0 && ahead >= fromTail) {
        node = list.tail;
        steps = -fromTail;
    }
    for (; steps > 0 && node != nullptr; --steps) node = node->next;
    for (; steps < 0 && node != nullptr; ++steps) node = node->prev;
    if (node == nullptr) return nullptr;
    list.cachedIndex = index;
    list.cachedNode = node;
    return node;
}

/// Walks a list in a range-for; Give makes what it gives out of a node.
template <class Node, class Item, Item (*give)(Node*)>
class fxListIterator {
public:
    typedef std::input_iterator_tag iterator_category;
    typedef Item value_type;
    typedef std::ptrdiff_t difference_type;
    typedef const Item* pointer;
    typedef Item reference;

    explicit fxListIterator(Node* node_) : node(node_) {}
    Item operator*() const { return give(node); }
    fxListIterator& operator++() {
        node = node->next;
        return *this;
    }
    fxListIterator operator++(int) {
        fxListIterator before(*this);
        node = node->next;
        return before;
    }
    bool operator==(const fxListIterator& other) const { return node == other.node; }
    bool operator!=(const fxListIterator& other) const { return node != other.node; }

private:
    Node* node;
};

#endif
