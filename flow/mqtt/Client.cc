#include "flow/mqtt/Client.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <openssl/ssl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <utility>

// Callbacks of the library only record events: inside of them it must not be called, and
// receivers might destroy this element. follow() handles the records when the library has
// returned.
//
// A socket of the library is served under a duplicate of its descriptor, which the handler
// may close. The handler is removed when the connection is lost.

class MqttClient::Socket final : public fxSelectHandler {
public:
    Socket(MqttClient& owner_, int fd_) : fxSelectHandler(fd_, true, true), owner(owner_) {
        serve();
    }
    const char* className() const override { return "MqttSocket"; }

    void handleRead() override {
        const fxRef<fxObj> hold(&owner);
        read();
        owner.follow();
    }
    void handleWrite() override {
        const fxRef<fxObj> hold(&owner);
        const int result = mosquitto_loop_write(owner.client, 1);
        if (result == MOSQ_ERR_SUCCESS && mayHoldMore) read();
        owner.follow();
    }
    void look() {
        const bool toWrite = mayHoldMore || mosquitto_want_write(owner.client);
        if ((wantWrite != 0) != toWrite) setWishes(true, toWrite);
    }

private:
    // Under TLS, packets may have been read that the descriptor does not show any more, so
    // it reads to the end. The rest is read when the socket takes data, which is nearly
    // always.
    void read() {
        int packetsLeft = 100;
        int result = MOSQ_ERR_SUCCESS;
        do {
            errno = 0;
            result = mosquitto_loop_read(owner.client, 1);
        } while (result == MOSQ_ERR_SUCCESS && errno != EAGAIN && --packetsLeft > 0);
        mayHoldMore = packetsLeft == 0;
    }

    MqttClient& owner;
    bool mayHoldMore = false;
};

namespace {

bool isAddress(const std::string& name) {
    unsigned char bytes[sizeof(in6_addr)];
    return inet_pton(AF_INET, name.c_str(), bytes) == 1 ||
           inet_pton(AF_INET6, name.c_str(), bytes) == 1;
}

// The first line of a small file. False when it cannot be read.
bool firstLine(const std::string& path, std::string& line) {
    std::ifstream file(path);
    return static_cast<bool>(std::getline(file, line)) && line.size() < 65536;
}

// Brokers with several names choose the certificate by this one. It replaces the address,
// which the library has just set.
void nameBroker(const SSL* connection, int event, int) {
    if ((event & SSL_CB_HANDSHAKE_START) == 0) return;
    void* const name = SSL_CTX_get_app_data(SSL_get_SSL_CTX(connection));
    SSL_ctrl(const_cast<SSL*>(connection), SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name,
             name);
}

// Verifies the certificate as OpenSSL does by default, and no more: the library's own
// function compares it with the address, and refuses everything if the context is not its
// own.
int verifyAsUsual(X509_STORE_CTX* chain, void*) {
    X509_STORE_CTX_set_verify_cb(chain, [](int isGood, X509_STORE_CTX*) { return isGood; });
    return X509_verify_cert(chain);
}

// The library connects to an address, because it would block while it resolves a name. So
// OpenSSL compares the certificate with the name, as a part of verifying it. `name` must
// live as long as the client.
int verifyName(mosquitto* client, std::string& name) {
    SSL_CTX* const context = SSL_CTX_new(TLS_client_method());
    if (context == nullptr) return MOSQ_ERR_NOMEM;
    int result = MOSQ_ERR_NOMEM;
    if (X509_VERIFY_PARAM_set1_host(SSL_CTX_get0_param(context), name.c_str(), name.size()) == 1) {
        SSL_CTX_set_app_data(context, name.data());
        SSL_CTX_set_info_callback(context, nameBroker);
        SSL_CTX_set_cert_verify_callback(context, verifyAsUsual, nullptr);
        result = mosquitto_void_option(client, MOSQ_OPT_SSL_CTX, context);
    }
    SSL_CTX_free(context);  // the client shares it
    return result == MOSQ_ERR_SUCCESS
               ? mosquitto_int_option(client, MOSQ_OPT_SSL_CTX_WITH_DEFAULTS, 1)
               : result;
}

}  // namespace

MqttClient::MqttClient() = default;

MqttClient::~MqttClient() {
    socket.reset();
    if (client == nullptr) return;
    mosquitto_disconnect(client);
    mosquitto_destroy(client);
}

std::string MqttClient::whyNoBroker(const std::string& name) {
    if (isAddress(name)) return "";
    const bool isName = !name.empty() && name.size() < 254 && name[0] != '-' &&
                        std::all_of(name.begin(), name.end(), [](char c) {
                            return isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '-';
                        });
    return isName ? "" : "is neither an address nor a name";
}

std::string MqttClient::settle() {
    if (qos == 2 && clientId.isEmpty()) return "with qos=2 wants a client, to be known by again";
    if (certificate.isEmpty() != key.isEmpty()) return "wants certificate and key, or neither";
    if (!certificate.isEmpty() && ca.isEmpty()) return "wants a ca with a certificate";
    if (!passwordFile.empty() && userFile.empty()) return "wants a user with a password";
    return "";
}

std::string MqttClient::start() {
    if (std::string why = makeClient(); !why.empty()) return why;
    upkeep = time().every(std::chrono::seconds(1), this, [this] {
        const fxRef<fxObj> hold(this);
        if (socket != nullptr) mosquitto_loop_misc(client);
        follow();
    });
    resolve();
    return "";
}

std::string MqttClient::makeClient() {
    static const int initialised = mosquitto_lib_init();
    client = initialised == MOSQ_ERR_SUCCESS
                 ? mosquitto_new(clientId.isEmpty() ? nullptr : clientId.c_str(),
                                 clientId.isEmpty(), this)
                 : nullptr;
    if (client == nullptr) return std::string("no client can be made: ") + std::strerror(errno);
    // The library then queues its answers, and writes only on request. Otherwise it writes
    // at once, and silently drops a message that it cannot acknowledge.
    mosquitto_threaded_set(client, true);
    mosquitto_connect_with_flags_callback_set(client, onConnect);
    mosquitto_disconnect_callback_set(client, onDisconnect);
    mosquitto_message_callback_set(client, onMessage);
    mosquitto_publish_callback_set(client, onPublish);
    mosquitto_subscribe_callback_set(client, onSubscribe);
    return setCredentials();
}

void MqttClient::renew() {
    isOnline = false;
    socket.reset();
    mosquitto_destroy(std::exchange(client, nullptr));
    if (const std::string why = makeClient(); !why.empty()) {
        complain(why);
        setBusy(false);
        upkeep->stop();
    } else {
        resolve();
    }
}

std::string MqttClient::setCredentials() {
    std::string user;
    std::string password;
    if (!userFile.empty() && !firstLine(userFile, user)) return userFile + ": cannot be read";
    if (!passwordFile.empty() && !firstLine(passwordFile, password))
        return passwordFile + ": cannot be read";
    int result = MOSQ_ERR_SUCCESS;
    if (!userFile.empty()) {
        result = mosquitto_username_pw_set(client, user.c_str(),
                                           passwordFile.empty() ? nullptr : password.c_str());
    }
    if (result == MOSQ_ERR_SUCCESS && !ca.isEmpty()) {
        const auto orNull = [](const fxStr& path) {
            return path.isEmpty() ? nullptr : path.c_str();
        };
        result = mosquitto_tls_set(client, ca.c_str(), nullptr, orNull(certificate), orNull(key),
                                   nullptr);
        verifiedName = broker.toStdString();
        if (result == MOSQ_ERR_SUCCESS && !isAddress(verifiedName))
            result = verifyName(client, verifiedName);
    }
    return result == MOSQ_ERR_SUCCESS ? "" : mosquitto_strerror(result);
}

// getent uses the sources of the system: files, caches, name servers.
void MqttClient::resolve() {
    if (isAddress(broker.toStdString())) {
        connectTo(broker.toStdString());
        return;
    }
    fxCommand command({"getent", "ahosts", broker.c_str()});
    command.input = fxCommand::none;
    command.output = fxCommand::piped;
    resolved.clear();
    resolver = std::make_unique<fxProcess>(command);
    if (resolver->getError() != 0) {
        retryLater("getent, which resolves names, cannot be run");
        return;
    }
    fxConnect(resolver->output()->line(), this, [this](const fxStr& line) {
        if (resolved.empty()) resolved = line.view().substr(0, line.view().find(' '));
    });
    fxConnect(resolver->exited(), this, [this](int) {
        if (isAddress(resolved)) {
            connectTo(resolved);
        } else {
            retryLater("the name " + broker.toStdString() + " cannot be resolved");
        }
    });
}

void MqttClient::connectTo(const std::string& address) {
    const fxRef<fxObj> hold(this);
    const int result =
        mosquitto_connect_async(client, address.c_str(), port, static_cast<int>(keepAlive));
    const int fd = mosquitto_socket(client);
    const int ours = fd >= 0 ? fcntl(fd, F_DUPFD_CLOEXEC, 3) : -1;
    if (result != MOSQ_ERR_SUCCESS || ours < 0) {
        retryLater(result == MOSQ_ERR_ERRNO || result == MOSQ_ERR_SUCCESS
                       ? std::strerror(errno)
                       : mosquitto_strerror(result));
        return;
    }
    socket = std::make_unique<Socket>(*this, ours);
    follow();
}

void MqttClient::retryLater(const std::string& why) {
    constexpr double shortestPause = 0.1;
    tellTrouble(why);
    pause = pause == 0 ? shortestPause : std::min(2 * pause, longestPause);
    retrying = time().after(fxFlowTime::seconds(pause), this, [this] { resolve(); });
}

// Reports each reason once per connection.
void MqttClient::tellTrouble(const std::string& why) {
    if (why != lastTrouble) complain("not connected to " + broker.toStdString() + ": " + why);
    lastTrouble = why;
}

void MqttClient::follow() {
    if (hasConnected) {
        hasConnected = false;
        isOnline = true;
        pause = 0;
        lastTrouble.clear();
        if (!comeOnline(hasSession)) {
            renew();
            return;
        }
        connected.send(true, fxSendNow);
    }
    takeEvents();
    if (isLost) {
        isLost = false;
        socket.reset();
        if (isOnline) {
            isOnline = false;
            connected.send(false, fxSendNow);
        }
        retryLater(whyLost);
    }
    if (socket != nullptr) socket->look();
}

void MqttClient::onConnect(mosquitto*, void* self, int result, int flags) {
    MqttClient& client = *static_cast<MqttClient*>(self);
    client.hasConnected = result == 0;
    client.hasSession = (flags & 1) != 0;
    if (result != 0) client.tellTrouble(mosquitto_connack_string(result));
}

void MqttClient::onDisconnect(mosquitto*, void* self, int result) {
    MqttClient& client = *static_cast<MqttClient*>(self);
    client.isLost = true;
    client.whyLost = result == MOSQ_ERR_ERRNO ? std::strerror(errno) : mosquitto_strerror(result);
}

void MqttClient::onMessage(mosquitto*, void* self, const mosquitto_message* message) {
    static_cast<MqttClient*>(self)->noteMessage(*message);
}

void MqttClient::onPublish(mosquitto*, void* self, int id) {
    static_cast<MqttClient*>(self)->noteAcknowledged(id);
}

void MqttClient::onSubscribe(mosquitto*, void* self, int, int, const int*) {
    static_cast<MqttClient*>(self)->noteSubscribed();
}
