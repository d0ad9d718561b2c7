// SPDX-License-Identifier: MIT
#include <csignal>

#include "MqttFixture.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;

constexpr const char* PEERS = MQTT_PEERS;

/// What other programs understand of the messages.
class IomapMqttPeersTest : public MqttFixture {
 protected:
    std::unique_ptr<Process> startPeer(const std::string& interpreter, const std::string& script) {
        auto peer = std::make_unique<Process>(
            std::vector<std::string>{interpreter, std::string(PEERS) + "/" + script,
                                     std::to_string(port), "iomap/device/snapshot"},
            // Where Debian has the modules of Node.js; other builds of it do not look there.
            std::map<std::string, std::string>{{"NODE_PATH", "/usr/share/nodejs"}});
        peer->waitForLine("subscribed");
        return peer;
    }

    /// What tshark prints of a capture.
    std::string sharkOf(const std::string& capture, const std::vector<std::string>& options) const {
        std::vector<std::string> command{"tshark", "-r", capture, "-d",
                                         "tcp.port==" + std::to_string(port) + ",mqtt"};
        command.insert(command.end(), options.begin(), options.end());
        const Outcome outcome = outcomeOf(command, {{"HOME", directory.path()}});
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        return outcome.output;
    }

    /// A session with everything in it, captured between the program and the broker.
    std::string captureOf(const std::string& version) {
        startService(map);
        startBroker();
        const std::string capture = directory.path() / "capture.pcap";
        const int relayPort = freePort();
        Process relay({"python3", std::string(PEERS) + "/relay.py", std::to_string(relayPort),
                       std::to_string(port), capture});
        relay.waitForLine("relaying");
        subscriber = subscribe();
        gateway = launchGateway(R"("writable": ["1-9"], "home_assistant": {})", {},
                                R"(, "version": ")" + version + "\"", relayPort);
        next("data", "[20,0,");
        publish("get", "");
        next("snapshot");
        publish("set/1", R"({"token": "a", "value": 5})");
        next("ack");
        next("data", "[1,5,");
        gateway->signal(SIGTERM);
        EXPECT_EQ(gateway->waitForExit(), 0);
        EXPECT_EQ(relay.waitForExit(), 0);
        return capture;
    }

    void expectWellFormed(const std::string& capture) const {
        EXPECT_EQ(sharkOf(capture, {"-Y", "_ws.malformed || _ws.expert.severity == error"}), "");
        const std::string types = sharkOf(capture, {"-T", "fields", "-e", "mqtt.msgtype"});
        for (const std::string& type : {CONNECT, PUBLISH, PUBACK, SUBSCRIBE, DISCONNECT}) {
            EXPECT_THAT(types, testing::ContainsRegex("(^|[,\n])" + type + "([,\n]|$)")) << types;
        }
    }

    const std::string CONNECT = "1";
    const std::string PUBLISH = "3";
    const std::string PUBACK = "4";
    const std::string SUBSCRIBE = "8";
    const std::string DISCONNECT = "14";
};

TEST_F(IomapMqttPeersTest, ThreeLibrariesSeeTheRegistersThatTheCommandLists) {
    startService(mapOf({R"({"address": 1, "size": 32, "count": 1300})",
                        R"({"address": 60001, "size": 32, "count": 101})"}));
    iomapDone({"write", "1300=13", "60101=0xFFFFFFFF"});
    startBroker();
    subscriber = subscribe();
    gateway = launchGateway();
    next("info", R"("registers":1401,)");
    // The Python of Debian has its modules, whichever other one is first in PATH.
    const auto python = startPeer("/usr/bin/python3", "hear.py");
    const auto node = startPeer("node", "hear.js");
    publish("get", R"({"token": "all"})");
    const std::string list = iomapJson({"list", "--json"});
    EXPECT_THAT(list, HasSubstr("60101"));
    EXPECT_EQ(listOf(next("snapshot")), list);
    EXPECT_EQ(listOf(python->waitForLine(R"("token":"all")")), list);
    EXPECT_EQ(listOf(node->waitForLine(R"("token":"all")")), list);
    EXPECT_EQ(python->waitForExit(), 0);
    EXPECT_EQ(node->waitForExit(), 0);
}

TEST_F(IomapMqttPeersTest, AnAnalyserFindsNoFaultInASession) {
    expectWellFormed(captureOf("3.1.1"));
}

TEST_F(IomapMqttPeersTest, AnAnalyserFindsNoFaultInASessionOfTheNewerVersion) {
    expectWellFormed(captureOf("5"));
}

}  // namespace
