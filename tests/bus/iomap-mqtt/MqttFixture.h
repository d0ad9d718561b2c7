// SPDX-License-Identifier: MIT
#pragma once

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <sys/socket.h>

#include <csignal>
#include <deque>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "IomapFixture.h"
#include "support/FileDescriptor.h"

/// A test of iomap-mqtt with the real service and a real broker on the loopback.
class MqttFixture : public IomapFixture {
 protected:
    MqttFixture() : port(freePort()) {}

    /// Starts the broker and waits until it listens.
    ///
    /// @param options lines for its configuration
    void startBroker(const std::string& options = "allow_anonymous true\n") {
        // Started by root, the broker would become a user who cannot read the test's files.
        const std::string config =
            directory.file("broker.conf", "user root\nlog_dest stderr\nlistener " +
                                              std::to_string(port) + " 127.0.0.1\n" + options);
        broker = std::make_unique<Process>(std::vector<std::string>{"mosquitto", "-c", config});
        broker->waitForLine("running");
    }

    /// Starts somebody who hears everything.
    std::unique_ptr<Process> subscribe(const std::string& topic = "iomap/#") const {
        std::vector<std::string> command =
            client("mosquitto_sub", {"-d", "-t", topic, "-F", ">%t %r %p"});
        // Of a pipe, it would keep its lines to itself.
        command.insert(command.begin(), {"stdbuf", "-oL"});
        auto hearer = std::make_unique<Process>(command);
        hearer->waitForLine("Subscribed");
        return hearer;
    }

    /// Sends a message and waits until the broker has it.
    void publish(const std::string& topic, const std::string& payload,
                 const std::vector<std::string>& options = {}) const {
        std::vector<std::string> arguments{"-q", "1", "-t", "iomap/device/" + topic, "-m", payload};
        arguments.insert(arguments.end(), options.begin(), options.end());
        expectSuccess(outcomeOf(client("mosquitto_pub", arguments)));
    }

    /// Starts iomap-mqtt.
    ///
    /// @param settings keys of the configuration besides the broker's and the device's
    /// @param more keys of the broker
    /// @param otherPort where to connect, if not straight to the broker
    std::unique_ptr<Process> launchGateway(
        const std::string& settings = "",
        const std::map<std::string, std::string>& environment = {}, const std::string& more = "",
        std::optional<int> otherPort = std::nullopt) {
        const std::string file = directory.file("labels.json", labels);
        const std::string config =
            directory.file("mqtt.json", R"({"broker": {"host": "127.0.0.1", "port": )" +
                                            std::to_string(otherPort.value_or(port)) + more +
                                            R"(}, "device": "device", "labels": ")" + file + "\"" +
                                            (settings.empty() ? "" : ", " + settings) + "}");
        std::vector<std::string> command = launcher;
        command.insert(command.end(), {IOMAP_MQTT, "--config", config});
        return std::make_unique<Process>(command, environment);
    }

    /// Makes the directory that the service manager gives iomap-mqtt for its state.
    std::string makeStateDirectory() const {
        const std::string state = directory.path() / "state";
        std::filesystem::create_directory(state);
        return state;
    }

    /// Everything at work: the service, the broker, a subscriber, and iomap-mqtt.
    void startAll(const std::string& settings = "") {
        startService(map);
        startBroker();
        subscriber = subscribe();
        gateway = launchGateway(settings);
        next("data", "[20,0,");
    }

    /// Starts the broker again, and a subscriber before iomap-mqtt can see the broker.
    void startBrokerUnseen() {
        gateway->signal(SIGSTOP);
        startBroker();
        subscriber = subscribe();
        heard.clear();
        gateway->signal(SIGCONT);
    }

    /// The payload of the next message of a topic. Messages of other topics wait for their turn.
    std::string next(const std::string& topic) { return nextOf({topic}); }

    /// The payload of the next message of one of some topics.
    std::string nextOf(const std::vector<std::string>& topics) {
        for (;;) {
            for (const std::string& topic : topics) {
                std::deque<std::string>& payloads = heard[topic];
                if (!payloads.empty()) {
                    const std::string payload = payloads.front();
                    payloads.pop_front();
                    return payload;
                }
            }
            const std::string line = subscriber->waitForLine(MARK);
            const auto start = line.find(' ');
            const std::string name = line.substr(MARK.size(), start - MARK.size());
            heard[name].push_back(line.substr(start + 3));
        }
    }

    /// The next changes. What was not sent when the broker came back is live, what was is replayed.
    std::string nextChanges() { return nextOf({"replay", "data"}); }

    /// The payload of the next message of a topic that has a text in it; those before it are gone.
    std::string next(const std::string& topic, const std::string& part) {
        std::string payload;
        do {
            payload = next(topic);
        } while (payload.find(part) == std::string::npos);
        return payload;
    }

    std::vector<std::string> client(const std::string& program,
                                    const std::vector<std::string>& arguments) const {
        std::vector<std::string> command{program, "-h", "127.0.0.1", "-p", std::to_string(port)};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return command;
    }

    /// The registers as `iomap list --json` has them, from a snapshot.
    static std::string listOf(const std::string& snapshot) {
        const auto message =
            Poco::JSON::Parser().parse(snapshot).extract<Poco::JSON::Object::Ptr>();
        Poco::JSON::Array table;
        for (const auto& entry : *message->getArray("registers")) {
            const auto row = entry.extract<Poco::JSON::Array::Ptr>();
            Poco::JSON::Object::Ptr object(new Poco::JSON::Object);
            object->set("address", row->get(0));
            object->set("type", row->get(1));
            object->set("index", row->get(2));
            object->set("maximum", row->get(3));
            object->set("value", row->get(4));
            table.add(object);
        }
        std::ostringstream text;
        table.stringify(text);
        return json(text.str());
    }

    /// A port of the loopback that nobody listens on, outside those that the kernel gives to
    /// clients: a broker that starts again must find its port free.
    static int freePort() {
        std::random_device random;
        std::uniform_int_distribution<int> ports(20'000, 31'999);
        for (int attempt = 0; attempt < 1000; ++attempt) {
            const FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
            const int port = ports(random);
            sockaddr_in address{};
            address.sin_family = AF_INET;
            address.sin_port = htons(static_cast<std::uint16_t>(port));
            address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            if (::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0) {
                return port;
            }
        }
        throw std::runtime_error("there is no free port");
    }

    const std::string map = mapOf(
        {R"({"address": 1, "size": 8, "count": 4})", R"({"address": 20, "size": 32, "count": 1})"});
    std::vector<std::string> launcher;  ///< What starts iomap-mqtt, if not the test itself.
    std::string labels = R"({"labels": {
        "2": {"name": "pump", "states": {"0": "off", "1": "on"}},
        "20": {"name": "level", "unit": "cm", "scale": 0.1, "deadband": 0.5}}})";
    const std::string MARK{">iomap/device/"};
    const int port;
    std::map<std::string, std::deque<std::string>> heard;
    std::unique_ptr<Process> broker;
    std::unique_ptr<Process> subscriber;
    std::unique_ptr<Process> gateway;
};
