// SPDX-License-Identifier: MIT
#include "BrokerLink.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <string_view>

namespace {

/// A broker that takes longer to accept a connection is as good as dead.
constexpr std::chrono::seconds ACCEPT_LIMIT(30);

/// libmosquitto asks to write while it really waits for the other end of a handshake, and TLS may
/// find nothing in what has come: between two looks, the processor rests.
constexpr std::chrono::milliseconds PAUSE(20);

/// The program was not written before: an earlier time means a clock that was never set.
constexpr std::time_t EARLIEST = 1'700'000'000;

/// What the broker says of a client that it has lost.
constexpr std::string_view WILL("offline");

constexpr const char* SYSTEM_AUTHORITIES = "/etc/ssl/certs";

/// What a broker answers to a client that it does not want; MQTT 3.1.1 in front, then 5.
constexpr std::array<int, 10> REFUSALS{CONNACK_REFUSED_PROTOCOL_VERSION,
                                       CONNACK_REFUSED_IDENTIFIER_REJECTED,
                                       CONNACK_REFUSED_BAD_USERNAME_PASSWORD,
                                       CONNACK_REFUSED_NOT_AUTHORIZED,
                                       MQTT_RC_UNSUPPORTED_PROTOCOL_VERSION,
                                       MQTT_RC_CLIENTID_NOT_VALID,
                                       MQTT_RC_BAD_USERNAME_OR_PASSWORD,
                                       MQTT_RC_NOT_AUTHORIZED,
                                       MQTT_RC_BANNED,
                                       MQTT_RC_BAD_AUTHENTICATION_METHOD};

}  // namespace

void BrokerLink::Release::operator()(mosquitto* handle) const {
    mosquitto_destroy(handle);
}

BrokerLink::BrokerLink(const BrokerSettings& broker, const Credentials& credentials,
                       const Topics& topics, LinkListener& hears)
    : settings(broker),
      listener(hears),
      client(mosquitto_new(broker.clientId.c_str(), true, this)),
      deadline(Clock::now() + ACCEPT_LIMIT) {
    if (!client) {
        throw LinkFailure("there is no memory for the connection", false);
    }
    configure(credentials, topics);
    check(mosquitto_connect_async(client.get(), settings.host.c_str(), settings.port,
                                  settings.keepAlive));
}

BrokerLink::~BrokerLink() = default;

void BrokerLink::configure(const Credentials& credentials, const Topics& topics) {
    mosquitto* const c = client.get();
    mosquitto_connect_v5_callback_set(c, onConnect);
    mosquitto_disconnect_v5_callback_set(c, onDisconnect);
    mosquitto_message_v5_callback_set(c, onMessage);
    mosquitto_publish_v5_callback_set(c, onPublish);
    mosquitto_log_callback_set(c, onLog);
    check(mosquitto_int_option(c, MOSQ_OPT_PROTOCOL_VERSION,
                               settings.version5 ? MQTT_PROTOCOL_V5 : MQTT_PROTOCOL_V311));
    check(mosquitto_will_set(c, topics.status.c_str(), static_cast<int>(WILL.size()), WILL.data(),
                             1, true));
    if (!settings.user.empty()) {
        check(mosquitto_username_pw_set(
            c, settings.user.c_str(),
            credentials.password.empty() ? nullptr : credentials.password.c_str()));
    }
    if (settings.tls) {
        configureTls(credentials);
    }
}

void BrokerLink::configureTls(const Credentials& credentials) {
    const auto orNone = [](const std::string& path) {
        return path.empty() ? nullptr : path.c_str();
    };
    check(mosquitto_tls_set(client.get(), orNone(settings.authorities),
                            settings.authorities.empty() ? SYSTEM_AUTHORITIES : nullptr,
                            orNone(settings.certificate), orNone(credentials.keyFile), nullptr));
    // This version or a newer one. The certificate and the name of the host are always verified.
    constexpr int VERIFY = 1;
    check(mosquitto_tls_opts_set(client.get(), VERIFY, "tlsv1.2", nullptr));
}

int BrokerLink::socket() const {
    return mosquitto_socket(client.get());
}

short BrokerLink::events(Clock::time_point now) const {
    if (!connected) {
        return POLLOUT;
    }
    if (now < pausedUntil) {
        return 0;
    }
    // In a handshake, what is to be written waits for what is to be read.
    const bool writes = mosquitto_want_write(client.get()) && (accepted || !settings.tls);
    return static_cast<short>(POLLIN | (writes ? POLLOUT : 0));
}

void BrokerLink::serve(short happened, Clock::time_point now) {
    if (!connected) {
        if ((happened & (POLLOUT | POLLERR | POLLHUP)) != 0) {
            checkConnected();
        }
    } else if ((happened & (POLLIN | POLLERR | POLLHUP)) != 0) {
        check(mosquitto_loop_read(client.get(), 1));
        if (!accepted) {
            pausedUntil = now + PAUSE;
        }
    }
    if (connected) {
        if (mosquitto_want_write(client.get()) || !accepted) {
            check(mosquitto_loop_write(client.get(), 1));
        }
        if ((happened & POLLOUT) != 0 && mosquitto_want_write(client.get())) {
            pausedUntil = now + PAUSE;
        }
        checkClosed();
        check(mosquitto_loop_misc(client.get()));
    }
    if (!refusal.empty()) {
        throw LinkFailure(refusal, loginRefused);
    }
    if (!accepted && now >= deadline) {
        fail("the broker does not answer");
    }
}

/// The connection of TCP has been made, or has failed.
void BrokerLink::checkConnected() {
    int error = 0;
    socklen_t size = sizeof(error);
    ::getsockopt(socket(), SOL_SOCKET, SO_ERROR, &error, &size);
    if (error != 0) {
        fail(std::strerror(error));
    }
    connected = true;
}

/// libmosquitto does not notice a broker that goes in the middle of a handshake.
void BrokerLink::checkClosed() const {
    char next = 0;
    if (socket() >= 0 && ::recv(socket(), &next, 1, MSG_PEEK | MSG_DONTWAIT) == 0) {
        fail(accepted ? "the broker has closed the connection"
                      : "the broker has closed the connection during the handshake");
    }
}

void BrokerLink::check(int result) const {
    if (!refusal.empty()) {
        throw LinkFailure(refusal, loginRefused);
    }
    if (result == MOSQ_ERR_SUCCESS || result == MOSQ_ERR_CONN_PENDING) {
        return;
    }
    fail(result == MOSQ_ERR_ERRNO ? std::strerror(errno) : mosquitto_strerror(result));
}

void BrokerLink::fail(const std::string& reason) const {
    std::string text = lastError.empty() ? reason : lastError;
    if (settings.tls && !accepted && std::time(nullptr) < EARLIEST) {
        text += "; the clock of this device was never set, so no certificate is valid yet";
    }
    throw LinkFailure(text, false);
}

int BrokerLink::publish(const std::string& topic, const std::string& payload, bool acknowledged,
                        bool retained) {
    int id = 0;
    check(mosquitto_publish(client.get(), &id, topic.c_str(), static_cast<int>(payload.size()),
                            payload.data(), acknowledged ? 1 : 0, retained));
    return id;
}

void BrokerLink::subscribe(const std::string& topic) {
    check(mosquitto_subscribe(client.get(), nullptr, topic.c_str(), 1));
}

void BrokerLink::unsubscribe(const std::string& topic) {
    check(mosquitto_unsubscribe(client.get(), nullptr, topic.c_str()));
}

void BrokerLink::disconnect() {
    mosquitto_disconnect(client.get());
}

void BrokerLink::onConnect(mosquitto* /*client*/, void* link, int code, int /*flags*/,
                           const mqtt5__property* /*properties*/) {
    auto* const self = static_cast<BrokerLink*>(link);
    if (code == 0) {
        self->accepted = true;
        self->lastError.clear();
        self->listener.onAccepted();
        return;
    }
    self->refusal =
        std::string("the broker refuses the login: ") +
        (self->settings.version5 ? mosquitto_reason_string(code) : mosquitto_connack_string(code));
    self->loginRefused = std::find(REFUSALS.begin(), REFUSALS.end(), code) != REFUSALS.end();
}

void BrokerLink::onDisconnect(mosquitto* /*client*/, void* link, int code,
                              const mqtt5__property* /*properties*/) {
    auto* const self = static_cast<BrokerLink*>(link);
    // With MQTT 5, a broker gives a reason.
    if (self->settings.version5 && self->accepted && code >= MQTT_RC_UNSPECIFIED) {
        self->refusal =
            std::string("the broker ends the connection: ") + mosquitto_reason_string(code);
    }
}

void BrokerLink::onMessage(mosquitto* /*client*/, void* link, const mosquitto_message* message,
                           const mqtt5__property* /*properties*/) {
    const std::string_view payload(static_cast<const char*>(message->payload),
                                   static_cast<std::size_t>(message->payloadlen));
    static_cast<BrokerLink*>(link)->listener.onMessage(message->topic, payload, message->retain);
}

void BrokerLink::onPublish(mosquitto* /*client*/, void* link, int id, int /*code*/,
                           const mqtt5__property* /*properties*/) {
    static_cast<BrokerLink*>(link)->listener.onAcknowledged(id);
}

void BrokerLink::onLog(mosquitto* /*client*/, void* link, int level, const char* text) {
    if (level == MOSQ_LOG_ERR) {
        static_cast<BrokerLink*>(link)->noteError(text);
    }
}

/// The first of several texts names the cause. OpenSSL knows better what is wrong with a
/// certificate, as long as the connection is there.
void BrokerLink::noteError(const char* text) {
    if (lastError.empty()) {
        lastError = text;
    }
    auto* const ssl = static_cast<SSL*>(mosquitto_ssl_get(client.get()));
    const long result = ssl != nullptr ? SSL_get_verify_result(ssl) : X509_V_OK;
    if (result != X509_V_OK && result != X509_V_ERR_UNSPECIFIED) {
        lastError = std::string("the certificate of the broker is refused: ") +
                    X509_verify_cert_error_string(result);
    }
}
