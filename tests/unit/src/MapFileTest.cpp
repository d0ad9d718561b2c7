// SPDX-License-Identifier: MIT
#include "MapFile.h"

#include <Poco/Exception.h>
#include <gmock/gmock.h>

#include <filesystem>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "CapturedLog.h"
#include "FakeDriver.h"
#include "TemporaryDirectory.h"
#include "tesk/Exceptions.h"
#include "tesk/Json.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::ThrowsMessage;

class MapFileTest : public testing::Test {
 protected:
    MapFileTest() {
        drivers.addDriver(vadu);
        drivers.addDriver(chip);
    }

    Poco::JSON::Array::Ptr fieldsOf(const std::string& text) const {
        return MapFile::readFields(directory.file("map.json", text));
    }

    /// Reads one field, given as a JSON object.
    std::optional<MapFile::Field> read(const std::string& field) {
        std::istringstream text(field);
        log.clear();
        return MapFile::readField(tesk::jsonParse(text), drivers,
                                  Poco::Logger::get("map-file-test"));
    }

    /// Expects that a field is refused with one error line.
    void expectRefused(const std::string& field, const std::string& reason) {
        EXPECT_FALSE(read(field).has_value()) << field;
        EXPECT_THAT(log.texts(Poco::Message::PRIO_ERROR), ElementsAre(reason)) << field;
    }

    std::set<int> numbersIn(const std::string& map) const {
        return MapFile::driverNumbersIn(directory.file("map.json", map), "gpiochip-");
    }

    TemporaryDirectory directory;
    CapturedLog log;
    DriverManager drivers;
    std::shared_ptr<FakeDriver> vadu = std::make_shared<FakeDriver>(DriverInterface::VADU);
    std::shared_ptr<FakeDriver> chip = std::make_shared<FakeDriver>(DriverInterface::GPIOCHIP, 3);
};

TEST_F(MapFileTest, TheFieldsAreTheElementsOfIoMapping) {
    const auto fields = fieldsOf(R"({"io_mapping": [{"address": 7}, 8], "version": 1})");
    ASSERT_EQ(fields->size(), 2U);
    EXPECT_EQ(fields->getObject(0)->getValue<int>("address"), 7);
}

TEST_F(MapFileTest, AFileThatHoldsNoFieldsIsRefused) {
    EXPECT_THAT([] { MapFile::readFields("/nowhere/map.json"); },
                ThrowsMessage<tesk::ParseException>("map file not found"));
    EXPECT_THAT([this] { fieldsOf("[]"); },
                ThrowsMessage<tesk::ParseException>(
                    "error parsing file '" + (directory.path() / "map.json").string() + "'"));
    EXPECT_THAT([this] { fieldsOf("{}"); },
                ThrowsMessage<tesk::ParseException>("io mapping not found"));
    EXPECT_THAT([this] { fieldsOf("{\n\n!"); },
                ThrowsMessage<tesk::ParseException>(HasSubstr("line 3")));
}

TEST_F(MapFileTest, AnIoMappingThatIsNoArrayIsNull) {
    EXPECT_TRUE(fieldsOf(R"({"io_mapping": {}})").isNull());
}

TEST_F(MapFileTest, AFieldIsReadWithItsTypeAndDriver) {
    const auto field =
        read(R"({"address": 60001, "size": 1, "count": 4, "type": "rts", "driver": "gpiochip-3"})");
    ASSERT_TRUE(field.has_value());
    EXPECT_EQ(field->address, 60001);
    EXPECT_EQ(field->size, 1U);
    EXPECT_EQ(field->count, 4);
    EXPECT_EQ(field->type, RegisterType::RTS);
    EXPECT_EQ(field->driver, chip);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(MapFileTest, AFieldIsVirtualAndOfTheMainBoardUnlessItSaysOtherwise) {
    const auto field = read(R"({"address": 1, "size": -8, "count": -2})");
    ASSERT_TRUE(field.has_value());
    EXPECT_EQ(field->size, 0xFFFFFFF8U);
    EXPECT_EQ(field->count, -2);
    EXPECT_EQ(field->type, RegisterType::VIRTUAL);
    EXPECT_EQ(field->driver, vadu);
}

TEST_F(MapFileTest, AFieldFallsBackOnVirtualRegistersOnlyIfItAsksForIt) {
    const std::string start =
        R"({"address": 5, "size": 1, "count": 1, "type": "relay", "driver": "kr62")";
    const auto field = read(start + R"(, "virtual_backup": true})");
    ASSERT_TRUE(field.has_value());
    EXPECT_EQ(field->type, RegisterType::VIRTUAL);
    EXPECT_EQ(field->driver, nullptr);
    EXPECT_EQ(field->driverName, "kr62");
    const std::string reason = "driver not found or not supported on address 5";
    expectRefused(start + "}", reason);
    expectRefused(start + R"(, "virtual_backup": false})", reason);
}

TEST_F(MapFileTest, AFieldIsRefusedWithTheReason) {
    expectRefused("{}", "address is missing");
    expectRefused(R"({"address": 0})", "not valid address: 0");
    expectRefused(R"({"address": 1})", "size is missing");
    expectRefused(R"({"address": 1, "size": 0})", "invalid value for size: 0");
    expectRefused(R"({"address": 1, "size": 1})", "count is missing");
    expectRefused(R"({"address": 1, "size": 1, "count": 0})", "invalid value for count: 0");
}

TEST_F(MapFileTest, ADriverIsKnownByItsNameAlone) {
    for (const char* name :
         {"vadu", "kr62", "special", "pd5-0", "pd5-15", "gpiochip-0", "gpiochip-2147483647"}) {
        EXPECT_TRUE(MapFile::driverIsKnown(name)) << name;
    }
    for (const char* name : {"", "kr26", "KR62", "kr62 ", "kr62-0", "pd5", "pd5-", "pd5-01",
                             "pd5--1", "pd5-1x", "pd5-2147483648", "gpiochip", "xpd5-1"}) {
        EXPECT_FALSE(MapFile::driverIsKnown(name)) << name;
    }
}

TEST_F(MapFileTest, AnUnknownTypeIsNotFoundBeforeTheDriverIsLookedUp) {
    EXPECT_THAT(
        [this] { read(R"({"address": 1, "size": 1, "count": 1, "type": "x", "driver": "y"})"); },
        ThrowsMessage<tesk::NotFoundException>("IO type 'x' not found"));
}

TEST_F(MapFileTest, AddressesAreValidInTwoRanges) {
    for (const int address : {1, 1300, 60001, 60101}) {
        EXPECT_TRUE(MapFile::addressIsValid(address)) << address;
    }
    for (const int address : {-1, 0, 1301, 60000, 60102}) {
        EXPECT_FALSE(MapFile::addressIsValid(address)) << address;
    }
}

TEST_F(MapFileTest, TheAddressOfAnElementIsTextForAMessage) {
    const auto fields = fieldsOf(R"({"io_mapping": [{"address": "seven"}, {}, 8, null]})");
    std::vector<std::string> texts;
    for (const Poco::Dynamic::Var& element : *fields) {
        texts.push_back(MapFile::addressText(element));
    }
    EXPECT_THAT(texts, ElementsAre("seven", "none", "none", "none"));
}

TEST_F(MapFileTest, TheNumbersAreThoseOfTheDriversWithThePrefix) {
    EXPECT_THAT(
        numbersIn(R"({"io_mapping": [{"driver": "gpiochip-3"}, {"driver": "pd5-4"}, {}, null,
                                             {"driver": null}, {"driver": "gpiochip-x"},
                                             {"driver": "\u0067piochip-0"}, {"driver": 5},
                                             {"type": "gpiochip-7"}, {"driver": "a-gpiochip-8"}]})"),
        ElementsAre(0, 3));
}

TEST_F(MapFileTest, AFaultyFileNamesNoDriver) {
    for (const char* map : {"", R"({"io_mapping": {"driver": "gpiochip-1"}})", R"(["gpiochip-1"])",
                            R"({"io_mapping": [{"driver": "gpiochip-1"}])"}) {
        EXPECT_THAT(numbersIn(map), IsEmpty()) << map;
    }
    EXPECT_THAT(MapFile::driverNumbersIn("/nowhere/map.json", "gpiochip-"), IsEmpty());
}

TEST_F(MapFileTest, AFileThatWasReadAheadIsNotParsedAgain) {
    const std::string path = directory.file("map.json", R"({"io_mapping": [{"driver": "x-1"}]})");
    const Poco::JSON::Array::Ptr ahead = MapFile::readAhead(path, "x-");
    ASSERT_TRUE(ahead);
    EXPECT_EQ(MapFile::readFields(path), ahead);
    EXPECT_NE(MapFile::readFields(path), ahead) << "kept for nobody";
}

TEST_F(MapFileTest, AFileThatHasChangedSinceItWasReadAheadIsParsedAgain) {
    const std::string path = directory.file("map.json", R"({"io_mapping": ["x-1"]})");
    const Poco::JSON::Array::Ptr ahead = MapFile::readAhead(path, "x-");
    directory.file("map.json", R"({"io_mapping": ["x-2"]})");
    EXPECT_EQ(MapFile::readFields(path)->getElement<std::string>(0), "x-2");
    std::filesystem::remove(path);
    MapFile::readAhead(directory.file("map.json", R"({"io_mapping": ["x-1"]})"), "x-");
    std::filesystem::remove(path);
    EXPECT_THROW(MapFile::readFields(path), tesk::ParseException);
}

TEST_F(MapFileTest, AFileIsReadAheadOnlyIfItMayHaveTheWord) {
    EXPECT_FALSE(MapFile::readAhead(directory.file("map.json", R"({"io_mapping": []})"), "x-"));
    EXPECT_TRUE(
        MapFile::readAhead(directory.file("map.json", R"({"io_mapping": ["\u0078-1"]})"), "x-"));
    EXPECT_FALSE(MapFile::readAhead(directory.file("map.json", R"({"io_mapping": ["x-1"})"), "x-"));
}

}  // namespace
