// SPDX-License-Identifier: MIT
#include "daemon/MapCheck.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <sstream>
#include <string>

#include "KR62Driver.h"
#include "TemporaryDirectory.h"
#include "daemon/StandIns.h"

namespace {

/// A field, given as the rest behind its address and size.
std::string field(int address, const std::string& rest) {
    return R"({"address": )" + std::to_string(address) + R"(, "size": 1, )" + rest + "}";
}

class MapCheckTest : public testing::Test {
 protected:
    /// The lines of a check, without the path in front; for a device with one board of each sort.
    std::string check(const std::string& text) {
        DriverManager drivers;
        addStandIns(drivers, "kr62,pd5-1,gpiochip-0");
        return linesOf(MapCheck(drivers, false), text);
    }

    /// The same for one line of fields, which begins in column 1.
    std::string checkFields(const std::string& fields) {
        return check("{\"io_mapping\": [\n" + fields + "\n]}");
    }

    std::string linesOf(MapCheck&& mapCheck, const std::string& text) {
        const auto findings = mapCheck.check(directory.file("map.json", text));
        std::ostringstream lines;
        printLines(lines, "M", findings);
        return lines.str();
    }

    TemporaryDirectory directory;
};

TEST_F(MapCheckTest, AGoodMapHasNoFindings) {
    EXPECT_EQ(check(R"({"$schema": "x", "io_mapping": []})"), "");
    EXPECT_EQ(checkFields(field(1, R"("count": 4, "type": "relay", "driver": "kr62")") + "," +
                          field(5, R"("count": 2, "type": "reserved", "note": "spare")") + "," +
                          field(7, R"("count": 1, "type": "cpu_temp")") + "," +
                          field(8, R"("count": 4, "type": "pd5_detected", "driver": "special")") +
                          "," + field(12, R"("count": 1, "type": "rts", "driver": "gpiochip-0")")),
              "");
}

TEST_F(MapCheckTest, EveryFaultOfEveryFieldIsTold) {
    EXPECT_EQ(checkFields("{\"address\": 0,\n \"size\": 0, \"count\": 0, \"type\": \"relais\",\n"
                          " \"driver\": \"kr26\"},\n null,\n{}"),
              "M:2:13: error: field io_mapping[0], address 0: not valid address: 0; use 1 to 1300 "
              "or 60001 to 60101\n"
              "M:3:10: error: field io_mapping[0], address 0: invalid value for size: 0; use 1 to "
              "32\n"
              "M:3:22: error: field io_mapping[0], address 0: invalid value for count: 0; use 1 or "
              "more, or remove the field\n"
              "M:3:33: error: field io_mapping[0], address 0: IO type 'relais' not found; write "
              "\"relay\"\n"
              "M:4:12: error: field io_mapping[0], address 0: driver not found or not supported on "
              "address 0; write \"kr62\"\n"
              "M:5:2: error: field io_mapping[1], address none: Invalid access: Can not extract "
              "empty value.; remove the element, or write a field in braces\n"
              "M:6:1: error: field io_mapping[2], address none: address is missing; add "
              "\"address\", or correct the misspelt key\n"
              "M:6:1: error: field io_mapping[2], address none: size is missing; add \"size\", or "
              "correct the misspelt key\n"
              "M:6:1: error: field io_mapping[2], address none: count is missing; add \"count\", "
              "or correct the misspelt key\n");
}

TEST_F(MapCheckTest, AFaultOfTheFileIsToldAtItsPlace) {
    EXPECT_EQ(check("{\"io_mapping\": [\n  {\"address\" 1}]}"),
              "M:2:14: error: JSON Exception: expected ':' after member name, line 2; correct the "
              "JSON here, or at the end of the line before\n");
    EXPECT_EQ(check("{\n \"io-mapping\": []}"),
              "M:2:2: error: io mapping not found; write \"io_mapping\" instead of "
              "\"io-mapping\"\n");
    EXPECT_EQ(check("{\n \"io_mapping\": {}}"),
              "M:2:16: error: Null pointer; put the fields in brackets\n");
    DriverManager drivers;
    const auto findings = MapCheck(drivers, false).check("/nowhere/map.json");
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_TRUE(findings[0].isFault);
    EXPECT_EQ(findings[0].message, "cannot read map file: No such file or directory");
}

TEST_F(MapCheckTest, AnAddressOfTwoFieldsIsTheFirstThatTheyShare) {
    EXPECT_EQ(checkFields(field(10, R"("count": 4)") + ",\n" + field(3, R"("count": 2)") + ",\n" +
                          field(4, R"("count": 9)")),
              "M:4:13: error: field io_mapping[2], address 4: address 4 is duplicated; move this "
              "field or field io_mapping[1], or lower the count of the one in front\n");
}

TEST_F(MapCheckTest, WhatADriverRefusesIsToldAtTheTypeOrAtTheCount) {
    EXPECT_EQ(
        checkFields(field(1, R"("count": 3, "type": "color_led", "driver": "kr62")") + ",\n" +
                    field(5, R"("count": 1, "type": "relay")")),
        "M:2:36: error: field io_mapping[0], address 1: invalid led index: 0; lower the count to "
        "2\n"
        "M:3:47: error: field io_mapping[1], address 5: type 'relay' not supported; name the "
        "driver that serves the type; without \"driver\", it is \"vadu\"\n");
}

TEST_F(MapCheckTest, ALineOfAChipServesOneRegister) {
    const std::string busy =
        ": error requesting GPIO lines: Device or resource busy; use one field with count 1 for "
        "each line of a chip\n";
    EXPECT_EQ(checkFields(field(1, R"("count": 2, "type": "rts", "driver": "gpiochip-0")") + ",\n" +
                          field(3, R"("count": 1, "type": "cts", "driver": "gpiochip-0")") + ",\n" +
                          field(4, R"("count": 1, "type": "cts", "driver": "gpiochip-0")")),
              "M:2:36: error: field io_mapping[0], address 1" + busy +
                  "M:4:47: error: field io_mapping[2], address 4" + busy);
}

TEST_F(MapCheckTest, TwoRegistersOnOneIoAreAWarning) {
    EXPECT_EQ(checkFields(field(1, R"("count": 2, "type": "relay", "driver": "kr62")") + ",\n" +
                          field(5, R"("count": 3, "type": "relay", "driver": "kr62")") + ",\n" +
                          field(8, R"("count": 2, "type": "cpu_temp")")),
              "M:3:47: warning: field io_mapping[1], address 5: register 5 is on the same IO as "
              "register 1; remove one of them\n"
              "M:4:36: warning: field io_mapping[2], address 8: register 9 is on the same IO as "
              "register 8; remove one of them\n");
}

TEST_F(MapCheckTest, WhatIsLegalAndSurelyNotMeantIsAWarning) {
    EXPECT_EQ(checkFields(R"({"address": 1299, "size": 33, "count": 3, "cout": 1},)"
                          "\n"
                          R"({"address": "5", "size": 8.5, "count": 1, "count": 2},)"
                          "\n"
                          R"({"address": 7, "size": 256, "count": -1, "virtual_backup": "no"})"),
              "M:2:43: warning: field io_mapping[0], address 1299: the service ignores the key "
              "\"cout\"; write \"count\", unless it is a note\n"
              "M:2:27: warning: field io_mapping[0], address 1299: the size 33 is not from 1 to "
              "32: the service takes it as 32; use 1 to 32\n"
              "M:2:40: warning: field io_mapping[0], address 1299: the last address, 1301, is "
              "beyond 1 to 1300 and 60001 to 60101; lower the count\n"
              "M:3:31: warning: field io_mapping[1], address 5: the key \"count\" occurs again in "
              "this field; remove one; the last one counts\n"
              "M:3:13: warning: field io_mapping[1], address 5: the address is not written as an "
              "integer; write its digits, without quotes or a fraction\n"
              "M:3:26: warning: field io_mapping[1], address 5: the size is not written as an "
              "integer; write its digits, without quotes or a fraction\n"
              "M:4:60: warning: field io_mapping[2], address 7: the virtual backup is neither "
              "true nor false; write true or false, without quotes\n"
              "M:4:24: warning: field io_mapping[2], address 7: the size 256 is not from 1 to 32: "
              "only the value 0 may be written; use 1 to 32\n"
              "M:4:38: warning: field io_mapping[2], address 7: the count -1 makes no register; "
              "use 1 or more, or remove the field\n");
}

TEST_F(MapCheckTest, AFieldThatFallsBackIsAWarningAndOneThatDoesNotAFault) {
    EXPECT_EQ(
        checkFields(
            field(1, R"("count": 1, "driver": "pd5-2", "type": "relay", "virtual_backup": true)") +
            ",\n" +
            field(2, R"("count": 1, "driver": "kr63", "type": "relay", "virtual_backup": true)") +
            ",\n" + field(3, R"("count": 1, "driver": "pd5-2")")),
        "M:2:49: warning: field io_mapping[0], address 1: virtual, switching nothing: driver "
        "'pd5-2' has no usable board or chip here; fit the board, if the registers are to switch "
        "anything\n"
        "M:3:49: warning: field io_mapping[1], address 2: virtual, switching nothing: there is no "
        "driver 'kr63'; see whether the name is misspelt; write \"kr62\"\n"
        "M:4:49: error: field io_mapping[2], address 3: driver not found or not supported on "
        "address 3; fit the board of the driver, or set \"virtual_backup\": true\n");
}

TEST_F(MapCheckTest, TheFilesOfThisDeviceMustBeThere) {
    const std::filesystem::path board = directory.path() / "board";
    for (const char* file :
         {"relays/1/value", "inputs/1/value", "inputs/1/edge", "inputs/2/value"}) {
        writeFile(board / file, "0");
    }
    InfoIo counts;
    counts.relays = counts.inputs = counts.analogs = 3;
    const auto kr62 = std::make_shared<KR62Driver>(counts);
    kr62->setBasePath(board);
    DriverManager drivers;
    drivers.addDriver(kr62);
    const std::string path = board.string();
    EXPECT_EQ(
        linesOf(MapCheck(drivers, true),
                "{\"io_mapping\": [\n" +
                    field(1, R"("count": 4, "type": "relay", "driver": "kr62")") + ",\n" +
                    field(11, R"("count": 2, "type": "input_digital", "driver": "kr62")") + ",\n" +
                    field(21, R"("count": 1, "type": "input_analog", "driver": "kr62")") + "]}"),
        "M:2:47: error: field io_mapping[0], address 1: error enabling notification for file '" +
            path +
            "/relays/2/value': No such file or directory; see whether the board is "
            "complete and the file may be read\n"
            "M:3:48: warning: field io_mapping[1], address 11: there is no " +
            path +
            "/inputs/2/edge: a change may never be announced; see whether the kernel driver of "
            "the board has a file for the edges\n"
            "M:4:48: warning: field io_mapping[2], address 21: cannot read " +
            path +
            "/analogs/1/value: No such file or directory; every read of the register fails until "
            "the file is there\n");
}

TEST_F(MapCheckTest, ACountThatThisMachineCannotHoldIsAFault) {
    DriverManager drivers;
    addStandIns(drivers, "");
    const std::string lines =
        linesOf(MapCheck(drivers, true),
                "{\"io_mapping\": [\n" + field(1, R"("count": 2147483647)") + "]}");
    EXPECT_THAT(lines, testing::HasSubstr("M:2:36: error: field io_mapping[0], address 1: "
                                          "std::bad_alloc; lower the count: the machine has too "
                                          "little memory\n"));
}

TEST_F(MapCheckTest, ACountThatNobodyCanMeanTakesNoTime) {
    EXPECT_EQ(checkFields(field(1, R"("count": 2147483647, "type": "uptime")")),
              "M:2:36: warning: field io_mapping[0], address 1: the last address, 2147483647, is "
              "beyond 1 to 1300 and 60001 to 60101; lower the count\n");
}

}  // namespace
