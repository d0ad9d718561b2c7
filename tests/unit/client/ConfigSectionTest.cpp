// SPDX-License-Identifier: MIT
#include "client/ConfigSection.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "TemporaryDirectory.h"
#include "client/Failure.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::ThrowsMessage;

class ConfigSectionTest : public testing::Test {
 protected:
    ConfigSection read(const std::string& text) {
        return ConfigSection::read(directory.file("config.json", text), faults);
    }

    TemporaryDirectory directory;
    std::vector<std::string> faults;
};

TEST_F(ConfigSectionTest, GivesWhatTheFileHolds) {
    ConfigSection root = read(R"({"a": "x", "b": 5, "c": 0.5, "d": true, "e": [1, "2-4"],
                                  "f": {"g": "y"}})");
    EXPECT_EQ(root.text("a", ""), "x");
    EXPECT_EQ(root.whole("b", 0, 1, 9), 5);
    EXPECT_EQ(root.number("c", 0, 0, 1), 0.5);
    EXPECT_TRUE(root.flag("d", false));
    EXPECT_TRUE(root.ranges("e").contains(3));
    EXPECT_EQ(root.section("f").text("g", ""), "y");
    root.refuseOthers();
    EXPECT_THAT(faults, IsEmpty());
}

TEST_F(ConfigSectionTest, DefaultsStandForMissingKeys) {
    ConfigSection root = read("{}");
    EXPECT_EQ(root.text("a", "x"), "x");
    EXPECT_EQ(root.whole("b", 5, 1, 9), 5);
    EXPECT_TRUE(root.flag("d", true));
    EXPECT_TRUE(root.ranges("e").empty());
    EXPECT_EQ(root.section("f").text("g", "y"), "y");
    EXPECT_THAT(faults, IsEmpty());
}

TEST_F(ConfigSectionTest, EveryFaultIsNotedWithItsPlace) {
    ConfigSection root = read(R"({"a": 1, "b": 1.5, "c": 10, "d": "no", "e": ["4-2", 1.5], "f": [],
                                  "g": {"h": "", "i": "x"}, "j": 1, "k": true, "l": 4})");
    root.text("a", "");
    root.whole("b", 0, 1, 9);
    root.number("c", 0, 1, 9.5);
    root.flag("d", false);
    root.ranges("e");
    root.section("f");
    ConfigSection inner = root.section("g");
    inner.text("h", "");
    inner.refuseOthers();
    root.number("k", 0, 0, 1);
    root.ranges("l");
    root.refuseOthers();
    EXPECT_THAT(faults,
                ElementsAre("a must be a text", "b must be a whole number",
                            "c must be a number from 1 to 9.5", "d must be true or false",
                            R"(e has '4-2', which is neither an address nor a range "FIRST-LAST")",
                            R"(e has '', which is neither an address nor a range "FIRST-LAST")",
                            "f must be an object",
                            "g.h must have 1 to 200 bytes, none of them a control character",
                            "g.i is no key of this object", "k must be a number from 0 to 1",
                            "l must be a list", "j is no key of this object"));
}

TEST_F(ConfigSectionTest, AFileThatIsNoObjectIsAFault) {
    read("[]");
    read("{");
    EXPECT_THAT(faults, ElementsAre("the file must hold one JSON object", HasSubstr("line 1")));
}

TEST_F(ConfigSectionTest, AFileThatIsMissingOrTooLongCannotBeRead) {
    const std::string missing = directory.path() / "missing";
    EXPECT_THAT([&] { ConfigSection::read(missing, faults); },
                ThrowsMessage<Failure>(HasSubstr("there is no such file")));
    EXPECT_THAT([&] { read(std::string(2'000'000, ' ')); },
                ThrowsMessage<Failure>(HasSubstr("longer than 1048576 bytes")));
    EXPECT_THAT([&] { ConfigSection::read(directory.path(), faults); },
                ThrowsMessage<Failure>(HasSubstr("not a regular file")));
}

}  // namespace
