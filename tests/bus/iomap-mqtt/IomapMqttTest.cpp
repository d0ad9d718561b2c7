// SPDX-License-Identifier: MIT
#include <csignal>

#include "Deadline.h"
#include "FakeService.h"
#include "MqttFixture.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class IomapMqttTest : public MqttFixture {
 protected:
    /// A bus in the place of the one that has ended.
    std::unique_ptr<Process> startBusAgain() const {
        const std::string place = bus.address().substr(bus.address().find('=') + 1);
        auto again = std::make_unique<Process>(std::vector<std::string>{
            "dbus-daemon", "--config-file=" + place + ".conf", "--address=" + bus.address(),
            "--nofork", "--nopidfile", "--print-address=1"});
        again->waitForLine("unix:path=");
        return again;
    }
};

TEST_F(IomapMqttTest, TellsOfItselfAndOfAllRegisters) {
    startService(map);
    startBroker();
    subscriber = subscribe();
    gateway = launchGateway();
    EXPECT_EQ(next("status"), "online");
    EXPECT_THAT(next("info"), AllOf(HasSubstr(R"("registers":5)"), HasSubstr(R"("service":true)"),
                                    HasSubstr(R"("20":{"scale":0.1,)")));
    EXPECT_THAT(next("data"), AllOf(HasSubstr(R"("sequence":1,)"), HasSubstr("[[1,0,")));
    const auto late = subscribe();
    EXPECT_THAT(late->waitForLine(">iomap/device/status"), HasSubstr(" 1 online")) << "retained";
}

TEST_F(IomapMqttTest, AChangeIsToldWithItsLabel) {
    startAll();
    EXPECT_THAT(next("r/level"), HasSubstr(R"({"value":0,)"));
    iomapDone({"write", "20=215"});
    next("data", "[20,215,");
    next("r/level", R"({"value":21.5,"text":"21.5 cm","raw":215,)");
    iomapDone({"write", "20=218"});
    next("data", "[20,218,");
    iomapDone({"write", "20=225"});
    EXPECT_THAT(next("r/level"), HasSubstr(R"("raw":225,)")) << "218 is within the deadband";
}

TEST_F(IomapMqttTest, ASnapshotHoldsWhatTheCommandLists) {
    startAll();
    iomapDone({"write", "2=7", "20=0xFFFFFFFF"});
    next("data", "[20,-1,");
    publish("get", R"({"token": "t1"})");
    const std::string snapshot = next("snapshot");
    publish("get", R"({"token": "t2"})");
    EXPECT_THAT(next("ack"), AllOf(HasSubstr(R"("token":"t2")"), HasSubstr("every 5 s at most")));
    EXPECT_THAT(snapshot, HasSubstr(R"("token":"t1","part":1,"parts":1,)"));
    EXPECT_EQ(listOf(snapshot), iomapJson({"list", "--json"}));
}

TEST_F(IomapMqttTest, OnlyWhatIsListedCanBeWritten) {
    startAll(R"("writable": ["1-2"])");
    publish("set/pump", R"({"token": "a", "value": "on"})");
    EXPECT_EQ(next("ack"), R"({"token":"a","set":"pump","ok":true})");
    gateway->waitForLine("write register 2 (virtual 2) = 1, token 'a'");
    publish("set/1", "200");
    EXPECT_EQ(next("ack"), R"({"set":"1","ok":true})");
    publish("set/3", "1");
    EXPECT_THAT(next("ack"), HasSubstr("register 3 may not be written over the network"));
    gateway->waitForLine("set '3' to '1' refused: ");
    EXPECT_EQ(iomapDone({"read", "1", "2", "3"}), "200\n1\n0\n");
}

TEST_F(IomapMqttTest, WithoutAListNothingCanBeWritten) {
    startAll();
    publish("set/2", "1");
    EXPECT_THAT(next("ack"), HasSubstr(R"("ok":false)"));
    EXPECT_EQ(iomapDone({"read", "2"}), "0\n");
}

TEST_F(IomapMqttTest, TheServicesOwnWordsComeBack) {
    startAll(R"("writable": ["1-9"])");
    publish("set/1", "256");
    EXPECT_THAT(next("ack"), AllOf(HasSubstr(R"("ok":false,"error":")"), HasSubstr("256")));
    publish("set/9", "1");
    EXPECT_THAT(next("ack"), HasSubstr("there is no register 9"));
    publish("set/1", "{\"value\":");
    EXPECT_THAT(next("ack"), HasSubstr("the payload is no JSON"));
    gateway->waitForLine("set '1' to '' refused: the payload is no JSON");
}

TEST_F(IomapMqttTest, ARetainedRequestIsIgnored) {
    startService(map);
    startBroker();
    publish("set/2", "1", {"-r"});
    subscriber = subscribe();
    gateway = launchGateway(R"("writable": ["1-9"])");
    gateway->waitForLine("a retained message of 'iomap/device/set/2' is ignored");
    // The broker may be there before the registers are.
    next("data", "[20,0,");
    publish("set/1", "1");
    EXPECT_THAT(next("ack"), HasSubstr(R"("set":"1")"));
    EXPECT_EQ(iomapDone({"read", "1", "2"}), "1\n0\n");
}

TEST_F(IomapMqttTest, ACleanStopSaysOfflineAtOnce) {
    startAll();
    gateway->signal(SIGTERM);
    EXPECT_EQ(gateway->waitForExit(), 0);
    next("status", "offline");
    EXPECT_THAT(subscribe()->waitForLine(">iomap/device/status"), HasSubstr(" 1 offline"));
}

TEST_F(IomapMqttTest, TheBrokerSaysOfflineForAProgramThatWasKilled) {
    startAll();
    gateway->signal(SIGKILL);
    next("status", "offline");
}

TEST_F(IomapMqttTest, WithoutTheServiceNoValueIsShown) {
    Process& service = startService(map);
    startBroker();
    subscriber = subscribe();
    gateway = launchGateway();
    next("data", "[20,0,");
    service.signal(SIGKILL);
    service.waitForExit();
    next("info", R"("service":false)");
    EXPECT_THAT(next("data", "[1,null,"), HasSubstr(R"(,"the service does not answer"])"));
    startService(map);
    next("info", R"("service":true)");
    next("data", "[1,0,");
}

TEST_F(IomapMqttTest, TellsThatThereIsNoServiceEvenIfThereNeverWasOne) {
    gateway = launchGateway();
    gateway->waitForLine("the service has gone");
    gateway->waitForLine("cannot connect to the broker");
    startBroker();
    subscriber = subscribe();
    EXPECT_THAT(next("info"),
                AllOf(HasSubstr(R"("registers":0,)"), HasSubstr(R"("service":false)")));
}

TEST_F(IomapMqttTest, ABusThatEndsAndComesBackIsUsedAgain) {
    startAll(R"("writable": ["1-9"])");
    bus.kill();
    EXPECT_THAT(next("data", "[1,null,"), HasSubstr(R"(,"the service does not answer"])"));
    next("info", R"("service":false)");
    gateway->waitForLine("; trying again");
    publish("set/1", R"({"token": "a", "value": 5})");
    EXPECT_THAT(next("ack"), HasSubstr(R"({"token":"a","set":"1","ok":false,"error":")"));
    gateway->waitForLine("set '1' to '5' refused: ");
    const auto again = startBusAgain();
    startService(map);
    next("info", R"("service":true)");
    next("data", "[20,0,");
    publish("set/1", "7");
    EXPECT_EQ(next("ack"), R"({"set":"1","ok":true})");
    next("data", "[1,7,");
}

TEST_F(IomapMqttTest, AServiceThatPausesIsReadAnewAndNotTakenForAnotherOne) {
    Process& service = startService(map);
    startBroker();
    subscriber = subscribe();
    gateway = launchGateway(R"("poll": {"virtual": 0.1})");
    next("data", "[20,0,");
    service.signal(SIGSTOP);
    next("info", R"("service":false)");
    service.signal(SIGCONT);
    next("info", R"("service":true)");
    next("data", "[20,0,");
    gateway->signal(SIGTERM);
    EXPECT_EQ(gateway->waitForExit(), 0);
    const std::string journal = gateway->standardError();
    const std::string found = "the service has 5 registers";
    EXPECT_EQ(journal.find(found), journal.rfind(found)) << journal;
    EXPECT_THAT(journal, HasSubstr(found));
}

TEST_F(IomapMqttTest, OneSlowRegisterIsReadRightAfterTheOther) {
    constexpr int COUNT = 200;
    std::map<int, FakeRegister> sensors;
    for (int index = 1; index <= COUNT; ++index) {
        sensors[index] = {RegisterType::SENSOR_TEMP_VALUE, index, -1, 20'000};
    }
    const FakeService service(sensors);
    startBroker();
    subscriber = subscribe();
    gateway = launchGateway();
    gateway->waitForLine("the service has 200 registers");
    // The loop looks at the clock every 100 ms if nothing else happens.
    const Deadline halfOfThatEach(std::chrono::milliseconds(COUNT * 50));
    next("data", "[200,20000,");
    EXPECT_FALSE(halfOfThatEach.passed());
}

TEST_F(IomapMqttTest, ASensorThatGoesIsToldThoughItsNumberHardlyChanges) {
    FakeService service({{20, {RegisterType::SENSOR_TEMP_VALUE, 1, -1, 4100}}});
    startBroker();
    subscriber = subscribe();
    gateway = launchGateway(R"("poll": {"sensor_temp_value": 0.1})");
    next("r/level", R"("raw":4100,)");
    service.set(20, 4096);
    next("r/level", R"({"value":null,"error":"the sensor is missing",)");
    next("data", "[20,4096,");
    service.set(20, 4099);
    next("r/level", R"("raw":4099,)");
}

TEST_F(IomapMqttTest, AnotherProtocolVersionDoesTheSame) {
    startService(map);
    startBroker();
    subscriber = subscribe();
    gateway = launchGateway(R"("writable": ["1"])", {}, R"(, "version": "5")");
    next("data");
    publish("set/1", "5");
    EXPECT_EQ(next("ack"), R"({"set":"1","ok":true})");
}

TEST_F(IomapMqttTest, ChangesOfAnOutageAreReplayed) {
    startAll();
    broker->signal(SIGKILL);
    broker->waitForExit();
    gateway->waitForLine("is lost: ");
    iomapDone({"write", "1=11"});
    iomapDone({"write", "1=12"});
    startBrokerUnseen();
    next("status", "online");
    // What is live comes before what is replayed. The first changes of all may not have been
    // acknowledged either.
    std::string replayed;
    while (replayed.find("[1,11,") == std::string::npos ||
           replayed.find("[1,12,") == std::string::npos) {
        replayed += nextChanges();
    }
    iomapDone({"write", "1=13"});
    next("data", "[1,13,");
}

TEST_F(IomapMqttTest, AnOutageMayOutlastTheProgram) {
    const std::string state = makeStateDirectory();
    Process& service = startService(map);
    startBroker();
    subscriber = subscribe();
    gateway = launchGateway("", {{"STATE_DIRECTORY", state}});
    next("data", "[20,0,");
    broker->signal(SIGKILL);
    gateway->waitForLine("is lost: ");
    iomapDone({"write", "1=11"});
    // Whoever hears of the service's end has heard of the change before.
    service.signal(SIGTERM);
    gateway->waitForLine("the service has gone");
    gateway->signal(SIGTERM);
    EXPECT_EQ(gateway->waitForExit(), 0);
    startBroker();
    subscriber = subscribe();
    gateway = launchGateway("", {{"STATE_DIRECTORY", state}});
    next("replay", "[1,11,");
}

TEST_F(IomapMqttTest, TheIdOfTheClientIsMadeOfTheWholePrefixAndTheDevice) {
    startBroker();
    gateway = launchGateway();
    broker->waitForLine(" as iomap-device ");
    const auto other = launchGateway(R"("prefix": "plant/hall1")");
    broker->waitForLine(" as plant-hall1-device ");
}

TEST_F(IomapMqttTest, ARefusedLoginWaitsForAMinute) {
    startBroker("allow_anonymous false\n");
    gateway = launchGateway();
    EXPECT_THAT(gateway->waitForLine("refuses the login"),
                AllOf(HasSubstr("cannot connect to the broker 127.0.0.1:"),
                      HasSubstr("not authorised"), HasSubstr("next attempt in 6")));
}

TEST_F(IomapMqttTest, ThePasswordIsACredential) {
    const std::string passwords = directory.path() / "passwords";
    expectSuccess(outcomeOf({"mosquitto_passwd", "-b", "-c", passwords, "device", "secret word"}));
    startBroker("allow_anonymous false\npassword_file " + passwords + "\n");
    directory.file("credentials/mqtt-password", "secret word\n");
    gateway = launchGateway("", {{"CREDENTIALS_DIRECTORY", directory.path() / "credentials"}},
                            R"(, "user": "device")");
    gateway->waitForLine("connected to the broker");
    gateway->signal(SIGTERM);
    gateway->waitForExit();
    EXPECT_THAT(gateway->standardError(), Not(HasSubstr("secret word")));
}

TEST_F(IomapMqttTest, ChecksAConfiguration) {
    const std::string config =
        directory.file("bad.json", R"({"broker": {"port": 0}, "writeable": [1]})");
    const Outcome outcome = outcomeOf({IOMAP_MQTT, "--check", "--config", config});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, config + ": broker.port must be a number from 1 to 65535\n" + config +
                                  ": writeable is no key of this object\n");
    EXPECT_THAT(outcome.errors, HasSubstr("2 faults"));
}

TEST_F(IomapMqttTest, ChecksTheLabelsOfAConfiguration) {
    const std::string labelsFile = directory.path() / "labels.json";
    const std::string config = directory.file(
        "config.json", R"({"broker": {"host": "localhost"}, "labels": ")" + labelsFile + R"("})");
    Outcome outcome = outcomeOf({IOMAP_MQTT, "--check", "--config", config});
    EXPECT_EQ(outcome.status, 0) << outcome.output << "no labels are needed";
    directory.file("labels.json", R"({"labels": {"1": {"name": "pump", "scale": 0}}})");
    outcome = outcomeOf({IOMAP_MQTT, "--check", "--config", config});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.output, HasSubstr(labelsFile + ": register 1: scale"));
}

}  // namespace
