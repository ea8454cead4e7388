// Walks over objects that may change, or be destroyed, meanwhile. Part of the public
// headers, not of the interface.
#ifndef FXDS_DETAIL_WALK_H
#define FXDS_DETAIL_WALK_H

#include "fxds/Config.h"

// Pragmas around a constructor that enters a local variable in a list: the compiler cannot
// see that the destructor removes its address again.
#if defined(__GNUC__) && !defined(__clang__) && __GNUC__ >= 12
#define FX_REGISTERS_LOCAL_BEGIN \
    _Pragma("GCC diagnostic push") _Pragma("GCC diagnostic ignored \"-Wdangling-pointer\"")
#define FX_REGISTERS_LOCAL_END _Pragma("GCC diagnostic pop")
#else
#define FX_REGISTERS_LOCAL_BEGIN
#define FX_REGISTERS_LOCAL_END
#endif

template <class Self>
class fxWalk;

/// The walks in progress over one object, which has this list as a member and corrects them
/// when it changes. This class is for objects that outlive their walks: it has no
/// destructor, so one with static storage may be used until the process ends.
template <class Self>
class fxWalkList {
public:
    bool isEmpty() const { return latest == nullptr; }
    /// The walk that began last. Requires: !isEmpty()
    Self& innermost() const {
        FX_ASSERT(!isEmpty());
        return static_cast<Self&>(*latest);
    }
    /// Calls `correct` on every walk, the one that began last first.
    template <class Correct>
    void each(Correct correct) const {
        for (auto* walk = latest; walk != nullptr; walk = walk->outer) {
            correct(static_cast<Self&>(*walk));
        }
    }

protected:
    friend class fxWalk<Self>;

    fxWalk<Self>* latest = nullptr;
};

/// The list of an object that may be destroyed during its walks, which then belong to no
/// list.
template <class Self>
class fxWalks : public fxWalkList<Self> {
public:
    fxWalks() = default;
    fxWalks(const fxWalks&) = delete;
    fxWalks& operator=(const fxWalks&) = delete;
    ~fxWalks() {
        for (auto* walk = this->latest; walk != nullptr; walk = walk->outer) walk->list = nullptr;
    }
};

/// Base of a walk, `class Self : public fxWalk<Self>`. A walk is a local variable of the
/// function that walks; it enters itself in the list and leaves it when the function ends,
/// also by an exception. The derived class adds a position and its corrections.
///
/// Invariants:
/// (1) The list leads through `outer` to every walk that exists and whose list exists, the
///     one that began last first.
/// (2) So a walk that ends is the first of its list.
template <class Self>
class fxWalk {
public:
    fxWalk(const fxWalk&) = delete;
    fxWalk& operator=(const fxWalk&) = delete;

protected:
    FX_REGISTERS_LOCAL_BEGIN
    explicit fxWalk(fxWalkList<Self>& list_) : list(&list_), outer(list_.latest) {
        list_.latest = this;
    }
    FX_REGISTERS_LOCAL_END
    ~fxWalk() {
        if (list == nullptr) return;
        FX_ASSERT(list->latest == this);
        list->latest = outer;
    }

    /// Whether the object that is walked over has been destroyed.
    bool isOrphan() const { return list == nullptr; }
    /// The list that the walk is in, or null.
    fxWalkList<Self>* getList() const { return list; }

private:
    friend class fxWalkList<Self>;
    friend class fxWalks<Self>;

    fxWalkList<Self>* list;  // null after it has been destroyed
    // The walk that began before this one, or null. Volatile, so that the compiler
    // does not store it and a neighbour as one vector: each send loads what the one
    // before has stored here, and the latency doubles the time of a send.
    fxWalk* volatile outer;
};

#endif
