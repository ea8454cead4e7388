// The obvious matcher of regular expressions: what the engine must agree with.
#ifndef FXDS_TESTS_REGEXPMODEL_H
#define FXDS_TESTS_REGEXPMODEL_H

#include <algorithm>
#include <cctype>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

/// Parses a pattern into functions that call one another, each being given what
/// to do after it. As slow as it looks.
class RegExpModel {
public:
    explicit RegExpModel(const std::string& pattern) : at(pattern.c_str()) {
        root = alternatives();
        if (*at != 0) fail();
    }

    bool isValid() const { return valid; }

    bool search(const char* subject, const char** startp, const char** endp,
                size_t offset = 0) const {
        const Match match{subject, startp, endp};
        for (const char* from = subject + offset;; ++from) {
            const char* end = nullptr;
            if (root.run(match, from, [&end](const char* p) { return (end = p) != nullptr; })) {
                startp[0] = from;
                endp[0] = end;
                return true;
            }
            if (*from == 0) return false;
        }
    }

private:
    struct Match {
        const char* subject;
        const char** startp;
        const char** endp;
    };
    typedef std::function<bool(const char*)> Next;
    typedef std::function<bool(const Match&, const char*, const Next&)> Run;
    struct Part {
        Run run;
        bool canBeEmpty;
    };

    Part fail() {
        valid = false;
        at = "";
        return {nullptr, true};
    }

    Part alternatives() {
        std::vector<Part> all = {sequence()};
        while (*at == '|' || *at == '\n') {
            ++at;
            all.push_back(sequence());
        }
        const auto isEmpty = [](const Part& each) { return each.canBeEmpty; };
        return {[all](const Match& match, const char* p, const Next& next) {
                    const auto fits = [&](const Part& each) { return each.run(match, p, next); };
                    return std::any_of(all.begin(), all.end(), fits);
                },
                std::any_of(all.begin(), all.end(), isEmpty)};
    }

    Part sequence() {
        Part all = {[](const Match&, const char* p, const Next& next) { return next(p); }, true};
        while (*at != 0 && *at != '|' && *at != '\n' && *at != ')') {
            const Part last = piece();
            const auto both = [first = all.run, second = last.run](
                                  const Match& match, const char* p, const Next& next) {
                return first(match, p, [&](const char* q) { return second(match, q, next); });
            };
            all = {both, all.canBeEmpty && last.canBeEmpty};
        }
        return all;
    }

    static bool isOperator(char c) { return c != 0 && std::strchr("*+?", c) != nullptr; }

    // As often as possible, from a place on.
    static bool repeat(const Run& run, const Match& match, const char* p, const Next& next) {
        return run(match, p, [&](const char* q) { return repeat(run, match, q, next); }) || next(p);
    }

    Part piece() {
        const Part operand = atom();
        if (!isOperator(*at)) return operand;
        const char op = *at++;
        if (isOperator(*at) || (op != '?' && operand.canBeEmpty)) return fail();
        return {[op, run = operand.run](const Match& match, const char* p, const Next& next) {
                    if (op == '*') return repeat(run, match, p, next);
                    if (op == '?') return run(match, p, next) || next(p);
                    return run(match, p,
                               [&](const char* q) { return repeat(run, match, q, next); });
                },
                op != '+'};
    }

    static bool isWord(char c) {
        return c == '_' || std::isalnum(static_cast<unsigned char>(c)) != 0;
    }

    static Part place(bool (*isHere)(const char* subject, const char* p)) {
        return {[isHere](const Match& match, const char* p, const Next& next) {
                    return isHere(match.subject, p) && next(p);
                },
                true};
    }

    static Part character(const std::string& set, bool isComplement) {
        return {[=](const Match&, const char* p, const Next& next) {
                    const bool isMember = set.find(*p) != std::string::npos;
                    return *p != 0 && isMember != isComplement && next(p + 1);
                },
                false};
    }

    Part atom() {
        const char c = *at++;
        if (isOperator(c)) return fail();
        if (c == '^') return place([](const char* subject, const char* p) { return p == subject; });
        if (c == '$') return place([](const char*, const char* p) { return *p == 0; });
        if (c == '(') return groupOf(++groups);
        if (c == '[') return setOf();
        if (c == '.') return character("", true);
        if (c != '\\') return character({c}, false);
        const char named = *at;
        if (named == 0) return fail();
        ++at;
        if (named == '>') return place([](const char*, const char* p) { return !isWord(*p); });
        if (named != '<') return character({named}, false);
        return place([](const char* subject, const char* p) {
            return isWord(*p) && (p == subject || !isWord(p[-1]));
        });
    }

    // Groups are set on the way back from success, where still unset.
    static bool set(const char** positions, int number, const char* p) {
        if (positions[number] == nullptr) positions[number] = p;
        return true;
    }

    Part groupOf(int number) {
        if (number > 9) return fail();
        const Part body = alternatives();
        if (*at != ')') return fail();
        ++at;
        return {[=](const Match& match, const char* p, const Next& next) {
                    const auto close = [&](const char* q) {
                        return next(q) && set(match.endp, number, q);
                    };
                    return body.run(match, p, close) && set(match.startp, number, p);
                },
                body.canBeEmpty};
    }

    // What comes first is a member, whatever it is; a dash that comes last too.
    Part setOf() {
        const bool isComplement = *at == '^';
        at += isComplement;
        std::string set;
        for (; set.empty() || *at != ']'; ++at) {
            if (*at == 0) return fail();
            if (set.empty() || *at != '-' || at[1] == ']' || at[1] == 0) {
                set += *at;
                continue;
            }
            ++at;
            if (at[-2] > *at) return fail();
            for (char c = at[-2]; c != *at;) set += ++c;
        }
        ++at;
        return character(set, isComplement);
    }

    const char* at;
    int groups = 0;
    bool valid = true;
    Part root;
};

#endif
