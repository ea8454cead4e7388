// A test watches every end of which it expects something, from before its first step, and
// keeps the values of each in a queue. A step that expects takes from that queue.
//
// A circle of queued connections may never empty the queue, or send more and more, and a
// ticker may tick a billion times in one step: fxMadeUpTime::pass() bounds these.
#include "flow/Tester.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <deque>
#include <map>
#include <utility>

#include "flow/Element.h"
#include "flow/Flow.h"
#include "flow/Time.h"
#include "flow/run/Network.h"
#include "fxds/Connection.h"

namespace {

typedef fxFlowText::Step Step;
typedef std::pair<std::string, std::string> EndName;

EndName nameOf(const fxFlowText::End& end) { return {end.object.text, end.channel.text}; }

std::string shown(const fxFlowText::End& end) { return end.object.text + '.' + end.channel.text; }

// Whether both texts are the same value of this type.
bool isSame(const fxFlowType* type, const std::string& one, const std::string& other) {
    const unsigned short number = type != nullptr ? type->number() : fxDT_void;
    double a = 0;
    double b = 0;
    bool isOne = false;
    bool isOther = false;
    if ((number == fxDT_float || number == fxDT_double) && fxFlowDetail::fromText(one, a) &&
        fxFlowDetail::fromText(other, b)) {
        const double part = number == fxDT_float ? 1e-6 : 1e-9;
        return a == b || std::fabs(a - b) <= part * std::max(std::fabs(a), std::fabs(b));
    }
    if (number == fxDT_fxBool && fxFlowDetail::fromText(one, isOne) &&
        fxFlowDetail::fromText(other, isOther)) {
        return isOne == isOther;
    }
    return one == other;
}

class TestRun final : public fxObj {
public:
    TestRun(const fxFlowText& text_, const fxFlowText::Test& test_)
        : text(text_), test(test_), flow(fxFlow::Purpose::testing, time) {
        fxConnect(flow.complaint, this, [this](const fxStr& complaint) {
            if (trouble.empty()) trouble = complaint.view();
        });
    }
    const char* className() const override { return "fxFlowTestRun"; }

    fxFlowTestResult run() {
        fxFlowTestResult result = {test.name.text, test.name.place, "", 0};
        using fxFlowDetail::outcomeOf;
        result.failure = outcomeOf([&] { return begin(result.place); });
        for (const Step& step : test.steps) {
            if (!result.failure.empty()) break;
            result.failure = outcomeOf([&] { return take(step); });
            if (!result.failure.empty()) result.place = step.place;
        }
        return result;
    }

private:
    // The values of an end.
    struct Seen {
        const fxFlowType* type = nullptr;
        std::deque<std::string> waiting;  // not taken by a step yet
    };

    // Each of these returns the fault, or "". The place becomes that of a problem of the text.
    std::string begin(fxFlowPlace& place) {
        for (const fxFlowProblem& problem : flow.apply(text)) {
            if (problem.isWarning) continue;
            if (!problem.place.file.name().empty()) place = problem.place;
            return problem.text;
        }
        for (const Step& step : test.steps) {
            if (step.kind == Step::Kind::send || step.kind == Step::Kind::pass) continue;
            if (std::string why = watch(step.end); !why.empty()) return why;
        }
        return settle();
    }

    std::string watch(const fxFlowText::End& end) {
        const auto [place, isNew] = ends.emplace(nameOf(end), Seen());
        if (!isNew) return "";
        Seen& seen = place->second;
        if (const fxFlowText::Object* object = text.find(end.object.text)) {
            const auto* kind = fxElementKind::find(object->className.text);
            const fxElementChannel* channel = kind ? kind->findOutput(end.channel.text) : nullptr;
            if (kind != nullptr && channel == nullptr) channel = kind->findInput(end.channel.text);
            if (channel != nullptr) seen.type = channel->type;
        }
        return flow.watch(end.object.text, end.channel.text, this,
                          [&seen](const std::string& value) { seen.waiting.push_back(value); });
    }

    // Delivers the queued values, and lets time pass.
    std::string settle(fxAlarm::Span span = fxAlarm::Span(0)) {
        const std::string why = time.pass(span);
        return why.empty() ? trouble : why;
    }

    std::string take(const Step& step) {
        if (step.kind == Step::Kind::send) return send(step);
        if (step.kind == Step::Kind::pass) return settle(fxFlowTime::seconds(step.seconds));
        return expect(step, ends[nameOf(step.end)]);
    }

    std::string send(const Step& step) {
        std::string why;
        for (unsigned long i = 0; i < step.count && why.empty(); ++i) {
            why = flow.send(step.end.object.text, step.end.channel.text, step.value.text);
            if (why.empty()) why = settle();
        }
        return why;
    }

    static std::string expect(const Step& step, Seen& seen) {
        const std::string from = " from " + shown(step.end);
        const std::string wanted = step.hasValue ? fxFlowQuoted(step.value.text) : "a value";
        if (step.kind == Step::Kind::expectNo) {
            if (seen.waiting.empty()) return "";
            return "expected nothing" + from + ", got " + fxFlowQuoted(seen.waiting.front());
        }
        if (seen.waiting.empty()) return "expected " + wanted + from + ", got nothing";
        const bool isLast = step.kind == Step::Kind::expectLast;
        const std::string got = isLast ? seen.waiting.back() : seen.waiting.front();
        if (step.hasValue && !isSame(seen.type, got, step.value.text)) {
            return "expected " + wanted + from + ", got " + fxFlowQuoted(got);
        }
        isLast ? seen.waiting.clear() : seen.waiting.pop_front();
        return "";
    }

    const fxFlowText& text;
    const fxFlowText::Test& test;
    std::map<EndName, Seen> ends;
    std::string trouble;  // the first complaint
    fxMadeUpTime time;
    fxFlow flow;
};

}  // namespace

std::string fxFlowTestResult::line() const {
    return failure.empty() ? "" : fxFlowProblem{place, failure}.line();
}

fxFlowTestResult fxRunFlowTest(const fxFlowText& text, const fxFlowText::Test& test) {
    typedef std::chrono::steady_clock Clock;
    const Clock::time_point start = Clock::now();
    const fxRef<TestRun> run = new TestRun(text, test);
    fxFlowTestResult result = run->run();
    result.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    return result;
}

std::vector<fxFlowTestResult> fxRunFlowTests(const fxFlowText& text) {
    std::vector<fxFlowTestResult> results;
    for (const fxFlowText::Test& test : text.tests) results.push_back(fxRunFlowTest(text, test));
    return results;
}
