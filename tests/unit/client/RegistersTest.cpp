// SPDX-License-Identifier: MIT
#include "client/Registers.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <numeric>
#include <string>
#include <vector>

#include "FakeService.h"
#include "KR62Driver.h"
#include "PD5Driver.h"
#include "PrivateBus.h"
#include "client/Failure.h"
#include "tesk/Exceptions.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::ThrowsMessage;

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

TEST_F(RegistersTest, AnUnknownRegisterAmongTemperaturesIsToldAsUnknown) {
    EXPECT_THAT(readings({30, 31, 30, 31, 30, 99}),
                ElementsAre("21500", "4096 missing", "21500", "4096 missing", "21500",
                            "address '99' not found unknown"));
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

TEST_F(RegistersTest, OnlyTypesThatAProgramCanSetAreWritten) {
    std::vector<RegisterType> written;
    for (const RegisterType type : getAllTypes()) {
        if (writeRefusalOf(type).empty()) {
            written.push_back(type);
        }
    }
    using Type = RegisterType;
    EXPECT_THAT(written, testing::UnorderedElementsAre(
                             Type::RELAY, Type::OUTPUT_DIGITAL, Type::PULLUP, Type::INPUT_COUNTER,
                             Type::RTS, Type::USB_ENABLE, Type::COLOR_LED, Type::BRIGHTNESS_LED,
                             Type::ENABLE_ANALOG, Type::VIRTUAL, Type::UNKNOWN));
}

/// The drivers of the boards say themselves which types they watch. Of a GPIO chip the service
/// watches the line whose edges it asks for, and a virtual register changes only by a write.
TEST_F(RegistersTest, ATypeIsAnnouncedIfTheServiceWatchesIt) {
    for (const RegisterType type : getAllTypes()) {
        const bool isWatched = KR62Driver::isWatched(type) || PD5Driver::isWatched(type) ||
                               type == RegisterType::CTS || type == RegisterType::VIRTUAL;
        EXPECT_EQ(isAnnounced(type), isWatched) << getTypeName(type);
    }
}

}  // namespace
