// SPDX-License-Identifier: MIT
#include "client/Label.h"

#include <gtest/gtest.h>

#include <limits>

#include "client/Failure.h"

namespace {

constexpr unsigned int WHOLE = std::numeric_limits<unsigned int>::max();

Label scaledBy(double scale, double offset = 0, const std::string& unit = {}) {
    Label label;
    label.scale = scale;
    label.offset = offset;
    label.unit = unit;
    return label;
}

Label withStates() {
    Label label;
    label.states = {{0, "closed"}, {1, "open"}};
    return label;
}

/// The words of the refusal of a text.
std::string refusal(const Label& label, const std::string& text, unsigned int maximum) {
    try {
        const int raw = label.rawOf(text, maximum);
        return "taken as " + std::to_string(raw);
    } catch (const Failure& e) {
        return e.what();
    }
}

TEST(LabelTest, AValueWithoutAScaleIsShownAsItIs) {
    EXPECT_EQ(Label().shown(0), "0");
    EXPECT_EQ(Label().shown(-7), "-7");
    EXPECT_EQ(Label().shown(std::numeric_limits<int>::max()), "2147483647");
}

TEST(LabelTest, AScaledValueHasTheDecimalsOfScaleAndOffset) {
    EXPECT_EQ(scaledBy(0.1).shown(215), "21.5");
    EXPECT_EQ(scaledBy(0.1).shown(210), "21.0");
    EXPECT_EQ(scaledBy(0.001).shown(-20099), "-20.099");
    EXPECT_EQ(scaledBy(0.5, -40.25).shown(3), "-38.75");
    EXPECT_EQ(scaledBy(10).shown(3), "30");
    EXPECT_EQ(scaledBy(1.0 / 3).shown(1), "0.333333333");
    EXPECT_EQ(scaledBy(1e-9).shown(1), "0.000000001");
}

TEST(LabelTest, AValueThatRoundsToZeroHasNoSign) {
    EXPECT_EQ(scaledBy(-0.5).shown(0), "0.0");
}

TEST(LabelTest, AValueIsShownWithItsUnit) {
    EXPECT_EQ(scaledBy(0.001, 0, "bar").shown(1500), "1.500 bar");
}

TEST(LabelTest, AStateIsShownByItsNameAndOtherValuesAsNumbers) {
    EXPECT_EQ(withStates().shown(1), "open");
    EXPECT_EQ(withStates().shown(2), "2");
}

TEST(LabelTest, TheNameOfAStateIsTakenForItsRawValue) {
    EXPECT_EQ(withStates().rawOf("open", 1), 1);
    EXPECT_EQ(withStates().rawOf("0", 1), 0);
    EXPECT_EQ(refusal(withStates(), "ajar", 1),
              "'ajar' is neither a number nor one of the states closed, open");
}

TEST(LabelTest, EveryShownValueIsTakenForTheRawValueThatItShows) {
    for (const double scale : {1.0, 0.1, 0.001, -0.25, 3.0, 1e-6}) {
        for (const double offset : {0.0, -40.0, 0.05}) {
            const Label label = scaledBy(scale, offset);
            for (const int raw : {0, 1, 2, 999, 65535, 2147483647}) {
                EXPECT_EQ(label.rawOf(label.shown(raw), WHOLE), raw) << scale << ' ' << offset;
            }
        }
    }
}

TEST(LabelTest, AValueBetweenTwoStepsIsRefusedWithBoth) {
    EXPECT_EQ(refusal(scaledBy(0.1), "21.55", 1000),
              "'21.55' lies between the possible values 21.5 and 21.6");
    EXPECT_EQ(refusal(scaledBy(-0.5), "0.75", 1000), "'0.75' is out of range -500.0 to 0.0");
    EXPECT_EQ(refusal(scaledBy(-0.5), "-0.75", 1000),
              "'-0.75' lies between the possible values -1.0 and -0.5");
}

TEST(LabelTest, AValueOutOfRangeIsRefusedWithTheRange) {
    EXPECT_EQ(refusal(scaledBy(0.1, -40), "-40.1", 1023), "'-40.1' is out of range -40.0 to 62.3");
    EXPECT_EQ(refusal(scaledBy(0.1, -40), "62.4", 1023), "'62.4' is out of range -40.0 to 62.3");
    EXPECT_EQ(scaledBy(0.1, -40).rawOf("62.3", 1023), 1023);
}

TEST(LabelTest, OnlyARegisterOf32BitsHasNegativeRawValues) {
    EXPECT_EQ(scaledBy(0.1).rawOf("-5", WHOLE), -50);
    EXPECT_EQ(refusal(scaledBy(0.1), "-5", 65535), "'-5' is out of range 0.0 to 6553.5");
    // The nearest step is the last one; the one behind it does not exist.
    EXPECT_EQ(refusal(scaledBy(0.1), "25.53", 255), "'25.53' is out of range 0.0 to 25.5");
    EXPECT_EQ(refusal(scaledBy(0.1), "-0.03", 255), "'-0.03' is out of range 0.0 to 25.5");
    EXPECT_EQ(scaledBy(0.1).rawOf("25.5", 255), 255);
}

TEST(LabelTest, WhatIsNoNumberIsRefused) {
    for (const char* const text : {"", "x", "1x", "0x10", "nan", "inf", "1,5", " 1", "1e999"}) {
        EXPECT_EQ(refusal(Label(), text, WHOLE), "'" + std::string(text) + "' is not a number");
    }
}

TEST(LabelTest, AScaledTextHasNeitherStateNorUnit) {
    Label label;
    label.scale = 0.1;
    label.unit = "bar";
    label.states = {{1, "open"}};
    EXPECT_EQ(label.scaledText(1), "0.1");
    EXPECT_EQ(label.scaledText(-25), "-2.5");
}

}  // namespace
