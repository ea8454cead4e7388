// A connection to an MQTT broker, inside the loop.
#ifndef FLOW_MQTT_CLIENT_H
#define FLOW_MQTT_CLIENT_H

#include <mosquitto.h>

#include <memory>
#include <string>

#include "flow/Element.h"
#include "flow/elements/Settings.h"
#include "fxds/Process.h"
#include "fxds/SelectHandler.h"

/// The common base of MqttIn and MqttOut: the properties, and a client of the broker that
/// connects and, whenever the connection is lost, connects again, each time after a longer
/// pause. Nothing blocks: the loop serves the socket, and a child resolves names.
class MqttClient : public fxElement {
public:
    MqttClient();
    ~MqttClient() override;

    std::string settle() override;
    std::string start() override;

    /// The fault of the name of a broker; "" for none.
    static std::string whyNoBroker(const std::string& name);

    ///@{
    /// Properties for flows; see describe().
    fxStr broker;
    int port = 1883;
    fxStr topic;
    int qos = 0;
    fxStr clientId;
    std::string userFile;
    std::string passwordFile;
    fxStr ca;
    fxStr certificate;
    fxStr key;
    double keepAlive = 60;
    double longestPause = 60;
    ///@}
    fxOutputView<bool> connected;  ///< Whether there is a connection, when that changes.

protected:
    bool isConnected() const { return isOnline; }    ///< Whether messages can be sent.
    mosquitto* getClient() const { return client; }  ///< Null before the first connection.

    ///@{
    /// Called when the library may be called again. comeOnline() gets whether the broker
    /// has kept the session; it returns false if a new client must be made and connected.
    virtual bool comeOnline(bool isKnown) = 0;
    virtual void takeEvents() = 0;
    ///@}
    ///@{
    /// Called inside the library, which must not be called then. The element records the
    /// event.
    virtual void noteMessage(const mosquitto_message&) {}
    virtual void noteAcknowledged(int) {}
    virtual void noteSubscribed() {}
    ///@}
    /// Handles what the library has done and still has to do. Call it after each call of
    /// the library.
    void follow();

private:
    class Socket;

    std::string makeClient();
    void renew();
    std::string setCredentials();
    void resolve();
    void connectTo(const std::string& address);
    void retryLater(const std::string& why);
    void tellTrouble(const std::string& why);

    static void onConnect(mosquitto*, void* self, int result, int flags);
    static void onDisconnect(mosquitto*, void* self, int result);
    static void onMessage(mosquitto*, void* self, const mosquitto_message* message);
    static void onPublish(mosquitto*, void* self, int id);
    static void onSubscribe(mosquitto*, void* self, int id, int count, const int* granted);

    mosquitto* client = nullptr;
    std::unique_ptr<Socket> socket;
    std::unique_ptr<fxProcess> resolver;
    std::string resolved;
    std::string verifiedName;  // required of the broker's certificate
    fxRef<fxFlowAlarm> retrying;
    fxRef<fxFlowAlarm> upkeep;
    double pause = 0;  // before the next attempt; 0: connected since
    std::string lastTrouble;
    bool isOnline = false;
    // Recorded by callbacks.
    bool hasConnected = false;
    bool hasSession = false;
    bool isLost = false;
    std::string whyLost;
};

namespace fxMqtt {

/// Describes the part of MqttClient in a class that derives from it.
template <class C>
void describe(fxElementOf<C>& element) {
    element.reachesOutside();
    element.property("broker", &C::broker, "127.0.0.1", "address or name of the broker")
        .testedBy(MqttClient::whyNoBroker);
    element.property("port", &C::port, 1883, "of the broker").range(1, 65535);
    element.property("topic", &C::topic, "of the values");
    element
        .property("qos", &C::qos, 0,
                  "0: at most once, 1: at least once, 2: exactly once, which wants a client")
        .range(0, 2);
    element.property("client", &C::clientId, "",
                     "by which the broker knows it again and keeps its session; each connection "
                     "has one of its own");
    element.property("user", &C::userFile, "", "path of a file with the name of the user");
    element.property("password", &C::passwordFile, "", "path of a file with the password");
    element.property("ca", &C::ca, "",
                     "path of the certificates to trust; turns TLS on, and the "
                     "broker's certificate must name what `broker` says");
    element.property("certificate", &C::certificate, "", "path of its own certificate, for TLS");
    element.property("key", &C::key, "", "path of the key of that");
    element.property("alive", &C::keepAlive, 60.0, "how soon a silent connection is tested")
        .unit("s")
        .range(5, 3600);
    element
        .property("pause", &C::longestPause, 60.0,
                  "the longest between attempts to connect, which begin with 0.1 s")
        .unit("s")
        .range(0.1, 86400);
    for (fxElementProperty& each : element.properties) {
        if (each.type == "text" && each.test == nullptr) each.testedBy(fxFlowDetail::whyZeroByte);
    }
    element.output("connected", &C::connected, "whether it is connected, when that changes");
}

}  // namespace fxMqtt

#endif
