// SPDX-License-Identifier: MIT
#include <algorithm>
#include <atomic>
#include <csignal>
#include <fstream>
#include <map>
#include <numeric>
#include <thread>

#include "BlockingClient.h"
#include "Build.h"
#include "MqttFixture.h"
#include "ProcessFigures.h"

namespace {

using testing::AllOf;
using testing::Each;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

/// Brokers that go, clients that fight, and messages that nobody should send.
class IomapMqttTroubleTest : public MqttFixture {
 protected:
    void stopBroker() const {
        broker->signal(SIGKILL);
        broker->waitForExit();
        gateway->waitForLine("is lost: ");
    }

    /// Takes all changes until one has a text in it.
    void takeUntil(const std::string& part) {
        std::string message;
        do {
            message = next("data");
            take(message);
        } while (message.find(part) == std::string::npos);
    }

    /// Writes a value to register 1, after a pause in which a batch can be made of the one before.
    /// A run of iomap for each value would take so long in some builds that the next attempt to
    /// connect would be too far away to wait for.
    static void writeNext(const BlockingClient& client, int value) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        client.call(BusContract::SERVICE_NAME, "Write", g_variant_new("(ii)", 1, value));
    }

    static void write(int first, int last) {
        const BlockingClient client;
        for (int value = first; value <= last; ++value) {
            writeNext(client, value);
        }
    }

    /// Writes to register 1 as long as it lives.
    class Writer {
     public:
        Writer() = default;
        ~Writer() {
            ended = true;
            worker.join();
        }
        Writer(const Writer&) = delete;
        Writer& operator=(const Writer&) = delete;

     private:
        void work() const {
            const BlockingClient client;
            for (int value = 1; !ended; value = 3 - value) {
                writeNext(client, value);
            }
        }

        std::atomic<bool> ended{false};
        std::thread worker{[this] { work(); }};
    };

    static Poco::JSON::Object::Ptr objectOf(const std::string& text) {
        return Poco::JSON::Parser().parse(text).extract<Poco::JSON::Object::Ptr>();
    }

    /// Takes what a message of changes tells of register 1, and its number.
    void take(const std::string& message) {
        const auto batch = objectOf(message);
        std::vector<int>& values = batches[batch->getValue<int>("sequence")];
        values.clear();
        for (const auto& entry : *batch->getArray("changes")) {
            const auto change = entry.extract<Poco::JSON::Array::Ptr>();
            if (change->getElement<int>(0) == 1) {
                values.push_back(change->getElement<int>(1));
            }
        }
    }

    /// What was heard of register 1, in the order of the changes, from a value on.
    std::vector<int> valuesFrom(int first) const {
        std::vector<int> all;
        for (const auto& [sequence, values] : batches) {
            all.insert(all.end(), values.begin(), values.end());
        }
        all.erase(all.begin(), std::find(all.begin(), all.end(), first));
        return all;
    }

    /// How many messages were sent or kept, and never came.
    int missing() const { return batches.rbegin()->first - static_cast<int>(batches.size()); }

    int droppedOf(const std::string& info) { return objectOf(info)->getValue<int>("dropped"); }

    std::map<int, std::vector<int>> batches;  ///< Values of register 1, by the message's number.
};

TEST_F(IomapMqttTroubleTest, ADeviceThatFallsSilentIsOfflineAfterItsKeepAlive) {
    startService(map);
    startBroker();
    subscriber = subscribe();
    gateway = launchGateway("", {}, R"(, "keep_alive": 5)");
    next("status", "online");
    next("data", "[20,0,");
    gateway->signal(SIGSTOP);
    next("status", "offline");
    gateway->signal(SIGCONT);
    next("status", "online");
}

TEST_F(IomapMqttTroubleTest, ANewBrokerGetsAllThatItNeedsAndNothingElse) {
    startAll(R"("writable": ["1-2"])");
    stopBroker();
    startBrokerUnseen();
    next("status", "online");
    next("info", R"("registers":5,)");
    next("r/level");
    publish("set/2", R"({"token": "a", "value": 1})");
    EXPECT_EQ(next("ack"), R"({"token":"a","set":"2","ok":true})");
    next("data", "[2,1,");
    publish("get", R"({"token": "mine"})");
    EXPECT_THAT(next("snapshot"), HasSubstr(R"("token":"mine")"));
    EXPECT_THAT(heard["snapshot"], IsEmpty());
    // Nobody has asked for the values that have not changed.
    EXPECT_THAT(heard["data"], Each(Not(HasSubstr("[20,0,"))));
}

TEST_F(IomapMqttTroubleTest, NoChangeOfAShortOutageIsLost) {
    constexpr std::size_t LAST = 30;
    const std::string state = makeStateDirectory();
    startService(map);
    startBroker();
    subscriber = subscribe();
    gateway = launchGateway(R"("outage": {"memory": 1024, "files": 65536})",
                            {{"STATE_DIRECTORY", state}});
    takeUntil("[20,0,");
    stopBroker();
    write(1, LAST);
    startBrokerUnseen();
    while (valuesFrom(1).size() < LAST) {
        take(nextChanges());
    }
    std::vector<int> expected(LAST);
    std::iota(expected.begin(), expected.end(), 1);
    EXPECT_EQ(valuesFrom(1), expected);
    EXPECT_EQ(droppedOf(next("info", "\"registers\":")), 0);
}

TEST_F(IomapMqttTroubleTest, ChangesAreInFilesBeforeAnAttemptToConnectMayBlock) {
    const std::string state = makeStateDirectory();
    Process& service = startService(map);
    startBroker();
    subscriber = subscribe();
    gateway = launchGateway("", {{"STATE_DIRECTORY", state}});
    next("data", "[20,0,");
    stopBroker();
    iomapDone({"write", "1=11"});
    // Whoever hears of the service's end has heard of the change before.
    service.signal(SIGTERM);
    gateway->waitForLine("the service has gone");
    // The first attempt may have begun before.
    gateway->waitForLine("cannot connect to the broker");
    gateway->waitForLine("cannot connect to the broker");
    gateway->signal(SIGKILL);
    gateway->waitForExit();
    startBroker();
    subscriber = subscribe();
    gateway = launchGateway("", {{"STATE_DIRECTORY", state}});
    next("replay", "[1,11,");
}

TEST_F(IomapMqttTroubleTest, ABrokerThatAcknowledgesNothingDoesNotUseUpTheProcessor) {
    constexpr int WATCHED_SECONDS = 3;
    directory.file("state/00000000000000000001.batches", "1 session boot 1 1 0 [[1,1,0]]\n");
    Process silent({"python3", std::string(MQTT_PEERS) + "/silent.py", std::to_string(port),
                    std::to_string(WATCHED_SECONDS)});
    silent.waitForLine("listening");
    gateway = launchGateway("", {{"STATE_DIRECTORY", directory.path() / "state"}});
    silent.waitForLine("heard of an earlier time");
    const double before = processorTime(gateway->pid());
    silent.waitForLine("enough seen");
    const double share = (processorTime(gateway->pid()) - before) / WATCHED_SECONDS;
    EXPECT_LE(share, SANITIZED || EMULATED ? 0.3 : 0.05);
}

TEST_F(IomapMqttTroubleTest, TheMessagesOfALongOutageThatAreLostAreCounted) {
    startService(map);
    startBroker();
    subscriber = subscribe();
    gateway = launchGateway(R"("outage": {"memory": 1024})");
    takeUntil("[20,0,");
    // Whoever answers has taken the broker's acknowledgement of what was sent before: what was not
    // acknowledged counts as lost, even if it was heard.
    publish("get", "");
    next("snapshot");
    stopBroker();
    {
        const Writer writer;
        gateway->waitForLine("messages are lost until now");
    }
    write(100, 100);
    startBrokerUnseen();
    const int dropped = droppedOf(next("info", "\"registers\":"));
    EXPECT_GT(dropped, 0);
    while (valuesFrom(100).empty() || missing() > dropped) {
        take(nextChanges());
    }
    iomapDone({"write", "1=200"});
    takeUntil("[1,200,");
    EXPECT_EQ(missing(), dropped);
}

TEST_F(IomapMqttTroubleTest, OfTwoClientsWithOneIdTheOneThatIsLeftWorks) {
    startAll();
    auto other = launchGateway();
    gateway->waitForLine("is lost: ");
    other->waitForLine("is lost: ");
    gateway->waitForLine("connected to the broker");
    other->waitForLine("is lost: ");
    other->signal(SIGKILL);
    other->waitForExit();
    iomapDone({"write", "20=77"});
    // At once or later: the other one may have been connected when it ended.
    while (subscriber->waitForLine(MARK).find("[20,77,") == std::string::npos) {
    }
}

TEST_F(IomapMqttTroubleTest, HostileMessagesAreAnsweredOrDroppedAndDoNoHarm) {
    startAll(R"("writable": ["1-9"])");
    const std::string nested = directory.file("nested", std::string(4000, '['));
    const std::string binary = directory.file("binary", std::string("\x00\xFF\xC0\x80\x01", 5));
    const std::string large = directory.file("large", std::string(1'000'000, '7'));
    for (const std::string& file : {nested, binary, large}) {
        for (const std::string topic :
             {"get", "set/1", "set/", "set/1/2", "set/\xC3\xA9\xC3\xA9"}) {
            expectSuccess(outcomeOf(
                client("mosquitto_pub", {"-q", "1", "-t", "iomap/device/" + topic, "-f", file})));
            EXPECT_THAT(next("ack"), AllOf(HasSubstr(R"("ok":false,"error":)"),
                                           Not(HasSubstr("77777777")), Not(HasSubstr("[[[["))));
        }
    }
    publish("set/1", "5");
    EXPECT_EQ(next("ack"), R"({"set":"1","ok":true})");
    EXPECT_EQ(iomapDone({"read", "1"}), "5\n");
}

TEST_F(IomapMqttTroubleTest, AMessageWithoutBoundEndsTheConnectionAndNotTheProgram) {
    startService(map);
    startBroker();
    // One level: the large message itself need not come.
    subscriber = subscribe("iomap/device/+");
    launcher = {"prlimit", SANITIZED ? "--data=unlimited" : "--data=67108864"};
    gateway = launchGateway(R"("writable": ["1-9"])");
    next("status", "online");
    const std::string large = directory.path() / "large";
    std::ofstream(large).close();
    std::filesystem::resize_file(large, 100'000'000);
    expectSuccess(outcomeOf(client("mosquitto_pub", {"-t", "iomap/device/set/1", "-f", large})));
    if (!SANITIZED) {
        gateway->waitForLine("Out of memory");
        next("status", "offline");
        next("status", "online");
    }
    publish("set/1", R"({"token": "small", "value": 5})");
    next("ack", R"("token":"small")");
    EXPECT_EQ(iomapDone({"read", "1"}), "5\n");
}

}  // namespace
