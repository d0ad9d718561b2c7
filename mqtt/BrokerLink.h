// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "Credentials.h"
#include "Settings.h"
#include "Topics.h"

struct mosquitto;
struct mosquitto_message;
// NOLINTNEXTLINE(bugprone-reserved-identifier): the name that libmosquitto gives it
struct mqtt5__property;

/// The connection to the broker cannot be made, or is lost.
class LinkFailure : public std::runtime_error {
 public:
    LinkFailure(const std::string& reason, bool loginWasRefused)
        : std::runtime_error(reason), loginRefused(loginWasRefused) {}

    /// Whether the broker does not want this client: trying soon would not help.
    bool isRefusal() const { return loginRefused; }

 private:
    bool loginRefused;
};

/// What comes from the broker. Called within BrokerLink::serve().
class LinkListener {
 public:
    virtual ~LinkListener() = default;
    /// The broker has accepted the connection.
    virtual void onAccepted() = 0;
    virtual void onMessage(const std::string& topic, std::string_view payload, bool retained) = 0;
    /// A message has been acknowledged.
    virtual void onAcknowledged(int id) = 0;
};

/// One connection to the broker, from the first byte to the last. Never waits for the network,
/// except for the name of the host. For one thread.
///
/// Each connection has a client of libmosquitto of its own: nothing is left of a connection that
/// was lost, and whoever uses the link knows what was not acknowledged.
class BrokerLink {
 public:
    using Clock = std::chrono::steady_clock;

    /// Begins to connect. If the connection is lost later, the broker says "offline" for the
    /// client.
    ///
    /// @param hears what comes from the broker; outlives the link
    /// @throws LinkFailure the host has no address, or a certificate cannot be used
    BrokerLink(const BrokerSettings& broker, const Credentials& credentials, const Topics& topics,
               LinkListener& hears);
    ~BrokerLink();
    BrokerLink(const BrokerLink&) = delete;
    BrokerLink& operator=(const BrokerLink&) = delete;

    /// The socket to poll, or a negative number while there is nothing to poll.
    int socket() const;
    /// Which events to poll the socket for; 0 while the link pauses, so as not to use up the
    /// processor while a broker is slow.
    short events(Clock::time_point now) const;

    /// Does what the socket's events allow, and what is due.
    ///
    /// @param happened the events that poll() gave; 0 if only the time has passed
    /// @throws LinkFailure the connection is lost
    void serve(short happened, Clock::time_point now);

    bool isAccepted() const { return accepted; }

    /// Sends a message.
    ///
    /// @param acknowledged whether the broker has to acknowledge it
    /// @return its id
    /// @throws LinkFailure the connection is lost
    int publish(const std::string& topic, const std::string& payload, bool acknowledged,
                bool retained);

    /// Asks for all messages of a topic.
    ///
    /// @throws LinkFailure the connection is lost
    void subscribe(const std::string& topic);

    /// No more messages of a topic.
    ///
    /// @throws LinkFailure the connection is lost
    void unsubscribe(const std::string& topic);

    /// Tells the broker that the client goes in peace.
    void disconnect();

 private:
    struct Release {
        void operator()(mosquitto* handle) const;
    };

    static void onConnect(mosquitto* client, void* link, int code, int flags,
                          const mqtt5__property* properties);
    static void onDisconnect(mosquitto* client, void* link, int code,
                             const mqtt5__property* properties);
    static void onMessage(mosquitto* client, void* link, const mosquitto_message* message,
                          const mqtt5__property* properties);
    static void onPublish(mosquitto* client, void* link, int id, int code,
                          const mqtt5__property* properties);
    static void onLog(mosquitto* client, void* link, int level, const char* text);

    void configure(const Credentials& credentials, const Topics& topics);
    void configureTls(const Credentials& credentials);
    void checkConnected();
    void checkClosed() const;
    void check(int result) const;
    void noteError(const char* text);
    [[noreturn]] void fail(const std::string& reason) const;

    const BrokerSettings& settings;
    LinkListener& listener;
    std::unique_ptr<mosquitto, Release> client;
    Clock::time_point deadline;
    Clock::time_point pausedUntil{};
    bool connected{false};
    bool accepted{false};
    std::string refusal;
    bool loginRefused{false};
    std::string lastError;
};
