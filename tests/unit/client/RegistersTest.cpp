// SPDX-License-Identifier: MIT
#include "client/Registers.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <mutex>
#include <numeric>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "BusClient.h"
#include "PrivateBus.h"
#include "client/Failure.h"
#include "support/GLibOwners.h"
#include "tesk/Exceptions.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::ThrowsMessage;

/// What the service knows of a register. One without a value cannot be read.
struct Entry {
    RegisterType type;
    int index;
    int maximum;
    std::optional<int> value;
};

/// Answers the calls that clients make to the service, in a thread of GDBus.
class FakeService {
 public:
    explicit FakeService(std::map<int, Entry> served) : registers(std::move(served)) {
        filter = g_dbus_connection_add_filter(client.connection(), onMessage, this, nullptr);
        const VariantOwner reply(g_dbus_connection_call_sync(
            client.connection(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
            "org.freedesktop.DBus", "RequestName", g_variant_new("(su)", "org.mirel.IoMapping", 0),
            nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
        EXPECT_TRUE(reply);
    }
    ~FakeService() { g_dbus_connection_remove_filter(client.connection(), filter); }
    FakeService(const FakeService&) = delete;
    FakeService& operator=(const FakeService&) = delete;

    /// The calls until now, such as "ReadList (<[1, 2]>,)".
    std::vector<std::string> calls() const {
        const std::lock_guard<std::mutex> lock(mutex);
        return record;
    }

 private:
    static GDBusMessage* onMessage(GDBusConnection* connection, GDBusMessage* message,
                                   gboolean incoming, gpointer service) {
        if (incoming == FALSE ||
            g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL) {
            return message;
        }
        const ObjectOwner<GDBusMessage> call(message);
        const ObjectOwner<GDBusMessage> reply(static_cast<FakeService*>(service)->answer(message));
        g_dbus_connection_send_message(connection, reply.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE,
                                       nullptr, nullptr);
        return nullptr;
    }

    GDBusMessage* answer(GDBusMessage* call) {
        const std::string method = g_dbus_message_get_member(call);
        GVariant* const body = g_dbus_message_get_body(call);
        {
            const std::lock_guard<std::mutex> lock(mutex);
            record.push_back(method + " " + StringOwner(g_variant_print(body, FALSE)).get());
        }
        GDBusMessage* reply = g_dbus_message_new_method_reply(call);
        try {
            g_dbus_message_set_body(reply, result(method, body));
        } catch (const std::exception& e) {
            g_object_unref(reply);
            reply = g_dbus_message_new_method_error_literal(
                call, "org.freedesktop.DBus.Error.Failed", e.what());
        }
        return reply;
    }

    GVariant* result(const std::string& method, GVariant* body) const {
        if (method == "ReadList") {
            return readList(body);
        }
        gint32 number = 0;
        g_variant_get(body, "(i)", &number);
        if (method == "Read") {
            return g_variant_new("(i)", valueOf(number));
        }
        if (method == "GetParams") {
            const Entry& entry = find(number);
            return g_variant_new("(iii)", static_cast<int>(entry.type), entry.index, entry.maximum);
        }
        std::vector<int> addresses;
        for (const auto& [address, entry] : registers) {
            if (static_cast<int>(entry.type) == number) {
                addresses.push_back(address);
            }
        }
        return numbers(addresses);
    }

    GVariant* readList(GVariant* body) const {
        GVariant* list = nullptr;
        g_variant_get(body, "(v)", &list);
        const VariantOwner owner(list);
        std::vector<int> values;
        for (gsize i = 0; i < g_variant_n_children(list); ++i) {
            gint32 address = 0;
            g_variant_get_child(list, i, "i", &address);
            values.push_back(valueOf(address));
        }
        return numbers(values);
    }

    int valueOf(int address) const {
        const Entry& entry = find(address);
        if (!entry.value) {
            throw std::runtime_error("cannot read " + std::to_string(address));
        }
        return *entry.value;
    }

    const Entry& find(int address) const {
        const auto entry = registers.find(address);
        if (entry == registers.end()) {
            throw std::runtime_error("address '" + std::to_string(address) + "' not found");
        }
        return entry->second;
    }

    static GVariant* numbers(const std::vector<int>& values) {
        return g_variant_new("(v)", g_variant_new_fixed_array(G_VARIANT_TYPE_INT32, values.data(),
                                                              values.size(), sizeof(gint32)));
    }

    const std::map<int, Entry> registers;
    mutable std::mutex mutex;
    std::vector<std::string> record;
    BusClient client;
    guint filter{0};
};

class RegistersTest : public testing::Test {
 protected:
    /// "ADDRESS TYPE INDEX MAXIMUM".
    static std::string text(const RegisterInfo& info) {
        return std::to_string(info.address) + " " + getTypeName(info.type) + " " +
               std::to_string(info.index) + " " + std::to_string(info.maximum);
    }

    /// The values, or the reasons why there is none.
    std::vector<std::string> readings(const std::vector<int>& addresses) {
        return textsOf(readEach(io, addresses));
    }

    static std::vector<std::string> textsOf(const std::vector<Reading>& readings) {
        std::vector<std::string> texts;
        for (const Reading& reading : readings) {
            texts.push_back(
                (reading.error.empty() ? std::to_string(reading.value) : reading.error) +
                (reading.missing ? " missing" : "") + (reading.unknown ? " unknown" : ""));
        }
        return texts;
    }

    /// How often each method has been called.
    std::map<std::string, int> callCounts() const {
        std::map<std::string, int> counts;
        for (const std::string& call : service.calls()) {
            ++counts[call.substr(0, call.find(' '))];
        }
        return counts;
    }

    PrivateBus bus;
    /// Two relays, two inputs, three analogs, the second of which cannot be read, and three
    /// temperature sensors: one is there, one is missing, one cannot be read.
    FakeService service{{{12, {RegisterType::RELAY, 1, 1, 1}},
                         {3, {RegisterType::RELAY, 2, 1, 0}},
                         {7, {RegisterType::INPUT_DIGITAL, 1, -1, -5}},
                         {8, {RegisterType::INPUT_DIGITAL, 2, -1, 6}},
                         {20, {RegisterType::INPUT_ANALOG, 1, 4095, 70}},
                         {21, {RegisterType::INPUT_ANALOG, 2, 4095, {}}},
                         {22, {RegisterType::INPUT_ANALOG, 3, 4095, 4096}},
                         {30, {RegisterType::SENSOR_TEMP_VALUE, 1, -1, 21500}},
                         {31, {RegisterType::SENSOR_TEMP_VALUE, 2, -1, 4096}},
                         {32, {RegisterType::SENSOR_TEMP_VALUE, 3, -1, {}}}}};
    IoMapping io;
};

TEST_F(RegistersTest, TheAddressesOfSomeTypesAreAscendingAndUnique) {
    EXPECT_THAT(addressesOf(io, {RegisterType::RELAY}), ElementsAre(3, 12));
    EXPECT_THAT(
        addressesOf(io, {RegisterType::RELAY, RegisterType::INPUT_DIGITAL, RegisterType::RELAY}),
        ElementsAre(3, 7, 8, 12));
    EXPECT_THAT(addressesOf(io, {RegisterType::PULLUP}), IsEmpty());
}

TEST_F(RegistersTest, WithoutATypeAllAddressesAreMeant) {
    EXPECT_THAT(addressesOf(io, {}), ElementsAre(3, 7, 8, 12, 20, 21, 22, 30, 31, 32));
}

TEST_F(RegistersTest, TheMaximumIsAnUnsignedNumber) {
    EXPECT_EQ(text(infoOf(io, 7)), "7 input_digital 1 4294967295");
    EXPECT_EQ(text(infoOf(io, 20)), "20 input_analog 1 4095");
}

TEST_F(RegistersTest, SeveralPropertiesKeepTheOrderOfTheAddresses) {
    const std::vector<RegisterInfo> infos = infosOf(io, {12, 3, 12});
    ASSERT_THAT(infos, SizeIs(3));
    EXPECT_EQ(text(infos[0]), "12 relay 1 1");
    EXPECT_EQ(text(infos[1]), "3 relay 2 1");
    EXPECT_EQ(text(infos[2]), "12 relay 1 1");
}

TEST_F(RegistersTest, ARegisterThatIsUnknownIsNamedWithTheReason) {
    EXPECT_THAT([this] { infoOf(io, 99); },
                ThrowsMessage<Failure>("register 99: address '99' not found"));
}

TEST_F(RegistersTest, RegistersThatCanBeReadTakeOneCall) {
    EXPECT_THAT(readings({12, 7, 3, 7}), ElementsAre("1", "-5", "0", "-5"));
    EXPECT_THAT(service.calls(), ElementsAre("ReadList (<[12, 7, 3, 7]>,)"));
}

TEST_F(RegistersTest, NoRegistersTakeNoCall) {
    EXPECT_THAT(readings({}), IsEmpty());
    EXPECT_THAT(service.calls(), IsEmpty());
}

TEST_F(RegistersTest, ARegisterThatCannotBeReadTakesNoOtherWithIt) {
    EXPECT_THAT(readings({12, 21, 7, 99, 3}),
                ElementsAre("1", "cannot read 21", "-5", "address '99' not found unknown", "0"));
}

TEST_F(RegistersTest, UnknownRegistersAmongManyTakeAFewCallsAltogether) {
    std::vector<int> addresses(65536);
    std::iota(addresses.begin(), addresses.end(), 1);
    addresses.erase(std::find(addresses.begin(), addresses.end(), 21));
    addresses.erase(std::find(addresses.begin(), addresses.end(), 32));
    const std::vector<std::string> texts = readings(addresses);
    EXPECT_EQ(texts[0], "address '1' not found unknown");
    EXPECT_EQ(texts[2], "0");
    EXPECT_EQ(callCounts()["ReadList"], 2);
    EXPECT_LE(service.calls().size(), 40);
}

TEST_F(RegistersTest, AnUnknownRegisterAloneIsToldInTheWordsOfTheService) {
    EXPECT_THAT(readings({99}), ElementsAre("address '99' not found"));
    EXPECT_THAT(service.calls(), ElementsAre("ReadList (<[99]>,)"));
}

TEST_F(RegistersTest, TemperaturesAmongManyRegistersTakeACallEach) {
    EXPECT_THAT(readings({30, 12, 31, 3, 32, 7, 30}),
                ElementsAre("21500", "1", "4096 missing", "0", "cannot read 32", "-5", "21500"));
    EXPECT_THAT(service.calls(),
                ElementsAre("GetAddrsPerType (8,)", "ReadList (<[12, 3, 7]>,)", "Read (30,)",
                            "Read (31,)", "Read (32,)", "Read (30,)"));
}

TEST_F(RegistersTest, ManyRegistersWithoutTemperaturesTakeOneListAndOneQuestionForTypes) {
    EXPECT_THAT(readings({3, 3, 3, 3, 3, 3}), ElementsAre("0", "0", "0", "0", "0", "0"));
    EXPECT_THAT(service.calls(),
                ElementsAre("GetAddrsPerType (8,)", "ReadList (<[3, 3, 3, 3, 3, 3]>,)"));
}

TEST_F(RegistersTest, KnownTemperaturesAlwaysTakeACallEach) {
    const std::vector<RegisterInfo> infos{{30, RegisterType::SENSOR_TEMP_VALUE, 1, 0},
                                          {12, RegisterType::RELAY, 1, 1},
                                          {31, RegisterType::SENSOR_TEMP_VALUE, 2, 0}};
    EXPECT_THAT(textsOf(readKnown(io, infos)), ElementsAre("21500", "1", "4096 missing"));
    EXPECT_THAT(service.calls(), ElementsAre("ReadList (<[12]>,)", "Read (30,)", "Read (31,)"));
}

TEST_F(RegistersTest, OnlyATemperatureSensorCanBeMissing) {
    EXPECT_THAT(readings({31}), ElementsAre("4096 missing"));
    EXPECT_THAT(service.calls(), ElementsAre("ReadList (<[31]>,)", "GetAddrsPerType (8,)"));
    EXPECT_THAT(readings({22, 3}), ElementsAre("4096", "0"));
}

TEST_F(RegistersTest, ARegisterIsNamedWithItsTypeAndIndexIfItIsKnown) {
    EXPECT_EQ(nameOf(io, 3), "register 3 (relay 2)");
    EXPECT_EQ(nameOf(io, 99), "register 99");
}

TEST_F(RegistersTest, ABusThatHasGoneIsNoRefusal) {
    bus.kill();
    EXPECT_THROW(readings({12, 7}), tesk::InputOutputException);
    EXPECT_THROW(infoOf(io, 12), tesk::InputOutputException);
    EXPECT_EQ(nameOf(io, 12), "register 12");
}

}  // namespace
