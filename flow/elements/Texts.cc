// Elements that search texts and make new ones.
#include <algorithm>
#include <iterator>
#include <string>

#include "flow/elements/Formatted.h"
#include "fxds/Match.h"
#include "fxds/Xdr.h"

namespace {

std::string whyNoPattern(const std::string& pattern) {
    const fxExpression expression(pattern);
    if (expression.isValid()) return "";
    return std::string("is no pattern: ") + expression.error() + " at byte " +
           std::to_string(expression.errorOffset() + 1);
}

class SearchingElement : public fxElement {
public:
    std::string settle() override {
        expression = fxExpression(pattern);
        return "";
    }

    fxStr pattern;

protected:
    fxExpression expression{""};
};

class Match final : public SearchingElement {
public:
    const char* className() const override { return "Match"; }

    void take(const fxStr& text) {
        // A receiver may destroy the owner of the text.
        // NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
        const fxStr subject(text);
        const fxMatch match = expression.search(subject);
        if (!match) {
            missed.send(subject, fxSendNow);
            return;
        }
        fxStrArray all;
        unsigned int last = fxMatch::groupCount - 1;
        while (last > 0 && !match.has(last)) --last;
        for (unsigned int i = 1; i <= last; ++i) all.append(fxStr(match.group(i)));
        groups.send(all, fxSendNow);
        const unsigned int wanted = static_cast<unsigned int>(number);
        if (match.has(wanted)) group.send(match.group(wanted), fxSendNow);
        matched.send(subject, fxSendNow);
    }

    int number = 1;
    fxOutputView<fxStr> matched;
    fxOutputView<fxStr> missed;
    fxOutputView<fxStrArray> groups;
    fxOutputView<fxStr> group;
};

class Replace final : public SearchingElement {
public:
    const char* className() const override { return "Replace"; }

    void take(const fxStr& subject) { text.send(expression.replace(subject, with), fxSendNow); }

    fxStr with;
    fxOutputView<fxStr> text;
};

class Format final : public fxFlowDetail::FormattingElement {
public:
    const char* className() const override { return "Format"; }

    void take(const fxStr& value) { text.send(formatted.of(value), fxSendNow); }

    fxOutputView<fxStr> text;
};

class Merge final : public fxElement {
public:
    const char* className() const override { return "Merge"; }

    void takeA(const fxStr& value) { take(0, value); }
    void takeB(const fxStr& value) { take(1, value); }
    bool xdrState(fxTranscriber& transcriber) override {
        return fxXdrAll(transcriber, hasCome[0], hasCome[1], values[0], values[1]);
    }

    static std::string whyNoForm(const std::string& form) {
        for (size_t at = form.find('%'); at != std::string::npos; at = form.find('%', at + 2)) {
            const char next = at + 1 < form.size() ? form[at + 1] : '\0';
            if (next != 'a' && next != 'b' && next != '%')
                return "has a percent sign that is not %a, %b or %%";
        }
        return "";
    }

    std::string format;
    fxOutputView<fxStr> text;

private:
    void take(int which, const fxStr& value) {
        values[which] = value;
        hasCome[which] = true;
        if (!hasCome[0] || !hasCome[1]) return;
        std::string made;
        for (size_t at = 0; at < format.size(); ++at) {
            if (format[at] != '%') {
                made += format[at];
            } else if (format[++at] == '%') {
                made += '%';
            } else {
                made += values[format[at] == 'b'].view();
            }
        }
        text.send(made, fxSendNow);
    }

    fxStr values[2];
    bool hasCome[2] = {};
};

// The pieces of one text arrive one by one, each on a separate input. The text is sent when
// "join" signals that they are complete.
class Join final : public fxElement {
public:
    static constexpr int pieceCount = 16;

    Join() {
        for (int i = 0; i < pieceCount; ++i) {
            addInput<fxStr>(inputName(i).c_str(),
                            [this, i](const fxStr& piece) { pieces[i] = piece; });
        }
    }
    const char* className() const override { return "Join"; }

    static std::string inputName(int index) { return "part" + std::to_string(index + 1); }

    void join() {
        fxStr joined;
        for (const fxStr& piece : pieces) {
            if (piece.isEmpty()) continue;
            if (!joined.isEmpty()) joined.append(separator);
            joined.append(piece);
        }
        text.send(joined, fxSendNow);
    }
    bool xdrState(fxTranscriber& transcriber) override {
        return std::all_of(std::begin(pieces), std::end(pieces),
                           [&](fxStr& piece) { return fxXdr(transcriber, piece); });
    }

    fxStr separator;
    fxOutputView<fxStr> text;

private:
    fxStr pieces[pieceCount];
};

}  // namespace

FX_ELEMENT(Match, "finds a pattern in texts") {
    element.property("pattern", &Match::pattern, "the regular expression").testedBy(whyNoPattern);
    element.property("group", &Match::number, 1, "which group of the pattern goes to \"group\"")
        .range(0, fxMatch::groupCount - 1);
    element.input("text", &Match::take, "where to look for the pattern");
    element.output("matched", &Match::matched, "a text with the pattern in it, behind its groups");
    element.output("missed", &Match::missed, "a text without it");
    element.output("groups", &Match::groups, "the texts of all groups of the first match");
    element.output("group", &Match::group, "the text of one group, where it took part");
}

FX_ELEMENT(Replace, "replaces what matches a pattern") {
    element.property("pattern", &Replace::pattern, "the regular expression").testedBy(whyNoPattern);
    element.property(
        "with", &Replace::with, "",
        "what to write instead; \"&\" stands for the match, \"\\\\1\" to \"\\\\9\" for "
        "its groups");
    element.input("text", &Replace::take, "where to replace");
    element.output("text", &Replace::text, "the text with each match replaced");
}

FX_ELEMENT(Format, "writes a value into a text") {
    element
        .property("format", &Format::format, "the text, with one of %s, %d, %x, %e, %f, %g in it")
        .testedBy(fxFlowDetail::Formatted::whyNot);
    element.input("value", &Format::take, "the value");
    element.output("text", &Format::text, "the text with the value in it");
}

FX_ELEMENT(Merge, "makes one text of two") {
    element.property("format", &Merge::format, "%a %b", "the text; %a and %b stand for the two")
        .testedBy(Merge::whyNoForm);
    element.input("a", &Merge::takeA, "the first");
    element.input("b", &Merge::takeB, "the second");
    element.output("text", &Merge::text, "the text whenever one comes, when both have come once");
}

FX_ELEMENT(Join, "joins the newest of several texts into one") {
    element.property("separator", &Join::separator, " ", "what goes between the parts");
    for (int i = 0; i < Join::pieceCount; ++i) {
        element.input<fxStr>(Join::inputName(i).c_str(), "a part; an empty one is left out");
    }
    element.input("join", &Join::join, "sends the text");
    element.output("text", &Join::text, "the parts in their order");
}
