// The plug-in for MQTT, with a real broker on the loopback address.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "fxds/Exec.h"
#include "fxds/Globals.h"
#include "tests/support/RunProgram.h"
#include "tests/support/RunningFlow.h"
#include "tests/support/Surroundings.h"

namespace {

typedef std::chrono::steady_clock Clock;
constexpr std::chrono::seconds patience(60);  // only ends a test that would wait for ever

sockaddr_in loopback(int port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<in_port_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// A port that nothing listens at.
int freePort() {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), size), 0);
    EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size), 0);
    close(fd);
    return ntohs(address.sin_port);
}

// A broker with a memory of its own.
class Broker {
public:
    explicit Broker(const std::string& settings = "allow_anonymous true\n") {
        room.file("conf", "listener " + std::to_string(port) +
                              " 127.0.0.1\npersistence true\npersistence_location " + room.path +
                              "/\nmax_queued_messages 0\nlog_dest none\nuser root\n" + settings);
    }
    ~Broker() { stop(SIGKILL); }

    void start() {
        const Program program = {{MOSQUITTO_PATH, "-c", room.path + "/conf"}};
        process = ::start(program);
        const sockaddr_in address = loopback(port);
        const Clock::time_point end = Clock::now() + patience;
        for (bool isThere = false; !isThere; usleep(2000)) {
            ASSERT_LT(Clock::now(), end) << "the broker does not listen";
            const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
            isThere = connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
            close(fd);
            ASSERT_EQ(waitpid(process, nullptr, WNOHANG), 0) << "the broker has ended";
        }
    }
    void stop(int signal = SIGTERM) {
        if (process <= 0) return;
        kill(process, signal);
        waitpid(process, nullptr, 0);
        process = 0;
    }

    // Ends all connections of this process to the broker.
    void cut() const {
        for (int fd = 3; fd < 1024; ++fd) {
            sockaddr_in peer = {};
            socklen_t size = sizeof peer;
            if (getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &size) == 0 &&
                peer.sin_family == AF_INET && ntohs(peer.sin_port) == port) {
                shutdown(fd, SHUT_RDWR);
            }
        }
    }

    const TestDirectory room;
    const int port = freePort();

private:
    pid_t process = 0;
};

// A flow with "in" and "out", or one of them.
class Flow : public RunningFlow {
public:
    explicit Flow(const std::string& text) : RunningFlow(text) {
        const auto keep = [](std::string& last) {
            return [&last](const std::string& value) { last = value; };
        };
        if (flow.find("in") != nullptr) {
            flow.watch("in", "connected", &flow, keep(connected));
            flow.watch("in", "value", &flow, [this](const std::string& value) {
                ++received[value];
                order += value + " ";
            });
        }
        if (flow.find("out") == nullptr) return;
        flow.watch("out", "acknowledged", &flow, keep(acknowledged));
        flow.watch("out", "dropped", &flow, keep(dropped));
    }

    void send(const std::string& value) { EXPECT_EQ(flow.send("out", "value", value), ""); }

    void runFor(Clock::duration span) {
        const Clock::time_point end = Clock::now() + span;
        runUntil([&] { return Clock::now() > end; });
    }
    bool isOutBusy() { return dynamic_cast<fxElement*>(flow.find("out"))->isBusy(); }

    std::map<std::string, int> received;
    std::string order;
    std::string acknowledged;
    std::string dropped;
    std::string connected;
};

class Mqtt : public testing::Test {
protected:
    static void SetUpTestSuite() {
        fxInitializeToolkit();
        ASSERT_EQ(fxLoadPlugin(MQTT_PLUGIN), "");
    }

    static std::string in(const Broker& broker, const std::string& more) {
        return line("in = MqttIn", broker, more);
    }
    static std::string out(const Broker& broker, const std::string& more) {
        return line("out = MqttOut", broker, more);
    }
    static std::string line(const char* start, const Broker& broker, const std::string& more) {
        return start + std::string(" topic=a/b pause=0.2 port=") + std::to_string(broker.port) +
               " " + more + "\n";
    }

    // Sends values while connections are cut and the broker is ended; waits for all that come.
    void sendWithTroubles(int signal) {
        constexpr int count = 2000;
        Broker broker;
        broker.start();
        Flow flow(in(broker, "qos=2 client=in") + out(broker, "qos=2 client=out limit=100000"));
        // Values of before the subscription may be lost.
        for (int i = 0; i < 100 && flow.received.empty(); ++i) {
            flow.send("ready");
            flow.runFor(std::chrono::milliseconds(100));
        }
        ASSERT_FALSE(flow.received.empty()) << flow.complaints;
        for (int i = 0; i < count; ++i) {
            flow.send(std::to_string(i));
            if (i % 10 == 0) fx_theExecutive->poll(1);
            if (i % 300 == 150) broker.cut();
            if (i % 1000 == 500) {
                broker.stop(signal);
                flow.runFor(std::chrono::milliseconds(300));
                broker.start();
            }
        }
        EXPECT_TRUE(flow.runUntil([&] { return !flow.isOutBusy(); })) << flow.complaints;
        flow.runFor(std::chrono::seconds(1));  // what may come twice comes within this time
        flow.received.erase("ready");
        std::string lost;
        for (int i = 0; i < count; ++i) {
            const int times = flow.received[std::to_string(i)];
            EXPECT_LE(times, 1) << i;
            if (times == 0) lost += std::to_string(i) + " ";
        }
        EXPECT_EQ(flow.received.size(), size_t{count});
        EXPECT_GE(std::stoi(flow.acknowledged), count);
        EXPECT_EQ(flow.dropped, "");
        // A broker that is killed loses what it has acknowledged and not saved.
        RecordProperty("lost", lost);
        EXPECT_TRUE(signal == SIGKILL || lost.empty()) << lost;
    }
};

}  // namespace

TEST_F(Mqtt, ExactlyOnceWhenTheBrokerEnds) { sendWithTroubles(SIGTERM); }

TEST_F(Mqtt, AtMostOnceWhenTheBrokerIsKilled) { sendWithTroubles(SIGKILL); }

TEST_F(Mqtt, QueuesAreBoundedAndDropWhatIsTold) {
    const struct {
        const char* drop;
        const char* order;
    } rows[] = {{"oldest", "3 4 5 "}, {"newest", "1 2 3 "}};
    for (const auto& row : rows) {
        Broker broker;
        Flow sender(out(broker, "qos=1 client=x limit=3 drop=" + std::string(row.drop)));
        for (const char* value : {"1", "2", "3", "4", "5"}) sender.send(value);
        fx_theExecutive->poll(0);
        broker.start();
        Flow receiver(in(broker, "qos=1"));
        EXPECT_TRUE(sender.runUntil([&] { return sender.acknowledged == "3"; }));
        EXPECT_EQ(sender.dropped, "2");
        EXPECT_FALSE(sender.flow.isBusy());
        EXPECT_EQ(sender.complaints, "out: not connected to 127.0.0.1: Connection refused\n");
        EXPECT_NE(std::string(row.order).find(receiver.order), std::string::npos) << receiver.order;
    }
}

TEST_F(Mqtt, RetainedValuesUsersAndTls) {
    const TestDirectory room;
    int status = 0;
    const std::string made =
        outputOf("cd " + room.path +
                     " && for name in localhost elsewhere; do openssl req -x509 -newkey rsa:2048 "
                     "-nodes -days 2 -subj /CN=broker -addext subjectAltName=DNS:$name "
                     "-keyout $name.key -out $name; done"
                     " && mosquitto_passwd -b -c users tester secret && chmod 644 *",
                 status);
    if (status != 0) GTEST_SKIP() << made;
    room.file("user", "tester\n");
    room.file("right", "secret\n");
    room.file("wrong", "guess\n");
    const auto named = [&](const std::string& name) {
        return "certfile " + room.path + "/" + name + "\nkeyfile " + room.path + "/" + name +
               ".key\n";
    };
    Broker broker("allow_anonymous false\npassword_file " + room.path + "/users\n" +
                  named("localhost"));
    broker.start();
    const std::string trust = "qos=1 broker=localhost ca=" + room.path;
    const std::string tls = trust + "/localhost user=" + room.path + "/user ";
    Flow sender(out(broker, tls + "retain=yes password=" + room.path + "/right"));
    for (const char* value : {"first", "last"}) sender.send(value);
    EXPECT_TRUE(sender.runUntil([&] { return sender.acknowledged == "2"; })) << sender.complaints;

    Flow receiver(in(broker, tls + "password=" + room.path + "/right"));
    EXPECT_TRUE(receiver.runUntil([&] { return !receiver.order.empty(); })) << receiver.complaints;
    EXPECT_EQ(receiver.order, "last ");

    Flow stranger(in(broker, tls + "password=" + room.path + "/wrong"));
    EXPECT_TRUE(stranger.runUntil([&] { return !stranger.complaints.empty(); }));
    EXPECT_NE(stranger.complaints.find("not authorised"), std::string::npos) << stranger.complaints;
    EXPECT_EQ(stranger.order, "");

    // It has a certificate that is trusted, but names another.
    Broker impostor("allow_anonymous true\n" + named("elsewhere"));
    impostor.start();
    Flow misled(in(impostor, trust + "/elsewhere"));
    EXPECT_TRUE(misled.runUntil([&] { return !misled.complaints.empty(); }));
    EXPECT_EQ(misled.connected, "");
}

TEST_F(Mqtt, RefusesNonsense) {
    for (const char* text :
         {"a = MqttIn topic=\"a/#/b\"", "a = MqttOut topic=a/+", "a = MqttIn topic=a qos=2",
          "a = MqttIn topic=a broker=\"a b\"", "a = MqttIn topic=a password=x",
          R"(a = MqttIn topic=a client="a\x00b")", "a = MqttIn topic=a user=/nowhere/at/all",
          "a = MqttIn topic=a ca=/nowhere/at/all"}) {
        fxFlow flow;
        EXPECT_NE(flow.apply(fxFlowText::parse(text, "mqtt.flow")).size(), 0U) << text;
    }
}
