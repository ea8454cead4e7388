// An intrusive list: its objects contain the links.
#ifndef FXDS_INDEXABLELIST_H
#define FXDS_INDEXABLELIST_H

#include "fxds/Config.h"
#include "fxds/detail/ListIterator.h"

/// Base of objects that can be in an fxIndexableList, in one at a time.
class FX_API fxLinkItem {
public:
    fxLinkItem() : next(nullptr), prev(nullptr) {}
    /// A copy is in no list.
    fxLinkItem(const fxLinkItem&) : fxLinkItem() {}
    fxLinkItem& operator=(const fxLinkItem&) { return *this; }

    ///@{
    /// The neighbours, or null. Views.
    fxLinkItem* getNext() const { return next; }
    fxLinkItem* getPrev() const { return prev; }
    ///@}

    fxLinkItem* next;  ///< Null for the last.
    fxLinkItem* prev;  ///< Null for the first.
};

/// Links the caller's objects and never makes or destroys one. It
/// can be cut in two and spliced as a whole. Positions count from 0; the last
/// one found is remembered, as in GenericList. Positions are not checked:
/// outside the list nothing is found, and what is added where nothing is found
/// goes to the end.
///
/// Requires throughout: a link handed in is in no list, unless the
/// operation says that it is in this one.
class FX_API fxIndexableList {
public:
    fxIndexableList();
    /// Takes over the chain that begins with `first`, which may be null.
    /// Requires: nothing precedes `first`, and the chain ends.
    explicit fxIndexableList(fxLinkItem* first);
    fxIndexableList(const fxIndexableList&) = delete;
    fxIndexableList& operator=(const fxIndexableList&) = delete;

    long getCount() const { return count; }
    long length() const { return count; }
    bool isEmpty() const { return count == 0; }
    fxLinkItem* getHead() const { return head; }  ///< Null when the list is empty. View.
    /// Null when empty. Not the last link once appendListAt() has spliced a list
    /// in behind the last position.
    fxLinkItem* getTail() const { return tail; }

    /// The link at a position; null outside the list.
    fxLinkItem* findLink(long index) const;

    /// Puts the link at a position; behind everything from getCount() on.
    /// Returns the new count, as do the others that add one link.
    long insertAt(long index, fxLinkItem* link);
    long insert(fxLinkItem* link) { return insertAt(0, link); }      ///< At the front.
    long append(fxLinkItem* link) { return insertAt(count, link); }  ///< At the end.
    /// Behind the link at `index`.
    long appendAt(long index, fxLinkItem* link) {
        return insertAt(index < count ? index + 1 : count, link);
    }

    /// Takes the link out. Requires: it is in this list.
    void unlink(fxLinkItem* link);
    /// Takes the link at a position out and returns it; null outside the list.
    fxLinkItem* unlinkAt(long index);

    /// Cuts the list before the link: the chain from there on is no longer
    /// this list's. Null changes nothing. Requires: the link is in this list.
    void split(fxLinkItem* link);
    /// The same by position; returns the first link of the chain cut off, or
    /// null outside the list.
    fxLinkItem* splitAt(long index);

    /// Puts the whole chain of `other` before the link at a position. Returns
    /// the number of links moved. Splicing leaves `other` empty; an empty
    /// `other`, or this list itself, changes nothing.
    long insertListAt(long index, fxIndexableList* other);
    long insertList(fxIndexableList* other) { return insertListAt(0, other); }  ///< At the front.
    /// Puts the whole chain of `other` behind the link at a position, or at
    /// the end from getCount() on. Returns the new count.
    ///
    /// Caution: splicing after the last link does not update getTail(), and what
    /// goes by the tail (append(), positions near the end) stops short of what
    /// was spliced in behind it. To extend a list use appendList().
    long appendListAt(long index, fxIndexableList* other);
    long appendList(fxIndexableList* other) { return appendListAt(count, other); }  ///< At the end.

    // For range-for over the links; they may not be taken out meanwhile.
    /// What the iterator gives for a link: the link.
    static fxLinkItem* linkOf(fxLinkItem* link) { return link; }
    /// Goes over the links; none may be taken out meanwhile.
    typedef fxListIterator<fxLinkItem, fxLinkItem*, &fxIndexableList::linkOf> Iterator;
    Iterator begin() const { return Iterator(head); }
    Iterator end() const { return Iterator(nullptr); }

protected:
    fxLinkItem* head;                ///< The first link, or null.
    fxLinkItem* tail;                ///< See getTail().
    mutable long cachedIndex;        ///< Position of `cachedLink`.
    mutable fxLinkItem* cachedLink;  ///< Null: nothing is remembered.
    long count;                      ///< Number of links.

private:
    void remember(long index, fxLinkItem* link) const;
    void adopt(fxLinkItem* first);
    void detach(fxLinkItem* link);
    bool holds(const fxLinkItem* link) const;
    void join(fxLinkItem* before, fxLinkItem* first, fxLinkItem* last);
    void take(fxLinkItem* before, fxIndexableList& other);
    void takeAtEnd(fxIndexableList& other);
};

#endif
