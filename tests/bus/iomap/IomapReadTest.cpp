// SPDX-License-Identifier: MIT
#include <chrono>
#include <filesystem>

#include "Build.h"
#include "IomapFixture.h"

namespace {

constexpr const char* UNREADABLE =
    "error opening file '/sys/class/thermal/thermal_zone0/temp' for reading";

/// The subcommands read and info.
class IomapReadTest : public IomapFixture {
 protected:
    void SetUp() override {
        std::filesystem::remove_all("/sys/class");
        startService(mapOf({R"({"address": 1, "size": 8, "count": 4})",
                            R"({"address": 20, "size": 32, "count": 2})",
                            R"({"address": 30, "size": 8, "count": 1, "type": "reserved"})",
                            R"({"address": 40, "size": 32, "count": 1, "type": "cpu_temp"})",
                            R"({"address": 60101, "size": 1, "count": 1})"}));
    }
};

TEST_F(IomapReadTest, ValuesComeInTheOrderAsked) {
    iomapDone({"write", "1=11", "2=22", "3=33", "4=44", "60101=1"});
    EXPECT_EQ(iomapDone({"read", "2"}), "22\n");
    EXPECT_EQ(iomapDone({"read", "3", "1", "3"}), "33\n11\n33\n");
    EXPECT_EQ(iomapDone({"read", "60101", "2-4", "1-1"}), "1\n22\n33\n44\n11\n");
}

TEST_F(IomapReadTest, AddressesMayBeHexadecimal) {
    iomapDone({"write", "20=1", "21=2"});
    EXPECT_EQ(iomapDone({"read", "0x14", "0X15-21", "0x14-0x15"}), "1\n2\n1\n2\n");
}

TEST_F(IomapReadTest, ValuesAreSignedDecimals) {
    iomapDone({"write", "20=-2147483648", "21=4294967295"});
    EXPECT_EQ(iomapDone({"read", "20-21"}), "-2147483648\n-1\n");
}

TEST_F(IomapReadTest, JsonHasAnObjectForEveryAddressAsked) {
    iomapDone({"write", "2=22", "20=-7"});
    EXPECT_EQ(iomapJson({"read", "--json", "20", "1-2", "20"}), json(R"([
        {"address": 20, "value": -7}, {"address": 1, "value": 0}, {"address": 2, "value": 22},
        {"address": 20, "value": -7}])"));
}

TEST_F(IomapReadTest, WhenOneRegisterCannotBeReadItIsNamedAndNoValueIsPrinted) {
    expectFailure(iomap({"read", "1", "40", "2"}), 1,
                  std::string("register 40 (cpu_temp 1): ") + UNREADABLE);
    expectFailure(iomap({"read", "2147483647"}), 1,
                  "register 2147483647: address '2147483647' not found");
}

TEST_F(IomapReadTest, ARangeWithGapsGivesWhatThereIsAndTellsOfTheGaps) {
    iomapDone({"write", "3=33", "4=44", "20=20"});
    const Outcome outcome = iomap({"read", "3-6", "20", "18-22"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, "33\n44\n20\n20\n0\n");
    EXPECT_EQ(outcome.errors,
              "iomap: 3-6: there is no register at 5-6\n"
              "iomap: 18-22: there is no register at 18-19, 22\n");
}

TEST_F(IomapReadTest, JsonLeavesTheGapsOfARangeOut) {
    const Outcome outcome = iomap({"read", "--json", "4-5"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(json(outcome.output), json(R"([{"address": 4, "value": 0}])"));
    EXPECT_EQ(outcome.errors, "iomap: 4-5: there is no register at 5\n");
}

TEST_F(IomapReadTest, AnUnknownAddressIsRefusedBesideARangeWithGaps) {
    const Outcome outcome = iomap({"read", "4-5", "6"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.errors, testing::EndsWith("iomap: register 6: address '6' not found\n"));
}

TEST_F(IomapReadTest, ARangeWithoutARegisterIsRefused) {
    expectFailure(iomap({"read", "1", "5-9"}), 1, "5-9: there is no register in this range");
    expectFailure(iomap({"read", "5-5"}), 1, "register 5: address '5' not found");
}

TEST_F(IomapReadTest, ALongRangeIsReadAtOnce) {
    startService(mapOf({R"({"address": 1, "size": 8, "count": 4})",
                        R"({"address": 60101, "size": 1, "count": 1})"}));
    const auto start = std::chrono::steady_clock::now();
    const Outcome outcome = iomap({"read", "1-65536"});
    EXPECT_EQ(outcome.output, "0\n0\n0\n0\n0\n");
    EXPECT_EQ(outcome.errors, "iomap: 1-65536: there is no register at 5-60100, 60102-65536\n");
    EXPECT_LT(std::chrono::steady_clock::now() - start,
              std::chrono::seconds(EMULATED || SANITIZED ? 20 : 2));
}

TEST_F(IomapReadTest, ATemperatureSensorThatIsNotThereIsMissing) {
    startService(mapOf({R"({"address": 1, "size": 32, "count": 2})",
                        R"({"address": 3, "size": 32, "count": 2, "type": "sensor_temp_value"})"}));
    iomapDone({"write", "1=4096"});
    EXPECT_EQ(iomapDone({"read", "1-4"}), "4096\n0\nmissing\nmissing\n");
    EXPECT_EQ(iomapJson({"read", "--json", "1", "3"}), json(R"([
        {"address": 1, "value": 4096}, {"address": 3, "value": 4096, "missing": true}])"));
}

TEST_F(IomapReadTest, WhenOneRegisterCannotBeReadJsonHasItsErrorAndTheOtherValues) {
    iomapDone({"write", "1=11", "2=22"});
    const Outcome outcome = iomap({"read", "--json", "1", "40", "2"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.errors, std::string("iomap: register 40 (cpu_temp 1): ") + UNREADABLE + "\n");
    EXPECT_EQ(json(outcome.output),
              json(R"([{"address": 1, "value": 11}, {"address": 40, "error": ")" +
                   std::string(UNREADABLE) + R"("}, {"address": 2, "value": 22}])"));
}

TEST_F(IomapReadTest, InfoShowsThePropertiesInTheOrderAsked) {
    EXPECT_EQ(iomapDone({"info", "40", "0x1-2", "21"}),
              "register 40: type cpu_temp, index 1, maximum 4294967295\n"
              "register 1: type virtual, index 1, maximum 255\n"
              "register 2: type virtual, index 2, maximum 255\n"
              "register 21: type virtual, index 2, maximum 4294967295\n");
}

TEST_F(IomapReadTest, InfoAsJsonIsAnArrayOfObjects) {
    EXPECT_EQ(iomapJson({"info", "--json", "30", "20"}), json(R"([
        {"address": 30, "type": "reserved", "index": 1, "maximum": 255},
        {"address": 20, "type": "virtual", "index": 1, "maximum": 4294967295}])"));
}

TEST_F(IomapReadTest, InfoNamesAnUnknownRegister) {
    expectFailure(iomap({"info", "1", "99"}), 1, "register 99: address '99' not found");
    expectFailure(iomap({"info", "--json", "1", "99"}), 1, "register 99: address '99' not found");
}

}  // namespace
