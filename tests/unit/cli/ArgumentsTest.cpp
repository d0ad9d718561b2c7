// SPDX-License-Identifier: MIT
#include "cli/Arguments.h"

#include <gmock/gmock.h>

#include "TemporaryDirectory.h"
#include "program/UsageError.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

/// The words with which something is not understood.
template <typename Parse>
std::string refusalOf(const Parse& parse) {
    try {
        parse();
    } catch (const UsageError& e) {
        return e.what();
    }
    return "no refusal";
}

std::pair<int, int> assignment(const std::string& text) {
    const std::vector<Assignment> result = parseAssignment(text);
    EXPECT_THAT(result, SizeIs(1));
    return {result.front().address, result.front().value};
}

/// The labels of a device with a door and a setpoint.
Labels labelsOfDoor() {
    const TemporaryDirectory directory;
    return Labels::read(directory.file("labels.json", R"({"labels": {
        "7": {"name": "door", "states": {"0": "closed", "1": "open"}},
        "20": {"name": "set-point.2", "scale": 0.5},
        "21": {"unit": "V"}}})"));
}

std::tuple<int, std::string, bool> named(const std::string& text) {
    const NamedAssignment result = splitAssignment(text, labelsOfDoor());
    EXPECT_EQ(result.target.first, result.target.last);
    return {result.target.first, result.value, result.isByName};
}

TEST(ArgumentsTest, ANameStandsForItsAddressAmongOthers) {
    EXPECT_THAT(parseAddresses({"3", "door", "5-7", "set-point.2", "door"}, labelsOfDoor()),
                ElementsAre(3, 7, 5, 6, 7, 20, 7));
}

TEST(ArgumentsTest, WhatIsNoNameIsRefusedWithThePlaceOfTheNames) {
    for (const char* text : {"Door", "doo", "door ", "door-7", "7-door", "open", ""}) {
        EXPECT_EQ(refusalOf([text] { parseAddresses({text}, labelsOfDoor()); }),
                  "'" + std::string(text) +
                      "' is neither an address nor a range FIRST-LAST, nor the name of a register "
                      "in '" +
                      Labels::file() + "'");
    }
}

TEST(ArgumentsTest, AnAssignmentToANameKeepsItsValueAsItIsWritten) {
    EXPECT_EQ(named("door=open"), std::tuple(7, "open", true));
    EXPECT_EQ(named("set-point.2=-21.5"), std::tuple(20, "-21.5", true));
    EXPECT_EQ(named("door="), std::tuple(7, "", true));
    EXPECT_EQ(named("door=a=b"), std::tuple(7, "a=b", true));
    EXPECT_EQ(named("7=1"), std::tuple(7, "1", false));
}

TEST(ArgumentsTest, AnAssignmentToAnUnknownNameIsRefusedWithThePlaceOfTheNames) {
    EXPECT_EQ(refusalOf([] { splitAssignment("window=1", labelsOfDoor()); }),
              "'window=1' does not start with an address, nor the name of a register in '" +
                  Labels::file() + "'");
    EXPECT_EQ(refusalOf([] { splitAssignment("door", labelsOfDoor()); }),
              "'door' is not of the form ADDR=VALUE");
}

TEST(ArgumentsTest, ARawValueOfANameIsThatOfItsAddress) {
    EXPECT_EQ(rawValueOf({{7, 7}, "0x10", true}, "door=0x10"), 16);
    EXPECT_EQ(refusalOf([] {
                  rawValueOf({{7, 7}, "open", true}, "door=open");
              }),
              "'door=open' has no value from -2147483648 to 4294967295");
}

TEST(ArgumentsTest, ARangeIsToldFromASingleAddress) {
    std::vector<std::tuple<int, int, bool>> found;
    for (const auto& [range, isRange] :
         parseSelections({"5", "5-7", "5-5", "door"}, labelsOfDoor())) {
        found.emplace_back(range.first, range.last, isRange);
    }
    EXPECT_THAT(found, ElementsAre(std::tuple(5, 5, false), std::tuple(5, 7, true),
                                   std::tuple(5, 5, true), std::tuple(7, 7, false)));
}

TEST(ArgumentsTest, AnAssignmentToARangeIsOneToEachAddress) {
    std::vector<std::pair<int, int>> found;
    for (const auto& [address, value] : parseAssignment("0x10-18=-1")) {
        found.emplace_back(address, value);
    }
    EXPECT_THAT(found, ElementsAre(std::pair(16, -1), std::pair(17, -1), std::pair(18, -1)));
    EXPECT_THAT(parseAssignment("2147483647-2147483647=1"), SizeIs(1));
}

TEST(ArgumentsTest, AddressesAndRangesKeepTheirOrder) {
    EXPECT_THAT(parseAddresses({}), IsEmpty());
    EXPECT_THAT(parseAddresses({"12"}), ElementsAre(12));
    EXPECT_THAT(parseAddresses({"3", "5-7", "1", "5"}), ElementsAre(3, 5, 6, 7, 1, 5));
    EXPECT_THAT(parseAddresses({"4-4"}), ElementsAre(4));
}

TEST(ArgumentsTest, AddressesMayBeHexadecimal) {
    EXPECT_THAT(parseAddresses({"0x1f", "0X1F", "0xA-0xc", "0xea61"}),
                ElementsAre(31, 31, 10, 11, 12, 60001));
    EXPECT_THAT(parseAddresses({"010"}), ElementsAre(10));
}

TEST(ArgumentsTest, AddressesReachTheEndOfTheirNumbers) {
    EXPECT_THAT(parseAddresses({"0", "2147483646-2147483647", "0x7fffffff"}),
                ElementsAre(0, 2147483646, 2147483647, 2147483647));
    EXPECT_THAT(parseAddresses({"0-65535"}), SizeIs(65536));
}

TEST(ArgumentsTest, WhatIsNoAddressIsRefusedWithItsText) {
    for (const char* text :
         {"",     "x",    "1x",         " 1",         "1 ",      "+1",  "-1", "-",
          "1-",   "-1-2", "1--2",       "1-2-3",      "2-1",     "1.5", "0x", "0-",
          "0x-1", "0xg",  "2147483648", "0x80000000", "0-65536", "1,2"}) {
        EXPECT_EQ(refusalOf([text] {
                      parseAddresses({"7", text});
                  }),
                  "'" + std::string(text) + "' is neither an address nor a range FIRST-LAST");
    }
}

TEST(ArgumentsTest, AnAssignmentTakesEveryValueOf32Bits) {
    EXPECT_EQ(assignment("12=1"), std::pair(12, 1));
    EXPECT_EQ(assignment("0xc=0x7F"), std::pair(12, 127));
    EXPECT_EQ(assignment("1=-2147483648"), std::pair(1, -2147483647 - 1));
    EXPECT_EQ(assignment("1=2147483647"), std::pair(1, 2147483647));
    EXPECT_EQ(assignment("1=2147483648"), std::pair(1, -2147483647 - 1));
    EXPECT_EQ(assignment("1=4294967295"), std::pair(1, -1));
    EXPECT_EQ(assignment("1=0xFFFFFFFE"), std::pair(1, -2));
}

TEST(ArgumentsTest, WhatIsNoAssignmentIsRefusedWithItsText) {
    EXPECT_EQ(refusalOf([] { parseAssignment("12"); }), "'12' is not of the form ADDR=VALUE");
    EXPECT_EQ(refusalOf([] { parseAssignment(""); }), "'' is not of the form ADDR=VALUE");
    for (const char* text :
         {"=1", "x=1", "-1=1", "2-1=1", "1-=1", "1-2-3=1", "0-65536=1", "2147483648=1"}) {
        EXPECT_EQ(refusalOf([text] { parseAssignment(text); }),
                  "'" + std::string(text) + "' does not start with an address");
    }
    for (const char* text : {"1=", "1=x", "1= 1", "1=1=1", "1=-2147483649", "1=4294967296",
                             "1=0x100000000", "1=-0x1", "1=0x-1", "1=1.0"}) {
        EXPECT_EQ(refusalOf([text] { parseAssignment(text); }),
                  "'" + std::string(text) + "' has no value from -2147483648 to 4294967295");
    }
}

TEST(ArgumentsTest, TypesGoByTheirNames) {
    EXPECT_THAT(parseTypes({}), IsEmpty());
    EXPECT_THAT(parseTypes({"unknown", "relay"}),
                ElementsAre(RegisterType::UNKNOWN, RegisterType::RELAY));
    const std::string refusal = refusalOf([] { parseTypes({"relay", "Relay"}); });
    EXPECT_THAT(refusal, HasSubstr("no register type 'Relay'; the types are relay, output_digital, "
                                   "input_digital, "));
    for (const std::string& name : typeNames()) {
        EXPECT_THAT(refusal, HasSubstr(name));
    }
}

TEST(ArgumentsTest, TheNamesOfTypesAreInTheOrderOfTheirNumbers) {
    const std::vector<std::string> names = typeNames();
    ASSERT_THAT(names, SizeIs(31));
    const std::vector<RegisterType> types = parseTypes(names);
    for (std::size_t number = 0; number < types.size(); ++number) {
        EXPECT_EQ(static_cast<std::size_t>(types[number]), number);
    }
}

TEST(ArgumentsTest, SecondsMayHaveAFraction) {
    EXPECT_EQ(parseSeconds("0").count(), 0);
    EXPECT_EQ(parseSeconds("2.5").count(), 2.5);
    EXPECT_EQ(parseSeconds("1e9").count(), 1e9);
    EXPECT_EQ(parseSeconds("0.5s").count(), 0.5);
}

TEST(ArgumentsTest, WhatIsNoTimeIsRefusedWithItsText) {
    for (const char* text : {"", "x", "s", "1m", "1ss", "1 s", " 1", "-1", "-0.1", "nan", "inf",
                             "1000000001", "1e10", "1e999", "0x10"}) {
        EXPECT_EQ(refusalOf([text] { parseSeconds(text); }),
                  "'" + std::string(text) + "' is not a number of seconds from 0 to 1000000000");
    }
}

}  // namespace
