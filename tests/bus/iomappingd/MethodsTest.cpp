// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>

#include "BusFixture.h"
#include "RegisterTypes.h"

namespace {

using testing::ElementsAre;

constexpr const char* SENSOR_LIST = "/sys/bus/w1/devices/w1_bus_master1/w1_master_slaves";

class MethodsTest : public BusFixture {
 protected:
    void serve(const std::vector<std::string>& fields) {
        startService(mapOf(fields));
        client = std::make_unique<BusClient>();
    }

    std::string call(const std::string& method, const std::string& parameters) const {
        return client->call(method, parameters).text();
    }

    std::unique_ptr<BusClient> client;
};

TEST_F(MethodsTest, AVirtualRegisterReadsWhatWasWritten) {
    serve({R"({"address": 5, "size": 16, "count": 2})"});
    EXPECT_EQ(call("Read", "(5,)"), "(0,)");
    EXPECT_EQ(call("Write", "(5, 65535)"), "()");
    EXPECT_EQ(call("Read", "(5,)"), "(65535,)");
    EXPECT_EQ(call("Read", "(6,)"), "(0,)");
}

TEST_F(MethodsTest, ARegisterOf32BitsTakesEveryValue) {
    serve({R"({"address": 5, "size": 32, "count": 1})"});
    for (const char* value : {"-1", "2147483647", "-2147483648"}) {
        EXPECT_EQ(call("Write", std::string("(5, ") + value + ")"), "()");
        EXPECT_EQ(call("Read", "(5,)"), std::string("(") + value + ",)");
    }
}

TEST_F(MethodsTest, ReadListGivesOneValuePerAddressInTheOrderAsked) {
    serve({R"({"address": 1, "size": 8, "count": 3})"});
    call("Write", "(1, 10)");
    call("Write", "(3, 30)");
    EXPECT_EQ(call("ReadList", "(<[3, 1, 3, 2]>,)"), "(<[30, 10, 30, 0]>,)");
}

TEST_F(MethodsTest, ReadListOfNothingGivesNothing) {
    serve({R"({"address": 1, "size": 8, "count": 1})"});
    const auto answer = client->call("ReadList", "(<@ai []>,)");
    EXPECT_EQ(answer.text(), "(<@ai []>,)");
}

TEST_F(MethodsTest, AddressesOfATypeAscendWhateverTheOrderOfTheMap) {
    serve({R"({"address": 60001, "size": 8, "count": 2})",
           R"({"address": 20, "size": 8, "count": 1, "type": "reserved"})",
           R"({"address": 7, "size": 8, "count": 2})"});
    EXPECT_EQ(call("GetAddrsPerType", "(29,)"), "(<[7, 8, 60001, 60002]>,)");
    EXPECT_EQ(call("GetAddrsPerType", "(28,)"), "(<[20]>,)");
}

TEST_F(MethodsTest, ATypeWithoutRegistersHasAnEmptyListOfAddresses) {
    serve({R"({"address": 1, "size": 8, "count": 1})"});
    for (const RegisterType type : allTypes()) {
        if (type != RegisterType::VIRTUAL) {
            const int number = static_cast<int>(type);
            EXPECT_EQ(call("GetAddrsPerType", "(" + std::to_string(number) + ",)"), "(<@ai []>,)")
                << number;
        }
    }
}

TEST_F(MethodsTest, ParametersAreTypeIndexAndMaximum) {
    serve({R"({"address": 40, "size": 12, "count": 3})",
           R"({"address": 50, "size": 32, "count": 1, "type": "uptime"})"});
    EXPECT_EQ(call("GetParams", "(42,)"), "(29, 3, 4095)");
    EXPECT_EQ(call("GetParams", "(50,)"), "(14, 1, -1)");
}

TEST_F(MethodsTest, EveryAcceptedWriteOfAVirtualRegisterIsAnnounced) {
    serve({R"({"address": 1, "size": 8, "count": 2})"});
    call("Write", "(1, 7)");
    call("Write", "(2, 9)");
    call("Write", "(1, 256)");
    call("Write", "(1, 7)");
    ASSERT_TRUE(client->waitForChanges(3));
    EXPECT_THAT(client->changes(), ElementsAre(std::pair(1, 7), std::pair(2, 9), std::pair(1, 7)));
}

TEST_F(MethodsTest, TheMainBoardIsReadAnewEveryTime) {
    writeFile("/sys/class/thermal/thermal_zone0/temp", "48250\n");
    writeFile("/tmp/factory_info_partition/factory_info_json",
              R"({"HW_DEVICE": {"Legacy_HW_Type": "12"}})");
    writeFile("/usr/lib/os-release", "IMAGE_VERSION=\"2.3.4-rc1\"\nVERSION_ID=\"12\"\n");
    serve({R"({"address": 1, "size": 32, "count": 1, "type": "cpu_temp"})",
           R"({"address": 2, "size": 32, "count": 1, "type": "hw_type"})",
           R"({"address": 3, "size": 32, "count": 1, "type": "fw_version"})"});
    EXPECT_EQ(call("ReadList", "(<[1, 2, 3]>,)"), "(<[48250, 12, 564]>,)");
    writeFile("/sys/class/thermal/thermal_zone0/temp", "-1500\n");
    EXPECT_EQ(call("Read", "(1,)"), "(-1500,)");
}

TEST_F(MethodsTest, UptimeIsTheSystems) {
    serve({R"({"address": 1, "size": 32, "count": 1, "type": "uptime"})"});
    const auto kernelUptime = [] { return std::stoi(readFile("/proc/uptime")); };
    const int before = kernelUptime();
    gint32 value = 0;
    g_variant_get(client->call("Read", "(1,)").reply.get(), "(i)", &value);
    EXPECT_GE(value, before);
    EXPECT_LE(value, kernelUptime() + 1);
}

TEST_F(MethodsTest, SensorsComeAndGo) {
    std::filesystem::remove(SENSOR_LIST);
    serve({R"({"address": 1, "size": 32, "count": 2, "type": "sensor_temp_value"})",
           R"({"address": 11, "size": 32, "count": 2, "type": "sensor_temp_address_lower"})",
           R"({"address": 21, "size": 32, "count": 2, "type": "sensor_temp_address_higher"})"});
    const std::string everything = "(<[1, 2, 11, 12, 21, 22]>,)";
    EXPECT_EQ(call("ReadList", everything), "(<[4096, 4096, 0, 0, 0, 0]>,)");
    writeFile(SENSOR_LIST, "28-00000a1b2c3d\n28-0123075f0e11\n");
    writeFile("/sys/bus/w1/devices/28-0123075f0e11/temperature", "21437\n");
    EXPECT_EQ(call("ReadList", everything), "(<[4096, 21437, 169552957, 123670033, 0, 291]>,)");
}

TEST_F(MethodsTest, TheCountsOfTheDeviceAreServed) {
    serve(
        {R"({"address": 1, "size": 8, "count": 1, "type": "count_serials", "driver": "special"})",
         R"({"address": 2, "size": 8, "count": 1, "type": "count_relays", "driver": "special"})",
         R"({"address": 3, "size": 8, "count": 4, "type": "pd5_detected", "driver": "special"})"});
    EXPECT_EQ(call("ReadList", "(<[1, 2, 3, 4, 5, 6]>,)"), "(<[1, 0, 0, 0, 0, 0]>,)");
}

TEST_F(MethodsTest, TheWholeAddressRangeIsServedAtOnce) {
    serve({R"({"address": 1, "size": 32, "count": 1300})",
           R"({"address": 60001, "size": 32, "count": 101})"});
    gsize count = 0;
    const auto addresses = client->call("GetAddrsPerType", "(29,)").reply;
    const VariantOwner boxed(g_variant_get_child_value(addresses.get(), 0));
    const VariantOwner list(g_variant_get_variant(boxed.get()));
    const auto* const numbers =
        static_cast<const gint32*>(g_variant_get_fixed_array(list.get(), &count, sizeof(gint32)));
    ASSERT_EQ(count, 1401U);
    EXPECT_TRUE(std::is_sorted(numbers, numbers + count));

    call("Write", "(1300, 13)");
    call("Write", "(60101, 60)");
    const StringOwner text(g_variant_print(addresses.get(), FALSE));
    const auto values = client->call("ReadList", text.get()).reply;
    const VariantOwner boxedValues(g_variant_get_child_value(values.get(), 0));
    const VariantOwner valueList(g_variant_get_variant(boxedValues.get()));
    const auto* const read = static_cast<const gint32*>(
        g_variant_get_fixed_array(valueList.get(), &count, sizeof(gint32)));
    ASSERT_EQ(count, 1401U);
    EXPECT_EQ(read[0], 0);
    EXPECT_EQ(read[1299], 13);
    EXPECT_EQ(read[1400], 60);
}

}  // namespace
