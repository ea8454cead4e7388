// The idioms of ours.cc with Boost: Signals2, Asio, String Algorithms, Intrusive
// Pointer and Serialization.
#include <unistd.h>

#include <boost/algorithm/string.hpp>
#include <boost/archive/text_iarchive.hpp>
#include <boost/archive/text_oarchive.hpp>
#include <boost/asio.hpp>
#include <boost/lexical_cast/try_lexical_convert.hpp>
#include <boost/make_shared.hpp>
#include <boost/signals2.hpp>
#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

// Connections

static void connections() {
    const auto show = [](int level) { std::printf("connections: %d\n", level); };
    boost::signals2::signal<void(int)> moved;
    const boost::signals2::connection shown = moved.connect(show);
    moved(1);
    shown.disconnect();
    moved(2);
    {
        const auto context = boost::make_shared<int>(0);
        moved.connect(decltype(moved)::slot_type(show).track(context));
        moved(3);
    }
    moved(4);
}

// Queued calls

static void queued() {
    boost::asio::io_context loop;
    boost::asio::post(loop, [] { std::printf("queued: %d\n", 5); });
    std::printf("queued: sent\n");
    loop.run();
}

// Timers

static void timers() {
    int ticks = 0;
    boost::asio::io_context loop;
    boost::asio::steady_timer timer(loop, 2ms);
    const std::function<void(boost::system::error_code)> tick = [&](boost::system::error_code) {
        timer.expires_at(timer.expiry() + (++ticks < 3 ? 2ms : 5ms));
        if (ticks < 3) {
            timer.async_wait(tick);
        } else {
            timer.async_wait([&loop](boost::system::error_code) { loop.stop(); });
        }
    };
    timer.async_wait(tick);
    loop.run();
    std::printf("timers: %d ticks\n", ticks);
}

// Threads

static void threads() {
    boost::asio::io_context loop;
    const auto work = boost::asio::make_work_guard(loop);
    std::thread worker([&loop] {
        boost::asio::post(loop, [&loop] {
            std::printf("threads: done\n");
            loop.stop();
        });
    });
    loop.run();
    worker.join();
}

// Signals of the system

static void signals() {
    boost::asio::io_context loop;
    boost::asio::signal_set user(loop, SIGUSR1);
    user.async_wait([](boost::system::error_code, int) { std::printf("signals: SIGUSR1\n"); });
    raise(SIGUSR1);
    loop.run();
}

// Texts

static void texts() {
    std::vector<std::string> parts;
    boost::split(parts, "b,a,,c", boost::is_any_of(","));
    std::printf("texts: %s\n", boost::join(parts, "-").c_str());
    int number = 0;
    int bad = 0;
    boost::conversion::try_lexical_convert("42", number);
    const bool isNumber = boost::conversion::try_lexical_convert("4x", bad);
    std::printf("texts: %d, %s\n", number, isNumber ? "4" : "no number");
}

// Sharing

struct Page : boost::intrusive_ref_counter<Page> {
    ~Page() { std::printf("sharing: the page ends\n"); }
};

static void sharing() {
    boost::intrusive_ptr<Page> first(new Page);
    boost::intrusive_ptr<Page> second = first;
    first.reset();
    std::printf("sharing: one holder left\n");
    second.reset();
}

// Saving

struct Settings {
    std::string place = "south";
    int level = 7;

    template <class Archive>
    void serialize(Archive& archive, unsigned int) {
        archive& place& level;
    }
};

static void saving() {
    {
        std::ofstream file("peers.saved");
        boost::archive::text_oarchive(file) << static_cast<const Settings&>(Settings());
    }
    {
        std::ifstream file("peers.saved");
        Settings settings{"", 0};
        boost::archive::text_iarchive(file) >> settings;
        std::printf("saving: %s %d\n", settings.place.c_str(), settings.level);
    }
    unlink("peers.saved");
    std::ifstream file("peers.saved");
    std::printf("saving: %s\n", file ? "a file" : "no file");
}

int main() {
    connections();
    queued();
    timers();
    threads();
    signals();
    texts();
    sharing();
    saving();
}
