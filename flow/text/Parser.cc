#include "flow/text/Parser.h"

#include <array>
#include <charconv>

#include "fxds/detail/Suggestion.h"

// One function for each rule of the grammar. `token` is the first that no rule has taken. A
// rule that fails has reported one problem and skipped the rest of its statement.

namespace {

constexpr std::array deliveries = {fxFlowDelivery::queued, fxFlowDelivery::urgent,
                                   fxFlowDelivery::newest, fxFlowDelivery::now};

// The number that is the whole text, or false.
template <class Number>
bool readNumber(const std::string& text, Number& number) {
    const char* const end = text.data() + text.size();
    const auto [last, fault] = std::from_chars(text.data(), end, number);
    return fault == std::errc() && last == end;
}

}  // namespace

fxFlowParser::fxFlowParser(fxFlowReading& reading_, std::string_view text, const std::string& file_)
    : reading(reading_), file(file_), lexer(text, file_, reading_.problems) {
    advance();
}

void fxFlowParser::read() {
    while (token.kind != Kind::textEnd && !reading.isOver()) {
        if (token.kind == Kind::lineEnd) {
            advance();
        } else {
            statement();
        }
    }
}

bool fxFlowParser::tell(const fxFlowPlace& place, const std::string& what) {
    if (token.kind != Kind::unknown) reading.problems.add(place, what);
    skipLine();
    return false;
}

bool fxFlowParser::fail(const std::string& expected) {
    return tell(token.place, "expected " + expected + ", not " + token.shown());
}

// Skips the rest of a statement. Returns whether that began a block.
bool fxFlowParser::skipLine() {
    lexer.setTelling(false);
    bool isBlock = false;
    while (!token.endsLine()) {
        isBlock = token.is('{');
        advance();
    }
    lexer.setTelling(true);
    return isBlock;
}

// Skips lines up to a closing brace, or to one that begins another statement.
void fxFlowParser::skipBlock() {
    bool isEnd = false;
    while (token.kind != Kind::textEnd && !isEnd) {
        lexer.setTelling(false);
        advance();
        isEnd = token.is('}');
        const fxFlowToken first = token;
        if (!token.endsLine()) advance();
        lexer.setTelling(true);
        if (token.is('=') || token.kind == Kind::arrow) return statement(first);
        skipLine();
    }
}

bool fxFlowParser::endLine() { return token.endsLine() || fail("the end of the line"); }

void fxFlowParser::statement() {
    if (token.kind != Kind::word) {
        fail("a statement");
        return;
    }
    const fxFlowToken first = token;
    advance();
    statement(first);
}

void fxFlowParser::statement(const fxFlowToken& first) {
    const bool isFile = first.text == "include" || first.text == "use";
    const bool isTest = first.text == "test";
    const bool isEnd =
        first.text.find('.') != std::string::npos || (!isFile && !isTest && isDotApart(first));
    if (token.is('=')) {
        takeObject(first);
    } else if (token.kind == Kind::arrow || isEnd) {
        takeConnections(first);
    } else if (isFile) {
        takeFile(first);
    } else if (isTest) {
        takeTest();
    } else if (token.isValue()) {
        reading.problems.add(
            first.place,
            "there is no statement " + fxFlowShown(first.text) +
                fxDetail::suggestion(first.text, {"include", "test", "use"}, "there are"));
        if (skipLine()) skipBlock();
    } else {
        fail(R"("=" or "->" behind )" + fxFlowShown(first.text));
    }
}

bool fxFlowParser::takeName(const fxFlowToken& from, const char* what, Word& name) {
    if (from.kind != Kind::word || !fxFlowIsName(from.text)) {
        return tell(from.place, std::string("expected ") + what + ", not " + from.shown());
    }
    name = {from.text, from.place};
    return true;
}

bool fxFlowParser::takeValue(const char* expected, Word& value) {
    if (!token.isValue()) return fail(expected);
    value = {token.text, token.place};
    advance();
    return !token.isValue() || !token.isGlued || fail("a blank");
}

// NAME = CLASS {PROPERTY=VALUE}
bool fxFlowParser::takeObject(const fxFlowToken& name) {
    fxFlowText::Object object;
    if (!takeName(name, "the name of an object", object.name)) return false;
    if (takeClass(object) && reading.hasRoom(object.name.place)) {
        reading.flow.objects.push_back(std::move(object));
        return true;
    }
    reading.flow.unread.push_back(object.name.text);
    return false;
}

bool fxFlowParser::takeClass(fxFlowText::Object& object) {
    advance();
    if (!takeName(token, "the name of a class", object.className)) return false;
    advance();
    while (!token.endsLine()) {
        fxFlowText::Setting setting;
        if (!takeName(token, "a property", setting.name)) return false;
        advance();
        if (!token.is('=')) return fail("\"=\" behind " + fxFlowShown(setting.name.text));
        advance();
        if (!takeValue("a value", setting.value)) return false;
        if (!reading.hasRoom(setting.name.place)) return false;
        object.settings.push_back(std::move(setting));
    }
    return true;
}

bool fxFlowParser::takeEnd(fxFlowText::End& end) {
    if (token.kind != Kind::word) return fail("OBJECT.CHANNEL");
    const fxFlowToken first = token;
    advance();
    return takeEnd(first, end);
}

// Whether the dot of an end, of which `first` is a part, has a blank beside it.
bool fxFlowParser::isDotApart(const fxFlowToken& first) const {
    if (token.kind != Kind::word) return false;
    return first.text.back() == '.' ||
           (token.text.front() == '.' && first.text.find('.') == std::string::npos);
}

// NAME.CHANNEL; the token behind the word is the next.
bool fxFlowParser::takeEnd(const fxFlowToken& first, fxFlowText::End& end) {
    const std::string_view text = first.text;
    const size_t dot = text.find('.');
    if (isDotApart(first)) {
        return tell(first.place, "expected OBJECT.CHANNEL without blanks around the dot, not " +
                                     fxFlowShown(first.text + ' ' + token.text));
    }
    if (dot == std::string_view::npos || !fxFlowIsName(text.substr(0, dot))) {
        return tell(first.place, "expected OBJECT.CHANNEL, not " + first.shown());
    }
    const std::string_view channel = text.substr(dot + 1);
    end.object = {std::string(text.substr(0, dot)), first.place};
    end.channel = {std::string(channel), first.place};
    end.channel.place.column += static_cast<unsigned int>(dot + 1);
    if (channel.empty() && token.kind == Kind::quoted && token.isGlued) {
        end.channel.text = token.text;
        advance();
    } else if (!fxFlowIsChannel(channel)) {
        return tell(end.channel.place,
                    "expected a channel behind " + fxFlowShown(text.substr(0, dot + 1)) +
                        "; those of other characters than letters, digits and _ are in quotes");
    }
    return !token.isValue() || !token.isGlued || fail("a blank");
}

// END -> END [(DELIVERY)] {, END [(DELIVERY)]}
bool fxFlowParser::takeConnections(const fxFlowToken& first) {
    fxFlowText::End from;
    if (!takeEnd(first, from)) return false;
    if (token.kind != Kind::arrow) return fail("\"->\"");
    do {
        advance();
        fxFlowText::Connection connection;
        if (!takeEnd(connection.to)) return false;
        if (token.is('(') && !takeDelivery(connection.delivery)) return false;
        if (!reading.hasRoom(connection.to.object.place)) return false;
        connection.from = from;
        reading.flow.connections.push_back(std::move(connection));
    } while (token.is(','));
    return token.endsLine() || fail("\",\" or the end of the line");
}

bool fxFlowParser::takeDelivery(fxFlowDelivery& delivery) {
    advance();
    std::vector<std::string_view> names;
    for (const fxFlowDelivery each : deliveries) {
        names.emplace_back(fxFlowDeliveryName(each));
        if (token.isWord(names.back())) delivery = each;
    }
    if (!token.isWord(fxFlowDeliveryName(delivery))) {
        if (token.kind != Kind::word) return fail("a delivery: now, urgent, newest or queued");
        return tell(token.place, "there is no delivery " + token.shown() +
                                     fxDetail::suggestion(token.text, names, "there are"));
    }
    advance();
    if (!token.is(')')) return fail("\")\"");
    advance();
    return true;
}

// include "FILE", or use "PLUGIN.so"
bool fxFlowParser::takeFile(const fxFlowToken& keyword) {
    Word path;
    if (!takeValue("the path of a file", path) || !endLine()) return false;
    if (!reading.hasRoom(path.place)) return false;
    if (reading.isAlone) {
        return tell(path.place, "this flow may not " + keyword.text + " a file");
    }
    if (keyword.text == "use") {
        path.text = reading.complete(fxFlowReading::beside(file, path.text));
        reading.flow.plugins.push_back(path);
    } else {
        reading.readFile(fxFlowReading::beside(file, path.text), &path);
    }
    return true;
}

// test "WHAT" {
bool fxFlowParser::takeTest() {
    fxFlowText::Test test;
    if (!takeValue("the name of a test", test.name)) return false;
    if (!token.is('{')) return fail("\"{\"");
    advance();
    if (!endLine()) return false;
    while (takeLine(test)) {
    }
    reading.flow.tests.push_back(std::move(test));
    return true;
}

// One line of a test; false behind the last one. A line that begins another statement
// shows that the closing brace is missing.
bool fxFlowParser::takeLine(fxFlowText::Test& test) {
    if (reading.isOver()) return false;
    if (token.kind == Kind::lineEnd) return advance(), true;
    if (token.is('}')) return advance(), endLine(), false;
    const fxFlowToken first = token;
    if (first.kind != Kind::textEnd) advance();
    const bool isOther = token.is('=') || token.kind == Kind::arrow || first.isWord("test");
    if (isOther || first.kind == Kind::textEnd) {
        reading.problems.add(test.name.place,
                             "the test " + fxFlowShown(test.name.text) + " has no end: \"}\"");
        if (isOther) statement(first);
        return false;
    }
    fxFlowText::Step step;
    step.place = first.place;
    if (takeStep(first, step) && reading.hasRoom(step.place)) {
        test.steps.push_back(std::move(step));
    }
    return true;
}

bool fxFlowParser::takeStep(const fxFlowToken& first, fxFlowText::Step& step) {
    typedef fxFlowText::Step::Kind StepKind;
    if (first.isWord("pass")) {
        step.kind = StepKind::pass;
        const bool isNumber = token.kind == Kind::word && readNumber(token.text, step.seconds);
        if (!isNumber || !(step.seconds >= 0 && step.seconds <= 1e9)) {
            return fail("a number of seconds from 0 to 1e9");
        }
        advance();
        return endLine();
    }
    if (first.isWord("send")) {
        step.kind = StepKind::send;
        return takeEnd(step.end) && takeSent(step) && endLine();
    }
    if (!first.isWord("expect")) {
        return tell(first.place, "expected send, pass, expect or \"}\", not " + first.shown());
    }
    step.kind = StepKind::expect;
    if (token.isWord("last") || token.isWord("no")) {
        step.kind = token.text == "no" ? StepKind::expectNo : StepKind::expectLast;
        advance();
    }
    if (!takeEnd(step.end)) return false;
    step.hasValue =
        step.kind == StepKind::expectLast || (step.kind == StepKind::expect && !token.endsLine());
    return (!step.hasValue || takeValue("a value", step.value)) && endLine();
}

// [VALUE] [COUNT times]; one value alone is sent.
bool fxFlowParser::takeSent(fxFlowText::Step& step) {
    if (token.endsLine()) return true;
    const fxFlowToken first = token;
    if (!takeValue("a value", step.value)) return false;
    fxFlowToken count = first;
    if (!token.isWord("times")) {
        step.hasValue = true;
        if (token.endsLine()) return true;
        count = token;
        advance();
        if (!token.isWord("times"))
            return tell(count.place, "expected COUNT times, not " + count.shown());
    } else {
        step.value = {};
    }
    constexpr unsigned long most = 1'000'000;
    if (count.kind != Kind::word || !readNumber(count.text, step.count) || step.count == 0 ||
        step.count > most) {
        return tell(count.place, "expected a count up to 1000000, not " + count.shown());
    }
    advance();
    return true;
}
