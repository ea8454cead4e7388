#include "fxds/Channel.h"

#include <cxxabi.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <typeinfo>
#include <utility>

#include "fxds/Converter.h"
#include "fxds/Data.h"
#include "fxds/Event.h"
#include "fxds/Fatal.h"
#include "fxds/Obj.h"
#include "fxds/Str.h"
#include "fxds/dataflow/Belongings.h"
#include "fxds/dataflow/Explain.h"
#include "fxds/dataflow/Links.h"
#include "fxds/dataflow/TraceLines.h"

// A connection is kept at both ends: the output lists its entries, each a real input or a
// converter copy that leads to one, and each real input lists the outputs that feed it,
// once per connection. Removal starts at the output. Long lists are of the class fxLinks.
//
// Invariants, as long as the program splices no listed converter and does not edit the
// outputs of an input itself:
// (1) For each entry of an output, the input at its end lists the output once.
// (2) An output counts its entries, and a converter copy the input that it leads to. An
//     input does not count outputs.
// (3) An output with `links` has its entries there; `inputs` is the same list while that
//     has no holes, and null otherwise.
// (4) `queued` is the number of existing messages, waiting or not, that lead to the input
//     or through the converter.
// (5) An input that has ended exists only while it is watched, and lists no output.
// (6) `feeds` selects `onlyOutput` or `outputs`, and whether the latter is an fxLinks. It
//     only goes up, from nothing to many, until the input ends: a list is never changed
//     back.
// (7) `isEdited`, once set, stays set: (1) is then not relied on to find the output of that
//     input.
// (8) `place` is a hint. It is compared with the list before it is used, and shares its
//     memory with what an input needs that keeps no place: the test of the class, or a
//     callable.
//
// A channel is deleted by its last holder, an output by whatever made it, mostly an object.
// The end of an input may run code of the program (the destructor of a callable), and so
// may each release(). So both ends of a connection are corrected before its entry is
// released.

fxInputChannel::fxInputChannel(unsigned short type, void* closure_, void (*function_)(),
                               fxBool replace)
    : closure(closure_),
      function(function_),
      word(static_cast<unsigned int>(type) << typeShift | (replace & replaceBit)),
      feeds(Feeds::nothing),
      keepsCallable(0),
      isEdited(0),
      hasEnded(0),
      inBlock(InBlock::own),
      watchers(0),
      pending(nullptr),
      refCount(0),
      outputs(nullptr),
      queued(0),
      latest(nullptr),
      owner(nullptr),
      nextOwned(nullptr),
      ownedLink(nullptr),
      classTest(nullptr) {}

fxInputChannel::~fxInputChannel() { end(); }

// Ends all parts of the channel, once. The end of a callable may run code of the program,
// so it comes last and is marked as done before.
void fxInputChannel::end() {
    hasEnded = 1;
    fxOwnedChannels<fxInputChannel>::leave(this);
    if (feeds != Feeds::one) delete outputs;
    feeds = Feeds::nothing;
    outputs = nullptr;
    if (isConverter() && closure != nullptr) static_cast<fxInputChannel*>(closure)->release();
    if (keepsCallable == 0) return;
    keepsCallable = 0;
    delete callable;
}

fxDetail::KeptCallable::~KeptCallable() = default;

fxInputChannel* fxDetail::newInputFor(KeptCallable* callable, void* closure,
                                      const InputFunction& function, unsigned char replace) {
    auto* const input = new fxInputChannel(function.type, closure, function.function, replace);
    callable->channel = input;
    input->callable = callable;
    input->keepsCallable = 1;
    return input;
}

// No code of the program runs when an input behind belongings ends, which keeps no callable.
void fxInputChannel::erase() {
    if (inBlock == InBlock::own) return delete this;
    auto* const belongings = reinterpret_cast<fxBelongings*>(this) - 1;
    const bool isLast = inBlock == InBlock::left;
    this->~fxInputChannel();
    if (isLast) {
        ::operator delete(belongings);
    } else {
        belongings->hasInputBehind = false;
    }
}

// The channel counts itself as a watcher while it ends: otherwise code that runs meanwhile
// and destroys the last fxConnection would delete it under end().
void fxInputChannel::destroy() {
    if (isConverter()) {
        delete static_cast<fxConverter*>(this);
    } else if (watchers == 0) {
        erase();
    } else {
        watch();
        end();
        unwatch();
    }
}

void fxInputChannel::watch() {
    // NOLINTNEXTLINE(bugprone-narrowing-conversions): an unsigned bit-field
    if (++watchers == 0) fxFatal("too many connections refer to one input");
}

void fxInputChannel::unwatch() {
    // NOLINTNEXTLINE(bugprone-narrowing-conversions): an unsigned bit-field
    if (--watchers == 0 && hasEnded != 0) erase();
}

fxInputChannel* fxInputChannel::target() {
    fxInputChannel* input = this;
    while (input != nullptr && input->isConverter()) {
        input = static_cast<fxInputChannel*>(input->closure);
    }
    return input;
}

// What a program enters itself is kept in a list, null too.
void fxInputChannel::add(fxOutputChannel* output) {
    isEdited = 1;
    if (feeds == Feeds::nothing || feeds == Feeds::one) settle();
    enter(output);
}

void fxInputChannel::enter(fxOutputChannel* output) {
    if (feeds == Feeds::nothing || (feeds == Feeds::one && onlyOutput == nullptr)) {
        feeds = Feeds::one;
        onlyOutput = output;
        return;
    }
    if (feeds == Feeds::one) settle();
    if (feeds == Feeds::few && fxLinks<fxOutputChannel>::isMany(outputs)) {
        const std::unique_ptr<fxVoidPtrArray> plain(outputs);
        outputs = new fxLinks<fxOutputChannel>(std::move(*plain));
        feeds = Feeds::many;
    }
    if (feeds == Feeds::many) return links().enter(output);
    outputs->append(output);
}

// Requires: there are many.
fxLinks<fxOutputChannel>& fxInputChannel::links() const {
    return static_cast<fxLinks<fxOutputChannel>&>(*outputs);
}

// Closes the holes of many, and makes a list of fewer where there is none. Requires: `outputs`
// is not yet the list of few.
void fxInputChannel::settle() const {
    if (feeds == Feeds::many) {
        if (links().hasHoles()) links().close();
        return;
    }
    auto list = std::make_unique<fxVoidPtrArray>();
    if (onlyOutput != nullptr) list->append(onlyOutput);
    outputs = list.release();
    feeds = Feeds::few;
}

unsigned int fxInputChannel::countOutputs() const {
    switch (feeds) {
        case Feeds::nothing:
            return 0;
        case Feeds::one:
            return onlyOutput != nullptr ? 1 : 0;
        case Feeds::few:
            return outputs->length();
        default:
            return links().count();
    }
}

// The position in the list of outputs, which is an index when there are no holes.
unsigned int fxInputChannel::findOutput(const fxOutputChannel* output) const {
    if (feeds == Feeds::nothing) return fxArray::notFound;
    if (feeds == Feeds::one) {
        return output != nullptr && onlyOutput == output ? 0 : fxArray::notFound;
    }
    if (feeds == Feeds::many) return links().find(output);
    auto* const at = std::find(outputs->begin(), outputs->end(), output);
    return at != outputs->end() ? static_cast<unsigned int>(at - outputs->begin())
                                : fxArray::notFound;
}

void fxInputChannel::remove(fxOutputChannel* output) {
    isEdited = 1;
    leave(output);
}

void fxInputChannel::leave(fxOutputChannel* output) {
    if (feeds == Feeds::nothing) return;
    const unsigned int at = findOutput(output);
    if (at == fxArray::notFound) fxFatal("ic/oc connections busted");
    if (feeds == Feeds::one) {
        onlyOutput = nullptr;
    } else if (feeds == Feeds::many) {
        links().leave(at, false);
    } else {
        outputs->remove(at, 1);
    }
}

// The list is read anew for each output, because the removal may run code that connects or
// cuts others. A removal that leaves the count as it was is fatal, because the loop would
// not end.
void fxInputChannel::disconnect() {
    const fxHold<fxInputChannel> hold(this);  // the connections may be the only holders
    while (const unsigned int before = countOutputs()) {
        fxOutputChannel* const first = feeds == Feeds::one ? onlyOutput
                                       : feeds == Feeds::many
                                           ? links().first()
                                           : static_cast<fxOutputChannel*>((*outputs)[0]);
        first->remove(this);
        if (countOutputs() == before) fxFatal("ic/oc connections busted");
    }
}

// A message counts at each converter copy on its way and at the input, so that flush() can
// see that there is nothing to find. A removed message adds -1, which wraps around.
void fxInputChannel::countMessages(unsigned long count) {
    fxInputChannel* input = this;
    while (input != nullptr) {
        input->queued += count;
        input = input->isConverter() ? static_cast<fxInputChannel*>(input->closure) : nullptr;
    }
}

void fxInputChannel::deliver(fxData* data) {
    FX_ASSERT(function != nullptr);
    // Compares the whole word, so that an input whose owner is still to be tested differs.
    if (__builtin_expect(word >> typeShift != data->getType(), 0)) return deliverUnlike(data);
    data->deliverTo(function, closure);
}

void fxInputChannel::deliverUnlike(fxData* data) {
    if (isUntested()) testClass(true);
    if (getType() == fxDT_void && data->getType() != fxDT_void) return callAs<>();
    data->deliverTo(function, closure);
}

namespace {

void callNothing(void*) {}

}  // namespace

// A value that is still on its way here (the rest of a send, a message that the program
// took out of the queue) must not reach a closure that may be gone.
void fxInputChannel::mute() {
    owner = nullptr;
    word = (word & (replaceBit | converterBit)) | mutedBit |
           static_cast<unsigned int>(fxDT_void) << typeShift;
    function = reinterpret_cast<void (*)()>(callNothing);
}

void fxInputChannel::disown() {
    fxOwnedChannels<fxInputChannel>::leave(this);
    mute();
}

namespace {

// Whether `type` is one of the bases of `derived`, at any distance.
bool isBaseOf(const std::type_info& type, const std::type_info& derived) {
    if (const auto* single = dynamic_cast<const abi::__si_class_type_info*>(&derived)) {
        return *single->__base_type == type || isBaseOf(type, *single->__base_type);
    }
    const auto* multiple = dynamic_cast<const abi::__vmi_class_type_info*>(&derived);
    if (multiple == nullptr) return false;
    for (unsigned int i = 0; i < multiple->__base_count; ++i) {
        const std::type_info& base = *multiple->__base_info[i].__base_type;
        if (base == type || isBaseOf(type, base)) return true;
    }
    return false;
}

}  // namespace

// An owner that is of a base of the receiver's class may be under construction:
// then only a call is fatal. No constructor runs while an object is a plain fxObj.
void fxInputChannel::testClass(bool isCalled) {
    const std::type_info* missing = owner != nullptr ? classTest(*owner) : nullptr;
    if (missing != nullptr) {
        const std::type_info& actual = typeid(*owner);
        if (!isCalled && actual != typeid(fxObj) && isBaseOf(actual, *missing)) return;
        const char* name = getName();
        fxFatal("%s: input \"%s\" is for objects of class %s", fxTraceLines::nameOf(actual).c_str(),
                name != nullptr ? name : "", fxTraceLines::nameOf(*missing).c_str());
    }
    word &= ~untestedBit;
}

void fxInputChannel::cancelPending() {
    fxMessageEvent* event = std::exchange(pending, nullptr);
    if (event != nullptr) event->withdraw();
}

namespace {

unsigned int lastSerial = 0;  // of outputs

}  // namespace

fxOutputChannel::fxOutputChannel(unsigned short type_)
    : type(type_),
      hasConverters(false),
      serial(++lastSerial),
      inputs(nullptr),
      links(nullptr),
      owner(nullptr),
      nextOwned(nullptr),
      ownedLink(nullptr) {}

void fxOutputChannel::disown() {
    fxOwnedChannels<fxOutputChannel>::leave(this);
    owner = nullptr;
}

fxOutputChannel::~fxOutputChannel() {
    disown();
    each([](fxDelivery& walk) { walk.stop(); });
    // The end of an input may send and connect here once more. By then the inputs do not
    // list this output, nor this output them.
    while (inputs != nullptr || links != nullptr) {
        if (inputs == nullptr) settle();
        links = nullptr;
        const std::unique_ptr<fxVoidPtrArray> released(std::exchange(inputs, nullptr));
        for (void* entry : *released) static_cast<fxInputChannel*>(entry)->target()->leave(this);
        for (void* entry : *released) static_cast<fxInputChannel*>(entry)->release();
    }
}

// The trace and the class test come before both ends are changed. Between the entry at the
// input and that at the output, no code of the program runs.
void fxOutputChannel::add(fxInputChannel* input) {
    FX_ASSERT(!input->isConverter());
    if (fxTrace::isOn(fxTrace::connects)) fxTraceLines::connecting(*this, *input);
    if (input->isUntested()) input->testClass(false);
    input->enter(this);
    fxInputChannel* entry = input;
    if (input->getType() != type && input->getType() != fxDT_void) {
        entry = fxConverter::findConverter(type, input->getType());
        if (entry == nullptr) {
            std::fprintf(stderr, "fxds: %s\n", fxExplain::whyNotJoined(*this, *input).c_str());
            fxFatal("Can't convert from %d to %d", type, input->getType());
        }
        static_cast<fxConverter*>(entry)->splice(input);
        hasConverters = true;
    }
    entry->take();
    if (links == nullptr && fxLinks<fxInputChannel>::isMany(inputs)) {
        const std::unique_ptr<fxVoidPtrArray> plain(inputs);
        inputs = links = new fxLinks<fxInputChannel>(std::move(*plain));
        for (unsigned int i = 0; i < links->length(); ++i) getEntry(i)->notePlace(i);
    }
    if (links != nullptr) {
        links->enter(entry);
        inputs = links->hasHoles() ? nullptr : links;
        entry->notePlace(links->length() - 1);
    } else {
        if (inputs == nullptr) inputs = new fxVoidPtrArray;
        inputs->append(entry);
    }
}

void fxOutputChannel::settle() const {
    if (links == nullptr) return;
    if (links->hasHoles()) links->close();
    inputs = links;
}

unsigned int fxOutputChannel::countUnsettled() const {
    return links != nullptr ? links->count() : 0;
}

// During a walk the hole is closed at once, because walks count positions of a list without
// holes. Walks and both lists are corrected before the release, which may destroy the input
// and run code of the program.
void fxOutputChannel::remove(fxInputChannel* input) {
    const unsigned int index = findTarget(input);
    if (index == fxArray::notFound) return;
    fxVoidPtrArray& entries = links != nullptr ? *links : *inputs;
    auto* const entry = static_cast<fxInputChannel*>(entries[index]);
    if (links != nullptr) {
        links->leave(index, isEmpty());
        if (!isEmpty()) settle();
        inputs = links->hasHoles() ? nullptr : links;
    } else {
        inputs->remove(index, 1);
    }
    each([index](fxDelivery& walk) { walk.connectionRemoved(index); });
    input->leave(this);
    entry->release();
}

// The position in `links` or `inputs`, which is an index when there are no holes.
unsigned int fxOutputChannel::findTarget(fxInputChannel* input) const {
    if (links != nullptr) {
        // An input that is listed once is at its place, unless others have left before it.
        const bool isOnce = !hasConverters && input != nullptr && !input->isEdited &&
                            input->feeds == fxInputChannel::Feeds::one &&
                            input->onlyOutput == this && input->keepsPlace();
        if (isOnce && links->isAt(input->place, input)) return input->place;
        return links->find(input);
    }
    const unsigned int count = getNumberOfConnections();
    for (unsigned int i = 0; i < count; ++i) {
        if (getEntry(i)->target() == input) return i;
    }
    return fxArray::notFound;
}

unsigned int fxOutputChannel::find(fxInputChannel* input) const {
    settle();
    return findTarget(input);
}

// An input that is fed by few says so faster than the list of entries: each entry is an
// input here, and each entering and leaving is noted at both ends.
bool fxOutputChannel::isConnectedTo(fxInputChannel* input) const {
    const bool isEven = !hasConverters && input != nullptr && !input->isEdited;
    if (isEven && input->feeds != fxInputChannel::Feeds::many) {
        return input->findOutput(this) != fxArray::notFound;
    }
    return findTarget(input) != fxArray::notFound;
}
