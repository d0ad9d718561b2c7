// SPDX-License-Identifier: MIT
#include "mqtt/HomeAssistant.h"

#include <gmock/gmock.h>

#include <limits>
#include <string>

#include "TemporaryDirectory.h"
#include "mqtt/JsonText.h"
#include "mqtt/Payloads.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Key;
using testing::Not;
using testing::Pair;

class HomeAssistantTest : public testing::Test {
 protected:
    HomeAssistantTest() {
        settings.device = "dev";
        settings.homeAssistant = HomeAssistantSettings();
    }

    /// The entities of one register with this label.
    Entities entitiesWith(RegisterType type, const std::string& label,
                          unsigned int maximum = std::numeric_limits<std::uint32_t>::max()) {
        const std::string file =
            directory.file("labels.json", R"({"labels": {"7": )" + label + "}}");
        return entitiesOf({{7, {{7, type, 1, maximum}, {}}}}, Labels::read(file), settings, topics);
    }

    static std::string messageOf(const Settings& settings, const Topics& topics,
                                 const Entities& entities, const OldEntities& gone = {}) {
        std::size_t leftOut = 0;
        return discoveryOf(settings, topics, entities, gone, leftOut);
    }

    TemporaryDirectory directory;
    Settings settings;
    const Topics topics{"iomap", "dev"};
};

TEST_F(HomeAssistantTest, ARegisterWithoutANameIsNoEntity) {
    EXPECT_THAT(entitiesWith(RegisterType::RELAY, R"({"unit": "bar"})"), IsEmpty());
}

TEST_F(HomeAssistantTest, ARelayThatMayBeWrittenIsASwitch) {
    settings.writable.add({7, 7});
    const Entities entities =
        entitiesWith(RegisterType::RELAY, R"({"name": "pump", "description": "Main pump"})", 1);
    ASSERT_THAT(entities, ElementsAre(Key("switch-pump")));
    EXPECT_EQ(entities.at("switch-pump").text,
              R"({"p":"switch","uniq_id":"dev-pump","name":"Main pump",)"
              R"("stat_t":"iomap/dev/r/pump","val_tpl":"{{ value_json.value }}",)"
              R"("cmd_t":"iomap/dev/set/pump","pl_on":"1","pl_off":"0"})");
}

TEST_F(HomeAssistantTest, ARelayThatMayNotBeWrittenIsABinarySensor) {
    const Entities entities = entitiesWith(
        RegisterType::RELAY, R"({"name": "pump", "states": {"0": "off", "1": "on"}})", 1);
    ASSERT_THAT(entities, ElementsAre(Key("binary_sensor-pump")));
    EXPECT_EQ(entities.at("binary_sensor-pump").text,
              R"({"p":"binary_sensor","uniq_id":"dev-pump","name":"pump",)"
              R"("stat_t":"iomap/dev/r/pump","val_tpl":"{{ value_json.value }}","exp_aft":900,)"
              R"("pl_on":"on","pl_off":"off"})");
}

TEST_F(HomeAssistantTest, AnInputStaysASensorEvenIfItIsListedAsWritable) {
    settings.writable.add({7, 7});
    EXPECT_THAT(entitiesWith(RegisterType::INPUT_DIGITAL, R"({"name": "door"})", 1),
                ElementsAre(Key("binary_sensor-door")));
    EXPECT_THAT(entitiesWith(RegisterType::CPU_TEMP, R"({"name": "cpu", "unit": "K"})"),
                ElementsAre(Key("sensor-cpu")));
}

TEST_F(HomeAssistantTest, TheUnitSaysWhatASensorMeasures) {
    const std::string text =
        entitiesWith(RegisterType::CPU_TEMP, R"({"name": "cpu", "unit": "°C", "scale": 0.001})")
            .at("sensor-cpu")
            .text;
    EXPECT_THAT(text, HasSubstr(R"("unit_of_meas":"°C","dev_cla":"temperature",)"
                                R"("stat_cla":"measurement")"));
    EXPECT_THAT(
        entitiesWith(RegisterType::VIRTUAL, R"({"name": "x", "unit": "kWh"})").at("sensor-x").text,
        HasSubstr(R"("dev_cla":"energy","stat_cla":"total_increasing")"));
    EXPECT_THAT(
        entitiesWith(RegisterType::HW_TYPE, R"({"name": "x"})").at("sensor-x").text,
        AllOf(Not(HasSubstr("dev_cla")), Not(HasSubstr("stat_cla")), Not(HasSubstr("unit"))));
}

TEST_F(HomeAssistantTest, ACounterOnlyGrows) {
    EXPECT_THAT(entitiesWith(RegisterType::INPUT_COUNTER, R"({"name": "n"})").at("sensor-n").text,
                HasSubstr(R"("stat_cla":"total_increasing")"));
}

TEST_F(HomeAssistantTest, ANumberThatMayBeWrittenHasItsRange) {
    settings.writable.add({7, 7});
    const Entities small = entitiesWith(RegisterType::VIRTUAL,
                                        R"({"name": "level", "unit": "cm", "scale": 0.5})", 255);
    EXPECT_THAT(small.at("number-level").text,
                HasSubstr(R"("unit_of_meas":"cm","min":0,"max":127.5,"step":0.5,"mode":"box")"));
    const Entities large = entitiesWith(RegisterType::VIRTUAL, R"({"name": "n", "scale": -1})");
    EXPECT_THAT(large.at("number-n").text,
                HasSubstr(R"("min":-2147483647,"max":2147483648,"step":1,)"));
}

TEST_F(HomeAssistantTest, StatesAreOptions) {
    const std::string label = R"({"name": "mode", "states": {"1": "slow", "2": "fast"}})";
    EXPECT_THAT(entitiesWith(RegisterType::VIRTUAL, label).at("sensor-mode").text,
                HasSubstr(R"("ops":["slow","fast"],"dev_cla":"enum")"));
    settings.writable.add({7, 7});
    EXPECT_THAT(entitiesWith(RegisterType::VIRTUAL, label).at("select-mode").text,
                HasSubstr(R"("cmd_t":"iomap/dev/set/mode","ops":["slow","fast"]})"));
}

TEST_F(HomeAssistantTest, ATemperatureOfWhichOneValueHasANameStaysANumber) {
    const std::string label =
        R"({"name": "t", "unit": "°C", "scale": 0.001, "states": {"4096": "missing"}})";
    EXPECT_THAT(
        entitiesWith(RegisterType::SENSOR_TEMP_VALUE, label).at("sensor-t").text,
        AllOf(HasSubstr(R"("unit_of_meas":"°C","dev_cla":"temperature","stat_cla":"measurement")"),
              HasSubstr("value_json.value if value_json.value is number else none"),
              Not(HasSubstr("ops"))));
    settings.writable.add({7, 7});
    EXPECT_THAT(entitiesWith(RegisterType::VIRTUAL, label).at("number-t").text,
                AllOf(HasSubstr(R"("unit_of_meas":"°C")"), HasSubstr(R"("step":0.001)")));
}

TEST_F(HomeAssistantTest, OneMessageTellsOfTheDevice) {
    settings.homeAssistant->name = "Pump house";
    const std::string message =
        messageOf(settings, topics, {{"sensor-a", {"sensor", R"({"p":"sensor","x":1})"}}},
                  {{"switch-b", "switch"}});
    EXPECT_THAT(message, AllOf(HasSubstr(R"("dev":{"ids":["dev"],"name":"Pump house","sw":)"),
                               HasSubstr(R"("o":{"name":"iomap-mqtt","sw":)"),
                               HasSubstr(R"("avty_t":"iomap/dev/status","qos":1,)"),
                               HasSubstr(R"("cmps":{"sensor-a":{"p":"sensor","x":1},)"
                                         R"("switch-b":{"p":"switch"}}})")));
    EXPECT_THAT(entitiesIn(message), ElementsAre(Pair("sensor-a", "sensor")));
}

TEST_F(HomeAssistantTest, AMessageHasABoundAndSaysWhatHadNoRoom) {
    Entities entities;
    for (int i = 0; i < 1401; ++i) {
        entities["sensor-n" + std::to_string(10'000 + i)] = {"sensor",
                                                             quoted(std::string(200, 'x'))};
    }
    std::size_t leftOut = 0;
    const std::string message = discoveryOf(settings, topics, entities, {}, leftOut);
    EXPECT_LE(message.size(), LONGEST_MESSAGE);
    EXPECT_GT(message.size(), LONGEST_MESSAGE - 300);
    EXPECT_GT(leftOut, 0U);
    EXPECT_LT(leftOut, entities.size());
}

TEST_F(HomeAssistantTest, AMessageOfSomebodyElseHasNoEntities) {
    for (const std::string text :
         {"", "{", "7", "[]", R"({"cmps":7})", R"({"cmps":{"sensor-a":7}})",
          R"({"cmps":{"sensor-a":{"x":1,"y":2}}})", R"({"cmps":{"sensor-#":{"p":"sensor","x":1}}})",
          R"({"cmps":{"light-a":{"p":"light","x":1}}})",
          R"({"cmps":{"sensor-a":{"p":"switch","x":1}}})"}) {
        EXPECT_THAT(entitiesIn(text), IsEmpty()) << text;
    }
    EXPECT_THAT(entitiesIn(std::string(100'000, '[')), IsEmpty());
}

}  // namespace
