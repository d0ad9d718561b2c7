// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "client/AddressRanges.h"
#include "client/PollPlan.h"

/// How to reach the broker. Secrets are not among it: they come as credentials.
struct BrokerSettings {
    std::string host{"localhost"};
    int port{1883};
    bool tls{false};          ///< Always, unless the host is this machine.
    bool version5{false};     ///< MQTT 5, otherwise 3.1.1.
    int keepAlive{60};        ///< In seconds.
    std::string user;         ///< Empty: without a login.
    std::string clientId;     ///< Empty: made of the device's id.
    std::string authorities;  ///< A file of certificates; empty: those of the system.
    std::string certificate;  ///< The client's own; empty: none. Its key is a credential.
};

/// How Home Assistant sees the device.
struct HomeAssistantSettings {
    std::string prefix{"homeassistant"};  ///< What its topics begin with.
    std::string name;                     ///< Of the device; empty: its id.
    int expireAfter{900};                 ///< Seconds after which a value counts as unknown.
};

/// How much is kept while the broker is away, in bytes.
struct OutageSettings {
    std::size_t memory{std::size_t{1024} * 1024};
    std::size_t files{std::size_t{16} * 1024 * 1024};
};

/// The configuration of the program.
struct Settings {
    /// Where the configuration is unless the command line says otherwise.
    static constexpr const char* DEFAULT_FILE = "/etc/io-mapping/mqtt.json";

    BrokerSettings broker;
    std::string prefix{"iomap"};
    std::string device;  ///< The id of the device; empty: made of the machine's id.
    std::string labelsFile;
    AddressRanges writable;
    PollPlan plan;
    bool retainValues{false};
    OutageSettings outage;
    std::optional<HomeAssistantSettings> homeAssistant;  ///< Without it, there is no discovery.

    /// Reads a configuration file.
    ///
    /// @throws Failure the file cannot be read or has faults; the message names the first one
    static Settings read(const std::string& path);

    /// All faults of a configuration file, each with its place: "broker.port must be ...".
    ///
    /// @throws Failure the file is missing or cannot be read
    static std::vector<std::string> faultsOf(const std::string& path);
};
