// The obvious matcher of regular expressions: what the engine must agree with.
#ifndef FXDS_TESTS_REGEXPMODEL_H
#define FXDS_TESTS_REGEXPMODEL_H

#include <cctype>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

/// Parses a pattern into a tree and matches it by recursion, each part being
/// given what to do after it. As slow as it looks.
class RegExpModel {
public:
    explicit RegExpModel(const std::string& pattern) : at(pattern.c_str()) {
        root = alternatives();
        if (*at != 0) fail();
    }

    bool isValid() const { return valid; }

    bool search(const char* subject, const char** startp, const char** endp,
                size_t offset = 0) const {
        Match match{subject, startp, endp};
        for (const char* from = subject + offset;; ++from) {
            const char* end = nullptr;
            const bool found = match.run(*root, from, [&](const char* p) {
                end = p;
                return true;
            });
            if (found) {
                startp[0] = from;
                endp[0] = end;
                return true;
            }
            if (*from == 0) return false;
        }
    }

private:
    struct Part {
        enum Kind {
            character,
            group,
            sequence,
            choice,
            star,
            plus,
            optional,
            begin,
            end,
            wordStart,
            wordEnd
        };
        Kind kind;
        bool canBeEmpty;
        int number = 0;
        std::string set = {};  // characters that match; for a single one too
        bool isComplement = false;
        std::vector<std::shared_ptr<Part>> parts = {};
    };
    using Ptr = std::shared_ptr<Part>;
    using Next = std::function<bool(const char*)>;

    static Ptr make(Part::Kind kind, bool canBeEmpty) {
        return std::make_shared<Part>(Part{kind, canBeEmpty});
    }

    Ptr fail() {
        valid = false;
        at = "";
        return make(Part::sequence, true);
    }

    Ptr alternatives() {
        Ptr result = make(Part::choice, false);
        for (;;) {
            Ptr sequence = make(Part::sequence, true);
            while (*at != 0 && *at != '|' && *at != '\n' && *at != ')') {
                sequence->parts.push_back(piece());
                if (!sequence->parts.back()->canBeEmpty) sequence->canBeEmpty = false;
            }
            result->parts.push_back(sequence);
            if (sequence->canBeEmpty) result->canBeEmpty = true;
            if (*at != '|' && *at != '\n') return result;
            ++at;
        }
    }

    static bool isOperator(char c) { return c != 0 && std::strchr("*+?", c) != nullptr; }

    Ptr piece() {
        Ptr operand = atom();
        if (!isOperator(*at)) return operand;
        const char op = *at++;
        if (isOperator(*at) || (op != '?' && operand->canBeEmpty)) return fail();
        Ptr result = op == '*'   ? make(Part::star, true)
                     : op == '+' ? make(Part::plus, false)
                                 : make(Part::optional, true);
        result->parts.push_back(operand);
        return result;
    }

    Ptr atom() {
        const char c = *at++;
        if (isOperator(c)) return fail();
        if (c == '^') return make(Part::begin, true);
        if (c == '$') return make(Part::end, true);
        if (c == '(') return groupOf(++groups);
        if (c == '[') return setOf();
        if (c == '\\' && *at == 0) return fail();
        if (c == '\\' && *at == '<') return ++at, make(Part::wordStart, true);
        if (c == '\\' && *at == '>') return ++at, make(Part::wordEnd, true);
        Ptr result = make(Part::character, false);
        if (c == '.') {
            result->isComplement = true;
        } else {
            result->set = c == '\\' ? *at++ : c;
        }
        return result;
    }

    Ptr groupOf(int number) {
        if (number > 9) return fail();
        Ptr body = alternatives();
        if (*at != ')') return fail();
        ++at;
        Ptr result = make(Part::group, body->canBeEmpty);
        result->number = number;
        result->parts.push_back(body);
        return result;
    }

    // What comes first is a member, whatever it is; a dash that comes last too.
    Ptr setOf() {
        Ptr result = make(Part::character, false);
        if (*at == '^') result->isComplement = ++at;
        std::string& set = result->set;
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
        return result;
    }

    struct Match {
        const char* subject;
        const char** startp;
        const char** endp;

        static bool isWord(char c) {
            return c == '_' || std::isalnum(static_cast<unsigned char>(c)) != 0;
        }

        // Groups are set on the way back from success, where still unset.
        static bool set(const char** positions, int number, const char* p) {
            if (positions[number] == nullptr) positions[number] = p;
            return true;
        }

        bool run(const Part& part, const char* p, const Next& next) const {
            switch (part.kind) {
                case Part::character:
                    return *p != 0 &&
                           (part.set.find(*p) != std::string::npos) != part.isComplement &&
                           next(p + 1);
                case Part::begin:
                    return p == subject && next(p);
                case Part::end:
                    return *p == 0 && next(p);
                case Part::wordStart:
                    return isWord(*p) && !(p > subject && isWord(p[-1])) && next(p);
                case Part::wordEnd:
                    return !isWord(*p) && next(p);
                case Part::sequence:
                    return sequence(part, 0, p, next);
                case Part::choice:
                    for (const Ptr& alternative : part.parts) {
                        if (run(*alternative, p, next)) return true;
                    }
                    return false;
                case Part::group:
                    return run(*part.parts[0], p,
                               [&](const char* q) {
                                   return next(q) && set(endp, part.number, q);
                               }) &&
                           set(startp, part.number, p);
                case Part::optional:
                    return run(*part.parts[0], p, next) || next(p);
                case Part::plus:
                    return run(*part.parts[0], p,
                               [&](const char* q) { return star(part, q, next); });
                default:
                    return star(part, p, next);
            }
        }

        bool sequence(const Part& part, size_t index, const char* p, const Next& next) const {
            if (index == part.parts.size()) return next(p);
            return run(*part.parts[index], p,
                       [&, index](const char* q) { return sequence(part, index + 1, q, next); });
        }

        bool star(const Part& part, const char* p, const Next& next) const {
            return run(*part.parts[0], p, [&](const char* q) { return star(part, q, next); }) ||
                   next(p);
        }
    };

    const char* at;
    int groups = 0;
    bool valid = true;
    Ptr root;
};

#endif
