// Elements that exchange values with the topics of an MQTT broker.
#include <deque>
#include <functional>
#include <set>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "flow/mqtt/Client.h"

namespace {

std::string whyNoFilter(const std::string& topic) {
    if (topic.empty() || topic.find('\0') != std::string::npos ||
        mosquitto_sub_topic_check2(topic.data(), topic.size()) != MOSQ_ERR_SUCCESS)
        return "is no topic, nor a filter of topics";
    return "";
}

std::string whyNoTopic(const std::string& topic) {
    if (topic.empty() || topic.find('\0') != std::string::npos ||
        mosquitto_pub_topic_check2(topic.data(), topic.size()) != MOSQ_ERR_SUCCESS)
        return "is no topic";
    return "";
}

class MqttIn final : public MqttClient {
public:
    const char* className() const override { return "MqttIn"; }

    std::string start() override {
        setBusy(true);
        return MqttClient::start();
    }

    fxOutputView<fxStr> from;
    fxOutputView<fxStr> value;

protected:
    // A session that the broker has kept is subscribed; subscribing again would bring
    // retained values a second time. A session that it has not kept numbers its messages
    // anew, so the library must forget its unfinished ones.
    bool comeOnline(bool isKnown) override {
        if (!isKnown) {
            isSubscribed = false;
            delivered.clear();
            if (std::exchange(mayHoldHalves, false)) return false;
        }
        if (isSubscribed) return true;
        mayHoldHalves = qos == 2;
        const int result = mosquitto_subscribe(getClient(), nullptr, topic.c_str(), qos);
        if (result != MOSQ_ERR_SUCCESS)
            complain(std::string("cannot subscribe: ") + mosquitto_strerror(result));
        return true;
    }
    void noteSubscribed() override { isSubscribed = true; }
    void noteMessage(const mosquitto_message& message) override {
        const std::string_view payload(static_cast<const char*>(message.payload),
                                       static_cast<size_t>(message.payloadlen));
        if (message.qos == 2 && isRepeated(message.mid, message.topic, payload)) return;
        come.emplace_back(message.topic, fxStr(payload));
    }
    void takeEvents() override {
        while (!come.empty()) {
            const auto [name, payload] = std::move(come.front());
            come.pop_front();
            from.send(name, fxSendNow);
            value.send(payload, fxSendNow);
        }
    }

private:
    struct Delivery {
        size_t hash;
        unsigned long serial;
    };

    // A message that is sent again because the connection was lost half way is in the
    // library twice, and is handed out twice if the end of its delivery is sent again, too.
    // The broker reuses a number after 65,535 messages.
    bool isRepeated(int id, const char* name, std::string_view payload) {
        constexpr unsigned long longAgo = 30000;
        const std::hash<std::string_view> hashOf;
        const Delivery now = {hashOf(name) * 31 + hashOf(payload), ++serial};
        const auto [place, isNew] = delivered.emplace(id, now);
        const bool isSame =
            !isNew && place->second.hash == now.hash && now.serial - place->second.serial < longAgo;
        place->second = now;
        return isSame;
    }

    std::deque<std::pair<fxStr, fxStr>> come;     // topic and payload
    std::unordered_map<int, Delivery> delivered;  // in this session, by the broker's number
    unsigned long serial = 0;
    bool isSubscribed = false;   // and the broker has confirmed it, in this session
    bool mayHoldHalves = false;  // whether the library has been sent messages of QoS 2
};

// A value waits until there is a connection, and room among those that the broker has not
// acknowledged yet. Then the library has it, and sends it again if the connection was lost
// in between.
class MqttOut final : public MqttClient {
public:
    const char* className() const override { return "MqttOut"; }

    std::string start() override {
        isStarted = true;
        return MqttClient::start();
    }

    void take(const fxStr& text) {
        if (!isStarted) return;
        if (text.length() > mostBytes) {
            complain("drops a value that is longer than MQTT allows");
            dropped.send(++droppedCount, fxSendNow);
            return;
        }
        const fxRef<fxObj> hold(this);
        const bool isFull = waiting.size() >= static_cast<size_t>(limit);
        if (isFull && drop == "oldest") waiting.pop_front();
        if (!isFull || drop == "oldest") waiting.push_back(text);
        setBusy(true);
        if (isFull) dropped.send(++droppedCount, fxSendNow);
        publish();
        follow();
    }

    bool retain = false;
    long limit = 1000;
    std::string drop;
    fxOutputView<long> acknowledged;
    fxOutputView<long> dropped;

protected:
    bool comeOnline(bool) override {
        publish();
        return true;
    }
    void noteAcknowledged(int id) override { done += inFlight.erase(id); }
    void takeEvents() override {
        while (const size_t count = std::exchange(done, 0)) {
            acknowledgedCount += static_cast<long>(count);
            publish();
            setBusy(!inFlight.empty() || !waiting.empty());
            acknowledged.send(acknowledgedCount, fxSendNow);
        }
    }

private:
    static constexpr unsigned int mostBytes = 268435455;
    static constexpr size_t mostInFlight = 20;

    void publish() {
        while (isConnected() && !waiting.empty() && inFlight.size() < mostInFlight) {
            // Taken out first: at QoS 0 the library may report the end before it returns.
            const fxStr text = std::move(waiting.front());
            waiting.pop_front();
            int id = 0;
            const int result =
                mosquitto_publish(getClient(), &id, topic.c_str(), static_cast<int>(text.length()),
                                  text.c_str(), qos, retain);
            // From QoS 1 on the library keeps messages that it could not send.
            const bool isTaken = result == MOSQ_ERR_SUCCESS ||
                                 (qos > 0 && result != MOSQ_ERR_NOMEM && result != MOSQ_ERR_INVAL);
            if (!isTaken) {
                waiting.push_front(text);
                return;
            }
            if (qos == 0) {
                ++done;
            } else {
                inFlight.insert(id);
            }
        }
    }

    bool isStarted = false;
    std::deque<fxStr> waiting;
    std::set<int> inFlight;  // those of QoS 1 and 2 that are not acknowledged
    size_t done = 0;         // acknowledged, but not reported yet
    long acknowledgedCount = 0;
    long droppedCount = 0;
};

}  // namespace

FX_ELEMENT(MqttIn, "receives the values of topics from an MQTT broker") {
    fxMqtt::describe(element);
    for (fxElementProperty& each : element.properties) {
        if (each.name == "topic") each.testedBy(whyNoFilter);
    }
    element.output("topic", &MqttIn::from, "the topic of a value, before the value");
    element.output("value", &MqttIn::value, "each value, retained ones first");
}

FX_ELEMENT(MqttOut, "sends values to a topic of an MQTT broker") {
    fxMqtt::describe(element);
    for (fxElementProperty& each : element.properties) {
        if (each.name == "topic") each.testedBy(whyNoTopic);
    }
    element.property("retain", &MqttOut::retain, false,
                     "whether the broker keeps the last value for who comes later");
    element.property("limit", &MqttOut::limit, 1000, "how many values wait for a connection")
        .range(1, 1e7);
    element.property("drop", &MqttOut::drop, "oldest", "what goes when more would wait")
        .oneOf({"oldest", "newest"});
    element.input("value", &MqttOut::take, "a value, which is sent as text");
    element.output("acknowledged", &MqttOut::acknowledged,
                   "how many values the broker has acknowledged; at QoS 0, how many were sent");
    element.output("dropped", &MqttOut::dropped, "how many values were dropped");
}
