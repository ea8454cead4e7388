// The idioms of ours.cc with GLib and GObject.
#include <glib-object.h>
#include <glib-unix.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <thread>

// Connections

struct Slider {
    GObject parent;
};
struct SliderClass {
    GObjectClass parent;
};
G_DEFINE_TYPE(Slider, slider, G_TYPE_OBJECT)
static void slider_init(Slider*) {}
static void slider_class_init(SliderClass* type) {
    g_signal_new("moved", G_TYPE_FROM_CLASS(type), G_SIGNAL_RUN_LAST, 0, nullptr, nullptr, nullptr,
                 G_TYPE_NONE, 1, G_TYPE_INT);
}

static void show(Slider*, int level, void*) { std::printf("connections: %d\n", level); }

static void connections() {
    auto* slider = static_cast<GObject*>(g_object_new(slider_get_type(), nullptr));
    const gulong shown = g_signal_connect(slider, "moved", G_CALLBACK(show), nullptr);
    g_signal_emit_by_name(slider, "moved", 1);
    g_signal_handler_disconnect(slider, shown);
    g_signal_emit_by_name(slider, "moved", 2);
    auto* context = static_cast<GObject*>(g_object_new(G_TYPE_OBJECT, nullptr));
    g_signal_connect_object(slider, "moved", G_CALLBACK(show), context, GConnectFlags());
    g_signal_emit_by_name(slider, "moved", 3);
    g_object_unref(context);
    g_signal_emit_by_name(slider, "moved", 4);
    g_object_unref(slider);
}

// Queued calls

static void queued() {
    const auto print = [](void* level) -> gboolean {
        std::printf("queued: %d\n", GPOINTER_TO_INT(level));
        return G_SOURCE_REMOVE;
    };
    g_idle_add(print, GINT_TO_POINTER(5));
    std::printf("queued: sent\n");
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
}

// Timers

static gboolean quit(void* loop) {
    g_main_loop_quit(static_cast<GMainLoop*>(loop));
    return G_SOURCE_REMOVE;
}

struct Blinking {
    GMainLoop* loop;
    int ticks;
};

static gboolean blink(void* data) {
    auto* blinking = static_cast<Blinking*>(data);
    if (++blinking->ticks < 3) return G_SOURCE_CONTINUE;
    g_timeout_add(5, quit, blinking->loop);
    return G_SOURCE_REMOVE;
}

static void timers() {
    Blinking blinking = {g_main_loop_new(nullptr, FALSE), 0};
    g_timeout_add(2, blink, &blinking);
    g_main_loop_run(blinking.loop);
    g_main_loop_unref(blinking.loop);
    std::printf("timers: %d ticks\n", blinking.ticks);
}

// Threads

static void threads() {
    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    std::thread worker([loop] {
        const auto done = [](void* data) {
            std::printf("threads: done\n");
            return quit(data);
        };
        g_idle_add(done, loop);
    });
    g_main_loop_run(loop);
    worker.join();
    g_main_loop_unref(loop);
}

// Signals of the system

static void signals() {
    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    const auto came = [](void* data) {
        std::printf("signals: SIGUSR1\n");
        return quit(data);
    };
    g_unix_signal_add(SIGUSR1, came, loop);
    raise(SIGUSR1);
    g_main_loop_run(loop);
    g_main_loop_unref(loop);
}

// Texts

static void texts() {
    g_auto(GStrv) parts = g_strsplit("b,a,,c", ",", -1);
    g_autofree char* joined = g_strjoinv("-", parts);
    std::printf("texts: %s\n", joined);
    gint64 number = 0;
    gint64 bad = 0;
    g_ascii_string_to_signed("42", 10, G_MININT, G_MAXINT, &number, nullptr);
    const bool isNumber = g_ascii_string_to_signed("4x", 10, G_MININT, G_MAXINT, &bad, nullptr);
    std::printf("texts: %d, %s\n", static_cast<int>(number), isNumber ? "4" : "no number");
}

// Tables

static void tables() {
    g_autoptr(GHashTable) ages = g_hash_table_new(g_str_hash, g_str_equal);
    const auto add = [&](const char* name, int age) {
        g_hash_table_insert(ages, const_cast<char*>(name), GINT_TO_POINTER(age));
    };
    const auto find = [&](const char* name, int fallback) {
        void* age = nullptr;
        const bool isThere = g_hash_table_lookup_extended(ages, name, nullptr, &age);
        return isThere ? GPOINTER_TO_INT(age) : fallback;
    };
    add("ada", 36);
    add("bob", 41);
    add("cyd", 5);
    std::printf("tables: %d %d\n", find("ada", 0), find("eve", -1));
    const int bob = find("bob", 0);
    g_hash_table_remove(ages, "bob");
    std::printf("tables: %d, %u left\n", bob, g_hash_table_size(ages));
}

// Expressions

static void expressions() {
    g_autoptr(GRegex) expression =
        g_regex_new("([a-z])=([0-9]+)", GRegexCompileFlags(), GRegexMatchFlags(), nullptr);
    g_autoptr(GMatchInfo) match = nullptr;
    g_regex_match(expression, "a=1 b=22", GRegexMatchFlags(), &match);
    for (; g_match_info_matches(match); g_match_info_next(match, nullptr)) {
        g_autofree char* name = g_match_info_fetch(match, 1);
        g_autofree char* value = g_match_info_fetch(match, 2);
        std::printf("expressions: %s %s\n", name, value);
    }
}

// Sharing

static void sharing() {
    auto* first = static_cast<GObject*>(g_object_new(G_TYPE_OBJECT, nullptr));
    const auto ends = [](void*, GObject*) { std::printf("sharing: the page ends\n"); };
    g_object_weak_ref(first, ends, nullptr);
    auto* second = static_cast<GObject*>(g_object_ref(first));
    g_clear_object(&first);
    std::printf("sharing: one holder left\n");
    g_clear_object(&second);
}

// Saving

static void saving() {
    g_autoptr(GKeyFile) settings = g_key_file_new();
    g_key_file_set_string(settings, "settings", "place", "south");
    g_key_file_set_integer(settings, "settings", "level", 7);
    if (!g_key_file_save_to_file(settings, "peers.saved", nullptr)) return;
    g_autoptr(GKeyFile) loaded = g_key_file_new();
    if (g_key_file_load_from_file(loaded, "peers.saved", G_KEY_FILE_NONE, nullptr)) {
        g_autofree char* place = g_key_file_get_string(loaded, "settings", "place", nullptr);
        std::printf("saving: %s %d\n", place,
                    g_key_file_get_integer(loaded, "settings", "level", nullptr));
    }
    unlink("peers.saved");
    g_autoptr(GError) error = nullptr;
    g_key_file_load_from_file(loaded, "peers.saved", G_KEY_FILE_NONE, &error);
    std::printf("saving: %s\n", error != nullptr ? "no file" : "a file");
}

int main() {
    connections();
    queued();
    timers();
    threads();
    signals();
    texts();
    tables();
    expressions();
    sharing();
    saving();
}
