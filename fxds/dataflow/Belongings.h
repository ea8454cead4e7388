// What an object has: its properties, and the channels that belong to it.
// Private to the library.
#ifndef FXDS_DATAFLOW_BELONGINGS_H
#define FXDS_DATAFLOW_BELONGINGS_H

#include <map>
#include <memory>

#include "fxds/Channel.h"
#include "fxds/VoidPtrArray.h"

// A table of channels is a property, so it may be held by others, stand in the
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

/// Made with an object's first property or channel; the elements are its
/// fxProperty*, ascending by tag, each held.
class fxBelongings : public fxVoidPtrArray {
public:
    /// Outputs that tell of changed properties, by tag. A change keeps the list while
    /// it tells: receivers may end the object, which empties the list.
    typedef std::map<unsigned short, std::unique_ptr<fxOutputChannel>> Watches;

    std::shared_ptr<Watches> watches;  // null until the first
    fxOwnedChannels<fxInputChannel> inputs;
    // Inputs whose name went to another, or that never had one; all when the object
    // begins to end.
    fxOwnedChannels<fxInputChannel> nameless;
    fxOwnedChannels<fxOutputChannel> outputs;
    bool isEnding = false;
};

/// Makes `name` the name of the tag; defined beside fxProperty::allocNewTag().
void fxEnterPropertyName(unsigned short tag, char const* name);

#endif
