#include "flow/Element.h"

#include <algorithm>
#include <map>
#include <set>

#include "flow/run/Network.h"
#include "flow/text/Lexer.h"
#include "fxds/Fatal.h"

fxElement::~fxElement() = default;

void fxElement::complain(const std::string& text) const {
    if (flow != nullptr) flow->network->complain(*this, text);
}

fxFlowTime& fxElement::time() const {
    return flow != nullptr ? flow->time() : fxFlowTime::steady();
}

fxElementProperty& fxElementProperty::unit(const char* unitName_) {
    unitName = unitName_;
    return *this;
}

fxElementProperty& fxElementProperty::range(double lowest_, double highest_) {
    lowest = lowest_;
    highest = highest_;
    return *this;
}

fxElementProperty& fxElementProperty::oneOf(std::vector<std::string> choices_) {
    choices = std::move(choices_);
    return *this;
}

fxElementProperty& fxElementProperty::testedBy(
    std::function<std::string(const std::string&)> test_) {
    test = std::move(test_);
    return *this;
}

std::string fxElementProperty::whyNot(const std::string& value) const {
    using fxFlowDetail::fromText;
    using fxFlowDetail::textOf;
    double number = 0;
    const bool isNumber = type == "number" || type == "whole number";
    if (!fits(value)) {
        const bool isWhole = value.find_first_not_of("-0123456789") == std::string::npos;
        const bool isOfType = fromText(value, number) && (type == "number" || isWhole);
        if (isNumber && isOfType) return "is out of range";
        return type == "yes or no" ? "is neither yes nor no" : "is not a " + type;
    }
    if (isNumber && fromText(value, number)) {
        const std::string space = unitName.empty() ? "" : " ";
        if (number < lowest) return "is below " + textOf(lowest) + space + unitName;
        if (number > highest) return "is above " + textOf(highest) + space + unitName;
        if (std::isnan(number)) return "is not a number";
    }
    if (!choices.empty() && std::find(choices.begin(), choices.end(), value) == choices.end()) {
        std::string text = "is none of ";
        const char* separator = "";
        for (const std::string& each : choices) {
            (text += separator) += each;
            separator = ", ";
        }
        return text;
    }
    return test != nullptr ? fxFlowDetail::outcomeOf([&] { return test(value); }) : "";
}

const char* fxElementChannel::typeName() const { return fxDataTypeName(type->number()); }

// Kinds are entered while programs and plug-ins start, and removed when these end, in any
// order: the table is never destroyed.

namespace {

struct Kinds {
    std::map<std::string, const fxElementKind*, std::less<>> byName;
    std::vector<std::string> duplicates;
};

Kinds& kinds() {
    static Kinds& all = *new Kinds;
    return all;
}

void remove(const std::string& name, const fxElementKind* kind) {
    const auto found = kinds().byName.find(name);
    if (found != kinds().byName.end() && found->second == kind) kinds().byName.erase(found);
}

// The first name that two of them have, or "".
template <class Described>
std::string nameOfTwo(const std::vector<Described>& all) {
    std::set<std::string_view> names;
    for (const Described& each : all) {
        if (!names.insert(each.name).second) return fxFlowShown(each.name);
    }
    return "";
}

// The fault of a description, or "".
std::string whyNotDescribed(const fxElementKind& kind) {
    for (const fxElementProperty& each : kind.properties) {
        if (!fxFlowIsName(each.name))
            return "no text can name the property " + fxFlowShown(each.name);
    }
    for (const auto& [what, name] : {std::pair("properties", nameOfTwo(kind.properties)),
                                     std::pair("inputs", nameOfTwo(kind.inputs)),
                                     std::pair("outputs", nameOfTwo(kind.outputs))}) {
        if (!name.empty()) return std::string("two ") + what + " have the name " + name;
    }
    return "";
}

template <class Described>
const Described* findNamed(const std::vector<Described>& all, std::string_view name) {
    const auto found = std::find_if(all.begin(), all.end(),
                                    [name](const Described& each) { return each.name == name; });
    return found != all.end() ? &*found : nullptr;
}

}  // namespace

fxElementKind::fxElementKind(const char* name_, const char* sentence_)
    : name(name_), sentence(sentence_) {}

fxElementKind::~fxElementKind() { remove(name, this); }

void fxElementKind::enter(const std::function<void()>& describe) {
    const std::string why = fxFlowDetail::outcomeOf([&] {
        describe();
        return whyNotDescribed(*this);
    });
    const bool isFirst = why.empty() && kinds().byName.emplace(name, this).second;
    if (why.empty() && !isFirst) kinds().duplicates.push_back(name);
    fxFlowDetail::Describing* const loading = fxFlowDetail::Describing::current;
    if (loading == nullptr && !why.empty())
        fxFatal("FX_ELEMENT(%s): %s", name.c_str(), why.c_str());
    if (loading == nullptr) return;
    if (isFirst) loading->entered.emplace_back(name, this);
    if (isFirst || !loading->fault.empty()) return;
    loading->fault = why.empty() ? "there is a " + name + " already" : name + ": " + why;
}

fxFlowDetail::Describing* fxFlowDetail::Describing::current = nullptr;

fxFlowDetail::Describing::~Describing() {
    current = previous;
    if (isKept) return;
    for (const auto& [name, kind] : entered) remove(name, kind);
}

const fxElementProperty* fxElementKind::findProperty(std::string_view wanted) const {
    return findNamed(properties, wanted);
}

const fxElementChannel* fxElementKind::findInput(std::string_view wanted) const {
    return findNamed(inputs, wanted);
}

const fxElementChannel* fxElementKind::findOutput(std::string_view wanted) const {
    return findNamed(outputs, wanted);
}

const fxElementKind* fxElementKind::find(std::string_view wanted) {
    const auto found = kinds().byName.find(wanted);
    return found != kinds().byName.end() ? found->second : nullptr;
}

std::vector<const fxElementKind*> fxElementKind::all() {
    std::vector<const fxElementKind*> all;
    for (const auto& each : kinds().byName) all.push_back(each.second);
    return all;
}

const std::vector<std::string>& fxElementKind::duplicates() { return kinds().duplicates; }
