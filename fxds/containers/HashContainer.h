// The mechanism of dictionary and set: chains, search, iterators. Private to the library.
#ifndef FXDS_CONTAINERS_HASHCONTAINER_H
#define FXDS_CONTAINERS_HASHCONTAINER_H

#include <cstdint>
#include <cstring>
#include <functional>
#include <typeinfo>
#include <utility>

#include "fxds/containers/HashHooks.h"
#include "fxds/containers/HashIters.h"
#include "fxds/detail/Allocate.h"
#include "fxds/detail/HashExtra.h"
#include "fxds/detail/Mix.h"
#include "fxds/detail/Walk.h"

// Included by the sources of the containers only. fxHashCore works on the
// fields and hooks of a container, which has declared it a friend.
//
// Invariants, between any two calls and whenever a hook runs:
// (1) The nodes of chain b hang on buckets[b], each in one chain. node->bucket()
//     is b. extra.linked is the number of all of them.
// (2) A linked node has a key and a value. Only while the value is being
//     replaced the node is marked as ending and has none: then only removal, an
//     addition of its key, which removes it, and iterators meet it.
// (3) Equal keys have equal tags, which are mixed from their fingerprints. So a
//     search compares keys only where the tags are equal. A late node, whose
//     key may still lack its text, has no such tag; see fxHashXdr. While
//     there is one, extra.hasLate is set.
// (4) If the index is built, it has all linked nodes and no other, and if it keeps
//     predecessors, each with the one before it in its chain. Equal keys of one
//     chain, which only a stream brings, are in the order of the chain. No node is late.
// (5) An iterator in `iters` is attached: its node is linked, and is in chain
//     bucketIndex.
// (6) While there is a hold, what is removed keeps its key, its value and its
//     memory, and waits in the ring of removed nodes. Without one, only what
//     endRemoved() is about to end is there.
// (7) If there is an extra.textRoom, keys are fxStr, and behind the block of each linked node
//     lies its text or a copy, if that is no longer than the room.
//
// A node is found only in the chain that its hash asks for. With (3) and (4), a
// search returns the same node with the index as by walking the chain, even if
// a stream has put a key twice into one chain, or into a wrong one.
//
// Every hook that ends or starts a life may call back, and those that start one
// may throw. So an entry is out of its chain, and all iterators are off it,
// before its life ends; and a new one is complete before it is linked. Walks use
// registered iterators, which removal moves on. An operation with arguments
// holds the table, because a callback may remove the entries where they lie.

template <class Container>
struct fxHashCore : fxHashIters<fxHashCore<Container>, Container, typename Container::Node,
                                typename Container::Iter> {
    typedef typename Container::Node Node;
    typedef typename Container::Iter Iter;
    typedef fxHashIters<fxHashCore, Container, Node, Iter> Iters;
    typedef typename Container::Finder Finder;
    typedef fxHashPlace Place;

    static constexpr unsigned int defaultChains = 31;
    static constexpr unsigned int longWalk = fxHashIndex<Node>::longWalk;

    // Searching.

    /// Asks the hooks of `hooks`, which is the table or, in a copy constructor,
    /// its source.
    static Node* findByHooks(const Container& table, const Container& hooks, const void* key,
                             Place& place) {
        return search(table, VirtualHooks{hooks}, key, place);
    }

    /// For a container whose hooks are those of fxKeyHooks<Key>: three virtual
    /// calls cost more than the search. `hooks` does not matter.
    template <class Key>
    static Node* findDirectly(const Container& table, const Container& /*hooks*/, const void* key,
                              Place& place) {
        return search(table, fxDirectHooks<Key>(), key, place);
    }

    static Node* find(const Container& table, const Container& hooks, const void* key,
                      Place& place) {
        if (__builtin_expect(hooks.extra.finder == nullptr, 0)) chooseFinder(hooks);
        return hooks.extra.finder(table, hooks, key, place);
    }
    static Node* find(const Container& table, const void* key) {
        Place place;
        return table.buckets.isEmpty() ? nullptr : find(table, table, key, place);
    }

    /// The same, quicker where keys are fxStr.
    [[gnu::always_inline]] static Node* findQuickly(const Container& table, const void* key) {
        if (table.extra.finder != &findDirectly<fxStr>) return find(table, key);
        Place place;
        return table.buckets.isEmpty() ? nullptr
                                       : search(table, fxDirectHooks<fxStr>(), key, place);
    }

    /// Where keys are fxStr.
    static Node* findText(const Container& table, std::string_view text) {
        if (table.buckets.isEmpty()) return nullptr;
        Place place;
        if (table.extra.finder == nullptr) chooseFinder(table);
        if (table.extra.finder == &findDirectly<fxStr>) {
            return search(table, fxDirectHooks<std::string_view>(), &text, place);
        }
        const fxStr key(text);
        return table.extra.finder(table, table, &key, place);
    }

    // Changing. `hooks` as above.

    static void makeChains(Container& table, unsigned int chains) { table.buckets.resize(chains); }

    /// While one lives, what is removed from the table stays whole. The outermost
    /// one ends it.
    class Hold {
    public:
        /// `value` is to be entered; it may lie in the table.
        explicit Hold(const Container& table, const void* value = nullptr)
            : removed{const_cast<Container&>(table)}, hold(table.extra.holds, value) {}
        void setValue(const void* value) { hold.value = value; }

    private:
        struct Removed {
            ~Removed() {
                if (table.extra.lastRemoved != nullptr) endRemoved(table);
            }
            Container& table;
        };
        const Removed removed;  // ends after the hold, so that it may be the outermost
        fxHashHold hold;
    };

    /// Enters the key with the value that `makeValue(void* at)` constructs. A
    /// hook may have entered the key meanwhile: then that entry goes if
    /// `isNewer`, and else this one ends and the answer is null. Requires: the
    /// table has chains.
    template <class MakeValue>
    static Node* insert(Container& table, const Container& hooks, Place& place, const void* key,
                        bool isNewer, MakeValue makeValue) {
        const unsigned long additions = table.extra.additions;
        Unlinked made{table, hooks, makeNode(table, hooks, key)};
        made.node->word = Node::ending;
        if (table.extra.textRoom != 0) {
            makeText(table, made.node->element, textAt(key));
        } else {
            hooks.copyKey(key, made.node->element);
        }
        made.hasKey = true;
        makeValue(valueOf(table, made.node));
        made.node->word = 0;
        if (table.extra.additions != additions || table.buckets.length() != place.chains) {
            if (table.buckets.isEmpty()) makeChains(table, defaultChains);
            Node* const other = find(table, hooks, made.node->element, place);
            if (other != nullptr && !isNewer) return nullptr;
            if (other != nullptr) remove(table, other);
        }
        Node* const node = std::exchange(made.node, nullptr);
        node->tag = place.tag;
        link(table, node, place.bucket);
        return node;
    }

    /// The node of the key, or null. One whose value is ending is removed.
    /// Requires: the table has chains.
    static Node* findToChange(Container& table, const Container& hooks, const void* key,
                              Place& place) {
        Node* const node = find(table, hooks, key, place);
        if (node == nullptr || !node->is(Node::ending)) return node;
        remove(table, node);
        return nullptr;
    }

    /// Enters the key unless it is there; replaces the value of one that is. A
    /// value that an operation under way is to enter stays whole, so its entry
    /// is removed and made anew.
    static void add(Container& table, const Container& hooks, const void* key, const void* value) {
        if (table.buckets.isEmpty()) makeChains(table, defaultChains);
        Place place;
        Node* node = findToChange(table, hooks, key, place);
        if constexpr (Container::hasValues) {
            if (node != nullptr && isArgument(table, node)) {
                remove(table, node);
                node = nullptr;
            }
        }
        const Hold hold(table, value);
        if (node == nullptr) {
            insert(table, hooks, place, key, Container::hasValues, [&](void* at) {
                if constexpr (Container::hasValues) hooks.copyValue(value, at);
                static_cast<void>(at);
            });
        } else if constexpr (Container::hasValues) {
            replace(table, hooks, node, value);
        }
    }

    /// The block of the key's entry, or of a new one, whose value and key the caller makes
    /// before anything else happens. Requires: there are chains and a finder, and no holds.
    static void* enter(Container& table, const void* key) {
        auto& extra = table.extra;
        Place place;
        Node* node = extra.finder == &findDirectly<const void*>
                         ? search(table, fxDirectHooks<const void*>(), key, place)
                         : extra.finder(table, table, key, place);
        if (!extra.index.isBuilt()) extra.plainChains = extra.divisor;
        if (node == nullptr) node = linkNew(table, makeOwnNode(table, key), place);
        return node->element;
    }

    /// The same where the table is plain, and its chain does not have the key.
    static void* enterNew(Container& table, unsigned int tag, unsigned int chain) {
        Node* const node = table.extra.nodes.makeFromFreed(blockBytes(table));
        if (node == nullptr) return enterNewAnyhow(table, tag, chain);
        void* const element = node->element;
        node->tag = tag;
        linkAtHead(table, node, chain);
        return element;
    }

    /// The same for a text, which is made. Most texts need no more than what is here: no call,
    /// so that no register has to be saved for one.
    static void* enterText(Container& table, const fxStr& key) {
        auto& extra = table.extra;
        const std::string_view text = key.view();
        const unsigned int chains = table.buckets.length();
        if (!extra.isPlain(chains) || !fxTextKeys::isQuick(text.size())) {
            return enterTextAnyhow(table, key);
        }
        const unsigned int bucket = extra.restOf(fxTextKeys::hash(text), chains);
        const fxTextKeys::Quick fingerprint = fxTextKeys::quickFingerprint(text);
        const unsigned int tag = fxMix32(fingerprint.whole);
        unsigned int left = longWalk;
        for (Node* node = table.buckets.begin()[bucket]; node != nullptr; node = node->next) {
            if (node->tag == tag && fxTextKeys::areSame(text, textOf(table, node))) {
                return node->element;
            }
            if (node->tag == tag || --left == 0) return enterTextAnyhow(table, key);
        }
        if (fingerprint.zeros != 0 || text.size() >= extra.textRoom) {
            return enterTextAnyhow(table, key);
        }
        Node* const node = extra.nodes.makeFromFreed(textEntryBytes(table));
        if (node == nullptr) return enterTextAnyhow(table, key);
        void* const element = node->element;
        makeText(table, element, text);
        node->tag = tag;
        linkAtHead(table, node, bucket);
        return element;
    }

    /// Removes a node from its chain and from under the iterators, and ends it.
    static void remove(Container& table, Node* node) {
        unlink(table, node);
        Iters::invalidate(table, node);
        if (table.extra.holds.isEmpty()) return end(table, table, node);
        Node*& last = table.extra.lastRemoved;
        node->next = last != nullptr ? std::exchange(last->next, node) : node;
        last = node;
    }

    /// Removes the entry and gives a malloc() block with its value's bytes.
    static void* cut(Container& table, const void* key) {
        Node* const node = find(table, key);
        if (node == nullptr || node->is(Node::ending) || isArgument(table, node)) return nullptr;
        void* const value = fxNewBlock(table.valueSize != 0 ? table.valueSize : 1);
        std::memcpy(value, valueOf(table, node), table.valueSize);
        node->word |= Node::ending;
        remove(table, node);
        return value;
    }

    /// Removes all entries, those also that are added meanwhile, and returns how
    /// many it has removed.
    static unsigned int clear(Container& table) {
        unsigned int removed = 0;
        Iters::detachAll(table);
        do {
            table.extra.index.drop();
            Iter walk;
            Iters::attach(walk, table);
            for (; walk.node != nullptr; ++removed) remove(table, walk.node);  // moves it on
        } while (table.extra.linked != 0);
        table.extra.index.drop();
        table.extra.hasLate = false;
        table.extra.isUnindexable = false;
        table.extra.nodes.shrink();
        return removed;
    }

    /// Fills a container that is being constructed with copies of the entries of
    /// its source, by the source's hooks.
    static void copyAll(Container& table, const Container& source) {
        table.extra.taggedFor = typeid(source).hash_code();
        try {
            Hold hold(source);
            for (Iter i(source.begin()); i.node != nullptr; Iters::step(i)) {
                if (i.node->is(Node::ending)) continue;
                const void* const value = valueOf(source, i.node);
                hold.setValue(value);
                add(table, source, i.node->element, value);
            }
        } catch (...) {
            freeNodes(table, [&](const Node* node) { endLives(source, node); });
            table.buckets.resize(0);
            table.extra.linked = 0;
            throw;
        }
    }

    /// Fills a container that is being constructed, and has as many chains, with the
    /// entries of its source. A node that is in use and in no chain is one that an
    /// operation of the source is at work on: it must stay with its store.
    static void moveAll(Container& table, Container& source) {
        auto& from = source.extra;
        if (!from.holds.isEmpty() || from.nodes.nodesInUse() != from.linked) {
            copyAll(table, source);
            clear(source);
            return;
        }
        Iters::detachAll(source);
        std::swap(table.buckets, source.buckets);
        std::swap(table.count, source.count);
        std::swap(table.extra.linked, from.linked);
        std::swap(table.extra.hasLate, from.hasLate);
        std::swap(table.extra.isUnindexable, from.isUnindexable);
        std::swap(table.extra.textRoom, from.textRoom);
        from.forgetPlain();
        table.extra.taggedFor = from.taggedFor;
        table.extra.nodes.swap(from.nodes);
        table.extra.index.swap(from.index);
    }

    static bool isEnding(const Node* node) { return node->is(Node::ending); }

    /// What is left to a destructor that reaches no hook any more.
    static void freeAll(Container& table) {
        Iters::detachAll(table);
        freeNodes(table, [](const Node*) {});
    }

    static char* valueOf(const Container& table, const Node* node) {
        return static_cast<char*>(node->element) + table.keySize;
    }

    /// The bytes of a key, without those that align its value.
    static unsigned int keyBytes(const Container& table) {
        const bool isPadded = table.keySize == table.extra.paddedKeyBytes;
        return table.keySize - (isPadded ? table.extra.keyPadding : 0U);
    }

private:
    friend struct fxHashXdr<Container>;
    friend Iters;

    // For the iterators.
    static auto& chains(Container& table) { return table.buckets; }
    template <class Table>
    static auto& registry(Table& table) {
        return table.iters;
    }
    static Container*& home(Iter& iter) {
        if constexpr (Container::hasValues) {
            return iter.dict;
        } else {
            return iter.set;
        }
    }
    static bool isEmpty(const Container& table) { return table.extra.linked == 0; }

    static size_t entryBytes(const Container& table) {
        size_t bytes = table.keySize;
        if constexpr (Container::hasValues) bytes += table.valueSize;
        return bytes;
    }
    static size_t blockBytes(const Container& table) {
        const size_t bytes = entryBytes(table);
        return bytes != 0 ? bytes : 1;
    }

    // Searching.

    struct VirtualHooks {
        const Container& container;
        unsigned long hash(const void* key) const { return container.hashKey(key); }
        int compare(const void* a, const void* b) const { return container.compareKeys(a, b); }
        unsigned long fingerprint(const void* key, unsigned long hash) const {
            return container.fingerprintKey(key, hash);
        }
        VirtualHooks ofStored() const { return *this; }
    };

    // The text of a stored fxStr: the copy, if there is one.
    static std::string_view textOf(const Container& table, const Node* node) {
        const fxStr& key = *static_cast<const fxStr*>(node->element);
        if (key.length() > table.extra.textRoom) return key.view();
        return {static_cast<const char*>(node->element) + entryBytes(table), key.length()};
    }
    static std::string_view textAt(const void* key) {
        return static_cast<const fxStr*>(key)->view();
    }
    // Requires: there is room.
    [[gnu::always_inline]] static void makeText(const Container& table, void* element,
                                                std::string_view text) {
        char* const copy = static_cast<char*>(element) + entryBytes(table);
        fxTextInEntry::make(element, text, copy, table.extra.textRoom);
    }

    // Requires: the keys' tags are equal, and the node is not late.
    template <class Hooks>
    [[gnu::always_inline]] static bool isEqual(const Container& table, Hooks hooks, const void* key,
                                               const Node* node) {
        if constexpr (fxAreForTexts<Hooks>) {
            return fxTextKeys::areSame(hooks.text(key), textOf(table, node)) ||
                   hooks.compare(key, node->element) == 0;
        } else {
            return hooks.compare(key, node->element) == 0;
        }
    }

    template <class Hooks>
    [[gnu::always_inline]] static Node* search(const Container& table, Hooks hooks, const void* key,
                                               Place& place) {
        const unsigned long hash = hooks.hash(key);
        const unsigned int tag = fxMix32(hooks.fingerprint(key, hash));
        const unsigned int chains = table.buckets.length();
        place = {chains, table.extra.chainOf(hash, chains), tag, table.extra.index.noSlot};
        if (table.extra.index.isBuilt()) {
            const auto isWanted = [&](const Node* node) {
                return node->bucket() == place.bucket && isEqual(table, hooks, key, node);
            };
            return table.extra.index.find(tag, isWanted, place.freeSlot);
        }
        if (__builtin_expect(table.extra.hasLate, 0)) return searchLate(table, hooks, key, place);
        Node* node = table.buckets[place.bucket];
        unsigned int walked = 0;
        while (node != nullptr && (node->tag != place.tag || !isEqual(table, hooks, key, node))) {
            node = node->next;
            ++walked;
        }
        if (walked > longWalk) buildIndex(table, hooks.ofStored());
        return node;
    }

    // The same where late nodes may be in the chain, which are found by their keys.
    template <class Hooks>
    [[gnu::noinline]] static Node* searchLate(const Container& table, Hooks hooks, const void* key,
                                              const Place& place) {
        Node* node = table.buckets[place.bucket];
        unsigned int walked = 0;
        while (node != nullptr && ((node->tag != place.tag && !node->is(Node::late)) ||
                                   hooks.compare(key, node->element) != 0)) {
            node = node->next;
            ++walked;
        }
        if (walked > longWalk) buildIndex(table, hooks.ofStored());
        return node;
    }

    // The first search of a table decides how it is searched. Entries that were entered by
    // the hooks of another class, by a constructor of a base or in the table that was copied
    // or moved from, get the tags of this one's.
    [[gnu::cold, gnu::noinline]] static void chooseFinder(const Container& hooks) {
        auto& extra = hooks.extra;
        typename Container::Finder* const finder = hooks.finder();
        const size_t self = typeid(hooks).hash_code();
        if (extra.linked != 0 && extra.taggedFor != self) {
            if (finder == &findDirectly<fxStr>) {
                changeTags(hooks, fxDirectHooks<fxStr>());
            } else {
                changeTags(hooks, VirtualHooks{hooks});
            }
        }
        extra.taggedFor = self;
        extra.finder = finder;
    }

    // A late node, which has no such tag, gets it when its key is complete.
    template <class Hooks>
    static void changeTags(const Container& table, Hooks hooks) {
        table.extra.index.drop();
        for (Node* node : table.buckets) {
            for (; node != nullptr; node = node->next) {
                const void* const key = node->element;
                if (node->is(Node::late)) continue;
                node->tag = fxMix32(hooks.fingerprint(key, hooks.hash(key)));
            }
        }
    }

    // Out of line, which keeps the search small.
    template <class Hooks>
    [[gnu::noinline]] static void buildIndex(const Container& table, Hooks hooks) {
        auto& extra = table.extra;
        if (extra.isUnindexable || !fxHashXdr<Container>::setTags(table, hooks)) return;
        extra.index.build(extra.linked);
        extra.forgetPlain();
        for (Node* node : table.buckets) {
            for (; node != nullptr; node = node->next) {
                extra.isUnindexable = !extra.index.append(node);
                if (extra.isUnindexable) return;
            }
        }
    }

    // Changing.

    static size_t textEntryBytes(const Container& table) {
        return blockBytes(table) + table.extra.textRoom;
    }

    // A raw node. Texts are in the entries of tables with a direct search; an entry that is
    // made otherwise ends that, until the table has been empty.
    static Node* makeNode(Container& table, const Container& hooks, const void* key) {
        auto& extra = table.extra;
        if (hooks.extra.finder != &findDirectly<fxStr>) {
            if (extra.textRoom != 0) extra.dropTexts();
        } else if (extra.nodes.nodesInUse() == 0) {
            chooseRoom(table, textAt(key).size());
        }
        return extra.nodes.make(textEntryBytes(table));
    }
    // The same for the table's own hooks, which have a finder.
    [[gnu::always_inline]] static Node* makeOwnNode(Container& table, const void* key) {
        Node* const node = table.extra.nodes.nodesInUse() != 0
                               ? table.extra.nodes.makeFromFreed(textEntryBytes(table))
                               : nullptr;
        return __builtin_expect(node != nullptr, 1) ? node : makeNode(table, table, key);
    }
    static void chooseRoom(Container& table, size_t length) {
        for (size_t room : {fxTextKeys::roomFor(length), fxTextKeys::room, size_t{0}}) {
            table.extra.textRoom = static_cast<unsigned char>(room);
            if (table.extra.nodes.isCommon(textEntryBytes(table))) return;
        }
    }

    // The general way, after which the table may be plain.
    [[gnu::noinline]] static void* enterTextAnyhow(Container& table, const fxStr& key) {
        auto& extra = table.extra;
        Place place;
        Node* node = search(table, fxDirectHooks<fxStr>(), &key, place);
        if (node != nullptr) return node->element;
        node = makeOwnNode(table, &key);
        if (extra.textRoom != 0) {
            makeText(table, node->element, key.view());
            if (!extra.index.isBuilt() && !extra.hasLate) extra.plainChains = extra.divisor;
        } else {
            new (node->element) fxStr(key.view());
        }
        return linkNew(table, node, place)->element;
    }

    [[gnu::noinline]] static void* enterNewAnyhow(Container& table, unsigned int tag,
                                                  unsigned int chain) {
        Node* const node = table.extra.nodes.make(blockBytes(table));
        node->tag = tag;
        linkAtHead(table, node, chain);
        return node->element;
    }

    // Links a node of a key that a search has not found, nothing having changed since.
    static Node* linkNew(Container& table, Node* node, const Place& place) {
        node->tag = place.tag;
        linkAtHead(table, node, place.bucket);
        if (table.extra.index.isBuilt()) {
            notePrevious(table, node->next, node);
            table.extra.isUnindexable = !table.extra.index.appendAt(place.freeSlot, node);
        }
        return node;
    }
    static void link(Container& table, Node* node, unsigned int word) {
        linkAtHead(table, node, word);
        if (table.extra.index.isBuilt()) {
            notePrevious(table, node->next, node);
            table.extra.isUnindexable = !table.extra.index.insert(node);
        }
    }
    [[gnu::always_inline]] static void linkAtHead(Container& table, Node* node, unsigned int word) {
        Node*& head = table.buckets[word & Node::bucketMask];
        node->word = word;
        node->next = head;
        head = node;
        ++table.count;
        ++table.extra.linked;
        ++table.extra.additions;
    }
    // Requires: the index is built.
    static void notePrevious(Container& table, const Node* node, Node* previous) {
        auto& index = table.extra.index;
        if (node != nullptr && index.keepsPrevious()) index.setPrevious(node, previous);
    }

    // The node before a linked one, or null. Chains without an index are short, but for
    // those that a stream has brought and no search has walked. One that was entered lately is
    // near the beginning of its chain.
    static Node* before(const Container& table, const Node* node) {
        auto& index = table.extra.index;
        if (index.isBuilt() && index.keepsPrevious()) return index.previous(node);
        Node* previous = nullptr;
        unsigned int walked = 0;
        Node* at = table.buckets[node->bucket()];
        for (; at != node; previous = at, at = at->next) {
            if (++walked <= longWalk || !index.isBuilt()) continue;
            index.keepPrevious();
            return index.previous(node);
        }
        if (walked > longWalk) buildIndex(table, VirtualHooks{table});
        return previous;
    }

    static void unlink(Container& table, Node* node) {
        Node* const previous = before(table, node);
        (previous != nullptr ? previous->next : table.buckets[node->bucket()]) = node->next;
        node->word |= Node::removed;
        --table.count;
        --table.extra.linked;
        auto& index = table.extra.index;
        if (!index.isBuilt()) return;
        notePrevious(table, node->next, previous);
        index.remove(node);
    }

    // A node that is not linked yet: it ends unless it is taken out of here.
    struct Unlinked {
        ~Unlinked() {
            if (__builtin_expect(node != nullptr, 0)) undo();
        }
        [[gnu::cold, gnu::noinline]] void undo() {
            if (hasKey) return end(table, hooks, node);
            table.extra.nodes.drop(node);
        }
        Container& table;
        const Container& hooks;
        Node* node;
        bool hasKey = false;
    };

    static void endLives(const Container& hooks, const Node* node) {
        hooks.destroyKey(node->element);
        if constexpr (Container::hasValues) {
            if (!node->is(Node::ending)) hooks.destroyValue(valueOf(hooks, node));
        }
    }
    static void end(Container& table, const Container& hooks, Node* node) {
        endLives(hooks, node);
        table.extra.nodes.drop(node);
    }

    // In the order of removal. A hook may hold the table anew: the end of that
    // hold then goes on from here.
    [[gnu::noinline]] static void endRemoved(Container& table) {
        Node*& last = table.extra.lastRemoved;
        while (last != nullptr && table.extra.holds.isEmpty()) {
            Node* const node = last->next;
            last->next = node->next;
            if (node == last) last = nullptr;
            end(table, table, node);
        }
    }

    template <class EndLives>
    static void freeNodes(Container& table, EndLives endLivesOf) {
        if (table.extra.linked == 0) return;
        for (Node* node : table.buckets) {
            while (node != nullptr) {
                endLivesOf(node);
                table.extra.nodes.drop(std::exchange(node, node->next));
            }
        }
    }

    // Whether an operation under way is to enter the value of the node.
    static bool isArgument(const Container& table, const Node* node) {
        const std::less<const char*> less;
        const char* const begin = valueOf(table, node);
        bool isOne = false;
        table.extra.holds.each([&](const fxHashHold& hold) {
            const char* const value = static_cast<const char*>(hold.value);
            isOne = isOne || (!less(value, begin) && less(value, begin + table.valueSize));
        });
        return isOne;
    }

    // The old value's end, or the making of the new one, may remove the entry or
    // enter its key anew. Then the value is entered once more, under the node's
    // own key, which the caller's hold keeps whole. When the new value cannot be
    // made, the entry goes.
    static void replace(Container& table, const Container& hooks, Node* node, const void* value) {
        struct Valueless {
            ~Valueless() {
                if ((node->word & (Node::ending | Node::removed)) == Node::ending)
                    remove(table, node);
            }
            Container& table;
            Node* node;
        };
        char* const stored = valueOf(table, node);
        if (value == stored) return;
        node->word |= Node::ending;
        hooks.destroyValue(stored);
        if (!node->is(Node::removed)) {
            const Valueless unlessMade{table, node};
            hooks.copyValue(value, stored);
            node->word &= ~Node::ending;
        }
        if (node->is(Node::removed)) add(table, hooks, node->element, value);
    }
};

#endif
