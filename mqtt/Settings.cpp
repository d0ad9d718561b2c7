// SPDX-License-Identifier: MIT
#include "Settings.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <string_view>

#include "client/ConfigSection.h"
#include "client/Failure.h"
#include "client/Labels.h"
#include "tesk/Exceptions.h"

namespace {

constexpr int PLAIN_PORT = 1883;
constexpr int TLS_PORT = 8883;
constexpr double SHORTEST_INTERVAL = 0.1;
constexpr double LONGEST_INTERVAL = 86'400;
constexpr std::size_t LONGEST_PATH = 4096;

/// What stays within this machine. A name may lead anywhere, also one that begins with 127.
bool isLoopback(const std::string& host) {
    constexpr std::uint32_t NETWORK = 127;
    in_addr address{};
    return host == "localhost" || host == "::1" ||
           (::inet_pton(AF_INET, host.c_str(), &address) == 1 &&
            ntohl(address.s_addr) >> 24 == NETWORK);
}

/// Topics and client ids are made of it: no level, no wildcard, nothing that a broker refuses.
bool isWord(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '-' || c == '_' || c == '.';
    });
}

std::string wordOf(ConfigSection& section, const std::string& key, const std::string& otherwise) {
    constexpr std::size_t LONGEST = 64;
    std::string word = section.text(key, otherwise, LONGEST);
    if (!word.empty() && !isWord(word)) {
        section.refuse(key, "must have only letters, digits, '-', '_' and '.'");
    }
    return word;
}

/// A prefix has several levels at most.
std::string prefixOf(ConfigSection& section, const std::string& key, const std::string& otherwise) {
    std::string prefix = section.text(key, otherwise);
    std::string_view rest(prefix);
    for (auto slash = rest.find('/'); slash != std::string_view::npos; slash = rest.find('/')) {
        if (!isWord(rest.substr(0, slash))) {
            break;
        }
        rest.remove_prefix(slash + 1);
    }
    if (!isWord(rest)) {
        section.refuse(key, "must be words of letters, digits, '-', '_' and '.', with '/' between");
    }
    return prefix;
}

std::string fileOf(ConfigSection& section, const std::string& key, const std::string& otherwise) {
    std::string path = section.text(key, otherwise, LONGEST_PATH);
    if (!path.empty() && path.front() != '/') {
        section.refuse(key, "must be a path that begins with '/'");
    }
    return path;
}

BrokerSettings readBroker(ConfigSection section) {
    BrokerSettings broker;
    broker.host = section.text("host", broker.host);
    const bool local = isLoopback(broker.host);
    broker.tls = section.flag("tls", !local);
    if (!broker.tls && !local) {
        section.refuse("tls", "must be true, because the broker is not on this machine");
    }
    broker.port = section.whole("port", broker.tls ? TLS_PORT : PLAIN_PORT, 1, 65'535);
    const std::string version = section.text("version", "3.1.1");
    if (version != "3.1.1" && version != "5") {
        section.refuse("version", R"(must be "3.1.1" or "5")");
    }
    broker.version5 = version == "5";
    broker.keepAlive = section.whole("keep_alive", broker.keepAlive, 5, 3600);
    broker.user = section.text("user", "");
    broker.clientId = wordOf(section, "client_id", "");
    broker.authorities = fileOf(section, "ca_file", "");
    broker.certificate = fileOf(section, "certificate_file", "");
    section.refuseOthers();
    return broker;
}

PollPlan readPlan(ConfigSection section) {
    PollPlan plan;
    for (const std::string& name : section.keys()) {
        const double seconds =
            section.number(name, SHORTEST_INTERVAL, SHORTEST_INTERVAL, LONGEST_INTERVAL);
        try {
            plan.set(getTypeFromName(name),
                     std::chrono::milliseconds(static_cast<long long>(seconds * 1000)));
        } catch (const tesk::NotFoundException&) {
            section.refuse(name, "is no register type");
        }
    }
    return plan;
}

OutageSettings readOutage(ConfigSection section) {
    constexpr int LEAST = 1024;
    constexpr int MOST_MEMORY = 16 * 1024 * 1024;
    constexpr int MOST_FILES = 1024 * 1024 * 1024;
    OutageSettings outage;
    outage.memory = static_cast<std::size_t>(
        section.whole("memory", static_cast<int>(outage.memory), LEAST, MOST_MEMORY));
    outage.files = static_cast<std::size_t>(
        section.whole("files", static_cast<int>(outage.files), LEAST, MOST_FILES));
    section.refuseOthers();
    return outage;
}

HomeAssistantSettings readHomeAssistant(ConfigSection section) {
    HomeAssistantSettings settings;
    settings.prefix = prefixOf(section, "prefix", settings.prefix);
    settings.name = section.text("name", "");
    settings.expireAfter = section.whole("expire_after", settings.expireAfter, 10, 86'400);
    section.refuseOthers();
    return settings;
}

Settings readSettings(const std::string& path, std::vector<std::string>& faults) {
    ConfigSection root = ConfigSection::read(path, faults);
    Settings settings;
    settings.broker = readBroker(root.section("broker"));
    settings.plan = readPlan(root.section("poll"));
    settings.prefix = prefixOf(root, "prefix", settings.prefix);
    settings.device = wordOf(root, "device", "");
    settings.labelsFile = fileOf(root, "labels", Labels::DEFAULT_FILE);
    settings.writable = root.ranges("writable");
    settings.retainValues = root.flag("retain_values", false);
    settings.outage = readOutage(root.section("outage"));
    if (root.has("home_assistant")) {
        settings.homeAssistant = readHomeAssistant(root.section("home_assistant"));
    }
    // For editors that check the file against it.
    root.text("$schema", "", LONGEST_PATH);
    root.refuseOthers();
    return settings;
}

}  // namespace

Settings Settings::read(const std::string& path) {
    std::vector<std::string> faults;
    Settings settings = readSettings(path, faults);
    if (!faults.empty()) {
        throw Failure("fault in '" + path + "': " + faults.front());
    }
    return settings;
}

std::vector<std::string> Settings::faultsOf(const std::string& path) {
    std::vector<std::string> faults;
    readSettings(path, faults);
    return faults;
}
