// SPDX-License-Identifier: MIT
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <limits>

#include "IoMapping.h"
#include "IomapFixture.h"

namespace {

constexpr const char* HEADER = "ADDRESS  TYPE                        INDEX     MAXIMUM  VALUE\n";
constexpr const char* TEMPERATURE = "/sys/class/thermal/thermal_zone0/temp";
constexpr std::size_t REGISTERS = 1401;

class IomapListTest : public IomapFixture {
 protected:
    void SetUp() override { std::filesystem::remove_all("/sys/class"); }

    const std::string map = mapOf(
        {R"({"address": 60001, "size": 32, "count": 1, "type": "sensor_temp_address_higher"})",
         R"({"address": 7, "size": 32, "count": 2, "type": "cpu_temp"})",
         R"({"address": 1, "size": 16, "count": 2})",
         R"({"address": 20, "size": 8, "count": 1, "type": "reserved"})",
         R"({"address": 3, "size": 32, "count": 1})"});

    /// A map with a register at every address. If asked for, one of them needs a file.
    static std::string fullMap(bool withTemperature) {
        return mapOf({R"({"address": 1, "size": 8, "count": 700})",
                      R"({"address": 701, "size": 8, "count": 1)" +
                          std::string(withTemperature ? R"(, "type": "cpu_temp"})" : "}"),
                      R"({"address": 702, "size": 8, "count": 599})",
                      R"({"address": 60001, "size": 8, "count": 101, "type": "reserved"})"});
    }

    /// Starts the service so that the log of all its calls goes to a file. A pipe would fill up.
    void startLoggingService(const std::string& mapText) {
        logger = std::make_unique<Process>(std::vector<std::string>{
            "sh", "-c", "exec \"$@\" 2>" + log.string(), "sh", DAEMON, "--map",
            directory.file("map.json", mapText), "--log-level", "information"});
        BusClient().waitForService();
    }

    /// How often a method has been called.
    long callsOf(const std::string& method) const {
        const auto lines = Process::lines(readFile(log));
        return std::count_if(lines.begin(), lines.end(), [&method](const std::string& line) {
            return line.find("call method '" + method + "'") != std::string::npos;
        });
    }

    /// Makes the calls that a list of all registers takes.
    ///
    /// @return the number of registers
    static std::size_t makeCallsOfList(IoMapping& io) {
        std::vector<int> addresses;
        for (const RegisterType type : getAllTypes()) {
            const auto found = io.getAddrsPerType(type);
            addresses.insert(addresses.end(), found.begin(), found.end());
        }
        for (const int address : addresses) {
            io.getParams(address);
        }
        return io.readValues(addresses).size();
    }

    /// ThreadSanitizer would have a program wait for a second at its end.
    static std::map<std::string, std::string> withoutLingering() {
        const char* const options = std::getenv("TSAN_OPTIONS");
        return {{"TSAN_OPTIONS",
                 std::string(options != nullptr ? options : "") + ":atexit_sleep_ms=0"}};
    }

    template <typename Work>
    static double secondsOf(const Work& work) {
        const auto start = std::chrono::steady_clock::now();
        work();
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }

 private:
    const std::filesystem::path log = directory.path() / "log";
    std::unique_ptr<Process> logger;
};

TEST_F(IomapListTest, EveryRegisterIsALineWithAllThereIsToKnow) {
    startService(map);
    writeFile(TEMPERATURE, "48312\n");
    iomapDone({"write", "2=65535", "3=-5"});
    EXPECT_EQ(iomapDone({"list"}),
              std::string(HEADER) +
                  "      1  virtual                         1       65535  0\n"
                  "      2  virtual                         2       65535  65535\n"
                  "      3  virtual                         1  4294967295  -5\n"
                  "      7  cpu_temp                        1  4294967295  48312\n"
                  "      8  cpu_temp                        2  4294967295  48312\n"
                  "     20  reserved                        1         255  0\n"
                  "  60001  sensor_temp_address_higher      1  4294967295  0\n");
}

TEST_F(IomapListTest, ARegisterThatCannotBeReadShowsItsErrorAndDoesNotSpoilTheRest) {
    startService(map);
    EXPECT_EQ(iomapDone({"list"}),
              std::string(HEADER) +
                  "      1  virtual                         1       65535  0\n"
                  "      2  virtual                         2       65535  0\n"
                  "      3  virtual                         1  4294967295  0\n"
                  "      7  cpu_temp                        1  4294967295  error opening file '" +
                  TEMPERATURE +
                  "' for reading\n"
                  "      8  cpu_temp                        2  4294967295  error opening file '" +
                  TEMPERATURE +
                  "' for reading\n"
                  "     20  reserved                        1         255  0\n"
                  "  60001  sensor_temp_address_higher      1  4294967295  0\n");
}

TEST_F(IomapListTest, JsonHasAnObjectForEveryRegister) {
    startService(map);
    iomapDone({"write", "3=-2147483648"});
    EXPECT_EQ(iomapJson({"list", "--json"}), json(R"([
        {"address": 1, "type": "virtual", "index": 1, "maximum": 65535, "value": 0},
        {"address": 2, "type": "virtual", "index": 2, "maximum": 65535, "value": 0},
        {"address": 3, "type": "virtual", "index": 1, "maximum": 4294967295, "value": -2147483648},
        {"address": 7, "type": "cpu_temp", "index": 1, "maximum": 4294967295,
         "error": "error opening file '/sys/class/thermal/thermal_zone0/temp' for reading"},
        {"address": 8, "type": "cpu_temp", "index": 2, "maximum": 4294967295,
         "error": "error opening file '/sys/class/thermal/thermal_zone0/temp' for reading"},
        {"address": 20, "type": "reserved", "index": 1, "maximum": 255, "value": 0},
        {"address": 60001, "type": "sensor_temp_address_higher", "index": 1,
         "maximum": 4294967295, "value": 0}])"));
}

TEST_F(IomapListTest, TemperatureSensorsThatAreNotThereAreMissingAndTakeACallEach) {
    startLoggingService(
        mapOf({R"({"address": 1, "size": 32, "count": 1})",
               R"({"address": 2, "size": 32, "count": 2, "type": "sensor_temp_value"})"}));
    EXPECT_EQ(iomapDone({"list"}),
              std::string(HEADER) +
                  "      1  virtual                         1  4294967295  0\n"
                  "      2  sensor_temp_value               1  4294967295  missing\n"
                  "      3  sensor_temp_value               2  4294967295  missing\n");
    EXPECT_EQ(callsOf("Read"), 2);
    EXPECT_EQ(callsOf("ReadList"), 1);
    EXPECT_EQ(iomapJson({"list", "--json", "--type", "sensor_temp_value"}), json(R"([
        {"address": 2, "type": "sensor_temp_value", "index": 1, "maximum": 4294967295,
         "value": 4096, "missing": true},
        {"address": 3, "type": "sensor_temp_value", "index": 2, "maximum": 4294967295,
         "value": 4096, "missing": true}])"));
}

TEST_F(IomapListTest, TypesSelectTheirRegisters) {
    startService(map);
    const std::string reserved = "     20  reserved                        1         255  0\n";
    const std::string higher = "  60001  sensor_temp_address_higher      1  4294967295  0\n";
    EXPECT_EQ(iomapDone({"list", "--type", "reserved"}), HEADER + reserved);
    EXPECT_EQ(iomapDone({"list", "--type", "sensor_temp_address_higher", "--type", "reserved",
                         "--type", "reserved"}),
              HEADER + reserved + higher);
    EXPECT_EQ(iomapJson({"list", "--json", "--type=reserved"}), json(R"([
        {"address": 20, "type": "reserved", "index": 1, "maximum": 255, "value": 0}])"));
}

TEST_F(IomapListTest, NoRegistersAreAnEmptyTable) {
    startService(mapOf({}));
    EXPECT_EQ(iomapDone({"list"}), HEADER);
    EXPECT_EQ(iomapDone({"list", "--type", "relay"}), HEADER);
    EXPECT_EQ(iomapDone({"list", "--json"}), "[]\n");
    EXPECT_EQ(iomapDone({"list", "--type", "relay", "--json"}), "[]\n");
}

TEST_F(IomapListTest, AllRegistersThereCanBeTakeOneCallEachAndOneForTheirValues) {
    startLoggingService(fullMap(false));
    EXPECT_THAT(Process::lines(iomapDone({"list"})), testing::SizeIs(1 + REGISTERS));
    EXPECT_EQ(callsOf("GetAddrsPerType"), getAllTypes().size());
    EXPECT_EQ(callsOf("GetParams"), REGISTERS);
    EXPECT_EQ(callsOf("ReadList"), 1);
    EXPECT_EQ(callsOf("Read"), 0);
    EXPECT_EQ(callsOf("Write"), 0);
}

TEST_F(IomapListTest, ARegisterThatCannotBeReadAmongAllThereCanBeIsFoundByHalves) {
    startLoggingService(fullMap(true));
    const auto lines = Process::lines(iomapDone({"list"}));
    ASSERT_THAT(lines, testing::SizeIs(1 + REGISTERS));
    EXPECT_THAT(lines[701], testing::HasSubstr("error opening file"));
    EXPECT_EQ(std::count_if(
                  lines.begin(), lines.end(),
                  [](const std::string& line) { return line.find("error") != std::string::npos; }),
              1);
    EXPECT_EQ(callsOf("GetParams"), REGISTERS);
    EXPECT_LE(callsOf("ReadList"), 1 + 2 * 11);
    EXPECT_EQ(callsOf("Read"), 0);
}

TEST_F(IomapListTest, AListTakesAtMostTwiceTheTimeOfItsCalls) {
    // Whatever else the machine does may disturb a round, but hardly all of them.
    constexpr int ROUNDS = 10;
    startService(fullMap(false));
    IoMapping io;
    double ratio = std::numeric_limits<double>::max();
    for (int round = 0; round < ROUNDS && ratio > 2; ++round) {
        const double calls = secondsOf([&io] { EXPECT_EQ(makeCallsOfList(io), REGISTERS); });
        const double list = secondsOf(
            [] { EXPECT_EQ(outcomeOf(commandOf({"list"}), withoutLingering()).status, 0); });
        ratio = std::min(ratio, list / calls);
    }
    RecordProperty("ratio", std::to_string(ratio));
    EXPECT_LE(ratio, 2);
}

TEST_F(IomapListTest, ABriefListHasAddressTypeAndNameAndReadsNothing) {
    const std::string file = directory.file("labels.json", R"({"labels": {
        "1": {"name": "door"}, "99": {"name": "nowhere"}}})");
    setenv("IO_MAPPING_LABELS", file.c_str(), 1);
    startService(map);
    EXPECT_EQ(iomapDone({"list", "--brief"}),
              "1\tvirtual\tdoor\n2\tvirtual\t\n3\tvirtual\t\n7\tcpu_temp\t\n8\tcpu_temp\t\n"
              "20\treserved\t\n60001\tsensor_temp_address_higher\t\n");
    EXPECT_EQ(iomapDone({"list", "--brief", "--type", "reserved"}), "20\treserved\t\n");
    unsetenv("IO_MAPPING_LABELS");
}

TEST_F(IomapListTest, ABriefListDoesNotStartTheService) {
    bus.startOnDemand(BusClient::SERVICE, DAEMON + " --map " + directory.file("map.json", map));
    expectFailure(iomap({"list", "--brief"}), 3, "the service is not running; start iomappingd");
}

}  // namespace
