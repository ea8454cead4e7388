#include "flow/Text.h"

#include <algorithm>
#include <utility>

#include "flow/text/Lexer.h"
#include "flow/text/Parser.h"
#include "flow/text/Problems.h"
#include "fxds/detail/Suggestion.h"

std::string fxFlowProblem::line() const {
    std::string where;
    if (!place.file.name().empty() || place.line != 0) {
        (where += place.file.name()) += ':';
    }
    for (const unsigned int number : {place.line, place.column}) {
        if (number != 0) (where += std::to_string(number)) += ':';
    }
    if (!where.empty()) where += ' ';
    return where + (isWarning ? "warning: " : "error: ") + text;
}

void fxFlowProblems::add(const fxFlowPlace& place, std::string text, bool isWarning) {
    if (isFull()) return;
    if (problems.size() == most - 1) text = "there are more problems than can be told";
    problems.push_back({place, std::move(text), isWarning, isOfCheck});
}

std::string fxFlowCut(std::string_view value) {
    constexpr size_t most = 60;
    if (value.size() <= most) return std::string(value);
    size_t end = most;  // not within a character
    while (end > 0 && (static_cast<unsigned char>(value[end]) & 0xC0U) == 0x80U) --end;
    return std::string(value.substr(0, end)) + "...";
}

std::string fxFlowShown(std::string_view value) { return fxFlowInQuotes(fxFlowCut(value)); }

std::string fxFlowQuoted(std::string_view value) {
    return fxFlowIsBare(value) ? std::string(value) : fxFlowInQuotes(value);
}

std::string fxFlowDetail::suggestion(std::string_view wanted,
                                     const std::vector<std::string>& known) {
    return fxDetail::suggestion(wanted, {known.begin(), known.end()}, "it has",
                                fxFlowProblems::mostNames);
}

fxFlowText fxFlowText::parse(std::string_view text, const std::string& name) {
    fxFlowText flow;
    fxFlowReading(flow).readText(text, name);
    return flow;
}

fxFlowText fxFlowText::parseAlone(std::string_view text, const std::string& name) {
    fxFlowText flow;
    fxFlowReading reading(flow);
    reading.isAlone = true;
    reading.readText(text, name);
    return flow;
}

fxFlowText fxFlowText::load(const std::string& path) {
    fxFlowText flow;
    fxFlowReading(flow).readFile(path, nullptr);
    return flow;
}

bool fxFlowText::Object::operator==(const Object& other) const {
    if (name.text != other.name.text || className.text != other.className.text) return false;
    const auto values = [](const Object& object) {
        std::vector<std::pair<std::string_view, std::string_view>> all;
        for (const Setting& each : object.settings) {
            all.emplace_back(each.name.text, each.value.text);
        }
        std::sort(all.begin(), all.end());
        return all;
    };
    return settings.size() == other.settings.size() && values(*this) == values(other);
}

bool fxFlowText::Connection::operator==(const Connection& other) const {
    return from.object.text == other.from.object.text &&
           from.channel.text == other.from.channel.text && to.object.text == other.to.object.text &&
           to.channel.text == other.to.channel.text && delivery == other.delivery;
}

const fxFlowText::Object* fxFlowText::find(std::string_view object) const {
    const auto found = std::find_if(objects.begin(), objects.end(), [object](const Object& each) {
        return each.name.text == object;
    });
    return found != objects.end() ? &*found : nullptr;
}

void fxFlowText::set(const std::string& object, const std::string& property,
                     const std::string& value) {
    auto* const target = const_cast<Object*>(find(object));
    if (target == nullptr) {
        std::vector<std::string_view> names;
        for (const Object& each : objects) names.emplace_back(each.name.text);
        fxFlowProblems(problems).add(
            {}, "there is no object " + fxFlowShown(object) +
                    fxDetail::suggestion(object, names, "there are", fxFlowProblems::mostNames));
        return;
    }
    for (Setting& each : target->settings) {
        if (each.name.text == property) {
            each.value = {value, {}};
            return;
        }
    }
    target->settings.push_back({{property, {}}, {value, {}}});
}

bool fxFlowText::hasErrors() const {
    return std::any_of(problems.begin(), problems.end(),
                       [](const fxFlowProblem& each) { return !each.isWarning; });
}

std::string fxFlowText::write() const {
    const auto end = [](const End& written) {
        const std::string& channel = written.channel.text;
        return written.object.text + '.' +
               (fxFlowIsChannel(channel) ? channel : fxFlowInQuotes(channel));
    };
    std::string text;
    for (const Word& each : plugins) text += "use " + fxFlowInQuotes(each.text) + '\n';
    for (const Object& each : objects) {
        text += each.name.text + " = " + each.className.text;
        for (const Setting& setting : each.settings) {
            text += ' ' + setting.name.text + '=' + fxFlowQuoted(setting.value.text);
        }
        text += '\n';
    }
    if (!objects.empty() && !connections.empty()) text += '\n';
    for (const Connection& each : connections) {
        text += end(each.from) + " -> " + end(each.to);
        if (each.delivery != fxFlowDelivery::queued) {
            (text += " (") += fxFlowDeliveryName(each.delivery);
            text += ')';
        }
        text += '\n';
    }
    return text;
}
