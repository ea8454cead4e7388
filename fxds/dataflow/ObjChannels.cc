#include <utility>
#include <vector>

#include "fxds/EventHandler.h"
#include "fxds/Obj.h"
#include "fxds/Str.h"
#include "fxds/StrArray.h"
#include "fxds/StrData.h"
#include "fxds/VoidPtrDict.h"
#include "fxds/base/FreeLists.h"
#include "fxds/dataflow/Belongings.h"
#include "fxds/dataflow/Explain.h"
#include "fxds/dataflow/TraceLines.h"

// The channels of an object are in two dictionaries, which are kept as properties and made
// when they are needed (see Belongings.h). A property counts as a channel table only if it
// has the destructor of tables: a program may use the names for properties of another kind.
//
// Tearing a channel down runs code that may re-enter here, so a channel leaves its table
// first. The tables are open to programs, which may have made an entry without a channel by
// reading a missing one with [].
//
// Invariants:
// (1) A table has one hold on each of its inputs, and owns its outputs. A due table does
//     the same for its only channel.
// (2) A channel that enter() or emptyTable() returns is in no table; the caller releases or
//     deletes it.
// (3) A tag, once found, stays that of its kind for good, although the names may be
//     destroyed.
//
// Order in which an input ends: it loses its owner and is muted, so that values under way
// reach no receiver; its messages go, then its connections, then the hold. Each step after
// the first may run code of the program, which finds an input that calls nothing.

namespace {

// One of the two tables: the name and destructor of its property, and the place of its due
// tag.
template <class ChannelOfKind>
struct TableKind {
    typedef ChannelOfKind Channel;
    const char* name;
    fxProperty::Destructor* destructor;
    fxSoleChannel<Channel> fxBelongings::*sole;
    unsigned short fxBelongings::*due;
    unsigned short tag = fxProperty::noTag;
};

TableKind<fxInputChannel> inputKind = {"inputs", fxObj::dt_input_dict, &fxBelongings::soleInput,
                                       &fxBelongings::dueInputs};
TableKind<fxOutputChannel> outputKind = {"outputs", fxObj::dt_output_dict,
                                         &fxBelongings::soleOutput, &fxBelongings::dueOutputs};

template <class Kind>
fxVoidPtrDict* findTable(fxObj& object, Kind& kind) {
    if (kind.tag == fxProperty::noTag) kind.tag = fxProperty::findTag(kind.name);
    if (kind.tag == fxProperty::noTag) return nullptr;
    const fxProperty* property = object.findProperty(kind.tag);
    if (property == nullptr || property->getDestructor() != kind.destructor) return nullptr;
    return static_cast<fxVoidPtrDict*>(property->getAsVoidPtr());
}

// The tag of a kind of table, with its name entered under it: the names may have been
// destroyed and made again since the tag was allotted.
template <class Kind>
unsigned short tagOf(Kind& kind) {
    if (kind.tag == fxProperty::noTag) kind.tag = fxProperty::findTag(kind.name);
    if (kind.tag == fxProperty::noTag) return kind.tag = fxProperty::allocNewTag(kind.name);
    const bool isEntered = fx_propertyNames != nullptr && fx_propertyNames->length() > kind.tag &&
                           (*fx_propertyNames)[kind.tag] == kind.name;
    if (!isEntered) fxEnterPropertyName(kind.tag, kind.name);
    return kind.tag;
}

// A name as a key: a string that borrows its text.
class Name {
public:
    explicit Name(const char* name) {
        const unsigned int length = fxStr::textLength(name);
        if (length == 0) return;
        text.data = const_cast<char*>(name);
        text.slength = length + 1;
    }
    Name(const Name&) = delete;
    Name& operator=(const Name&) = delete;
    ~Name() {
        text.data = &fxStr::emptyString;
        text.slength = 1;
    }
    operator const fxStr&() const { return text; }

private:
    fxStr text;
};

// Enters a channel in the object's table, which is due or made if need be. Returns the
// channel whose name it takes, or null. Making the table a property is the last step: it
// may replace another property and run code of the program.
template <class Kind, class Channel = typename Kind::Channel>
Channel* enter(fxObj& object, fxBelongings& mine, Kind& kind, const char* name, Channel* channel) {
    const unsigned short tag = tagOf(kind);
    auto& sole = mine.*kind.sole;
    unsigned int position = 0;
    const bool isDue = mine.*kind.due != fxProperty::noTag;
    const bool mayBeDue =
        mine.watches == nullptr && !mine.isEnding && mine.properties.find(tag, position) == nullptr;
    if (isDue ? sole.channel == nullptr || sole.isNamed(name) : mayBeDue) {
        mine.*kind.due = tag;
        if (sole.channel == nullptr) sole.name.set(name);
        return std::exchange(sole.channel, channel);
    }
    fxVoidPtrDict* table = findTable(object, kind);
    if (table != nullptr) {
        void* const old = std::exchange((*table)[Name(name)], channel);
        return static_cast<Channel*>(old);
    }
    table = new fxVoidPtrDict;
    (*table)[Name(name)] = channel;
    object.setProperty(new fxProperty(tag, static_cast<void*>(table), kind.destructor));
    return nullptr;
}

template <class Kind, class Channel = typename Kind::Channel>
Channel* findChannel(fxObj& object, const fxBelongings* mine, Kind& kind, const char* name) {
    if (mine == nullptr) return nullptr;
    if (mine->*kind.due != fxProperty::noTag) {
        const auto& sole = mine->*kind.sole;
        return sole.isNamed(name) ? sole.channel : nullptr;
    }
    fxVoidPtrDict* const table = findTable(object, kind);
    if (table == nullptr) return nullptr;
    void** found = table->find(Name(name));
    return found != nullptr ? static_cast<Channel*>(*found) : nullptr;
}

// Removes an existing channel from the object's table.
template <class Kind>
void leaveTable(fxObj& object, fxBelongings& mine, Kind& kind, const char* name) {
    if (mine.*kind.due != fxProperty::noTag) {
        (mine.*kind.sole).channel = nullptr;
    } else {
        findTable(object, kind)->remove(Name(name));
    }
}

template <class Kind>
void makeTable(fxBelongings& mine, Kind& kind) {
    if (mine.*kind.due == fxProperty::noTag) return;
    auto& sole = mine.*kind.sole;
    auto* const table = new fxVoidPtrDict;
    if (sole.channel != nullptr) {
        (*table)[Name(sole.name.c_str())] = std::exchange(sole.channel, nullptr);
    }
    const unsigned short tag = std::exchange(mine.*kind.due, fxProperty::noTag);
    auto* const property = new fxProperty(tag, static_cast<void*>(table), kind.destructor);
    property->take();
    mine.properties.put(property);
}

template <class Kind>
const char* nameOf(fxObj& object, const fxBelongings* mine, Kind& kind, const void* channel) {
    if (mine == nullptr) return nullptr;
    const auto& sole = mine->*kind.sole;
    if (mine->*kind.due != fxProperty::noTag) {
        return sole.channel == channel ? sole.name.c_str() : nullptr;
    }
    fxVoidPtrDict* const table = findTable(object, kind);
    if (table == nullptr) return nullptr;
    for (auto [name, other] : *table) {
        if (other == channel) return name.c_str();
    }
    return nullptr;
}

fxStrArray namesIn(fxVoidPtrDict* table) {
    fxStrArray names;
    if (table == nullptr) return names;
    for (fxVoidPtrDictIter entry(*table); entry.notDone(); ++entry) {
        if (entry.value() != nullptr) names.append(entry.key());
    }
    names.sort();
    return names;
}

// Removes all channels from a table, in its order, and deletes the table: code that runs
// when a channel ends must not find the others in it.
template <class Channel>
std::vector<Channel*> emptyTable(fxVoidPtrDict* table) {
    std::vector<Channel*> channels;
    channels.reserve(table->size());
    for (fxVoidPtrDictIter entry(*table); entry.notDone(); ++entry) {
        if (entry.value() != nullptr) channels.push_back(static_cast<Channel*>(entry.value()));
    }
    delete table;
    return channels;
}

// Out of line, so that the sends call no function to test whether there is a handler.
[[gnu::cold, gnu::noinline]] void makeEventHandler() { fx_theEventHandler = new fxEventHandler; }

fxEventHandler& eventHandler() {
    if (fx_theEventHandler == nullptr) makeEventHandler();
    return *fx_theEventHandler;
}

}  // namespace

fxBelongings* fxBelongings::makeWithRoom() {
    static_assert(sizeof(fxBelongings) % alignof(fxInputChannel) == 0);
    return ::new (::operator new(sizeof(fxBelongings) + sizeof(fxInputChannel))) fxBelongings;
}

void fxBelongings::end(fxBelongings* mine) {
    const bool isLast = !mine->hasInputBehind;
    if (!isLast) mine->inputBehind()->inBlock = fxInputChannel::InBlock::left;
    mine->~fxBelongings();
    if (isLast) ::operator delete(mine);
}

void fxBelongings::makeTables() {
    makeTable(*this, inputKind);
    makeTable(*this, outputKind);
}

// The ends of channels may run code of the program, which finds no table, and may end the
// object.
void fxBelongings::endDueTables() {
    const bool inputsFirst = dueInputs < dueOutputs;
    dueInputs = dueOutputs = fxProperty::noTag;
    fxInputChannel* const input = std::exchange(soleInput.channel, nullptr);
    fxOutputChannel* const output = std::exchange(soleOutput.channel, nullptr);
    if (!inputsFirst) delete output;
    if (input != nullptr) fxObj::discard(input);
    if (inputsFirst) delete output;
}

// No code of the program runs in here: all channels are muted or disowned before the first
// of them ends. All inputs become nameless, so that one list leads to them whatever becomes
// of the tables.
void fxObj::disownChannels() {
    properties->isEnding = true;
    while (fxInputChannel* input = properties->inputs.getFirst()) {
        fxOwnedChannels<fxInputChannel>::leave(input);
        properties->nameless.enter(input);
    }
    while (fxOutputChannel* output = properties->outputs.getFirst()) output->disown();
    for (auto* input = properties->nameless.getFirst(); input != nullptr;
         input = input->nextOwned) {
        input->mute();
    }
}

// Mutes an input, ends its messages and connections, and releases it. Requires: the caller
// passes on one hold, which keeps the input until the last line.
void fxObj::discard(fxInputChannel* input) {
    input->disown();
    input->flush();
    input->disconnect();
    input->release();
}

void fxObj::discardNameless() {
    while (fxInputChannel* input = properties->nameless.getFirst()) {
        input->take();
        discard(input);
    }
}

fxVoidPtrDict* fxObj::getInputs() { return findTable(*this, inputKind); }

fxVoidPtrDict* fxObj::getOutputs() { return findTable(*this, outputKind); }

fxStrArray fxObj::getInputNames() { return namesIn(getInputs()); }

fxStrArray fxObj::getOutputNames() { return namesIn(getOutputs()); }

fxInputChannel* fxObj::getInput(char const* name) {
    return findChannel(*this, properties, inputKind, name);
}

fxOutputChannel* fxObj::getOutput(char const* name) {
    return findChannel(*this, properties, outputKind, name);
}

const char* fxInputChannel::getName() const {
    return owner != nullptr ? nameOf(*owner, owner->properties, inputKind, this) : nullptr;
}

const char* fxOutputChannel::getName() const {
    return owner != nullptr ? nameOf(*owner, owner->properties, outputKind, this) : nullptr;
}

fxOutputChannel* fxObj::getOutput(char const* name, unsigned short type) {
    fxOutputChannel* output = getOutput(name);
    return output != nullptr && output->getType() == type ? output : nullptr;
}

fxInputChannel* fxObj::addInput(char const* name, unsigned short type, void* closure,
                                void (*function)(), unsigned char replace) {
    return addInput(name, closure, {type, function, nullptr}, replace);
}

fxInputChannel* fxObj::addInput(char const* name, void* closure,
                                const fxDetail::InputFunction& function, unsigned char replace) {
    fxInputChannel* input = nullptr;
    if (properties == nullptr && fxBelongings::joinsBlocks) {
        properties = fxBelongings::makeWithRoom();
        input = ::new (properties->inputBehind())
            fxInputChannel(function.type, closure, function.function, replace);
        properties->hasInputBehind = true;
        input->inBlock = fxInputChannel::InBlock::behind;
    } else {
        input = new fxInputChannel(function.type, closure, function.function, replace);
    }
    input->classTest = function.classTest;
    if (input->classTest != nullptr) input->word |= fxInputChannel::untestedBit;
    return addInput(name, input);
}

// A replaced input that others hold lives on as a nameless one: so its connections and
// messages end with its object, although no table leads to it.
fxInputChannel* fxObj::addInput(char const* name, fxInputChannel* input) {
    input->take();
    fxBelongings& mine = makeBelongings();
    if (mine.isEnding) {
        input->mute();
    } else {
        input->owner = this;
        mine.inputs.enter(input);
    }
    fxInputChannel* replaced = enter(*this, mine, inputKind, name, input);
    if (replaced == nullptr) return input;
    if (replaced->owner != nullptr) {
        fxOwnedChannels<fxInputChannel>::leave(replaced);
        replaced->owner->properties->nameless.enter(replaced);
    }
    replaced->release();
    return input;
}

void fxObj::adoptInput(fxInputChannel* input) {
    fxBelongings& mine = makeBelongings();
    if (mine.isEnding) {
        input->mute();
    } else {
        input->owner = this;
        mine.nameless.enter(input);
    }
}

fxOutputChannel* fxObj::addOutput(char const* name, unsigned short type) {
    fxOutputChannel* output = new fxOutputChannel(type);
    fxBelongings& mine = makeBelongings();
    if (!mine.isEnding) {
        output->owner = this;
        mine.outputs.enter(output);
    }
    delete enter(*this, mine, outputKind, name, output);
    return output;
}

void fxObj::removeInput(char const* name) {
    fxInputChannel* input = getInput(name);
    if (input == nullptr) return;
    leaveTable(*this, *properties, inputKind, name);
    discard(input);
}

void fxObj::removeOutput(char const* name) {
    fxOutputChannel* output = getOutput(name);
    if (output == nullptr) return;
    leaveTable(*this, *properties, outputKind, name);
    delete output;
}

void fxObj::connect(const char* outputName, fxObj* target, const char* inputName) {
    fxOutputChannel* output = getOutput(outputName);
    fxInputChannel* input = target != nullptr ? target->getInput(inputName) : nullptr;
    if (output == nullptr || input == nullptr) {
        if (fxTrace::isOn(fxTrace::connects)) {
            const std::string why = fxExplain::whyNotJoined(this, outputName, target, inputName);
            fxTraceLines::notConnecting(why);
        }
        return;
    }
    if (!output->isConnectedTo(input)) output->add(input);
}

void fxObj::disconnect(const char* outputName, fxObj* target, const char* inputName) {
    if (target == nullptr) return;
    fxOutputChannel* output = getOutput(outputName);
    fxInputChannel* input = target->getInput(inputName);
    if (output != nullptr && input != nullptr) output->remove(input);
}

void fxObj::sendData(fxOutputChannel* output, fxData* data, fxSendFlags how) {
    eventHandler().postMessage(output, data, how);
}

namespace {

template <class T>
fxData* box(const T* value, fxObj::fxSendFlags how) {
    typedef typename fxChannelType<T>::Box Box;
    if (!fxDetail::delivers(how)) return nullptr;
    if constexpr (std::is_void_v<T>) {
        return new Box;
    } else if constexpr (std::is_same_v<T, const char*>) {
        return new Box(fxCopyCharPtr(*value));
    } else {
        return new Box(*value);
    }
}

template <class T>
[[gnu::cold, gnu::noinline]] void sendFirst(fxOutputChannel* output, const T* value,
                                            fxObj::fxSendFlags how) {
    fxData* data = box<T>(value, how);
    eventHandler().postMessage(output, data, how);
}

}  // namespace

// With a handler and a free block for the box, no stack is needed.
#define FX_SENT(number, name, Value, Passed, Box)                                             \
    void fxObj::sendBoxed(fxOutputChannel* output, Value const* value, fxSendFlags how) {     \
        const bool isFirst = fx_theEventHandler == nullptr || !fxFreeLists::has(sizeof(Box)); \
        if (__builtin_expect(isFirst, 0)) return sendFirst<Value>(output, value, how);        \
        fxData* data = box<Value>(value, how);                                                \
        fx_theEventHandler->postMessage(output, data, how);                                   \
    }
#define FX_HELD(...)
FX_DATA_TYPES(FX_SENT, FX_HELD)
#undef FX_HELD
#undef FX_SENT

void fxObj::sendVoid(fxOutputChannel* output, fxSendFlags how) { send<void>(output, nullptr, how); }

void fxObj::sendCharPtr(fxOutputChannel* output, char const* text, fxSendFlags how) {
    send(output, &text, how);
}

void fxObj::sendStr(fxOutputChannel* output, const fxStr& value, fxSendFlags how) {
    send(output, &value, how);
}

void fxObj::sendStrArray(fxOutputChannel* output, const fxStrArray& value, fxSendFlags how) {
    send(output, &value, how);
}

// All inputs are muted before the first one ends, whose end may send to the others.
void fxObj::dt_input_dict(void* table) {
    if (table == nullptr) return;
    fxVoidPtrDict* inputs = static_cast<fxVoidPtrDict*>(table);
    for (auto [name, input] : *inputs) {
        if (input != nullptr) static_cast<fxInputChannel*>(input)->disown();
    }
    for (fxInputChannel* input : emptyTable<fxInputChannel>(inputs)) discard(input);
}

void fxObj::dt_output_dict(void* table) {
    if (table == nullptr) return;
    for (fxOutputChannel* output : emptyTable<fxOutputChannel>(static_cast<fxVoidPtrDict*>(table)))
        delete output;
}
