// What an object has: its properties, and the channels that belong to it.
// Private to the library.
#ifndef FXDS_DATAFLOW_BELONGINGS_H
#define FXDS_DATAFLOW_BELONGINGS_H

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <utility>

#include "fxds/Channel.h"
#include "fxds/Property.h"
#include "fxds/Ref.h"
#include "fxds/Str.h"
#include "fxds/detail/Allocate.h"

// A table of channels is a property, so others may hold it, it may be in the
// lists of several objects, leave a list and come back. Which channels belong
// to an object therefore does not depend on tables: each channel is linked to
// the object that it was added to.
//
// Invariants: (1) A channel's `owner` is the object in one of whose lists it is
// linked, or null when it is in none; the exception are the inputs of an object
// that is ending, which are all linked as nameless. (2) When an object begins to
// end, its channels get no owner and its inputs are muted, and so is what is
// added from then on. (3) No nameless input outlives its object's end with a
// message or a connection, whoever holds it or its table.
//
// Most objects have one channel of a kind, and few programs look at its table, which
// takes some 600 bytes. So a table is due, and not made, while it has held no more than
// one channel and the program has asked for neither table nor property.
//
// Invariants: (4) A due table has a tag, under which there is no property. Whatever
// would show that the property is missing makes the tables first. (5) Making one runs
// no code of the program, and leaves names where they are.

/// The channels of one kind that belong to one object.
template <class Channel>
class fxOwnedChannels {
public:
    Channel* getFirst() const { return first; }

    /// Links a channel that is in no list.
    void enter(Channel* channel) {
        channel->nextOwned = first;
        channel->ownedLink = &first;
        if (first != nullptr) first->ownedLink = &channel->nextOwned;
        first = channel;
    }
    /// Takes the channel out of the list that it is in; nothing when it is in none.
    static void leave(Channel* channel) {
        if (channel->ownedLink == nullptr) return;
        *channel->ownedLink = channel->nextOwned;
        if (channel->nextOwned != nullptr) channel->nextOwned->ownedLink = channel->ownedLink;
        channel->nextOwned = nullptr;
        channel->ownedLink = nullptr;
    }

private:
    Channel* first = nullptr;
};

/// Properties, each held by who fills and empties the list. Two lie in the list itself:
/// most objects have the tables of their channels and no other.
class fxPropertyList {
public:
    fxPropertyList() = default;
    fxPropertyList(const fxPropertyList&) = delete;
    fxPropertyList& operator=(const fxPropertyList&) = delete;
    ~fxPropertyList() {
        if (items != few) std::free(items);
    }

    unsigned int length() const { return count; }
    fxProperty*& operator[](unsigned int index) {
        FX_ASSERT(index < count);
        return items[index];
    }
    /// The property with the tag, or null; `position` is where it was looked for last.
    fxProperty* find(unsigned short tag, unsigned int& position) const {
        int low = 0;
        int high = static_cast<int>(count) - 1;
        while (low <= high) {
            position = static_cast<unsigned int>((low + high) / 2);
            const unsigned short here = items[position]->getTag();
            if (tag == here) return items[position];
            if (tag < here) {
                high = static_cast<int>(position) - 1;
            } else {
                low = static_cast<int>(position) + 1;
            }
        }
        return nullptr;
    }
    /// Enters the property at its place and returns the one that it takes it from, or null.
    fxProperty* put(fxProperty* property) {
        unsigned int index = 0;
        fxProperty* const old = find(property->getTag(), index);
        if (old != nullptr) {
            items[index] = property;
        } else {
            if (index < count && items[index]->getTag() < property->getTag()) ++index;
            insert(property, index);
        }
        return old;
    }
    void insert(fxProperty* property, unsigned int index) {
        FX_ASSERT(index <= count);
        if (count == room) grow();
        std::copy_backward(items + index, items + count, items + count + 1);
        items[index] = property;
        ++count;
    }
    void remove(unsigned int index) {
        FX_ASSERT(index < count);
        std::copy(items + index + 1, items + count, items + index);
        --count;
    }
    /// Takes over all that `source` has. Requires: this list has none.
    void takeAll(fxPropertyList& source) {
        FX_ASSERT(count == 0 && items == few);
        std::copy(source.few, source.few + fewest, few);
        if (source.items != source.few) items = std::exchange(source.items, source.few);
        count = std::exchange(source.count, 0);
        room = std::exchange(source.room, fewest);
    }

private:
    static constexpr unsigned int fewest = 2;

    void grow() {
        void* const block = fxNewBlock(2 * size_t{room} * sizeof *items);
        std::copy(items, items + count, static_cast<fxProperty**>(block));
        if (items != few) std::free(items);
        items = static_cast<fxProperty**>(block);
        room *= 2;
    }

    fxProperty** items = few;
    unsigned int count = 0;
    unsigned int room = fewest;
    fxProperty* few[fewest] = {};
};

/// What a due table holds: one channel and its name, or none.
template <class Channel>
struct fxSoleChannel {
    bool isNamed(const char* other) const {
        return channel != nullptr && std::strcmp(name.c_str(), other != nullptr ? other : "") == 0;
    }
    fxStr name;
    Channel* channel = nullptr;
};

/// Made with an object's first property or channel.
class fxBelongings {
public:
    /// Whether the tag is that of a due table.
    bool isDue(unsigned short tag) const { return tag == dueInputs || tag == dueOutputs; }
    bool hasDueTables() const { return (dueInputs & dueOutputs) != fxProperty::noTag; }
    /// Makes the tables that are due.
    void makeTables();
    /// Ends the channels of the tables that are due, as the tables' ends would, by tags.
    /// Requires: there is no property.
    void endDueTables();

    /// Outputs that tell of changed properties, by tag. A change keeps the list while
    /// it tells: receivers may end the object, which empties the list.
    class Watches : public fxRCObj,
                    public std::map<unsigned short, std::unique_ptr<fxOutputChannel>> {};

    fxPropertyList properties;  // ascending by tag
    fxRef<Watches> watches;     // null until the first
    fxOwnedChannels<fxInputChannel> inputs;
    // Inputs whose name went to another, or that never had one; all when the object
    // begins to end.
    fxOwnedChannels<fxInputChannel> nameless;
    fxOwnedChannels<fxOutputChannel> outputs;
    fxSoleChannel<fxInputChannel> soleInput;
    fxSoleChannel<fxOutputChannel> soleOutput;
    unsigned short dueInputs = fxProperty::noTag;   // the tag of the due table of inputs
    unsigned short dueOutputs = fxProperty::noTag;  // of that of outputs
    bool isEnding = false;
};

/// Makes `name` the name of the tag; defined beside fxProperty::allocNewTag().
void fxEnterPropertyName(unsigned short tag, char const* name);

#endif
