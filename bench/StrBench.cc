// Strings against std::string, snprintf and, where it is installed, GLib's.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

#include "fxds/Str.h"

#ifdef FXDS_HAVE_GLIB
#include <glib.h>
#endif

namespace {

constexpr int count = 100;

template <class String>
void Append(benchmark::State& state) {
    for (auto _ : state) {
        String text;
        for (int i = 0; i < count; ++i) text.append("word and ", 9);
        benchmark::DoNotOptimize(text.length());
    }
}
BENCHMARK_TEMPLATE(Append, std::string);
BENCHMARK_TEMPLATE(Append, fxStr);

void push(std::string& text, char c) { text.push_back(c); }
void push(fxStr& text, char c) { text.append(c); }

template <class String>
void AppendChars(benchmark::State& state) {
    for (auto _ : state) {
        String text;
        for (int i = 0; i < count; ++i) push(text, 'x');
        benchmark::DoNotOptimize(text.length());
    }
}
BENCHMARK_TEMPLATE(AppendChars, std::string);
BENCHMARK_TEMPLATE(AppendChars, fxStr);

const char* const directory = "/usr/share/applications";

void StdConcatenation(benchmark::State& state) {
    const std::string a(directory), b("monitor");
    for (auto _ : state) {
        std::string path = a + "/" + b + "." + "desktop";
        benchmark::DoNotOptimize(path.data());
    }
}
BENCHMARK(StdConcatenation);

void FxConcatenation(benchmark::State& state) {
    const fxStr a(directory), b("monitor");
    for (auto _ : state) {
        fxStr path = a | "/" | b | "." | "desktop";
        benchmark::DoNotOptimize(path.c_str());
    }
}
BENCHMARK(FxConcatenation);

void StdFormat(benchmark::State& state) {
    int value = 0;
    for (auto _ : state) {
        char buffer[64];
        const int length = std::snprintf(buffer, sizeof buffer, "%s %d of %d", "item", ++value, 9);
        std::string text(buffer, static_cast<size_t>(length));
        benchmark::DoNotOptimize(text.data());
    }
}
BENCHMARK(StdFormat);

void FxFormat(benchmark::State& state) {
    int value = 0;
    for (auto _ : state) {
        fxStr text;
        text.format("%s %d of %d", "item", ++value, 9);
        benchmark::DoNotOptimize(text.c_str());
    }
}
BENCHMARK(FxFormat);

template <class String>
void Copy(benchmark::State& state) {
    const String source("a text that does not fit into a small string");
    for (auto _ : state) {
        String copy(source);
        benchmark::DoNotOptimize(copy.c_str());
    }
}
BENCHMARK_TEMPLATE(Copy, std::string);
BENCHMARK_TEMPLATE(Copy, fxStr);

#ifdef FXDS_HAVE_GLIB

void GlibAppend(benchmark::State& state) {
    for (auto _ : state) {
        GString* const text = g_string_new(nullptr);
        for (int i = 0; i < count; ++i) g_string_append_len(text, "word and ", 9);
        g_string_free(text, TRUE);
    }
}
BENCHMARK(GlibAppend);

void GlibAppendChars(benchmark::State& state) {
    for (auto _ : state) {
        GString* const text = g_string_new(nullptr);
        for (int i = 0; i < count; ++i) g_string_append_c(text, 'x');
        g_string_free(text, TRUE);
    }
}
BENCHMARK(GlibAppendChars);

void GlibConcatenation(benchmark::State& state) {
    const std::string a(directory), b("monitor");
    for (auto _ : state) {
        char* const path = g_strconcat(a.c_str(), "/", b.c_str(), ".", "desktop", nullptr);
        benchmark::DoNotOptimize(path);
        g_free(path);
    }
}
BENCHMARK(GlibConcatenation);

void GlibFormat(benchmark::State& state) {
    int value = 0;
    for (auto _ : state) {
        char* const text = g_strdup_printf("%s %d of %d", "item", ++value, 9);
        benchmark::DoNotOptimize(text);
        g_free(text);
    }
}
BENCHMARK(GlibFormat);

#endif

}  // namespace
