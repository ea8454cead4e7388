// A list of pointers with positions, which checks them.
#ifndef FXDS_GENERICLIST_H
#define FXDS_GENERICLIST_H

#include "fxds/Config.h"
#include "fxds/detail/ListIterator.h"

/// One item of a GenericList, made and destroyed by it. View: good until the
/// item is removed.
class FX_API GenericNode {
public:
    GenericNode(const GenericNode&) = delete;
    GenericNode& operator=(const GenericNode&) = delete;
    /// Joins the neighbours.
    ~GenericNode();

    void* getItem() const { return item; }  ///< The item that it holds.
    ///@{
    /// The neighbours, or null. Views.
    GenericNode* getNext() const { return next; }
    GenericNode* getPrev() const { return prev; }
    ///@}

    GenericNode* prev;  ///< Null for the first.
    GenericNode* next;  ///< Null for the last.
    void* item;         ///< borrowed

private:
    friend class GenericList;
    explicit GenericNode(void* item_) : prev(nullptr), next(nullptr), item(item_) {}
};

/// Holds pointers, which it neither follows nor releases. Positions count from 0. The
/// position found or made last is remembered, so going through the list by position costs
/// one step each. A bad position ends the process with a message.
class FX_API GenericList {
public:
    GenericList();
    GenericList(const GenericList& source);  ///< Holds the same items.
    /// Holds the items of `source` instead of its own.
    GenericList& operator=(const GenericList& source);
    ~GenericList();

    long getCount() const { return count; }
    long length() const { return count; }
    bool isEmpty() const { return count == 0; }
    ///@{
    /// Null when the list is empty. Views.
    GenericNode* getHead() const { return head; }
    GenericNode* getTail() const { return tail; }
    ///@}

    ///@{
    /// The node or item at a position. Fatal unless 0 <= index < getCount().
    GenericNode* findNode(long index) const;
    void* findItem(long index) const { return findNode(index)->item; }
    void* findItem(int index) const { return findItem(static_cast<long>(index)); }
    ///@}

    ///@{
    /// Puts the item at the end or at the front. Returns its node: a view, good
    /// until it is removed.
    GenericNode* append(void* item);
    GenericNode* prepend(void* item);
    ///@}
    /// Puts the item at a position. Fatal unless 0 <= index <= getCount().
    GenericNode* insertAt(long index, void* item);

    /// Removes a node and returns its item. Fatal on an empty list.
    /// Requires: the node is in this list.
    void* remove(GenericNode* node);
    /// Removes the first node that holds `item` and returns the item; null
    /// when there is none.
    void* remove(void* item);
    ///@{
    /// Removes by position and returns the item. Fatal unless 0 <= index < getCount().
    void* remove(long index);
    void* remove(int index) { return remove(static_cast<long>(index)); }
    ///@}
    void clear();  ///< Removes everything.

    // For range-for over the items; they may not be removed meanwhile.
    /// The value of the iterator at a node.
    static void* itemOf(GenericNode* node) { return node->item; }
    /// Goes over the items; none may be removed meanwhile.
    typedef fxListIterator<GenericNode, void*, &GenericList::itemOf> Iterator;
    Iterator begin() const { return Iterator(head); }
    Iterator end() const { return Iterator(nullptr); }

protected:
    long count;                       ///< Number of nodes.
    mutable long cachedIndex;         ///< Position of `cachedNode`.
    GenericNode* head;                ///< The first node, or null.
    GenericNode* tail;                ///< The last node, or null.
    mutable GenericNode* cachedNode;  ///< Found or made last; null when nothing is remembered.

private:
    void remember(long index, GenericNode* node) const;
};

#endif
