// SPDX-License-Identifier: MIT
#include "VaduDriver.h"

#include <Poco/Exception.h>
#include <gmock/gmock.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysinfo.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <limits>
#include <map>
#include <set>
#include <thread>
#include <vector>

#include "CapturedLog.h"
#include "ChildProcess.h"
#include "LoggerNames.h"
#include "RegisterTypes.h"
#include "TemporaryDirectory.h"
#include "tesk/Exceptions.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Property;
using testing::Throws;
using testing::ThrowsMessage;

constexpr const char* SENSORS = "/sys/bus/w1/devices/";
constexpr const char* SENSOR_LIST = "/sys/bus/w1/devices/w1_bus_master1/w1_master_slaves";
constexpr const char* FACTORY_INFO = "/tmp/factory_info_partition/factory_info_json";
constexpr const char* OS_RELEASE = "/usr/lib/os-release";

constexpr const char* NO_LIST = "no temperature sensor detected";
constexpr const char* NO_LINE = "no valid temperature sensor addresses found";

constexpr auto TEMPERATURE = RegisterType::SENSOR_TEMP_VALUE;
constexpr auto LOWER = RegisterType::SENSOR_TEMP_ADDRESS_LOWER;
constexpr auto HIGHER = RegisterType::SENSOR_TEMP_ADDRESS_HIGHER;

const std::set<RegisterType> WITHOUT_FILE{TEMPERATURE,
                                          LOWER,
                                          HIGHER,
                                          RegisterType::UPTIME,
                                          RegisterType::HW_TYPE,
                                          RegisterType::FW_VERSION};

class VaduDriverTest : public testing::Test {
 protected:
    ~VaduDriverTest() override {
        for (const char* place : {"/sys/bus", "/sys/class", "/tmp/factory_info_partition"}) {
            std::filesystem::remove_all(place);
        }
        writeFile(OS_RELEASE, osRelease);
    }

    static void sensor(const std::string& address, const std::string& temperature) {
        writeFile(SENSORS + address + "/temperature", temperature);
    }

    /// What the driver makes of 77.
    int value(RegisterType type, int index = 1) const {
        return driver.convertValue(type, 77, index);
    }

    int hardwareType(const std::string& factoryInfo) const {
        writeFile(FACTORY_INFO, factoryInfo);
        return value(RegisterType::HW_TYPE);
    }

    int hardwareTypeOf(const std::string& json) const {
        return hardwareType(R"({"HW_DEVICE": {"Legacy_HW_Type": )" + json + "}}");
    }

    int firmware(const std::string& version) const {
        writeFile(OS_RELEASE, "IMAGE_VERSION=\"" + version + "\"\n");
        return value(RegisterType::FW_VERSION);
    }

    CapturedLog log;
    VaduDriver driver;

 private:
    std::string osRelease = readFile(OS_RELEASE);
};

TEST_F(VaduDriverTest, IsTheOnlyDriverOfItsName) {
    EXPECT_EQ(driver.getName(), "vadu");
    EXPECT_EQ(driver.getDriverId(), DriverInterface::VADU);
    EXPECT_EQ(driver.getIndex(), -1);
    EXPECT_TRUE(loggerExists(loggerNameOf("vadu--1-driver", &driver)));
}

TEST_F(VaduDriverTest, HasOneSerialPortAndNoOtherIos) {
    EXPECT_EQ(driver.getSerialPortsCount(), 1);
    EXPECT_EQ(driver.getRelaysCount(), 0);
    EXPECT_EQ(driver.getDigitalOutputsCount(), 0);
    EXPECT_EQ(driver.getDigitalInputsCount(), 0);
    EXPECT_EQ(driver.getAnalogOutputsCount(), 0);
    EXPECT_EQ(driver.getAnalogInputsCount(), 0);
}

TEST_F(VaduDriverTest, ConfiguringDoesNothing) {
    for (const RegisterType type : allTypes()) {
        driver.configureIO(type, -1, [](int) { ADD_FAILURE() << "was notified"; });
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(VaduDriverTest, OnlyTheCpuTemperatureHasAFile) {
    for (const int index : {1, 0, -1, 99}) {
        EXPECT_EQ(driver.getIOFileName(RegisterType::CPU_TEMP, index),
                  "/sys/class/thermal/thermal_zone0/temp");
        for (const RegisterType type : WITHOUT_FILE) {
            EXPECT_EQ(driver.getIOFileName(type, index), "") << getTypeName(type);
        }
    }
}

TEST_F(VaduDriverTest, ServesNoOtherType) {
    for (const RegisterType type : allTypes()) {
        if (type != RegisterType::CPU_TEMP && WITHOUT_FILE.count(type) == 0) {
            EXPECT_THAT([&] { return driver.getIOFileName(type, 1); },
                        ThrowsMessage<tesk::UnsupportedException>("type '" + getTypeName(type) +
                                                                  "' not supported"));
        }
    }
}

TEST_F(VaduDriverTest, NothingCanBeWritten) {
    for (const RegisterType type : allTypes()) {
        const bool served = type == RegisterType::CPU_TEMP || WITHOUT_FILE.count(type) != 0;
        const std::string name = "type '" + getTypeName(type) + "'";
        EXPECT_THAT([&] { driver.isValueValid(type, 0); },
                    ThrowsMessage<tesk::UnsupportedException>(
                        served ? "write not supported with " + name : name + " not supported"));
    }
}

TEST_F(VaduDriverTest, EveryOtherTypeIsReadAsItStandsInItsFile) {
    for (const RegisterType type : allTypes()) {
        if (WITHOUT_FILE.count(type) == 0) {
            EXPECT_EQ(driver.convertValue(type, 48312, 1), 48312) << getTypeName(type);
            EXPECT_EQ(driver.convertValue(type, -5, -1), -5) << getTypeName(type);
        }
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(VaduDriverTest, FindsASensorByItsLine) {
    writeFile(SENSOR_LIST, "28-00000a1b2c3d\n28-0000075f0e11\n");
    EXPECT_EQ(driver.readTempSensorAddress(1), "28-00000a1b2c3d");
    EXPECT_EQ(driver.readTempSensorAddress(2), "28-0000075f0e11");
}

TEST_F(VaduDriverTest, GivesTheLineAsItStands) {
    writeFile(SENSOR_LIST, "\n  28-1 \t\n28-2");
    EXPECT_EQ(driver.readTempSensorAddress(1), "");
    EXPECT_EQ(driver.readTempSensorAddress(2), "  28-1 \t");
    EXPECT_EQ(driver.readTempSensorAddress(3), "28-2");
}

TEST_F(VaduDriverTest, LogsEveryLineItLooksAtAtInformation) {
    writeFile(SENSOR_LIST, "28-00000a1b2c3d\n28-0000075f0e11\n28-3\n");
    driver.readTempSensorAddress(2);
    EXPECT_THAT(log.texts(Poco::Message::PRIO_INFORMATION),
                ElementsAre("line 1 from temperature sensor addresses: 28-00000a1b2c3d 2",
                            "line 2 from temperature sensor addresses: 28-0000075f0e11 2"));
    ASSERT_EQ(log.lines().size(), 2U);
    EXPECT_EQ(log.lines()[0].source, loggerNameOf("vadu--1-driver", &driver));
}

TEST_F(VaduDriverTest, LogsAllLinesWhenNoneIsTheOneAskedFor) {
    writeFile(SENSOR_LIST, "28-1\n28-2\n");
    EXPECT_THROW(driver.readTempSensorAddress(-4), tesk::InputOutputException);
    EXPECT_THAT(log.texts(Poco::Message::PRIO_INFORMATION),
                ElementsAre("line 1 from temperature sensor addresses: 28-1 -4",
                            "line 2 from temperature sensor addresses: 28-2 -4"));
}

TEST_F(VaduDriverTest, WithoutAListThereIsNoSensor) {
    EXPECT_THAT([this] { driver.readTempSensorAddress(1); },
                ThrowsMessage<tesk::InputOutputException>(NO_LIST));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(VaduDriverTest, ALineThatTheListDoesNotHaveIsNoSensor) {
    writeFile(SENSOR_LIST, "28-1\n28-2\n");
    for (const int index :
         {0, -1, 3, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
        EXPECT_THAT([&] { driver.readTempSensorAddress(index); },
                    ThrowsMessage<tesk::InputOutputException>(NO_LINE));
    }
    writeFile(SENSOR_LIST, "");
    EXPECT_THAT([this] { driver.readTempSensorAddress(1); },
                ThrowsMessage<tesk::InputOutputException>(NO_LINE));
}

TEST_F(VaduDriverTest, ReadsTheTemperatureOfTheSensorOnTheLine) {
    writeFile(SENSOR_LIST, "28-00000a1b2c3d\n28-0000075f0e11\n");
    sensor("28-00000a1b2c3d", "23625\n");
    sensor("28-0000075f0e11", "-1250\n");
    EXPECT_EQ(value(TEMPERATURE, 1), 23625);
    EXPECT_EQ(value(TEMPERATURE, 2), -1250);
    EXPECT_THAT(log.texts(Poco::Message::PRIO_NOTICE), IsEmpty());
}

TEST_F(VaduDriverTest, ATemperatureThatIsNoNumberReadsAsZero) {
    writeFile(SENSOR_LIST, "28-1\n");
    sensor("28-1", "none\n");
    EXPECT_EQ(value(TEMPERATURE), 0);
}

TEST_F(VaduDriverTest, AMissingSensorReadsAs4096AndIsNoticed) {
    const auto noticesAMissingSensor = [this](int index) {
        log.clear();
        EXPECT_EQ(value(TEMPERATURE, index), 4096);
        const auto lines =
            log.linesWithText("sensor temperature not found on index " + std::to_string(index));
        ASSERT_EQ(lines.size(), 1U);
        EXPECT_EQ(lines[0].priority, Poco::Message::PRIO_NOTICE);
        EXPECT_EQ(lines[0].source, loggerNameOf("vadu--1-driver", &driver));
    };
    noticesAMissingSensor(1);  // no list
    writeFile(SENSOR_LIST, "28-1\n28-2\n");
    noticesAMissingSensor(3);   // no such line
    noticesAMissingSensor(0);   // no such line
    noticesAMissingSensor(-1);  // no such line
    noticesAMissingSensor(1);   // no such file
    sensor("28-1", "");
    noticesAMissingSensor(1);  // no conversion
    writeFile("/sys/bus/w1/devices/28-2/name", "");
    std::filesystem::create_symlink("/proc/self/mem", "/sys/bus/w1/devices/28-2/temperature");
    noticesAMissingSensor(2);  // a failing conversion
}

TEST_F(VaduDriverTest, APipeInThePlaceOfAFileIsAsGoodAsNone) {
    writeFile(SENSOR_LIST, "28-1\n");
    writeFile("/sys/bus/w1/devices/28-1/name", "");
    ASSERT_EQ(mkfifo("/sys/bus/w1/devices/28-1/temperature", 0600), 0);
    EXPECT_EQ(value(TEMPERATURE), 4096);
    std::filesystem::remove(SENSOR_LIST);
    ASSERT_EQ(mkfifo(SENSOR_LIST, 0600), 0);
    EXPECT_THAT([this] { driver.readTempSensorAddress(1); },
                ThrowsMessage<tesk::InputOutputException>(NO_LIST));
    writeFile("/tmp/factory_info_partition/other", "");
    ASSERT_EQ(mkfifo(FACTORY_INFO, 0600), 0);
    EXPECT_THAT([this] { value(RegisterType::HW_TYPE); },
                ThrowsMessage<tesk::InputOutputException>(std::string("error opening file '") +
                                                          FACTORY_INFO + "' for reading"));
}

TEST_F(VaduDriverTest, TheAddressWordsOfAMissingSensorAreZeroWithoutANotice) {
    EXPECT_EQ(value(LOWER), 0);
    EXPECT_EQ(value(HIGHER), 0);
    writeFile(SENSOR_LIST, "28-1\n28-2\n");
    for (const int index : {3, 0, -1}) {
        EXPECT_EQ(value(LOWER, index), 0);
        EXPECT_EQ(value(HIGHER, index), 0);
    }
    EXPECT_THAT(log.texts(Poco::Message::PRIO_NOTICE), IsEmpty());
}

TEST_F(VaduDriverTest, SplitsTheSerialNumberIntoTwoWords) {
    writeFile(SENSOR_LIST,
              "28-00000a1b2c3d\n28-0000075f0e11\n28-fedcba9876543210\n28-0123456789AB\n28-0\n"
              "28-ffffffff\n28-ffffffffffffffff\n");
    EXPECT_EQ(value(LOWER, 1), 0x0a1b2c3d);
    EXPECT_EQ(value(HIGHER, 1), 0);
    EXPECT_EQ(value(LOWER, 2), 123670033);
    EXPECT_EQ(value(HIGHER, 2), 0);
    EXPECT_EQ(value(LOWER, 3), 0x76543210);
    EXPECT_EQ(value(HIGHER, 3), static_cast<int>(0xfedcba98));
    EXPECT_EQ(value(LOWER, 4), 0x456789ab);
    EXPECT_EQ(value(HIGHER, 4), 0x0123);
    EXPECT_EQ(value(LOWER, 5), 0);
    EXPECT_EQ(value(LOWER, 6), -1);
    EXPECT_EQ(value(HIGHER, 6), 0);
    EXPECT_EQ(value(LOWER, 7), -1);
    EXPECT_EQ(value(HIGHER, 7), -1);
}

TEST_F(VaduDriverTest, AnAddressThatIsNotTwoPartsLeavesTheValueAsItIs) {
    writeFile(SENSOR_LIST, "280000075f0e11\n28-0000-075f0e11\n\n28--1\n-1-2-\n");
    for (int index = 1; index <= 5; ++index) {
        EXPECT_EQ(driver.convertValue(LOWER, 77, index), 77) << "line " << index;
        EXPECT_EQ(driver.convertValue(HIGHER, -3, index), -3) << "line " << index;
    }
}

TEST_F(VaduDriverTest, ASerialNumberThatIsNotHexadecimalIsASyntaxError) {
    writeFile(SENSOR_LIST, "28-xyz\n28-\n28-0000075f0e1g\n28-12345678901234567\n");
    for (int index = 1; index <= 4; ++index) {
        EXPECT_THROW(value(LOWER, index), Poco::SyntaxException) << "line " << index;
        EXPECT_THROW(value(HIGHER, index), Poco::SyntaxException) << "line " << index;
    }
}

TEST_F(VaduDriverTest, SeesSensorsThatComeAndGo) {
    EXPECT_EQ(value(TEMPERATURE, 2), 4096);
    writeFile(SENSOR_LIST, "28-1\n");
    sensor("28-1", "1000\n");
    EXPECT_EQ(value(TEMPERATURE, 1), 1000);
    EXPECT_EQ(value(TEMPERATURE, 2), 4096);
    EXPECT_EQ(value(LOWER, 2), 0);
    writeFile(SENSOR_LIST, "28-1\n28-2\n");
    sensor("28-2", "2000\n");
    EXPECT_EQ(value(TEMPERATURE, 2), 2000);
    EXPECT_EQ(value(LOWER, 2), 2);
    writeFile(SENSOR_LIST, "28-2\n");
    EXPECT_EQ(value(TEMPERATURE, 1), 2000);
    EXPECT_EQ(value(TEMPERATURE, 2), 4096);
}

TEST_F(VaduDriverTest, TheUptimeIsThatOfTheSystem) {
    struct sysinfo before {};
    struct sysinfo after {};
    sysinfo(&before);
    const int uptime = value(RegisterType::UPTIME);
    sysinfo(&after);
    EXPECT_GE(uptime, before.uptime);
    EXPECT_LE(uptime, after.uptime);
}

/// Has the kernel refuse sysinfo() to this process for good.
bool refuseSysinfo() {
    std::array<sock_filter, 4> program{{
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_sysinfo, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    }};
    const sock_fprog filter{program.size(), program.data()};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

TEST_F(VaduDriverTest, AnUptimeThatTheSystemDoesNotGiveIsAnError) {
    EXPECT_EQ(inChildProcess([this]() -> std::string {
                  if (!refuseSysinfo()) {
                      return "the kernel takes no filter";
                  }
                  try {
                      return "uptime " + std::to_string(value(RegisterType::UPTIME));
                  } catch (const tesk::InputOutputException& e) {
                      return e.what();
                  }
              }),
              "error reading uptime from the system");
}

TEST_F(VaduDriverTest, TheHardwareTypeMayBeANumberOrAText) {
    const std::map<std::string, int> types{
        {"12", 12},
        {R"("12")", 12},
        {"-3", -3},
        {R"("-3")", -3},
        {"0", 0},
        {"12.7", 12},
        {R"(" 12 and more")", 12},
        {R"("0x10")", 0},
        {R"("")", 0},
        {R"("none")", 0},
        {"true", 0},
    };
    for (const auto& [json, type] : types) {
        EXPECT_EQ(hardwareTypeOf(json), type) << json;
    }
}

TEST_F(VaduDriverTest, OfALargeHardwareTypeTheLow32BitsCount) {
    EXPECT_EQ(hardwareTypeOf("4294967297"), 1);
    EXPECT_EQ(hardwareTypeOf(R"("4294967297")"), 1);
    EXPECT_EQ(hardwareTypeOf("2147483648"), std::numeric_limits<int>::min());
    EXPECT_EQ(hardwareTypeOf(R"("99999999999999999999")"), -1);
    EXPECT_EQ(hardwareTypeOf(R"("-99999999999999999999")"), 0);
}

TEST_F(VaduDriverTest, ReadsTheFactoryInformationAnew) {
    EXPECT_EQ(hardwareTypeOf("12"), 12);
    EXPECT_EQ(hardwareTypeOf("13"), 13);
}

TEST_F(VaduDriverTest, AMissingFactoryInformationIsAnError) {
    EXPECT_THAT([this] { value(RegisterType::HW_TYPE); },
                ThrowsMessage<tesk::InputOutputException>(std::string("error opening file '") +
                                                          FACTORY_INFO + "' for reading"));
}

TEST_F(VaduDriverTest, AFactoryInformationWithoutAHardwareTypeIsAnError) {
    for (const char* json :
         {"{}", R"({"HW_DEVICE": {}})", R"({"HW_DEVICE": {"legacy_hw_type": 1}})",
          R"({"HW_DEVICE": 7})", R"({"HW_DEVICE": null})", R"({"HW_DEVICE": []})",
          R"({"Legacy_HW_Type": 5})", R"({"hw_device": {"Legacy_HW_Type": 5}})"}) {
        EXPECT_THAT([&] { hardwareType(json); },
                    ThrowsMessage<tesk::NotFoundException>("error parsing factory info"))
            << json;
    }
}

TEST_F(VaduDriverTest, AnEmptyHardwareTypeCannotBeConverted) {
    EXPECT_THAT([this] { hardwareTypeOf("null"); },
                Throws<Poco::InvalidAccessException>(
                    Property(&Poco::Exception::message, "Can not convert empty value.")));
}

TEST_F(VaduDriverTest, AFactoryInformationWhoseRootIsNoObjectIsANullPointer) {
    for (const char* json : {"[]", "[{}]", "12", "\"text\"", "null"}) {
        EXPECT_THROW(hardwareType(json), Poco::NullPointerException) << json;
    }
}

TEST_F(VaduDriverTest, AFactoryInformationThatIsNotJsonIsAParseError) {
    for (const char* text : {"", "HW_DEVICE=5", "{\"HW_DEVICE\": {\"Legacy_HW_Type\": 5}", "{,}"}) {
        EXPECT_THROW(hardwareType(text), tesk::ParseException) << "text '" << text << "'";
    }
}

TEST_F(VaduDriverTest, PacksTheFirmwareVersion) {
    const std::map<std::string, int> packed{
        {"2.3.4", 564},  {"1.20.3", 579},  {"4.5.6-rc1", 1110}, {"4.5.6-rc1-7", 1110},
        {"0.0.0", 0},    {"1.2.3.4", 291}, {"1.2.16", 304},     {"256.0.0", 65536},
        {" 1.2.3", 291}, {"v1.2.3", 35},   {"a.b.c", 0},        {"1.2.", 288},
        {"..", 0},       {"1.2.-5", 288},  {"-1.0.0", -256},    {"1.2.3rc1", 291},
    };
    for (const auto& [version, value] : packed) {
        EXPECT_EQ(firmware(version), value) << version;
    }
}

TEST_F(VaduDriverTest, HugeNumbersInAFirmwareVersionWrapAround) {
    EXPECT_EQ(firmware("8388608.0.0"), std::numeric_limits<int>::min());
    EXPECT_EQ(firmware("16777216.0.0"), 0);
    EXPECT_EQ(firmware("0.268435456.0"), 0);
    EXPECT_EQ(firmware("8388607.0.2147483647"), -257);
    EXPECT_EQ(firmware("99999999999999999999.0.0"), -256);
    EXPECT_EQ(firmware("0.99999999999999999999.0"), -16);
}

TEST_F(VaduDriverTest, AFirmwareVersionOfLessThanThreePartsIsInvalid) {
    for (const char* version : {"1.2", "12", "", "1-2-3", "."}) {
        EXPECT_THAT([&] { firmware(version); }, ThrowsMessage<tesk::InputOutputException>(
                                                    "invalid format for firmware version"))
            << version;
    }
}

TEST_F(VaduDriverTest, AnImageWithoutAVersionIsAnError) {
    writeFile(OS_RELEASE, "NAME=x\n");
    EXPECT_THROW(value(RegisterType::FW_VERSION), tesk::NotFoundException);
}

TEST_F(VaduDriverTest, ValuesWithoutAFileDependOnNoIndexButThoseOfSensors) {
    EXPECT_EQ(firmware("2.3.4"), 564);
    EXPECT_EQ(hardwareTypeOf("12"), 12);
    for (const int index : {0, -1, 99}) {
        EXPECT_EQ(value(RegisterType::FW_VERSION, index), 564);
        EXPECT_EQ(value(RegisterType::HW_TYPE, index), 12);
    }
}

TEST_F(VaduDriverTest, LogsOnlyWhatIsWanted) {
    writeFile(SENSOR_LIST, "28-1\n");
    {
        const CapturedLog notices(Poco::Message::PRIO_NOTICE);
        EXPECT_EQ(value(TEMPERATURE, 2), 4096);
        EXPECT_THAT(notices.texts(Poco::Message::PRIO_NOTICE),
                    ElementsAre("sensor temperature not found on index 2"));
        EXPECT_EQ(notices.lines().size(), 1U);
    }
    const CapturedLog warnings(Poco::Message::PRIO_WARNING);
    EXPECT_EQ(value(TEMPERATURE, 2), 4096);
    EXPECT_THAT(warnings.lines(), IsEmpty());
}

TEST_F(VaduDriverTest, SeveralThreadsMayReadAtOnce) {
    writeFile(SENSOR_LIST, "28-1\n28-0123456789ab\n");
    sensor("28-0123456789ab", "21000\n");
    EXPECT_EQ(firmware("2.3.4"), 564);
    EXPECT_EQ(hardwareTypeOf("12"), 12);
    constexpr int ROUNDS = 50;
    const auto readAll = [this] {
        for (int round = 0; round < ROUNDS; ++round) {
            EXPECT_EQ(value(TEMPERATURE, 2), 21000);
            EXPECT_EQ(value(TEMPERATURE, 3), 4096);
            EXPECT_EQ(value(LOWER, 2), 0x456789ab);
            EXPECT_EQ(value(RegisterType::FW_VERSION), 564);
            EXPECT_EQ(value(RegisterType::HW_TYPE), 12);
            EXPECT_GT(value(RegisterType::UPTIME), 0);
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back(readAll);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace
