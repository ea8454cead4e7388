// The costs of searching: expressions against std::regex and, if they are
// installed, PCRE2 and RE2; literals against the C and C++ libraries.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <regex>
#include <string>
#include <type_traits>

#include "fxds/RegExp.h"
#include "fxds/SLinearPattern.h"

#ifdef FXDS_HAVE_PCRE2
#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>
#endif
#ifdef FXDS_HAVE_RE2
#include <re2/re2.h>
#endif

namespace {

struct Row {
    const char* name;
    const char* pattern;
    const char* rare = "7";  // comes now and then, too
    bool isForStd = true;    // std::regex gives up some
};

// Each in the common part of all syntaxes.
constexpr Row rows[] = {
    {"literalPrefix", "needle[a-z]*"},
    {"alternation", "(quartz|vixen|jumbled|wizard)s"},
    {"classPlus", "[a-z]+ing [a-z]+"},
    {"digits", "[0-9]+-[0-9]+"},
    {"groupLoop", "([a-z]+ )+[0-9]"},
    {"anchored", "^the ([a-z]+ )*[0-9]"},
    {"nothing", "[a-z]*(qq|zz)[0-9]"},
    {"nothingLiteral", "[a-z]+ xyzzy"},
    {"captures", "([a-z]+) *= *([a-z]+)", "= value"},
    {"nothingNeeded", "[0-9]+[.][0-9]+"},
    {"nothingAmbiguous", "(x+x+)+y", "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxx y", false}};

// Words with a number, and rarely a rare word, now and then.
std::string textOf(size_t bytes, const char* also) {
    const char* const words[] = {"the",    "over",  "quick", "brown",  "jumping", "lazy", "running",
                                 "fields", "house", "every", "string", "paper",   "and",  "of"};
    const char* const rare[] = {"needles", "vixens", "wizard", "quartzs", "12-34", also};
    std::mt19937 rng(1);
    std::string text = "the ";
    while (text.size() < bytes) {
        text += rng() % 40 == 0 ? rare[rng() % std::size(rare)] : words[rng() % std::size(words)];
        text += ' ';
    }
    text.resize(bytes);
    return text;
}

// The engines, with one interface: the number of matches in a text.

class Ours {
public:
    explicit Ours(const char* pattern) : compiled(fxregcomp(pattern)) {}
    ~Ours() { std::free(compiled); }
    Ours(const Ours&) = delete;
    Ours& operator=(const Ours&) = delete;
    long count(const std::string& text) const {
        long matches = 0;
        const char* from = text.c_str();
        while (fxregexec(compiled, text.c_str(), from) != 0) {
            ++matches;
            from = compiled->endp[0];
        }
        return matches;
    }

private:
    fxregexp* compiled;
};

class Std {
public:
    explicit Std(const char* pattern) : regex(pattern, std::regex::optimize) {}
    long count(const std::string& text) const {
        return std::distance(std::cregex_iterator(text.data(), text.data() + text.size(), regex),
                             {});
    }

private:
    std::regex regex;
};

#ifdef FXDS_HAVE_PCRE2
template <bool isJit>
class Pcre2 {
public:
    explicit Pcre2(const char* pattern) {
        int error;
        PCRE2_SIZE at;
        code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern), PCRE2_ZERO_TERMINATED,
                             PCRE2_DOTALL, &error, &at, nullptr);
        if (isJit) pcre2_jit_compile(code, PCRE2_JIT_COMPLETE);
        match = pcre2_match_data_create_from_pattern(code, nullptr);
    }
    ~Pcre2() {
        pcre2_match_data_free(match);
        pcre2_code_free(code);
    }
    Pcre2(const Pcre2&) = delete;
    Pcre2& operator=(const Pcre2&) = delete;
    long count(const std::string& text) const {
        long matches = 0;
        size_t from = 0;
        const uint32_t options = isJit ? 0 : PCRE2_NO_JIT;
        while (pcre2_match(code, reinterpret_cast<PCRE2_SPTR>(text.data()), text.size(), from,
                           options, match, nullptr) > 0) {
            ++matches;
            from = pcre2_get_ovector_pointer(match)[1];
        }
        return matches;
    }

private:
    pcre2_code* code;
    pcre2_match_data* match;
};
#endif

#ifdef FXDS_HAVE_RE2
class Re2 {
public:
    explicit Re2(const char* pattern) : expression(pattern) {}
    long count(const std::string& text) const {
        long matches = 0;
        const re2::StringPiece all(text);
        re2::StringPiece groups[10];  // as the others, the groups too
        size_t from = 0;
        while (expression.Match(all, from, all.size(), RE2::UNANCHORED, groups,
                                1 + expression.NumberOfCapturingGroups())) {
            ++matches;
            from = static_cast<size_t>(groups[0].end() - all.begin());
        }
        return matches;
    }

private:
    RE2 expression;
};
#endif

template <class Engine>
void matchAll(benchmark::State& state, const char* pattern, std::string text) {
    const Engine engine(pattern);
    const long expected = Ours(pattern).count(text);
    for (auto _ : state) {
        if (engine.count(text) != expected) state.SkipWithError("finds something else");
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
    state.counters["matches"] = static_cast<double>(expected);
}

template <class Engine>
void compileOnly(benchmark::State& state, const char* pattern) {
    for (auto _ : state) {
        Engine engine(pattern);
        benchmark::DoNotOptimize(engine);
    }
}

template <class Engine>
void addEngine(const std::string& engine) {
    for (const Row& row : rows) {
        if (std::is_same_v<Engine, Std> && !row.isForStd) continue;
        const std::string name = row.name;
        const std::string line = textOf(10000, row.rare);
        const std::string large = textOf(1000000, row.rare);
        benchmark::RegisterBenchmark(("10KB/" + name + "/" + engine).c_str(), matchAll<Engine>,
                                     row.pattern, line);
        benchmark::RegisterBenchmark(("1MB/" + name + "/" + engine).c_str(), matchAll<Engine>,
                                     row.pattern, large);
        benchmark::RegisterBenchmark(("compile/" + name + "/" + engine).c_str(),
                                     compileOnly<Engine>, row.pattern);
    }
}

// Literal searches. Each finds the one place at the end of the text.

using Find = std::function<const char*(const char* begin, const char* end)>;

Find oursFor(const std::string& word) {
    return [pattern = std::make_shared<fxSLinearPattern>(word.c_str(), 0U)](const char* begin,
                                                                            const char* end) {
        return begin + pattern->findBuffer(begin, static_cast<unsigned int>(end - begin));
    };
}

Find memmemFor(const std::string& word) {
    return [word](const char* begin, const char* end) {
        return static_cast<const char*>(
            memmem(begin, static_cast<size_t>(end - begin), word.data(), word.size()));
    };
}

Find horspoolFor(const std::string& word) {
    using Searcher = std::boyer_moore_horspool_searcher<std::string::const_iterator>;
    const auto kept = std::make_shared<std::string>(word);
    return [kept, searcher = Searcher(kept->begin(), kept->end())](
               const char* begin, const char* end) { return std::search(begin, end, searcher); };
}

void findLiteral(benchmark::State& state, Find (*make)(const std::string&),
                 const std::string& word) {
    std::string text = textOf(static_cast<size_t>(state.range(0)) - word.size(), "7") + word;
    const Find find = make(word);
    for (auto _ : state) {
        benchmark::DoNotOptimize(text.data());
        const char* const found = find(text.data(), text.data() + text.size());
        if (found != text.data() + text.size() - word.size()) state.SkipWithError("not found");
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void addLiterals() {
    const std::pair<const char*, Find (*)(const std::string&)> finders[] = {
        {"ours", oursFor}, {"memmem", memmemFor}, {"stdHorspool", horspoolFor}};
    const std::string words[] = {"xy", "zebra", "stringent", "the running quick brown needle"};
    for (const std::string& word : words) {
        for (const auto& [name, make] : finders) {
            benchmark::RegisterBenchmark(
                ("literal/" + std::to_string(word.size()) + "/" + name).c_str(), findLiteral, make,
                word)
                ->Arg(64)
                ->Arg(1000)
                ->Arg(1000000);
        }
    }
}

const bool isRegistered = [] {
    addEngine<Ours>("ours");
    addEngine<Std>("std");
#ifdef FXDS_HAVE_PCRE2
    addEngine<Pcre2<false>>("pcre2");
    addEngine<Pcre2<true>>("pcre2jit");
#endif
#ifdef FXDS_HAVE_RE2
    addEngine<Re2>("re2");
#endif
    addLiterals();
    return true;
}();

}  // namespace
