#include <utility>
#include <vector>

#include "fxds/EventHandler.h"
#include "fxds/Obj.h"
#include "fxds/Str.h"
#include "fxds/StrArray.h"
#include "fxds/StrData.h"
#include "fxds/VoidPtrDict.h"

// The channels of an object stand in two dictionaries, which are kept as
// properties. A property counts as a channel table only if its destructor is
// the one that tables have: somebody may use the names for properties of
// another kind.
//
// Tearing a channel down runs code that may come back here, so a channel
// leaves its table first.

// The inputs of an object, and with them those whose name was given away.
class fxInputTable : public fxVoidPtrDict {
public:
    void retire(fxInputChannel* input) {
        input->nextRetired = retired;
        input->retiredLink = &retired;
        if (retired != nullptr) retired->retiredLink = &input->nextRetired;
        retired = input;
    }

    // Takes a retired input out and gives the caller a hold on it; null when
    // there is none left.
    fxInputChannel* takeRetired() {
        fxInputChannel* input = retired;
        if (input == nullptr) return nullptr;
        retired = input->nextRetired;
        if (retired != nullptr) retired->retiredLink = &retired;
        input->nextRetired = nullptr;
        input->retiredLink = nullptr;
        input->take();
        return input;
    }

    fxInputChannel* getRetired() const { return retired; }

protected:
    Finder* finder() const override { return finderFor(typeid(fxInputTable)); }

private:
    fxInputChannel* retired = nullptr;
};

namespace {

// One of the two tables: how its property is called and ends.
struct TableKind {
    const char* name;
    fxProperty::Destructor* destructor;
    unsigned short tag;
};

TableKind inputKind = {"inputs", fxObj::dt_input_dict, fxProperty::noTag};
TableKind outputKind = {"outputs", fxObj::dt_output_dict, fxProperty::noTag};

fxVoidPtrDict* findTable(fxObj& object, TableKind& kind) {
    if (kind.tag == fxProperty::noTag) kind.tag = fxProperty::findTag(kind.name);
    if (kind.tag == fxProperty::noTag) return nullptr;
    const fxProperty* property = object.findProperty(kind.tag);
    if (property == nullptr || property->getDestructor() != kind.destructor) return nullptr;
    return static_cast<fxVoidPtrDict*>(property->getAsVoidPtr());
}

// Enters a channel in the object's table, which is made if need be, and gives
// back the channel whose name it takes, or null. Making the table a property is
// the last step: another property may make way for it and run anybody's code.
template <class Table>
void* enter(fxObj& object, TableKind& kind, const char* name, void* channel) {
    fxVoidPtrDict* table = findTable(object, kind);
    if (table != nullptr) return std::exchange((*table)[fxStr(name)], channel);
    if (kind.tag == fxProperty::noTag) kind.tag = fxProperty::allocNewTag(kind.name);
    table = new Table;
    (*table)[fxStr(name)] = channel;
    object.setProperty(new fxProperty(kind.tag, static_cast<void*>(table), kind.destructor));
    return nullptr;
}

// A name as the key of a search: a string that only borrows its text.
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

template <class Channel>
Channel* findChannel(fxVoidPtrDict* table, const char* name) {
    if (table == nullptr) return nullptr;
    void** found = table->find(Name(name));
    return found != nullptr ? static_cast<Channel*>(*found) : nullptr;
}

fxStrArray namesIn(fxVoidPtrDict* table) {
    fxStrArray names;
    if (table == nullptr) return names;
    for (fxVoidPtrDictIter entry(*table); entry.notDone(); ++entry) names.append(entry.key());
    names.sort();
    return names;
}

// Takes all channels out of a table, in its order, and deletes the table.
template <class Channel>
std::vector<Channel*> emptyTable(fxVoidPtrDict* table) {
    std::vector<Channel*> channels;
    channels.reserve(table->size());
    for (fxVoidPtrDictIter entry(*table); entry.notDone(); ++entry) {
        channels.push_back(static_cast<Channel*>(entry.value()));
    }
    delete table;
    return channels;
}

fxEventHandler& eventHandler() {
    if (__builtin_expect(fx_theEventHandler == nullptr, 0)) fx_theEventHandler = new fxEventHandler;
    return *fx_theEventHandler;
}

}  // namespace

void fxObj::muteInputs(fxVoidPtrDict& table) {
    for (auto [name, input] : table) static_cast<fxInputChannel*>(input)->mute();
    auto* own = dynamic_cast<fxInputTable*>(&table);
    if (own == nullptr) return;
    for (fxInputChannel* input = own->getRetired(); input != nullptr; input = input->nextRetired) {
        input->mute();
    }
}

// Silences an input that the caller holds, and lets go of it. The values that
// the first flush deletes may run code that sends more, hence the second.
void fxObj::discard(fxInputChannel* input) {
    input->mute();
    input->flush();
    input->disconnect();
    input->flush();
    input->release();
}

fxVoidPtrDict* fxObj::getInputs() { return findTable(*this, inputKind); }

fxVoidPtrDict* fxObj::getOutputs() { return findTable(*this, outputKind); }

fxStrArray fxObj::getInputNames() { return namesIn(getInputs()); }

fxStrArray fxObj::getOutputNames() { return namesIn(getOutputs()); }

fxInputChannel* fxObj::getInput(char const* name) {
    return findChannel<fxInputChannel>(getInputs(), name);
}

fxOutputChannel* fxObj::getOutput(char const* name) {
    return findChannel<fxOutputChannel>(getOutputs(), name);
}

fxOutputChannel* fxObj::getOutput(char const* name, unsigned short type) {
    fxOutputChannel* output = getOutput(name);
    return output != nullptr && output->getType() == type ? output : nullptr;
}

fxInputChannel* fxObj::addInput(char const* name, unsigned short type, void* closure,
                                void (*function)(), unsigned char replace) {
    fxInputChannel* input = new fxInputChannel(type, closure, function, replace);
    input->take();
    input->owner = this;
    void* old = enter<fxInputTable>(*this, inputKind, name, input);
    if (old != nullptr) {
        fxInputChannel* replaced = static_cast<fxInputChannel*>(old);
        if (auto* table = dynamic_cast<fxInputTable*>(getInputs())) table->retire(replaced);
        replaced->release();
    }
    return input;
}

fxOutputChannel* fxObj::addOutput(char const* name, unsigned short type) {
    fxOutputChannel* output = new fxOutputChannel(type);
    output->owner = this;
    void* old = enter<fxVoidPtrDict>(*this, outputKind, name, output);
    delete static_cast<fxOutputChannel*>(old);
    return output;
}

void fxObj::removeInput(char const* name) {
    fxInputChannel* input = getInput(name);
    if (input == nullptr) return;
    getInputs()->remove(fxStr(name));
    discard(input);
}

void fxObj::removeOutput(char const* name) {
    fxOutputChannel* output = getOutput(name);
    if (output == nullptr) return;
    getOutputs()->remove(fxStr(name));
    delete output;
}

void fxObj::connect(const char* outputName, fxObj* target, const char* inputName) {
    if (target == nullptr) return;
    fxOutputChannel* output = getOutput(outputName);
    fxInputChannel* input = target->getInput(inputName);
    if (output == nullptr || input == nullptr || output->isConnectedTo(input)) return;
    output->add(input);
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

// A mode that does not exist only cancels: nothing would delete a box.
template <class T>
fxData* box(const T* value, fxObj::fxSendFlags how) {
    typedef typename fxChannelType<T>::Box Box;
    const bool delivers =
        how == fxObj::fxSendQueued || how == fxObj::fxSendNow || how == fxObj::fxSendUrgent;
    if (!delivers) return nullptr;
    if constexpr (std::is_void_v<T>) {
        return new Box;
    } else if constexpr (std::is_same_v<T, const char*>) {
        return new Box(fxCopyCharPtr(*value));
    } else {
        return new Box(*value);
    }
}

}  // namespace

#define FX_SENT(number, name, Value, Passed, Box)                                         \
    void fxObj::sendBoxed(fxOutputChannel* output, Value const* value, fxSendFlags how) { \
        fxData* data = box<Value>(value, how);                                            \
        eventHandler().postMessage(output, data, how);                                    \
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

void fxObj::dt_input_dict(void* table) {
    fxVoidPtrDict* inputs = static_cast<fxVoidPtrDict*>(table);
    muteInputs(*inputs);
    std::vector<fxInputChannel*> retired;
    if (auto* own = dynamic_cast<fxInputTable*>(inputs)) {
        while (fxInputChannel* input = own->takeRetired()) retired.push_back(input);
    }
    for (fxInputChannel* input : emptyTable<fxInputChannel>(inputs)) discard(input);
    for (fxInputChannel* input : retired) discard(input);
}

void fxObj::dt_output_dict(void* table) {
    for (fxOutputChannel* output : emptyTable<fxOutputChannel>(static_cast<fxVoidPtrDict*>(table)))
        delete output;
}
