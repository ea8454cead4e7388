// Channels: the named, typed ends between which values travel.
#ifndef FXDS_CHANNEL_H
#define FXDS_CHANNEL_H

#include <cstddef>

#include "fxds/Config.h"
#include "fxds/DataTypes.h"
#include "fxds/VoidPtrArray.h"
#include "fxds/detail/Hold.h"
#include "fxds/detail/TraceHooks.h"
#include "fxds/detail/TypedChannels.h"
#include "fxds/detail/Walk.h"

class fxData;
class fxDelivery;
class fxMessageEvent;
class fxObj;
class fxOutputChannel;
template <class Channel>
class fxLinks;

/// The receiving end: a function and the closure that it is called with.
/// Counted by its holders: the object's table, each output connection, each
/// converter that feeds it and each queued message; the last of them destroys
/// it. So an input that is connected or sent to is made with `new`, as
/// fxObj::addInput() does, and ended by release() alone.
///
/// Not polymorphic: a converter copy (see fxConverter) is an input channel too
/// and is distinguished by isConverter(), which release() checks.
///
/// An input that its object has removed, and every input of an object that has
/// begun to end, calls nothing any more: it has the type fxDT_void then and a
/// function that does nothing, whichever holders it and its table still
/// have. An object begins to end when ~fxObj() begins.
class FX_API fxInputChannel {
public:
    /// `function` is called as function(closure, value), with the signature
    /// that belongs to the data type (see DataTypes.h). Bit 0 of `replace`
    /// keeps at most one message waiting for this input, the newest.
    /// `closure` is borrowed. The channel starts with no holder.
    /// Requires: `function` is not null when a value arrives.
    fxInputChannel(unsigned short type, void* closure, void (*function)(), fxBool replace);
    fxInputChannel(const fxInputChannel&) = delete;
    fxInputChannel& operator=(const fxInputChannel&) = delete;
    ~fxInputChannel();

    /// Data type number.
    unsigned short getType() const { return static_cast<unsigned short>(word >> typeShift); }
    /// Whether only the newest message is kept.
    bool isReplacing() const { return (word & replaceBit) != 0; }
    /// Whether this is a converter copy.
    bool isConverter() const { return (word & converterBit) != 0; }

    /// The input that this one leads to: itself unless it is a converter copy.
    /// Null for a converter copy that was never spliced.
    fxInputChannel* target();

    /// The object that the input was added to; null for one that belongs to
    /// no object, or whose object has gone or removed it. Borrowed.
    fxObj* getOwner() const { return owner; }

    /// The name under which getOwner() has this input, or null when it has none:
    /// its name was given to another, or it has no owner. View, good until the
    /// object's inputs change.
    const char* getName() const;

    /// The outputs that feed this input, one entry per connection; null before
    /// the first connection. View, good until the input's connections change.
    const fxVoidPtrArray* getOutputs() const {
        if (feeds == Feeds::one || feeds == Feeds::many) settle();
        return outputs;
    }

    /// Enters a feeding output, as fxOutputChannel::add() does itself: disconnect()
    /// is fatal for an output that is entered here without being connected.
    void add(fxOutputChannel* output);

    /// Removes the first entry of the output. An output that is missing means
    /// broken connections and is fatal.
    void remove(fxOutputChannel* output);

    /// Cuts all connections. Fatal when one is missing at the output. The channel
    /// may be gone afterwards, when they were its last holders.
    void disconnect();

    /// Discards every message that waits for this input: what
    /// fxEventHandler::removeMessageEvents() removes, and the library's own
    /// messages behind a converter. The channel may be gone afterwards, when a
    /// message was its last holder.
    void flush();

    void take() { ++refCount; }  ///< Adds one holder.
    /// Destroys the channel when this was the last holder.
    void release() {
        if (--refCount == 0) destroy();
    }

    /// Calls the receiving function with a boxed value, without it when this
    /// input has the type fxDT_void.
    void deliver(fxData* data);

    /// Calls the receiving function. The value, as the receiving function takes
    /// it, goes along unless this input has the type fxDT_void.
    /// Requires: the value's type is that of the input; nothing is converted.
    template <class... Values>
    void call(Values... value) {
        if (__builtin_expect(isUntested(), 0)) testClass(true);
        // NOLINTNEXTLINE(bugprone-branch-clone): the same where nothing is passed
        if (sizeof...(Values) == 0 || getType() != fxDT_void) {
            FX_ASSERT(fxDetail::areTakenBy<Values...>(getType()));
            callAs<fxDetail::Passed<Values>...>(fxDetail::pass<Values>(value)...);
        } else {
            callAs<>();
        }
    }

    // So that a converter copy may be deleted through this class.
    static void* operator new(size_t size) { return ::operator new(size); }
    static void operator delete(void* memory) { ::operator delete(memory); }

    void* closure;  ///< What `function` is called with first. Borrowed.
    /// The receiving function, cast: its real signature is that of the data type.
    void (*function)();

protected:
    /// Bit of `word`: only the newest message is kept.
    static constexpr unsigned int replaceBit = 1;
    static constexpr unsigned int converterBit = 2;  ///< Bit of `word`: this is a converter copy.
    static constexpr unsigned int typeShift = 2;  ///< Where the data type number begins in `word`.
    static constexpr unsigned int mutedBit = 1u << 31;  ///< Bit of `word`: calls nothing any more.

    /// Adds `count` to the messages of this channel and of what it leads to.
    void countMessages(unsigned long count);

    unsigned int word;  ///< The two flags, and the data type number above them.

private:
    // What leads here: nothing yet; the one output `onlyOutput`, or none again; those in
    // `outputs`; those in `outputs`, which is an fxLinks.
    enum Feeds : unsigned int { nothing, one, few, many };
    // The memory of the channel is its own, or is behind the belongings of its object, which
    // exist or have ended.
    enum InBlock : unsigned int { own, behind, left };

    mutable unsigned int feeds : 2;  // a Feeds
    unsigned int keepsCallable : 1;  // `callable` is what the union holds
    unsigned int isEdited : 1;       // by add() or remove(): what leads here need not be connected
    unsigned int hasEnded : 1;       // kept for its watchers only
    unsigned int inBlock : 2;        // an InBlock
    unsigned int watchers : 25;      // the fxConnections that refer to it and do not hold it

public:
    fxMessageEvent* pending;  ///< The message that waits, for a replacing input.
    unsigned long refCount;   ///< Number of holders.

private:
    friend class fxBelongings;
    friend class fxConnection;
    friend class fxConverter;
    friend class fxEventHandler;
    friend class fxEventQueue;
    friend class fxMessageEvent;
    friend class fxObj;
    friend class fxOutputChannel;
    template <class Channel>
    friend class fxOwnedChannels;
    friend fxInputChannel* fxDetail::newInputFor(fxDetail::KeptCallable* callable, void* closure,
                                                 const fxDetail::InputFunction& function,
                                                 unsigned char replace);

    // The owner of a typed input is tested when the input is connected or called
    // first: a base class may register receivers of the classes derived from it.
    static constexpr unsigned int untestedBit = 1u << 30;  // of `word`
    bool isUntested() const { return (word & untestedBit) != 0; }
    void testClass(bool isCalled);
    [[gnu::noinline]] void deliverUnlike(fxData* data);

    template <class... Passed>
    void callAs(Passed... value) {
        FX_ASSERT(function != nullptr);
        reinterpret_cast<void (*)(void*, Passed...)>(function)(closure, value...);
    }

    template <class... Passed>
    void receive(unsigned short type, Passed... value);
    template <class... Passed>
    [[gnu::noinline]] void receiveHeld(Passed... value);
    bool isMuted() const { return (word & mutedBit) != 0; }
    bool mayLeadToMuted() const { return (word & (converterBit | mutedBit)) != 0; }
    // Requires: a converter copy is spliced.
    bool leadsToMuted() { return __builtin_expect(mayLeadToMuted(), 0) && target()->isMuted(); }
    void cancelPending();
    void mute();
    void disown();
    void destroy();
    void erase();
    void end();
    void watch();
    void unwatch();
    void enter(fxOutputChannel* output);
    void leave(fxOutputChannel* output);
    fxLinks<fxOutputChannel>& links() const;
    unsigned int countOutputs() const;
    bool keepsPlace() const { return keepsCallable == 0 && !isUntested(); }
    void notePlace(unsigned int position) {
        if (keepsPlace() && !isConverter()) place = position;
    }
    unsigned int findOutput(const fxOutputChannel* output) const;
    void settle() const;

    union {
        mutable fxVoidPtrArray* outputs;      ///< Of fxOutputChannel*, borrowed.
        mutable fxOutputChannel* onlyOutput;  ///< Borrowed.
    };
    unsigned long queued;    // messages that there are for it and for converters leading here
    fxMessageEvent* latest;  // the last message made for it, or null since one has ended
    fxObj* owner;            // borrowed; in one of whose lists it is linked
    fxInputChannel* nextOwned;
    fxInputChannel** ownedLink;
    union {
        fxDetail::ClassTest* classTest;    ///< For the owner while isUntested().
        fxDetail::KeptCallable* callable;  ///< Owned.
        /// Where keepsPlace(): the position at which the last output of many connections to
        /// feed it has listed it, unless the list has changed since.
        unsigned int place;
    };
};

/// The sending end: a data type and the inputs connected to it. Made by
/// fxObj::addOutput() and owned by its object.
///
/// While a value goes round, receivers may connect and disconnect, and may
/// destroy inputs, this output and any object. Connections made meanwhile wait
/// for the next value, those cut are not served any more.
class FX_API fxOutputChannel : private fxWalks<fxDelivery> {
public:
    /// A channel without connections that belongs to no object.
    explicit fxOutputChannel(unsigned short type);
    fxOutputChannel(const fxOutputChannel&) = delete;
    fxOutputChannel& operator=(const fxOutputChannel&) = delete;
    ~fxOutputChannel();

    unsigned short getType() const { return type; }  ///< Data type number.

    /// The object that the output was added to; null when it belongs to none,
    /// or to one that has begun to end.
    fxObj* getOwner() const { return owner; }

    /// The name under which getOwner() has this output, or null when it has no
    /// owner. View, good until the object's outputs change.
    const char* getName() const;

    /// Connects the input, through a converter when the data types differ and
    /// the input is not of type fxDT_void. Fatal when there is no converter.
    /// Connecting twice makes two connections; fxObj::connect() makes one.
    /// Requires: `input` is no converter copy.
    void add(fxInputChannel* input);

    /// Cuts the first connection to the input; nothing when there is none.
    void remove(fxInputChannel* input);

    /// Position of the first connection to the input, also behind a converter,
    /// or 0xFFFFFFFF.
    unsigned int find(fxInputChannel* input) const;
    /// As find(): directly or behind a converter.
    bool isConnectedTo(fxInputChannel* input) const;

    /// The entry at `index`: the input, or the converter copy that leads to it.
    fxInputChannel* operator[](unsigned int index) const {
        if (__builtin_expect(inputs == nullptr, 0)) settle();
        return getEntry(index);
    }
    /// Connections made and not cut; two to one input count twice.
    unsigned int getNumberOfConnections() const {
        return inputs != nullptr ? inputs->length() : countUnsettled();
    }

    /// Calls every connected input at once, in the order of connection. The
    /// values are what receiving functions of this type take after the closure.
    /// Requires: they are of this type; nothing is converted before.
    template <class... Values>
    void deliver(Values... value) {
        FX_ASSERT(fxDetail::areTakenBy<Values...>(type));
        deliverPassed<fxDetail::Passed<Values>...>(fxDetail::pass<Values>(value)...);
    }

private:
    friend class fxConnection;
    friend class fxDelivery;
    friend class fxEventHandler;
    friend class fxObj;
    template <class Channel>
    friend class fxOwnedChannels;

    void disown();
    unsigned int findTarget(fxInputChannel* input) const;
    void settle() const;
    unsigned int countUnsettled() const;
    fxInputChannel* getEntry(unsigned int index) const {
        return static_cast<fxInputChannel*>((*inputs)[index]);
    }
    // The entry, when there is but one and no hole beside it; null otherwise.
    fxInputChannel* getOnlyEntry() const {
        return inputs != nullptr && inputs->length() == 1 ? getEntry(0) : nullptr;
    }
    template <class... Passed>
    void deliverPassed(Passed... value);
    template <class... Passed>
    [[gnu::cold, gnu::noinline]] void deliverTraced(Passed... value);

    // The base is the list of the walks over the connections, so that a walk finds the
    // output from its list.
    unsigned short type;
    bool hasConverters;   // some entry is or was one
    unsigned int serial;  // differs from that of any output that had its address
    // Of fxInputChannel*, each holding one count; null before the first, and while `links`
    // has holes. There is no walk meanwhile.
    mutable fxVoidPtrArray* inputs;
    fxLinks<fxInputChannel>* links;  // the connections when they are many, or null
    fxObj* owner;                    // borrowed; in whose list it is linked
    fxOutputChannel* nextOwned;
    fxOutputChannel** ownedLink;
};

/// The walk over an output's connections while a value goes round: the one
/// mechanism that keeps a send safe from what its receivers do. The output
/// corrects it when connections go and ends it when it is destroyed.
class FX_API fxDelivery : public fxWalk<fxDelivery> {
public:
    /// Begins a walk over what is connected now.
    explicit fxDelivery(fxOutputChannel& output_)
        : fxWalk(output_), position(0), end(output_.getNumberOfConnections()) {
        if (__builtin_expect(output_.inputs == nullptr, 0)) output_.settle();
    }

    /// The next connection to serve, or null at the end.
    fxInputChannel* next() {
        if (position >= end) return nullptr;
        fxInputChannel* const input =
            static_cast<fxOutputChannel&>(*getList()).getEntry(position++);
        if (input == nullptr) __builtin_unreachable();  // spares each receiver a test
        return input;
    }

private:
    friend class fxOutputChannel;

    void connectionRemoved(unsigned int index) {
        if (index < position) --position;
        if (index < end) --end;
    }
    void stop() { end = 0; }

    unsigned int position;  // of the connection to serve next
    unsigned int end;       // what was connected when the walk began, and still is
};

template <class... Passed>
inline void fxOutputChannel::deliverPassed(Passed... value) {
    if (__builtin_expect(fx_traceKinds != 0, 0)) {
        deliverTraced<Passed...>(value...);
        return;
    }
    const unsigned short valueType = type;  // the output may die under the walk
    // With one connection there is nothing left to walk over once its function runs.
    if (fxInputChannel* only = getOnlyEntry()) return only->receive<Passed...>(valueType, value...);
    if (getNumberOfConnections() == 0) return;
    fxDelivery walk(*this);
    while (fxInputChannel* input = walk.next()) input->receive<Passed...>(valueType, value...);
}

// The same, traced: each line is written before the action that it describes.
template <class... Passed>
void fxOutputChannel::deliverTraced(Passed... value) {
    const unsigned short valueType = type;
    fxDelivery walk(*this);
    fxDetail::traceSending(*this, fxDetail::TracedValue(value...));
    while (fxInputChannel* input = walk.next()) {
        fxDetail::traceDelivering(*input, fxDetail::TracedValue(value...));
        input->receive<Passed...>(valueType, value...);
    }
}

template <class... Passed>
inline void fxInputChannel::receive(unsigned short type, Passed... value) {
    // Nearly every connection is a plain one of the same type, and then nothing
    // of the channel is touched once its function runs.
    if (word == static_cast<unsigned int>(type) << typeShift) {
        callAs<Passed...>(value...);
        return;
    }
    receiveHeld<Passed...>(value...);
}

template <class... Passed>
void fxInputChannel::receiveHeld(Passed... value) {
    const fxHold<fxInputChannel> hold(this);
    if (isReplacing()) cancelPending();
    call<Passed...>(value...);
}

#endif
