// One of everything that the pretty-printers show, sound and damaged.
#include <cstdint>
#include <cstdlib>
#include <new>
#include <string>

#include "fxds/fxds.h"

// Only gdb reads them.
#pragma GCC diagnostic ignored "-Wunused-variable"
#pragma GCC diagnostic ignored "-Wunused-but-set-variable"

namespace {

// A program's own classes, which only their bases tell to be ours.
class Gauge : public fxObj {
public:
    Gauge() : level(0) {
        addInput<&Gauge::setLevel>("level", 1);
        changed = addOutput<int>("changed");
    }
    const char* className() const override { return "Gauge"; }
    void setLevel(int value) { level = value; }

    int level;
    fxOutput<int> changed;
};

class Label : public fxObj {
public:
    Label() { addInput<&Label::setText>("text"); }
    const char* className() const override { return "Label"; }
    void setText(const char* value) { text = value; }

    fxStr text;
};

struct Place {
    int x, y;
};
class Places : public fxTypedArray<Places, Place> {
public:
    using fxTypedArray::fxTypedArray;
};

// Knows its keys only as four bytes each.
class Words : public fxSet {
public:
    Words() : fxSet(4) {}
    ~Words() override { cleanup(); }

protected:
    bool xdrKey(fxTranscriber&, void*) override { return false; }
};

struct Shared : Counted {
    int value = 5;
};

struct Link : fxLinkItem {};

struct Record {
    fxStr name;
    fxIntArray numbers;
};

int enterNames(NameSpace* names) {
    names->makeAtom("left", 1);
    names->makeAtom("right", 1);
    return 0;
}

template <class T>
T* garbage() {
    static const std::uintptr_t address = 0x123456789abcd8;
    return reinterpret_cast<T*>(address);
}

// Memory that was never made a T: what a pointer to a freed one points to.
template <class T>
T* unmade() {
    alignas(T) static unsigned char bytes[sizeof(T)];
    for (unsigned char& byte : bytes) byte = 0xA5;
    return reinterpret_cast<T*>(bytes);
}

// Overwrites a field, by its distance from the start of the object.
template <class Field, class T>
void damage(T& object, size_t offset, Field value) {
    *reinterpret_cast<Field*>(reinterpret_cast<char*>(&object) + offset) = value;
}

// Damaged values. The program ends by abort(): nothing of this is ever destroyed.
[[noreturn]] void showDamaged(const GenericList& list, fxProperty* property) {
    fxStrStrDictionary* garbageDictionary = garbage<fxStrStrDictionary>();
    fxStrStrDictionary* freedDictionary = unmade<fxStrStrDictionary>();
    fxStr* freedStr = unmade<fxStr>();
    fxObj* freedObject = unmade<fxObj>();
    fxInputChannel* freedInput = unmade<fxInputChannel>();
    fxIntArray* destroyedArray = new (unmade<fxIntArray>()) fxIntArray;
    *reinterpret_cast<void**>(destroyedArray) = *reinterpret_cast<void**>(property);
    fxIntArray& overlong = *new fxIntArray(4);
    damage(overlong, 28, 0x7FFFFFF0U);  // lengthBytes
    fxIntArray& huge = *new fxIntArray(4);
    damage(huge, 16, garbage<char>());  // data
    damage(huge, 24, 0xFFFFFFF0U);      // maxBytes
    damage(huge, 28, 0xFFFFFFF0U);
    fxStr& hugeStr = *new fxStr("short");
    hugeStr.slength = 0;
    GenericList& cyclicList = *new GenericList(list);
    cyclicList.getTail()->next = cyclicList.getHead();
    fxStrSet& cyclicSet = *new fxStrSet(1);
    cyclicSet.add("a");
    cyclicSet.add("b");
    auto* node = static_cast<fxStrSetIter>(cyclicSet).node;
    node->next->next = node;
    fxVoidPtrDict& brokenChain = *new fxVoidPtrDict;
    brokenChain["key"] = nullptr;
    (*static_cast<fxVoidPtrDictIter>(brokenChain).node).next = garbage<fxDictBucket>();
    std::abort();
}

[[noreturn]] void showSound() {
    fxStr text("hello");
    fxStr withZero("a\0b", 3);
    fxPath path("/tmp/x");
    fxTempStr tempStr(text | ", " | "world");
    fxStackBuffer buffer;
    buffer.put("bytes", 5);

    fxIntArray ints;
    for (int i = 1; i <= 3; ++i) ints.append(i * 10);
    fxIntArray many;
    for (int i = 0; i < 1000; ++i) many.append(i);
    fxBoolArray bools;
    bools.append(true);
    bools.append(false);
    fxStrArray strings;
    strings.append("one");
    strings.append("two");
    Places places;
    places.append({1, 2});
    const fxArray& anyArray = ints;

    fxStrStrDictionary capitals;
    capitals["France"] = "Paris";
    fxStrStrDictionaryIter here(capitals);
    fxStrStrDictionaryIter nowhere;
    fxDictionary& anyDictionary = capitals;
    fxStrSet names;
    names.add("left");

    Words words;
    words.add("word");

    GenericList list;
    list.append(nullptr);
    list.append(nullptr);
    fxIndexableList links;
    Link link;
    links.append(&link);
    HashTable table;
    table.add(7, nullptr);
    NameSpace atoms(enterNames, 1);

    fxIntData boxedInt(42);
    fxCharPtrData boxedText(fxCopyCharPtr("text"));
    fxStrArrayData boxedStrings(strings);
    boxedInt.take();
    const fxData& anyData = boxedInt;

    Gauge source;
    Gauge gauge;
    Label label;
    source.connect("changed", &gauge, "level");
    source.connect("changed", &label, "text");
    label.text = "shown";
    label.setProperty(new fxProperty(fxProperty::allocNewTag("ratio"), 0.25));
    label.setProperty(new fxProperty(fxProperty::allocNewTag("count"), -3));
    label.setProperty(new fxProperty(fxProperty::allocNewTag("on"), true));
    label.setProperty(new fxProperty(fxProperty::allocNewTag("title"), fxStr("A title")));
    label.setProperty(new fxProperty(fxProperty::allocNewTag("note"), "a note", 0));
    label.setProperty(new fxProperty(fxProperty::allocNewTag("peer"), &gauge));
    label.setProperty(new fxProperty(fxProperty::allocNewTag("box"), new fxIntData(8)));
    fxProperty* property = label.findProperty("ratio");
    fxObj& anyObject = label;
    fxTimer timer(true);
    timer.setInterval(2);
    source.changed.send(17);
    fxEventHandler& queue = *fx_theEventHandler;
    fxEvent& event = *queue.getHead();
    fxTypeObj& record = fxIntArray_type;
    fxInputChannel& input = *gauge.getInput("level");
    fxOutputChannel& output = *source.getOutput("changed");
    fxInputChannel& converter = *output[1];
    RPtr<Shared> shared(new Shared);
    fxRef<Gauge> held(new Gauge);
    const fxStr searched("abbc");
    fxRegEx regEx("(b+)(x)?c");
    (void)regEx.find(searched);
    fxRegEx notValid("(");
    fxExpression expression("[a-z]+");
    const std::string subject("12 ab");
    const fxMatch match = expression.search(subject);
    fxSLinearPattern pattern("needle");
    fxStdioStream closed("/nonexistent/file", fxStream::fxStreamRead, 0);
    fxMemoryStream bytes;
    bytes.putBytes("xyz", 3);

    Record plain;
    plain.name = "a record";
    plain.numbers = ints;
    Gauge* live = new Gauge;
    fxStrArrayData* liveBox = new fxStrArrayData(strings);

    showDamaged(list, property);
}

}  // namespace

int main() {
    fxInitializeToolkit();
    showSound();
}
