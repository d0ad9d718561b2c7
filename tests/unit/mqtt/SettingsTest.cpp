// SPDX-License-Identifier: MIT
#include "mqtt/Settings.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "TemporaryDirectory.h"
#include "client/Failure.h"

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::ThrowsMessage;

class SettingsTest : public testing::Test {
 protected:
    std::string file(const std::string& text) const { return directory.file("mqtt.json", text); }
    Settings read(const std::string& text) const { return Settings::read(file(text)); }
    std::vector<std::string> faults(const std::string& text) const {
        return Settings::faultsOf(file(text));
    }

    TemporaryDirectory directory;
};

TEST_F(SettingsTest, AnEmptyObjectIsAReaderOnThisMachine) {
    const Settings settings = read("{}");
    EXPECT_EQ(settings.broker.host, "localhost");
    EXPECT_EQ(settings.broker.port, 1883);
    EXPECT_FALSE(settings.broker.tls);
    EXPECT_TRUE(settings.writable.empty());
    EXPECT_EQ(settings.prefix, "iomap");
    EXPECT_FALSE(settings.retainValues);
}

TEST_F(SettingsTest, AnotherMachineIsReachedWithTls) {
    const Settings settings = read(R"({"broker": {"host": "broker.example.org"}})");
    EXPECT_TRUE(settings.broker.tls);
    EXPECT_EQ(settings.broker.port, 8883);
}

TEST_F(SettingsTest, TlsCanBeLeftOutOnThisMachineOnly) {
    EXPECT_THAT(faults(R"({"broker": {"host": "127.0.0.1", "tls": false}})"), IsEmpty());
    EXPECT_THAT(faults(R"({"broker": {"host": "192.0.2.1", "tls": false}})"),
                ElementsAre("broker.tls must be true, because the broker is not on this machine"));
    for (const std::string host : {"127.example.org", "127.", "127.1.", "127.0.0.1.2",
                                   "127.0.0.256", "128.0.0.1", "1.127.0.0"}) {
        EXPECT_THAT(faults(R"({"broker": {"host": ")" + host + R"(", "tls": false}})"),
                    ElementsAre(EndsWith("not on this machine")))
            << host;
    }
}

TEST_F(SettingsTest, EveryKeyIsTaken) {
    const Settings settings = read(R"({
        "$schema": "/usr/share/io-mapping/mqtt.schema.json",
        "broker": {"host": "b", "port": 1, "version": "5", "keep_alive": 30, "user": "u",
                   "client_id": "c", "ca_file": "/ca", "certificate_file": "/cert"},
        "prefix": "a/b", "device": "d", "labels": "/labels.json", "writable": [5, "7-9"],
        "poll": {"input_analog": 0.5}, "retain_values": true,
        "outage": {"memory": 2048, "files": 4096},
        "home_assistant": {"prefix": "ha", "name": "Pump house", "expire_after": 600}})");
    EXPECT_TRUE(settings.broker.version5);
    EXPECT_EQ(settings.broker.clientId, "c");
    EXPECT_EQ(settings.broker.certificate, "/cert");
    EXPECT_EQ(settings.prefix, "a/b");
    EXPECT_TRUE(settings.writable.contains(8));
    EXPECT_EQ(settings.plan.intervalOf(RegisterType::INPUT_ANALOG), std::chrono::milliseconds(500));
    EXPECT_TRUE(settings.retainValues);
    EXPECT_EQ(settings.outage.memory, 2048U);
    EXPECT_EQ(settings.outage.files, 4096U);
    EXPECT_EQ(settings.homeAssistant->prefix, "ha");
    EXPECT_EQ(settings.homeAssistant->name, "Pump house");
    EXPECT_EQ(settings.homeAssistant->expireAfter, 600);
}

TEST_F(SettingsTest, HomeAssistantIsToldOnlyIfItHasASection) {
    EXPECT_FALSE(read("{}").homeAssistant);
    EXPECT_EQ(read(R"({"home_assistant": {}})").homeAssistant->prefix, "homeassistant");
    EXPECT_THAT(faults(R"({"home_assistant": {"expire_after": 9}})"),
                ElementsAre("home_assistant.expire_after must be a number from 10 to 86400"));
}

TEST_F(SettingsTest, EveryFaultHasItsPlace) {
    EXPECT_THAT(
        faults(R"({"broker": {"port": 0, "version": "4", "password": "x", "ca_file": "ca"},
                   "prefix": "a//b", "device": "d/e", "writable": ["x"], "poll": {"lamp": 1}})"),
        ElementsAre("broker.port must be a number from 1 to 65535",
                    R"(broker.version must be "3.1.1" or "5")",
                    "broker.ca_file must be a path that begins with '/'",
                    "broker.password is no key of this object", "poll.lamp is no register type",
                    "prefix must be words of letters, digits, '-', '_' and '.', with '/' between",
                    "device must have only letters, digits, '-', '_' and '.'",
                    R"(writable has 'x', which is neither an address nor a range "FIRST-LAST")"));
}

TEST_F(SettingsTest, NoOptionTurnsVerificationOff) {
    for (const std::string key : {"insecure", "verify", "tls_insecure", "allow_any_host"}) {
        EXPECT_THAT(faults(R"({"broker": {")" + key + R"(": true}})"),
                    ElementsAre("broker." + key + " is no key of this object"));
    }
}

TEST_F(SettingsTest, AFaultStopsTheProgram) {
    const std::string path = file(R"({"prefix": 1})");
    EXPECT_THAT([&] { Settings::read(path); },
                ThrowsMessage<Failure>("fault in '" + path + "': prefix must be a text"));
}

}  // namespace
