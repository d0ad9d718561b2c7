// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

struct mosquitto;
class Link;

/// Hears of the connections of the fleet.
class FleetListener {
 public:
    virtual ~FleetListener() = default;
    /// The broker has accepted the connection.
    virtual void accepted(Link& link) = 0;
    /// The broker has taken a message.
    virtual void acknowledged(Link& link, int message) = 0;
    /// The broker has sent a message.
    virtual void heard(std::string_view payload) = 0;
};

/// A connection to the broker. It does nothing by itself: whoever owns it waits for its socket.
class Link {
 public:
    /// Connects, and waits until the broker's machine has taken the connection.
    ///
    /// @param id the client's name
    /// @param source the address to connect from
    /// @throws std::runtime_error the connection cannot be made
    Link(const std::string& id, const std::string& source, int port, FleetListener& hears);

    /// Borrowed.
    int socket() const;
    bool wantsToWrite() const;
    /// Whether the owner's poll looks for the right to write, too.
    bool watchedForWriting{false};

    /// Reads or writes what the socket is ready for. Calls the listener.
    ///
    /// @throws std::runtime_error the connection is lost
    void read();
    void write();
    /// To be called now and then: sends the sign of life that is due.
    void keepAlive();

    /// @param topic with its content, at quality of service 1
    /// @return the number that acknowledged() gets
    /// @throws std::runtime_error the connection is lost
    int publish(const std::string& topic, const std::string& payload);
    void subscribe(const std::string& topic);

 private:
    struct Release {
        void operator()(mosquitto* handle) const;
    };

    static void onConnect(mosquitto* client, void* link, int code);
    static void onPublish(mosquitto* client, void* link, int message);
    void check(int code) const;

    std::string name;
    FleetListener& listener;
    std::unique_ptr<mosquitto, Release> client;
    std::string refusal;  ///< Why the broker did not accept the connection; empty if it did.
};
