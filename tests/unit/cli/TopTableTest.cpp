// SPDX-License-Identifier: MIT
#include "cli/TopTable.h"

#include <gmock/gmock.h>

#include "TemporaryDirectory.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Quality = CachedValue::Quality;
using Style = TopTable::Style;

constexpr const char* HEADER = "ADDRESS  TYPE                        INDEX  VALUE";

class TopTableTest : public testing::Test {
 protected:
    void set(TopTable& table, int address, int value, RegisterType type = RegisterType::RELAY,
             const std::string& error = "") {
        table.set({{address, type, address, 1},
                   {value, error.empty() ? Quality::GOOD : Quality::UNREADABLE, error, now}},
                  now);
    }

    /// A table of relays with the addresses from 1 to a number, which are their values, too.
    TopTable tableOf(int count) {
        TopTable table(labels, {});
        for (int address = 1; address <= count; ++address) {
            set(table, address, address);
        }
        return table;
    }

    /// Each row of the screen as its address and, if it stands out, how: "3", "3 changed".
    std::vector<std::string> rowsOf(TopTable& table, int height) const {
        const auto lines = table.lines(height, 80, "", now);
        std::vector<std::string> rows;
        for (std::size_t i = 1; i + 1 < lines.size(); ++i) {
            if (lines[i].text.empty()) {
                continue;
            }
            rows.push_back(std::to_string(std::stoi(lines[i].text)) +
                           (lines[i].style == Style::CHANGED ? " changed" : "") +
                           (lines[i].style == Style::STALE ? " stale" : "") +
                           (lines[i].isSelected ? " selected" : ""));
        }
        return rows;
    }

    Labels labels;
    TopTable::Clock::time_point now = TopTable::Clock::now();
};

TEST_F(TopTableTest, TheScreenHasAHeaderTheRowsAndTheNotice) {
    TopTable table = tableOf(1);
    const auto lines = table.lines(4, 80, "notice", now);
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[0].text, HEADER);
    EXPECT_EQ(lines[1].text, "      1  relay                           1  1");
    EXPECT_EQ(lines[2].text, "");
    EXPECT_EQ(lines[3].text, "notice");
}

TEST_F(TopTableTest, NoLineIsWiderThanTheScreenAndNoCharacterIsCutInTwo) {
    TopTable table = tableOf(1);
    for (const TopTable::Line& line : table.lines(3, 5, "ü°ü°ü°ü°", now)) {
        EXPECT_LE(line.text.size(), 10U);
    }
    EXPECT_EQ(table.lines(3, 5, "ü°ü°ü°ü°", now).back().text, "ü°ü°ü");
}

TEST_F(TopTableTest, AnyScreenHasAsManyLinesAsItIsHigh) {
    TopTable table = tableOf(9);
    for (int height = 1; height < 15; ++height) {
        EXPECT_EQ(table.lines(height, 80, "", now).size(), static_cast<std::size_t>(height));
    }
    EXPECT_THAT(table.lines(0, 80, "", now), IsEmpty());
    EXPECT_THAT(table.lines(5, 0, "", now), IsEmpty());
    TopTable none(labels, {});
    EXPECT_EQ(none.lines(5, 80, "", now).size(), 5U);
}

TEST_F(TopTableTest, AChangedValueStandsOutForAWhile) {
    TopTable table = tableOf(2);
    EXPECT_THAT(rowsOf(table, 9), ElementsAre("1 selected", "2"));
    set(table, 2, 7);
    EXPECT_THAT(rowsOf(table, 9), ElementsAre("1 selected", "2 changed"));
    now += TopTable::CHANGE_TIME;
    EXPECT_THAT(rowsOf(table, 9), ElementsAre("1 selected", "2"));
}

TEST_F(TopTableTest, AValueThatIsReadForTheFirstTimeIsNoChange) {
    TopTable table(labels, {});
    table.set({{1, RegisterType::SENSOR_TEMP_VALUE, 1, 0}, {}}, now);
    EXPECT_THAT(rowsOf(table, 9), ElementsAre("1 stale selected"));
    set(table, 1, 21500, RegisterType::SENSOR_TEMP_VALUE);
    EXPECT_THAT(rowsOf(table, 9), ElementsAre("1 selected"));
}

TEST_F(TopTableTest, ARegisterThatCannotBeReadShowsTheReasonOnOneLine) {
    TopTable table(labels, {});
    set(table, 1, 0, RegisterType::RELAY, "broken\nboard");
    const TopTable::Line row = table.lines(3, 80, "", now)[1];
    EXPECT_EQ(row.text, "      1  relay                           1  broken board");
    EXPECT_EQ(row.style, Style::STALE);
}

TEST_F(TopTableTest, AMissingSensorIsShownAsMissing) {
    TopTable table(labels, {});
    set(table, 1, 4096, RegisterType::SENSOR_TEMP_VALUE);
    set(table, 2, 4096, RegisterType::INPUT_ANALOG);
    const auto lines = table.lines(4, 80, "", now);
    EXPECT_EQ(lines[1].text, "      1  sensor_temp_value               1  missing");
    EXPECT_EQ(lines[2].text, "      2  input_analog                    2  4096");
}

TEST_F(TopTableTest, TheSelectionMovesAndTheRowsScrollWithIt) {
    TopTable table = tableOf(5);
    EXPECT_THAT(rowsOf(table, 5), ElementsAre("1 selected", "2", "3"));
    table.move(3);
    EXPECT_THAT(rowsOf(table, 5), ElementsAre("2", "3", "4 selected"));
    table.move(-1);
    EXPECT_THAT(rowsOf(table, 5), ElementsAre("2", "3 selected", "4"));
    table.move(-9);
    EXPECT_THAT(rowsOf(table, 5), ElementsAre("1 selected", "2", "3"));
    table.move(9);
    EXPECT_THAT(rowsOf(table, 5), ElementsAre("3", "4", "5 selected"));
    EXPECT_THAT(rowsOf(table, 9), ElementsAre("1", "2", "3", "4", "5 selected"));
}

TEST_F(TopTableTest, TheSelectionStaysAtItsAddressWhenTheServiceComesBack) {
    TopTable table = tableOf(3);
    table.move(1);
    table.clear();
    EXPECT_TRUE(table.isEmpty());
    EXPECT_FALSE(table.switchOf());
    set(table, 2, 0);
    set(table, 5, 0);
    EXPECT_THAT(rowsOf(table, 9), ElementsAre("2 selected", "5"));
}

TEST_F(TopTableTest, WhatIs0Or1AndCanBeWrittenIsSwitched) {
    TopTable table(labels, {});
    set(table, 1, 0);
    ASSERT_TRUE(table.switchOf());
    EXPECT_EQ(table.switchOf()->info.address, 1);
    EXPECT_EQ(table.switchOf()->value, 1);
    set(table, 1, 1);
    EXPECT_EQ(table.switchOf()->value, 0);
    set(table, 1, 2);
    EXPECT_FALSE(table.switchOf());
    set(table, 1, 0, RegisterType::RELAY, "broken");
    EXPECT_FALSE(table.switchOf());
    set(table, 1, 0, RegisterType::INPUT_DIGITAL);
    EXPECT_FALSE(table.switchOf());
}

TEST_F(TopTableTest, OnlyRegistersOfTheTypesAreShown) {
    TopTable table(labels, {{RegisterType::RELAY, RegisterType::UPTIME}, ""});
    set(table, 1, 0);
    set(table, 2, 0, RegisterType::INPUT_DIGITAL);
    set(table, 3, 0, RegisterType::UPTIME);
    EXPECT_THAT(rowsOf(table, 9), ElementsAre("1 selected", "3"));
}

TEST_F(TopTableTest, LabelsGiveNamesAndGroups) {
    const TemporaryDirectory directory;
    labels = Labels::read(directory.file("labels.json", R"({"labels": {
        "1": {"name": "door", "group": "hall", "states": {"0": "closed", "1": "open"}},
        "2": {"name": "pressure", "group": "cellar", "unit": "bar", "scale": 0.1}}})"));
    TopTable all = tableOf(3);
    const auto lines = all.lines(5, 80, "", now);
    EXPECT_EQ(lines[0].text, std::string(HEADER) + "        NAME = SHOWN");
    EXPECT_EQ(lines[1].text,
              "      1  relay                           1  1            door = open");
    EXPECT_EQ(lines[2].text,
              "      2  relay                           2  2            pressure = 0.2 bar");
    EXPECT_EQ(lines[3].text, "      3  relay                           3  3");
    TopTable hall(labels, {{}, "hall"});
    set(hall, 1, 0);
    set(hall, 2, 0);
    set(hall, 3, 0);
    EXPECT_THAT(rowsOf(hall, 9), ElementsAre("1 selected"));
}

}  // namespace
