// SPDX-License-Identifier: MIT
#include "RegisterMap.h"

#include <Poco/Exception.h>
#include <Poco/JSON/Object.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <typeinfo>
#include <vector>

#include "CapturedLog.h"
#include "FakeDriver.h"
#include "FileRegister.h"
#include "GpioRegister.h"
#include "LoggerNames.h"
#include "PeerConnection.h"
#include "ReservedRegister.h"
#include "TemporaryDirectory.h"
#include "tesk/Exceptions.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* GOOD_FIELD = R"({"address": 900, "size": 1, "count": 2})";

class RegisterMapTest : public testing::Test {
 protected:
    RegisterMapTest() {
        for (const auto& driver : {vadu, kr62, gpio}) {
            drivers.addDriver(driver);
        }
        log.clear();
    }

    /// Makes the map anew from a file with this text.
    void load(const std::string& text) {
        map.reset();
        path = directory.file("map.json", text);
        log.clear();
        map = std::make_unique<RegisterMap>(peer.service(), path, drivers);
        map->parse();
    }

    void loadFields(const std::string& fields) { load(R"({"io_mapping": [)" + fields + "]}"); }

    /// The text of the E that loading a file throws; empty when it throws none.
    template <typename E>
    std::string failureOf(const std::string& text) {
        try {
            load(text);
            ADD_FAILURE() << "was loaded: " << text;
        } catch (const E& e) {
            const std::exception& thrown = e;
            EXPECT_EQ(typeid(thrown), typeid(E)) << text;
            return e.what();
        } catch (const std::exception& e) {
            ADD_FAILURE() << text << " gave " << typeid(e).name() << ": " << e.what();
        }
        return {};
    }

    template <typename E>
    std::string failureOfFields(const std::string& fields) {
        return failureOf<E>(R"({"io_mapping": [)" + fields + "]}");
    }

    /// The registers as text, from the log lines that tell of their creation.
    std::vector<std::string> created() const {
        const std::string prefix = "new register: ";
        std::vector<std::string> result;
        for (const std::string& text : log.texts(Poco::Message::PRIO_INFORMATION)) {
            if (text.compare(0, prefix.size(), prefix) == 0) {
                result.push_back(text.substr(prefix.size()));
            }
        }
        return result;
    }

    std::string textAt(int address) const { return map->getRegisterByAddress(address)->toString(); }

    template <typename T>
    bool isA(int address) const {
        const Register& reg = *map->getRegisterByAddress(address);
        return typeid(reg) == typeid(T);
    }

    /// Which of the addresses 0 to 70000 have a register.
    std::vector<int> addresses() const {
        std::vector<int> result;
        for (int address = 0; address <= 70000; ++address) {
            if (map->addressExists(address)) {
                result.push_back(address);
            }
        }
        return result;
    }

    /// Expects that the last load wrote these lines and no others: the path, the reason if there
    /// is one, and the place of the fault.
    void expectFaultLines(const std::vector<std::string>& reasons, const std::string& place) const {
        std::vector<std::string> expected{"6 parsing file '" + path + "'"};
        for (const std::string& reason : reasons) {
            expected.push_back("3 " + reason);
        }
        expected.push_back("5 the fault is in map file '" + path + "'" + place);
        std::vector<std::string> lines;
        for (const CapturedLog::Line& line : log.lines()) {
            if (line.text.compare(0, 13, "new register:") != 0) {
                lines.push_back(std::to_string(line.priority) + " " + line.text);
            }
            EXPECT_EQ(line.source, loggerNameOf("register-map", map.get()));
        }
        EXPECT_EQ(lines, expected);
    }

    /// Expects that a JSON value is refused as address, size and count, with an E of Poco's.
    ///
    /// @param shown the value as the notice line shows an address
    template <typename E>
    void expectNoNumber(const std::string& value, const std::string& shown) {
        SCOPED_TRACE(value);
        failureOfFields<E>(R"({"size": 1, "count": 1, "address": )" + value + "}");
        expectFaultLines({}, ", field io_mapping[0], address " + shown);
        failureOfFields<E>(R"({"address": 5, "count": 1, "size": )" + value + "}");
        expectFaultLines({}, ", field io_mapping[0], address 5");
        failureOfFields<E>(R"({"address": 5, "size": 1, "count": )" + value + "}");
        expectFaultLines({}, ", field io_mapping[0], address 5");
    }

    std::shared_ptr<FakeDriver> vadu{std::make_shared<FakeDriver>(DriverInterface::VADU)};
    std::shared_ptr<FakeDriver> kr62{std::make_shared<FakeDriver>(DriverInterface::KR62)};
    std::shared_ptr<FakeDriver> gpio{std::make_shared<FakeDriver>(DriverInterface::GPIOCHIP, 0)};
    DriverManager drivers;
    CapturedLog log;
    PeerConnection peer;
    TemporaryDirectory directory;
    std::string path;
    std::unique_ptr<RegisterMap> map;
};

// ---- the file

TEST_F(RegisterMapTest, TheMapIsEmptyUntilItIsParsed) {
    path = directory.file("map.json", R"({"io_mapping": [{"address": 1, "size": 1, "count": 1}]})");
    map = std::make_unique<RegisterMap>(peer.service(), path, drivers);
    EXPECT_FALSE(map->addressExists(1));
    EXPECT_THAT(log.lines(), IsEmpty());
    map->parse();
    EXPECT_TRUE(map->addressExists(1));
}

TEST_F(RegisterMapTest, EveryFieldExpandsIntoConsecutiveRegisters) {
    loadFields(R"(
        {"address": 1, "size": 1, "count": 4, "type": "relay", "driver": "kr62"},
        {"address": 60001, "size": 16, "count": 1, "type": "virtual"},
        {"address": 100, "size": 32, "count": 2},
        {"address": 200, "size": 1, "count": 3, "type": "input_digital", "driver": "pd5",
         "virtual_backup": true},
        {"address": 300, "size": 8, "count": 2, "type": "reserved", "driver": "kr62"})");
    EXPECT_THAT(created(),
                ElementsAre("address 1, type 'relay', index '1', max value '1'",
                            "address 2, type 'relay', index '2', max value '1'",
                            "address 3, type 'relay', index '3', max value '1'",
                            "address 4, type 'relay', index '4', max value '1'",
                            "address 60001, type 'virtual', index '1', max value '65535'",
                            "address 100, type 'virtual', index '1', max value '4294967295'",
                            "address 101, type 'virtual', index '2', max value '4294967295'",
                            "address 200, type 'virtual', index '1', max value '1'",
                            "address 201, type 'virtual', index '2', max value '1'",
                            "address 202, type 'virtual', index '3', max value '1'",
                            "address 300, type 'reserved', index '1', max value '255'",
                            "address 301, type 'reserved', index '2', max value '255'"));
    EXPECT_THAT(addresses(), ElementsAre(1, 2, 3, 4, 100, 101, 200, 201, 202, 300, 301, 60001));
    for (const CapturedLog::Line& line : log.lines()) {
        EXPECT_EQ(line.source, loggerNameOf("register-map", map.get()));
    }
    EXPECT_EQ(log.lines().front().text, "parsing file '" + path + "'");
    EXPECT_EQ(log.texts(Poco::Message::PRIO_INFORMATION).size(), 13U);
}

TEST_F(RegisterMapTest, LoggersThatTakeNoInformationGetNone) {
    Poco::Logger::setLevel("", Poco::Message::PRIO_NOTICE);
    loadFields(GOOD_FIELD);
    EXPECT_THAT(addresses(), ElementsAre(900, 901));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(RegisterMapTest, AMapWithoutFieldsIsEmpty) {
    loadFields("");
    EXPECT_THAT(addresses(), IsEmpty());
}

TEST_F(RegisterMapTest, KeysThatMeanNothingAreIgnored) {
    load(R"({"comment": "spare", "io_mapping": [
        {"address": 5, "size": 1, "count": 1, "comment": [1, {}], "Type": "relay"}], "x": null})");
    EXPECT_EQ(textAt(5), "address 5, type 'virtual', index '1', max value '1'");
}

TEST_F(RegisterMapTest, AMissingFileIsNotFound) {
    path = (directory.path() / "missing.json").string();
    map = std::make_unique<RegisterMap>(peer.service(), path, drivers);
    try {
        map->parse();
        ADD_FAILURE() << "was loaded";
    } catch (const tesk::ParseException& e) {
        EXPECT_STREQ(e.what(), "map file not found");
    }
    expectFaultLines({}, "");
}

TEST_F(RegisterMapTest, ADirectoryIsNoMapFile) {
    path = directory.path().string();
    map = std::make_unique<RegisterMap>(peer.service(), path, drivers);
    EXPECT_THROW(map->parse(), std::exception);
    expectFaultLines({"map file '" + path + "' cannot be read: Is a directory"}, "");
}

TEST_F(RegisterMapTest, ARootThatIsNoObjectCannotBeParsed) {
    for (const std::string text : {"[]", "5", "null", "\"io_mapping\"", "true", " [{}] "}) {
        const std::string failure = failureOf<tesk::ParseException>(text);
        EXPECT_EQ(failure, "error parsing file '" + path + "'");
        expectFaultLines({}, "");
    }
}

TEST_F(RegisterMapTest, ATextThatIsNoJsonIsRefusedWithItsLine) {
    const std::vector<std::pair<std::string, std::string>> rows{
        {"", "line 1"},
        {" \n\n", "line 3"},
        {"{", "line 1"},
        {"{\"io_mapping\":\n [}", "line 2"},
        {"{\"io_mapping\": []} more", "line 1"},
        {"io_mapping", "line 1"},
        {"{\"io_mapping\": [\n{\"address\": 1,\n}]}", "line 3"},
    };
    for (const auto& [text, line] : rows) {
        EXPECT_THAT(failureOf<tesk::ParseException>(text), testing::EndsWith(", " + line)) << text;
        expectFaultLines({}, "");
    }
}

TEST_F(RegisterMapTest, AMapWithoutIoMappingIsRefused) {
    for (const std::string text : {"{}", R"({"IO_MAPPING": []})", R"({"io-mapping": []})"}) {
        EXPECT_EQ(failureOf<tesk::ParseException>(text), "io mapping not found");
        expectFaultLines({}, "");
    }
}

TEST_F(RegisterMapTest, AnIoMappingThatIsNoArrayIsANullPointerOfPocos) {
    for (const std::string value : {"{}", "5", "\"text\"", "null", "true"}) {
        failureOf<Poco::NullPointerException>(R"({"io_mapping": )" + value + "}");
        expectFaultLines({}, "");
    }
}

TEST_F(RegisterMapTest, AFieldThatIsNoObjectIsABadCastOfPocos) {
    for (const std::string element : {"5", "\"text\"", "[]", "true", "1.5"}) {
        failureOfFields<Poco::BadCastException>(element);
        expectFaultLines({}, ", field io_mapping[0], address none");
    }
    try {
        loadFields("5");
    } catch (const Poco::BadCastException& e) {
        EXPECT_THAT(e.message(), testing::MatchesRegex("Can not convert .+ to .+\\."));
    }
}

TEST_F(RegisterMapTest, AnEmptyFieldIsAnInvalidAccessOfPocos) {
    failureOfFields<Poco::InvalidAccessException>("null");
    expectFaultLines({}, ", field io_mapping[0], address none");
    try {
        loadFields("null");
    } catch (const Poco::InvalidAccessException& e) {
        EXPECT_EQ(e.message(), "Can not extract empty value.");
    }
}

// ---- faults of a field

TEST_F(RegisterMapTest, AFaultOfAFieldIsLoggedAndEndsTheLoad) {
    struct Row {
        const char* field;
        const char* reason;
        const char* address;
    };
    const std::vector<Row> rows{
        {R"({})", "address is missing", "none"},
        {R"({"size": 1, "count": 1})", "address is missing", "none"},
        {R"({"address": 0, "size": 1, "count": 1})", "not valid address: 0", "0"},
        {R"({"address": -1, "size": 1, "count": 1})", "not valid address: -1", "-1"},
        {R"({"address": 1301, "size": 1, "count": 1})", "not valid address: 1301", "1301"},
        {R"({"address": 60000, "size": 1, "count": 1})", "not valid address: 60000", "60000"},
        {R"({"address": 60102, "size": 1, "count": 1})", "not valid address: 60102", "60102"},
        {R"({"address": 5, "count": 1})", "size is missing", "5"},
        {R"({"address": 5, "size": 0, "count": 1})", "invalid value for size: 0", "5"},
        {R"({"address": 5, "size": 1})", "count is missing", "5"},
        {R"({"address": 5, "size": 1, "count": 0})", "invalid value for count: 0", "5"},
        {R"({"address": 5, "size": 1, "count": 1, "driver": "none"})",
         "driver not found or not supported on address 5", "5"},
        {R"({"address": 5, "size": 1, "count": 1, "driver": "none", "virtual_backup": false})",
         "driver not found or not supported on address 5", "5"},
        {R"({"address": 901, "size": 1, "count": 1})", "address 901 is duplicated", "901"},
        // The first of several faults counts.
        {R"({"address": 0, "count": 0})", "not valid address: 0", "0"},
        {R"({"address": 5})", "size is missing", "5"},
        {R"({"address": 5, "size": 0})", "invalid value for size: 0", "5"},
        {R"({"address": 5, "size": 1, "type": "none", "driver": "none"})", "count is missing", "5"},
        {R"({"address": 5, "size": 1, "count": 0, "type": "none", "driver": "none"})",
         "invalid value for count: 0", "5"},
        {R"({"address": 901, "size": 1, "count": 1, "driver": "none"})",
         "driver not found or not supported on address 901", "901"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.field);
        const std::string fields =
            std::string(GOOD_FIELD) + "," + row.field + R"(,{"address": 7, "size": 1, "count": 1})";
        EXPECT_EQ(failureOfFields<tesk::ParseException>(fields), "error parsing field");
        expectFaultLines({row.reason},
                         std::string(", field io_mapping[1], address ") + row.address);
        EXPECT_THAT(addresses(), ElementsAre(900, 901));
    }
}

TEST_F(RegisterMapTest, AnUnknownTypeIsNotFoundWhateverElseTheFieldSays) {
    for (const std::string rest :
         {"", R"(, "driver": "none")", R"(, "driver": "none", "virtual_backup": true)"}) {
        EXPECT_EQ(failureOfFields<tesk::NotFoundException>(
                      R"({"address": 5, "size": 1, "count": 1, "type": "Relay")" + rest + "}"),
                  "IO type 'Relay' not found");
        expectFaultLines({}, ", field io_mapping[0], address 5");
    }
}

TEST_F(RegisterMapTest, ValuesOfTheWrongJsonTypeAreExceptionsOfPocos) {
    expectNoNumber<Poco::InvalidAccessException>("null", "none");
    expectNoNumber<Poco::BadCastException>("{}", "{\n}");
    expectNoNumber<Poco::BadCastException>("[1]", "[\n  1\n]");
    expectNoNumber<Poco::SyntaxException>("\"one\"", "one");
    expectNoNumber<Poco::RangeException>("4294967297", "4294967297");
    const std::string start = R"({"address": 5, "size": 1, "count": 1, )";
    for (const std::string rest : {R"("type": null})", R"("driver": null})",
                                   R"("driver": "none", "virtual_backup": null})"}) {
        failureOfFields<Poco::InvalidAccessException>(start + rest);
        expectFaultLines({}, ", field io_mapping[0], address 5");
    }
}

TEST_F(RegisterMapTest, TheNoticeCountsTheFieldsFromZero) {
    std::string fields;
    for (int i = 0; i < 12; ++i) {
        fields += R"({"address": )" + std::to_string(10 + i) + R"(, "size": 1, "count": 1},)";
    }
    failureOfFields<tesk::ParseException>(fields + R"({"address": 12, "size": 1, "count": 1})");
    expectFaultLines({"address 12 is duplicated"}, ", field io_mapping[12], address 12");
}

// ---- values of a field

TEST_F(RegisterMapTest, OnlyTheFirstAddressOfAFieldIsChecked) {
    loadFields(R"({"address": 1299, "size": 1, "count": 5})");
    EXPECT_THAT(addresses(), ElementsAre(1299, 1300, 1301, 1302, 1303));
    loadFields(R"({"address": 60101, "size": 1, "count": 2})");
    EXPECT_THAT(addresses(), ElementsAre(60101, 60102));
}

TEST_F(RegisterMapTest, TheEndsOfTheRangesAreValidAddresses) {
    loadFields("");
    for (const int address : {1, 2, 1299, 1300, 60001, 60002, 60100, 60101}) {
        EXPECT_TRUE(map->addressIsValid(address)) << address;
    }
    for (const int address :
         {-2147483647 - 1, -1, 0, 1301, 1302, 30000, 60000, 60102, 2147483647}) {
        EXPECT_FALSE(map->addressIsValid(address)) << address;
    }
    for (const std::string address : {"1", "1300", "60001", "60101"}) {
        loadFields(R"({"size": 1, "count": 1, "address": )" + address + "}");
        EXPECT_TRUE(map->addressExists(std::stoi(address)));
    }
}

TEST_F(RegisterMapTest, FieldsThatOverlapFailAtTheFirstAddressTheyShare) {
    EXPECT_EQ(failureOfFields<tesk::ParseException>(R"({"address": 1, "size": 1, "count": 4},
                                                       {"address": 3, "size": 8, "count": 3})"),
              "error parsing field");
    expectFaultLines({"address 3 is duplicated"}, ", field io_mapping[1], address 3");
    EXPECT_THAT(addresses(), ElementsAre(1, 2, 3, 4));
    EXPECT_EQ(textAt(3), "address 3, type 'virtual', index '3', max value '1'");
}

TEST_F(RegisterMapTest, RegistersMadeBeforeADuplicateStay) {
    failureOfFields<tesk::ParseException>(R"({"address": 5, "size": 1, "count": 1},
                                             {"address": 3, "size": 8, "count": 5})");
    expectFaultLines({"address 5 is duplicated"}, ", field io_mapping[1], address 3");
    EXPECT_THAT(addresses(), ElementsAre(3, 4, 5));
    EXPECT_EQ(textAt(4), "address 4, type 'virtual', index '2', max value '255'");
}

TEST_F(RegisterMapTest, ANegativeCountMakesNoRegisterAndNoFault) {
    loadFields(R"({"address": 5, "size": 1, "count": -3},
                  {"address": 6, "size": 1, "count": -2147483648},
                  {"address": 5, "size": 1, "count": 1})");
    EXPECT_THAT(addresses(), ElementsAre(5));
}

TEST_F(RegisterMapTest, SizesAreTakenModulo256) {
    const std::vector<std::pair<const char*, const char*>> rows{
        {"1", "1"},           {"31", "2147483647"},  {"32", "4294967295"}, {"33", "4294967295"},
        {"-1", "4294967295"}, {"255", "4294967295"}, {"256", "0"},         {"257", "1"},
    };
    for (const auto& [size, maxValue] : rows) {
        loadFields(R"({"address": 1, "count": 1, "size": )" + std::string(size) + "}");
        EXPECT_EQ(textAt(1), "address 1, type 'virtual', index '1', max value '" +
                                 std::string(maxValue) + "'");
    }
}

TEST_F(RegisterMapTest, NumbersMayBeWrittenAsText) {
    loadFields(R"({"address": "12", "size": "8", "count": "2"})");
    EXPECT_THAT(created(), ElementsAre("address 12, type 'virtual', index '1', max value '255'",
                                       "address 13, type 'virtual', index '2', max value '255'"));
}

TEST_F(RegisterMapTest, AnyScalarCountsAsText) {
    EXPECT_EQ(failureOfFields<tesk::NotFoundException>(
                  R"({"address": 5, "size": 1, "count": 1, "type": 12})"),
              "IO type '12' not found");
    EXPECT_EQ(failureOfFields<tesk::NotFoundException>(
                  R"({"address": 5, "size": 1, "count": 1, "type": true})"),
              "IO type 'true' not found");
    failureOfFields<tesk::ParseException>(R"({"address": 5, "size": 1, "count": 1, "driver": 12})");
    expectFaultLines({"driver not found or not supported on address 5"},
                     ", field io_mapping[0], address 5");
}

TEST_F(RegisterMapTest, FieldsInAnyOrderEndUpSortedAndEachCountsFromOne) {
    loadFields(R"({"address": 60001, "size": 1, "count": 2}, {"address": 50, "size": 1, "count": 2},
                  {"address": 10, "size": 1, "count": 1}, {"address": 12, "size": 1, "count": 2})");
    EXPECT_THAT(addresses(), ElementsAre(10, 12, 13, 50, 51, 60001, 60002));
    for (const int address : {10, 12, 50, 60001}) {
        EXPECT_EQ(map->getRegisterByAddress(address)->getIndex(), 1);
    }
    for (const int address : {13, 51, 60002}) {
        EXPECT_EQ(map->getRegisterByAddress(address)->getIndex(), 2);
    }
}

// ---- drivers

TEST_F(RegisterMapTest, TheDriverDecidesTheClassOfARegister) {
    loadFields(R"({"address": 1, "size": 1, "count": 1, "type": "relay", "driver": "kr62"},
                  {"address": 2, "size": 1, "count": 1, "type": "relay", "driver": "gpiochip-0"},
                  {"address": 3, "size": 1, "count": 1, "type": "uptime"},
                  {"address": 4, "size": 1, "count": 1, "type": "virtual", "driver": "gpiochip-0"},
                  {"address": 5, "size": 1, "count": 1, "type": "reserved", "driver": "gpiochip-0"},
                  {"address": 6, "size": 1, "count": 1, "type": "unknown", "driver": "kr62"})");
    EXPECT_TRUE(isA<FileRegister>(1));
    EXPECT_TRUE(isA<GpioRegister>(2));
    EXPECT_TRUE(isA<FileRegister>(3));
    EXPECT_TRUE(isA<Register>(4));
    EXPECT_TRUE(isA<ReservedRegister>(5));
    EXPECT_TRUE(isA<FileRegister>(6));
    EXPECT_THAT(kr62->calls(), ElementsAre("getIOFileName(relay, 1)", "configureIO(relay, 1)",
                                           "getIOFileName(unknown, 1)", "configureIO(unknown, 1)"));
    EXPECT_THAT(gpio->calls(), ElementsAre("configureIO(relay, 1)"));
    EXPECT_THAT(vadu->calls(), ElementsAre("getIOFileName(uptime, 1)", "configureIO(uptime, 1)"));
}

TEST_F(RegisterMapTest, EveryDriverButAGpioChipServesFileRegisters) {
    for (const auto id : {DriverInterface::PD5, DriverInterface::SPECIAL}) {
        const auto driver = std::make_shared<FakeDriver>(id);
        drivers.addDriver(driver);
        loadFields(R"({"address": 1, "size": 1, "count": 1, "type": "relay", "driver": ")" +
                   driver->getName() + "\"}");
        EXPECT_TRUE(isA<FileRegister>(1)) << driver->getName();
    }
}

TEST_F(RegisterMapTest, TheDriverIsAskedForEveryRegisterWithItsIndex) {
    loadFields(R"({"address": 7, "size": 1, "count": 3, "type": "relay", "driver": "gpiochip-0"})");
    EXPECT_THAT(gpio->calls(), ElementsAre("configureIO(relay, 1)", "configureIO(relay, 2)",
                                           "configureIO(relay, 3)"));
}

TEST_F(RegisterMapTest, EvenTypesThatUseNoDriverNeedOne) {
    DriverManager none;
    for (const std::string type : {"", R"(, "type": "virtual")", R"(, "type": "reserved")"}) {
        const std::string start = R"({"io_mapping": [{"address": 5, "size": 4, "count": 1)" + type;
        path = directory.file("map.json", start + "}]}");
        map = std::make_unique<RegisterMap>(peer.service(), path, none);
        log.clear();
        EXPECT_THROW(map->parse(), tesk::ParseException);
        expectFaultLines({"driver not found or not supported on address 5"},
                         ", field io_mapping[0], address 5");
        map.reset();

        path = directory.file("map.json", start + R"(, "virtual_backup": true}]})");
        map = std::make_unique<RegisterMap>(peer.service(), path, none);
        map->parse();
        EXPECT_EQ(textAt(5), "address 5, type 'virtual', index '1', max value '15'");
        EXPECT_TRUE(isA<Register>(5));
        map.reset();
    }
}

TEST_F(RegisterMapTest, ABackupReplacesOnlyADriverThatIsMissing) {
    loadFields(R"({"address": 1, "size": 8, "count": 2, "type": "relay", "driver": "pd5-0",
                   "virtual_backup": true},
                  {"address": 5, "size": 8, "count": 1, "type": "relay", "driver": "kr62",
                   "virtual_backup": true},
                  {"address": 6, "size": 8, "count": 1, "type": "relay", "driver": "kr62",
                   "virtual_backup": null})");
    EXPECT_TRUE(isA<Register>(1));
    EXPECT_EQ(textAt(2), "address 2, type 'virtual', index '2', max value '255'");
    EXPECT_TRUE(isA<FileRegister>(5));
    EXPECT_TRUE(isA<FileRegister>(6));
}

TEST_F(RegisterMapTest, AFieldThatFallsBackIsOneNoticeWithItsAddressesAndItsDriver) {
    const auto field = [](int address, int count, const std::string& driver) {
        return R"({"size": 1, "type": "relay", "virtual_backup": true, "address": )" +
               std::to_string(address) + R"(, "count": )" + std::to_string(count) +
               R"(, "driver": ")" + driver + "\"}";
    };
    const std::string virtually = ": virtual, switching nothing: ";
    const std::string missing = " has no usable board or chip here";
    const std::string misspelt = "; see whether the name is misspelt";
    loadFields(field(4, 8, "pd5-0") + "," + field(20, 1, "gpiochip-17") + "," +
               field(1300, 2, "kr26") + "," + field(30, -2, "kr26") + "," + field(31, 1, "kr62") +
               R"(,{"address": 32, "size": 1, "count": 1})");
    EXPECT_THAT(
        log.texts(Poco::Message::PRIO_NOTICE),
        ElementsAre("addresses 4-11" + virtually + "driver 'pd5-0'" + missing,
                    "address 20" + virtually + "driver 'gpiochip-17'" + missing,
                    "addresses 1300-1301" + virtually + "there is no driver 'kr26'" + misspelt));
}

TEST_F(RegisterMapTest, WhatARegistersConstructorThrowsPassesOut) {
    kr62->fileName = [](RegisterType, int index) -> std::string {
        return index < 3 ? "" : throw tesk::UnsupportedException("type 'relay' not supported");
    };
    EXPECT_EQ(failureOfFields<tesk::UnsupportedException>(
                  R"({"address": 5, "size": 1, "count": 9, "type": "relay", "driver": "kr62"})"),
              "type 'relay' not supported");
    expectFaultLines({}, ", field io_mapping[0], address 5");
    EXPECT_THAT(addresses(), ElementsAre(5, 6));
}

TEST_F(RegisterMapTest, ANotFoundOfARegistersConstructorIsNotTakenForAMissingDriver) {
    kr62->fileName = [](RegisterType, int) -> std::string {
        throw tesk::NotFoundException("no such file name");
    };
    gpio->onConfigure = [](RegisterType, int) { throw tesk::NotFoundException("no such line"); };
    const std::vector<std::pair<std::string, std::string>> rows{{"kr62", "no such file name"},
                                                                {"gpiochip-0", "no such line"}};
    for (const auto& [driver, text] : rows) {
        EXPECT_EQ(failureOfFields<tesk::NotFoundException>(
                      R"({"address": 5, "size": 1, "count": 1, "type": "relay",
                          "virtual_backup": true, "driver": ")" +
                      driver + "\"}"),
                  text);
        expectFaultLines({}, ", field io_mapping[0], address 5");
        EXPECT_THAT(addresses(), IsEmpty());
    }
}

// ---- single fields and look-ups

TEST_F(RegisterMapTest, OneFieldCanBeParsedByItself) {
    loadFields("");
    Poco::JSON::Object::Ptr field(new Poco::JSON::Object);
    log.clear();
    EXPECT_FALSE(map->parseField(field));
    EXPECT_THAT(log.texts(Poco::Message::PRIO_ERROR), ElementsAre("address is missing"));
    EXPECT_EQ(log.lines().size(), 1U) << "the place is known to parse() only";

    field->set("address", 5);
    field->set("size", 1);
    field->set("count", 2);
    EXPECT_TRUE(map->parseField(field));
    EXPECT_THAT(addresses(), ElementsAre(5, 6));
    EXPECT_FALSE(map->parseField(field));

    field->set("type", "none");
    EXPECT_THROW(map->parseField(field), tesk::NotFoundException);
}

TEST_F(RegisterMapTest, AnAddressWithoutRegisterIsNotFound) {
    loadFields(R"({"address": 10, "size": 1, "count": 1}, {"address": 12, "size": 1, "count": 1})");
    for (const int address : {11, 9, 13, 0, -10, 2147483647, -2147483647 - 1}) {
        EXPECT_FALSE(map->addressExists(address));
        try {
            map->getRegisterByAddress(address);
            ADD_FAILURE() << address << " was found";
        } catch (const tesk::NotFoundException& e) {
            EXPECT_EQ(e.what(), "address '" + std::to_string(address) + "' not found");
        }
    }
    EXPECT_EQ(map->getRegisterByAddress(10)->getAddress(), 10);
    EXPECT_EQ(map->getRegisterByAddress(12)->getAddress(), 12);
}

TEST_F(RegisterMapTest, AddedRegistersAreSortedAndTheLatestComesFirstAmongEquals) {
    loadFields("");
    std::vector<std::shared_ptr<Register>> added;
    for (const int address : {7, 3, 9, 3}) {
        added.push_back(std::make_shared<Register>(address, RegisterType::VIRTUAL, 1, 8U, nullptr));
        map->addRegisterAndSorter(added.back());
    }
    EXPECT_THAT(addresses(), ElementsAre(3, 7, 9));
    EXPECT_EQ(map->getRegisterByAddress(7), added[0]);
    EXPECT_EQ(map->getRegisterByAddress(9), added[2]);
    EXPECT_EQ(map->getRegisterByAddress(3), added[3]);
}

TEST_F(RegisterMapTest, ARegisterThatIsStillHeldOutlivesTheMap) {
    loadFields(GOOD_FIELD);
    const std::shared_ptr<Register> reg = map->getRegisterByAddress(900);
    map.reset();
    EXPECT_EQ(reg->getAddress(), 900);
}

TEST_F(RegisterMapTest, RegistersGoWithTheMap) {
    loadFields(GOOD_FIELD);
    const std::weak_ptr<Register> reg = map->getRegisterByAddress(900);
    map.reset();
    EXPECT_TRUE(reg.expired());
}

}  // namespace
