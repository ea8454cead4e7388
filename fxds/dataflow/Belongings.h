// The properties of an object, and the channels that belong to it. Private to the library.
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

// A table of channels is a property, so others may hold it, it may be in the lists of
// several objects, leave a list and come back. The channels of an object therefore do not
// depend on tables: each channel is linked to the object that it was added to.
//
// Most objects have one channel of a kind, and few programs look at its table, which takes
// some 600 bytes. So a table is due, and not made, while it has held no more than one
// channel and the program has requested neither table nor property.
//
// Invariants:
// (1) A channel's `owner` is the object in one of whose lists it is linked, or null when it
//     is in none. Exceptions are the inputs of an object that is ending, which are all
//     linked as nameless.
// (2) When an object begins to end, its channels lose their owner and its inputs are muted,
//     as are those that are added from then on.
// (3) No nameless input outlives its object with a message or a connection, even if another
//     holds the input or its table.
// (4) A due table has a tag, and no property has that tag. Functions that would reveal the
//     missing property make the tables first.
// (5) Making a table runs no code of the program, and leaves the due table's name as it is,
//     as there may be views of it.

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

/// Properties, each held by the function that fills or empties the list. Two are stored in
/// the list itself: most objects have the tables of their channels and no other.
///
/// Invariants:
/// (1) The first `count` of the `room` items are properties, the others are undefined.
/// (2) `items` is `few`, or a block of the heap that the list frees.
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
    /// The property with the tag, or null; `position` is the last position that was
    /// compared.
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
    /// Enters the property at its place. Returns the one that it replaces, or null.
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
    /// Takes over all properties of `source`. Requires: this list is empty.
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

/// The name of a channel: in place if it has up to 15 bytes, and otherwise in a block.
class fxChannelName {
public:
    fxChannelName() = default;
    fxChannelName(const fxChannelName&) = delete;
    fxChannelName& operator=(const fxChannelName&) = delete;
    ~fxChannelName() { dropBlock(); }

    const char* c_str() const { return hasBlock() ? block() : text; }
    /// Null is the name "".
    void set(const char* name) {
        char made[sizeof text] = {};
        const size_t bytes = size_t{fxStr::textLength(name)} + 1;
        if (bytes > sizeof text) {
            void* const copy = std::memcpy(fxNewBlock(bytes), name, bytes);
            std::memcpy(made, &copy, sizeof copy);
            made[last] = 1;
        } else if (bytes > 1) {
            std::memcpy(made, name, bytes);
        }
        dropBlock();
        std::memcpy(text, made, sizeof text);
    }

private:
    static constexpr size_t last = 15;

    bool hasBlock() const { return __builtin_expect(text[last] != '\0', 0); }
    char* block() const {
        char* at;
        std::memcpy(&at, text, sizeof at);
        return at;
    }
    void dropBlock() {
        if (hasBlock()) std::free(block());
    }

    char text[last + 1] = {};  // or the address of the block, and a last byte that is not 0
};

/// The content of a due table: one channel and its name, or none.
template <class Channel>
struct fxSoleChannel {
    bool isNamed(const char* other) const {
        return channel != nullptr && std::strcmp(name.c_str(), other != nullptr ? other : "") == 0;
    }
    fxChannelName name;
    Channel* channel = nullptr;
};

/// Made with an object's first property or channel. If that is an input that keeps no
/// callable, it lies behind them in the same block, and the one that ends last frees that:
/// most objects have one input, and are then made and ended with one block less.
class fxBelongings {
public:
    fxBelongings() = default;
    fxBelongings(const fxBelongings&) = delete;
    fxBelongings& operator=(const fxBelongings&) = delete;
#ifdef FXDS_CHECKED
    // Sanitizers see every use of an input that has ended.
    static constexpr bool joinsBlocks = false;
#else
    static constexpr bool joinsBlocks = true;
#endif
    /// Makes belongings with room for an input behind them.
    static fxBelongings* makeWithRoom();
    /// The room behind the belongings.
    fxInputChannel* inputBehind() { return reinterpret_cast<fxInputChannel*>(this + 1); }
    /// Ends the belongings that `new` or makeWithRoom() has made.
    static void end(fxBelongings* mine);

    /// Whether the tag is that of a due table.
    bool isDue(unsigned short tag) const { return tag == dueInputs || tag == dueOutputs; }
    bool hasDueTables() const { return (dueInputs & dueOutputs) != fxProperty::noTag; }
    /// Makes the tables that are due.
    void makeTables();
    /// Ends the channels of the due tables in the order of the tags, as the ends of the
    /// tables would. Requires: there is no property.
    void endDueTables();

    /// Outputs that report changed properties, by tag. A change holds the list while it
    /// sends: receivers may end the object, which empties the list.
    class Watches : public fxRCObj,
                    public std::map<unsigned short, std::unique_ptr<fxOutputChannel>> {};

    fxPropertyList properties;  // ascending by tag
    fxRef<Watches> watches;     // null until the first
    fxOwnedChannels<fxInputChannel> inputs;
    // Inputs without a name, or whose name another has taken; all inputs when the object
    // begins to end.
    fxOwnedChannels<fxInputChannel> nameless;
    fxOwnedChannels<fxOutputChannel> outputs;
    fxSoleChannel<fxInputChannel> soleInput;
    fxSoleChannel<fxOutputChannel> soleOutput;
    unsigned short dueInputs = fxProperty::noTag;   // the tag of the due table of inputs
    unsigned short dueOutputs = fxProperty::noTag;  // of that of outputs
    bool isEnding = false;
    bool hasInputBehind = false;  // the input behind the belongings exists

private:
    ~fxBelongings() = default;
};

/// Makes `name` the name of the tag; defined beside fxProperty::allocNewTag().
void fxEnterPropertyName(unsigned short tag, char const* name);

#endif
