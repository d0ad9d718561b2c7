// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>

#include "BusFixture.h"

namespace {

constexpr const char* FAILED = "org.freedesktop.DBus.Error.Failed: ";

class ErrorsTest : public BusFixture {
 protected:
    void SetUp() override {
        std::filesystem::remove_all("/sys/class");
        service =
            &startService(mapOf({R"({"address": 1, "size": 1, "count": 1})",
                                 R"({"address": 2, "size": 31, "count": 1})",
                                 R"({"address": 10, "size": 8, "count": 1, "type": "reserved"})",
                                 R"({"address": 11, "size": 32, "count": 1, "type": "cpu_temp"})",
                                 R"({"address": 12, "size": 32, "count": 1, "type": "hw_type"})",
                                 R"({"address": 13, "size": 8, "count": 1, "type": "count_relays",
                       "driver": "special"})",
                                 R"({"address": 14, "size": 32, "count": 1,
                       "type": "sensor_temp_address_lower"})"}));
        client = std::make_unique<BusClient>();
    }

    /// Every refusal leaves the service able to answer.
    void TearDown() override { EXPECT_EQ(client->call("Read", "(1,)").text(), "(0,)"); }

    std::string call(const std::string& method, const std::string& parameters) const {
        return client->call(method, parameters).text();
    }

    Process* service{nullptr};
    std::unique_ptr<BusClient> client;
};

TEST_F(ErrorsTest, AnUnknownAddressIsNamed) {
    const std::string error = std::string(FAILED) + "address '99' not found";
    EXPECT_EQ(call("Read", "(99,)"), error);
    EXPECT_EQ(call("Write", "(99, 0)"), error);
    EXPECT_EQ(call("GetParams", "(99,)"), error);
    EXPECT_EQ(call("Read", "(-5,)"), std::string(FAILED) + "address '-5' not found");
}

TEST_F(ErrorsTest, OneUnknownAddressFailsAWholeList) {
    EXPECT_EQ(call("ReadList", "(<[1, 99, 98]>,)"), std::string(FAILED) + "address '99' not found");
}

TEST_F(ErrorsTest, AValueAboveTheMaximumIsRefused) {
    EXPECT_EQ(call("Write", "(1, 2)"), std::string(FAILED) + "value 2 is higher than max value 1");
    EXPECT_EQ(call("Write", "(2, -1)"),
              std::string(FAILED) + "value -1 is higher than max value 2147483647");
}

TEST_F(ErrorsTest, AReservedRegisterTakesNoWriteAndStillReads) {
    EXPECT_EQ(call("Write", "(10, 0)"),
              std::string(FAILED) + "this register is reserved. No writes are allowed");
    EXPECT_EQ(call("Read", "(10,)"), "(0,)");
}

TEST_F(ErrorsTest, WhatCannotBeWrittenSaysSo) {
    EXPECT_EQ(call("Write", "(11, 0)"),
              std::string(FAILED) + "write not supported with type 'cpu_temp'");
    EXPECT_EQ(call("Write", "(13, 0)"),
              std::string(FAILED) + "write not supported for IO type count_relays");
}

TEST_F(ErrorsTest, AMissingFileIsNamed) {
    EXPECT_EQ(call("Read", "(11,)"),
              std::string(FAILED) +
                  "error opening file '/sys/class/thermal/thermal_zone0/temp' for reading");
}

TEST_F(ErrorsTest, APipeInThePlaceOfAFileHoldsNothingUp) {
    const std::string path = "/sys/class/thermal/thermal_zone0/temp";
    writeFile("/sys/class/thermal/thermal_zone0/type", "");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(call("Read", "(11,)"),
              std::string(FAILED) + "error opening file '" + path + "' for reading");
    // The reply does not say why.
    service->waitForLine("file '" + path + "' cannot be opened for reading: not a regular file");
}

TEST_F(ErrorsTest, AFailureOfPocoCarriesItsWords) {
    writeFile("/tmp/factory_info_partition/factory_info_json", "[]");
    EXPECT_EQ(call("Read", "(12,)"), std::string(FAILED) + "Null pointer");
    writeFile("/tmp/factory_info_partition/factory_info_json",
              R"({"HW_DEVICE": {"Legacy_HW_Type": null}})");
    EXPECT_EQ(call("Read", "(12,)"),
              std::string(FAILED) + "Invalid access: Can not convert empty value.");
}

TEST_F(ErrorsTest, ATextThatIsNotUtf8IsStillAnError) {
    writeFile("/sys/bus/w1/devices/w1_bus_master1/w1_master_slaves", "28-\xff\xfe\n");
    const auto answer = client->call("Read", "(14,)");
    EXPECT_EQ(answer.errorName, "org.freedesktop.DBus.Error.Failed");
    EXPECT_EQ(answer.errorText, "Syntax error: Not a valid hexadecimal integer: \uFFFD\uFFFD");
}

TEST_F(ErrorsTest, AListThatIsNoListOfIntegersIsRefused) {
    const std::vector<std::pair<std::string, std::string>> lists{
        {"'text'", "s"},       {"5", "i"},
        {"@au [1]", "au"},     {"@ax [1]", "ax"},
        {"[(1, 2)]", "a(ii)"}, {"@as []", "as"},
        {"<[1]>", "v"},        {"(1, 2)", "(ii)"},
        {"@av []", "av"},      {"@a{ii} {}", "a{ii}"},
        {"[[1]]", "aai"},
    };
    for (const auto& [list, type] : lists) {
        EXPECT_EQ(call("ReadList", "(<" + list + ">,)"),
                  std::string(FAILED) +
                      "the addresses must be an array of integers, type 'ai', not '" + type + "'");
    }
}

TEST_F(ErrorsTest, AMethodThatIsNotDescribedIsUnknown) {
    EXPECT_EQ(client->call("Reset", "()").errorName, "org.freedesktop.DBus.Error.UnknownMethod");
}

TEST_F(ErrorsTest, ArgumentsOfTheWrongTypeAreRefused) {
    for (const auto& [method, arguments] : std::vector<std::pair<std::string, std::string>>{
             {"Read", "('1',)"}, {"Read", "()"}, {"Write", "(1,)"}, {"ReadList", "([1, 2],)"}}) {
        EXPECT_EQ(client->call(method, arguments).errorName,
                  "org.freedesktop.DBus.Error.InvalidArgs");
    }
}

TEST_F(ErrorsTest, OtherPathsAndInterfacesAreUnknown) {
    EXPECT_EQ(client->call("/other", "org.mirel.Register", "Read", "(1,)").errorName,
              "org.freedesktop.DBus.Error.UnknownMethod");
    EXPECT_EQ(client->call("/org/mirel/register", "org.mirel.Other", "Read", "(1,)").errorName,
              "org.freedesktop.DBus.Error.UnknownMethod");
}

}  // namespace
