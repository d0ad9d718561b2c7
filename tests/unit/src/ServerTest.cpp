// SPDX-License-Identifier: MIT
#include "Server.h"

#include <Poco/Channel.h>
#include <Poco/Logger.h>
#include <Poco/String.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "BusClient.h"
#include "CapturedLog.h"
#include "Deadline.h"
#include "EndProcess.h"
#include "FakeDriver.h"
#include "LoggerNames.h"
#include "PeerConnection.h"
#include "RegisterMap.h"
#include "TemporaryDirectory.h"
#include "support/GLibOwners.h"

namespace {

using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* NAME = "org.mirel.IoMapping";

/// A main context that nobody runs: what is begun in it stays without consequence until the end.
class IdleContext {
 public:
    template <typename Function>
    auto begin(const Function& function) {
        g_main_context_push_thread_default(context.get());
        auto result = function();
        g_main_context_pop_thread_default(context.get());
        return result;
    }

    /// Waits for what was begun and lets it finish.
    void finish() {
        const std::unique_ptr<GSource, GLibRelease<GSource, g_source_unref>> limit(
            g_timeout_source_new_seconds(static_cast<guint>(PATIENCE.count())));
        g_source_set_callback(
            limit.get(), [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr, nullptr);
        g_source_attach(limit.get(), context.get());
        g_main_context_iteration(context.get(), TRUE);
        while (g_main_context_iteration(context.get(), FALSE) != FALSE) {
        }
        g_source_destroy(limit.get());
    }

 private:
    std::unique_ptr<GMainContext, GLibRelease<GMainContext, g_main_context_unref>> context{
        g_main_context_new()};
};

/// Prints log lines as "priority logger: text" for the parent of a death test to see, which knows
/// nothing of the child's directory.
class Printed : public Poco::Channel {
 public:
    explicit Printed(const TemporaryDirectory& ofTest) : directory(ofTest.path().string() + "/") {}

    void log(const Poco::Message& message) override {
        const std::string& source = message.getSource();
        std::cerr << message.getPriority() << ' ' << source.substr(0, source.find('.')) << ": "
                  << Poco::replace(message.getText(), directory, std::string()) << '\n';
    }

 private:
    std::string directory;
};

/// The test calls the server in place of GDBus, whose own callbacks never come.
class ServerTest : public testing::Test {
 protected:
    ServerTest() {
        // The child of a death test would inherit GDBus's locks without GDBus's threads.
        testing::GTEST_FLAG(death_test_style) = "threadsafe";
        setenv("DBUS_SYSTEM_BUS_ADDRESS",
               ("unix:path=" + (directory.path() / "no-bus").string()).c_str(), 1);
        drivers.addDriver(driver);
        server = idle.begin([this] { return std::make_unique<Server>(path(), drivers); });
        log.clear();
    }
    ~ServerTest() override {
        server.reset();
        idle.finish();
        unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
    }

    std::string path() const { return (directory.path() / "map.json").string(); }

    void writeMap(const std::string& fields) const {
        writeFile(path(), R"({"io_mapping": [)" + fields + "]}");
    }

    void printLines() const {
        Poco::Logger::setChannel("", Poco::AutoPtr<Poco::Channel>(new Printed(directory)));
    }

    void acquireBus(const PeerConnection& connection) {
        Server::dbusOnBusAcquired(connection.service(), NAME, server.get());
    }

    /// The lines as "priority logger: text", without the loggers' addresses.
    std::vector<std::string> lines() const {
        std::vector<std::string> result;
        for (const CapturedLog::Line& line : log.lines()) {
            result.push_back(std::to_string(line.priority) + " " +
                             line.source.substr(0, line.source.find('.')) + ": " + line.text);
        }
        return result;
    }

    std::shared_ptr<FakeDriver> driver{std::make_shared<FakeDriver>(DriverInterface::VADU)};
    DriverManager drivers;
    CapturedLog log;
    TemporaryDirectory directory;
    IdleContext idle;
    PeerConnection peer;
    std::unique_ptr<Server> server;
};

// ---- the contract on the bus

TEST_F(ServerTest, NameAndPathAreTheOnesThatClientsKnow) {
    EXPECT_EQ(Server::DBUS_SERVICE_NAME, "org.mirel.IoMapping");
    EXPECT_EQ(RegisterMap::DBUS_OBJECT_NAME, "/org/mirel/register");
}

std::string argumentsText(GDBusArgInfo** arguments, const std::string& direction) {
    std::string text;
    for (; arguments != nullptr && *arguments != nullptr; ++arguments) {
        text += " " + direction + ":" + (*arguments)->signature + ":" + (*arguments)->name;
    }
    return text;
}

TEST_F(ServerTest, TheDescriptionHasItsMembersInOrderAndNoOthers) {
    const NodeInfoOwner node(
        g_dbus_node_info_new_for_xml(RegisterMap::DBUS_INTROSPECTION_XML.c_str(), nullptr));
    ASSERT_TRUE(node);
    EXPECT_EQ(node->path, nullptr);
    EXPECT_EQ(node->nodes[0], nullptr);
    ASSERT_NE(node->interfaces[0], nullptr);
    EXPECT_EQ(node->interfaces[1], nullptr);
    const GDBusInterfaceInfo& interface = *node->interfaces[0];
    EXPECT_STREQ(interface.name, "org.mirel.Register");

    std::vector<std::string> methods;
    for (GDBusMethodInfo** method = interface.methods; *method != nullptr; ++method) {
        methods.push_back((*method)->name + argumentsText((*method)->in_args, "in") +
                          argumentsText((*method)->out_args, "out"));
    }
    EXPECT_THAT(
        methods,
        ElementsAre("GetAddrsPerType in:i:type out:v:indexes", "Write in:i:address in:i:value",
                    "Read in:i:address out:i:value", "ReadList in:v:addresses out:v:values",
                    "GetParams in:i:address out:i:type out:i:index "
                    "out:i:maxValue"));
    ASSERT_NE(interface.signals[0], nullptr);
    EXPECT_EQ(interface.signals[0]->name + argumentsText(interface.signals[0]->args, "out"),
              "OnValueChange out:i:address out:i:value");
    EXPECT_EQ(interface.signals[1], nullptr);
    EXPECT_TRUE(interface.properties == nullptr || interface.properties[0] == nullptr);
    EXPECT_EQ(RegisterMap::DBUS_INTROSPECTION_XML.find('"'), std::string::npos)
        << "attributes are in single quotes";
}

// ---- the bus is there

TEST_F(ServerTest, NothingIsReadOrLoggedBeforeTheBusIsThere) {
    EXPECT_THAT(log.lines(), IsEmpty());
    const BusClient client(peer.client());
    EXPECT_FALSE(client.call("Read", "(5,)").reply);
}

TEST_F(ServerTest, TheMapIsBuiltParsedAndServedWhenTheBusIsThere) {
    writeMap(R"({"address": 5, "size": 8, "count": 1})");
    acquireBus(peer);
    EXPECT_THAT(lines(),
                ElementsAre("6 server: DBus was acquired with success",
                            "6 register-map: parsing file '" + path() + "'",
                            "6 register-map: new register: address 5, type 'virtual', index '1', "
                            "max value '255'"));
    EXPECT_EQ(log.lines().front().source, "server");
    const BusClient client(peer.client());
    EXPECT_EQ(client.call("GetParams", "(5,)").text(), "(29, 1, 255)");
}

TEST_F(ServerTest, ABusThatGoesIsLeftToTheNameLostCallback) {
    writeMap("");
    g_dbus_connection_set_exit_on_close(peer.service(), TRUE);
    acquireBus(peer);
    EXPECT_FALSE(g_dbus_connection_get_exit_on_close(peer.service()));
}

TEST_F(ServerTest, ASecondBusGetsAFreshMapInPlaceOfTheFirst) {
    writeMap(R"({"address": 5, "size": 8, "count": 1, "type": "uptime"})");
    acquireBus(peer);
    const PeerConnection second;
    const BusClient firstClient(peer.client());
    const BusClient secondClient(second.client());
    EXPECT_TRUE(firstClient.call("Read", "(5,)").reply);
    EXPECT_FALSE(secondClient.call("Read", "(5,)").reply);

    // While the new map is being parsed, the old one is already gone from its connection.
    writeMap(R"({"address": 6, "size": 8, "count": 1, "type": "uptime"})");
    const NodeInfoOwner node(
        g_dbus_node_info_new_for_xml(RegisterMap::DBUS_INTROSPECTION_XML.c_str(), nullptr));
    bool oldPlaceWasFree = false;
    driver->onConfigure = [&](RegisterType, int) {
        const guint id = g_dbus_connection_register_object(
            peer.service(), RegisterMap::DBUS_OBJECT_NAME.c_str(), node->interfaces[0], nullptr,
            nullptr, nullptr, nullptr);
        oldPlaceWasFree = id != 0 && g_dbus_connection_unregister_object(peer.service(), id);
    };
    log.clear();
    acquireBus(second);
    EXPECT_TRUE(oldPlaceWasFree);
    EXPECT_THAT(lines(),
                ElementsAre("6 server: DBus was acquired with success",
                            "6 register-map: parsing file '" + path() + "'",
                            "6 register-map: new register: address 6, type 'uptime', index '1', "
                            "max value '255'"));

    EXPECT_EQ(firstClient.call("Read", "(5,)").errorName,
              "org.freedesktop.DBus.Error.UnknownMethod");
    EXPECT_TRUE(secondClient.call("Read", "(6,)").reply);
    EXPECT_EQ(secondClient.call("Read", "(5,)").errorText, "address '5' not found");
}

TEST_F(ServerTest, TheOldMapStandsUntilTheNewOneIsMade) {
    writeMap("");
    // On the same connection the old map still holds the path when the new one asks for it.
    EXPECT_EXIT(
        {
            printLines();
            acquireBus(peer);
            acquireBus(peer);
        },
        ExitedWithCode(1), "1 server: error registering object /org/mirel/register on DBus");
}

TEST_F(ServerTest, AMapThatCannotBeLoadedEndsTheProcess) {
    const std::string fault = "5 register-map: the fault is in map file 'map.json'";
    struct Row {
        std::string text;
        std::string lines;
    };
    const std::vector<Row> rows{
        {"[]", fault + "\n1 server: error parsing file 'map.json'\n"},
        {"{}", fault + "\n1 server: io mapping not found\n"},
        {R"({"io_mapping": 5})", fault + "\n1 server: Null pointer\n"},
        {R"({"io_mapping": [{"size": 1}]})",
         "3 register-map: address is missing\n" + fault +
             ", field io_mapping[0], address none\n1 server: error parsing field\n"},
        {R"({"io_mapping": [{"address": "x", "size": 1, "count": 1}]})",
         fault + ", field io_mapping[0], address x\n"
                 "1 server: Syntax error: Not a valid integer: x\n"},
        {R"({"io_mapping": [{"address": 5, "size": 1, "count": 1, "type": "%s"}]})",
         fault + ", field io_mapping[0], address 5\n1 server: IO type '%s' not found\n"},
    };
    for (const Row& row : rows) {
        EXPECT_EXIT(
            {
                writeFile(path(), row.text);
                printLines();
                acquireBus(peer);
            },
            ExitedWithCode(1),
            HasSubstr("6 server: DBus was acquired with success\n"
                      "6 register-map: parsing file 'map.json'\n" +
                      row.lines));
    }
}

TEST_F(ServerTest, AMissingMapEndsTheProcess) {
    EXPECT_EXIT(
        {
            printLines();
            acquireBus(peer);
        },
        ExitedWithCode(1),
        HasSubstr("5 register-map: the fault is in map file 'map.json'\n"
                  "1 server: map file not found\n"));
}

TEST_F(ServerTest, AMapThatCannotBeReadIsNoFaultOfItsText) {
    EXPECT_EXIT(
        {
            std::filesystem::create_directory(path());
            printLines();
            acquireBus(peer);
        },
        ExitedWithCode(1),
        HasSubstr("3 register-map: map file 'map.json' cannot be read: Is a directory\n"
                  "5 register-map: the fault is in map file 'map.json'\n"
                  "1 server: error parsing file 'map.json'\n"));
}

// ---- the name

TEST_F(ServerTest, AnAcquiredNameIsLoggedAndNothingElseHappens) {
    Server::dbusOnNameAcquired(peer.service(), NAME, server.get());
    Server::dbusOnNameAcquired(nullptr, "any.Name", server.get());
    EXPECT_THAT(lines(), ElementsAre("6 server: org.mirel.IoMapping was acquired on DBus",
                                     "6 server: any.Name was acquired on DBus"));
    EXPECT_EQ(log.lines().front().source, "server");
    const BusClient client(peer.client());
    EXPECT_FALSE(client.call("Read", "(5,)").reply);
}

TEST_F(ServerTest, ANameThatIsLostEndsTheProcess) {
    EXPECT_EXIT(
        {
            printLines();
            Server::dbusOnNameLost(peer.service(), NAME, server.get());
        },
        ExitedWithCode(1),
        HasSubstr("6 server: org.mirel.IoMapping was lost on DBus\n"
                  "5 server: org.mirel.IoMapping belongs to another process, or the bus policy "
                  "does not let this user own it\n"));
}

TEST_F(ServerTest, ABusThatGoesEndsTheProcess) {
    EXPECT_EXIT(
        {
            writeMap("");
            acquireBus(peer);
            printLines();
            Server::dbusOnNameLost(nullptr, NAME, server.get());
        },
        ExitedWithCode(1),
        HasSubstr("6 server: org.mirel.IoMapping was lost on DBus\n"
                  "5 server: the system bus has closed the connection\n"));
}

TEST_F(ServerTest, ABusThatCannotBeReachedEndsTheProcess) {
    EXPECT_EXIT(
        {
            printLines();
            Server unheard(path(), drivers);
            unheard.run();
        },
        ExitedWithCode(1),
        HasSubstr("6 server: org.mirel.IoMapping was lost on DBus\n"
                  "5 server: the system bus cannot be reached: start dbus-daemon, or set "
                  "DBUS_SYSTEM_BUS_ADDRESS\n"));
}

TEST_F(ServerTest, NullUserDataEndsTheProcess) {
    EXPECT_DEATH(Server::dbusOnBusAcquired(peer.service(), NAME, nullptr), "obj != nullptr");
    EXPECT_DEATH(Server::dbusOnNameAcquired(peer.service(), NAME, nullptr), "obj != nullptr");
    EXPECT_DEATH(Server::dbusOnNameLost(peer.service(), NAME, nullptr), "obj != nullptr");
}

// ---- the server as an object

TEST_F(ServerTest, RunServesTheDefaultMainContext) {
    EXPECT_EXIT(
        {
            g_idle_add(
                [](gpointer) -> gboolean {
                    endProcess(42);
                    return G_SOURCE_REMOVE;
                },
                nullptr);
            server->run();
        },
        ExitedWithCode(42), "");
}

TEST_F(ServerTest, TheLoggerOutlivesTheServer) {
    EXPECT_TRUE(loggerExists("server"));
    server.reset();
    EXPECT_TRUE(loggerExists("server"));
}

TEST_F(ServerTest, NothingIsHeardOfAServerThatIsGone) {
    // There is no bus. A server that still heard of that would end the process.
    IdleContext later;
    auto gone = later.begin([this] { return std::make_unique<Server>(path(), drivers); });
    gone.reset();
    later.finish();
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ServerTest, TheMapGoesWithTheServer) {
    writeMap(R"({"address": 5, "size": 8, "count": 1})");
    acquireBus(peer);
    const std::vector<std::string> names = loggerNames();
    EXPECT_TRUE(std::any_of(names.begin(), names.end(), [](const std::string& name) {
        return name.compare(0, 11, "register-5.") == 0;
    }));
    server.reset();
    const BusClient client(peer.client());
    EXPECT_EQ(client.call("Read", "(5,)").errorName, "org.freedesktop.DBus.Error.UnknownMethod");
    for (const std::string& name : loggerNames()) {
        EXPECT_NE(name.compare(0, 11, "register-5."), 0) << name;
        EXPECT_NE(name.compare(0, 13, "register-map."), 0) << name;
    }
}

}  // namespace
