// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include "Server.h"
#include "TemporaryDirectory.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class NamedChipsTest : public testing::Test {
 protected:
    std::set<int> namedIn(const std::string& map) const {
        return Server::gpioChipsNamedIn(directory.file("map.json", map));
    }

    std::set<int> namedBy(const std::string& driver) const {
        return namedIn(R"({"io_mapping": [{"driver": )" + driver + "}]}");
    }

    TemporaryDirectory directory;
};

TEST_F(NamedChipsTest, FindsEveryChipOnce) {
    EXPECT_THAT(namedIn(R"({"io_mapping": [{"driver": "gpiochip-3"}, {"driver": "kr62"}, {},
                                           {"driver": "gpiochip-0"}, {"driver": "gpiochip-3"}]})"),
                ElementsAre(0, 3));
}

TEST_F(NamedChipsTest, FindsANameThatIsWrittenWithEscapes) {
    EXPECT_THAT(namedBy(R"("\u0067piochip\u002d4")"), ElementsAre(4));
}

TEST_F(NamedChipsTest, TakesOnlyTheNamesThatDriversHave) {
    EXPECT_THAT(namedBy(R"("gpiochip-2147483647")"), ElementsAre(2147483647));
    for (const char* name :
         {R"("gpiochip")", R"("gpiochip-")", R"("gpiochip--1")", R"("gpiochip-01")",
          R"("gpiochip-1 ")", R"("gpiochip- 1")", R"("gpiochip-+1")", R"("gpiochip-2147483648")",
          R"("gpiochip-x")", R"("gpiochip1")", R"("GPIOCHIP-1")", R"("pd5-1")", R"("")"}) {
        EXPECT_THAT(namedBy(name), IsEmpty()) << name;
    }
}

TEST_F(NamedChipsTest, PassesOverFieldsThatAreWrong) {
    EXPECT_THAT(namedIn(R"({"io_mapping": [null, 7, "gpiochip-1", [{"driver": "gpiochip-2"}],
                                           {"driver": null}, {"driver": 62}, {"driver": []},
                                           {"driver": {}}, {"driver": true},
                                           {"driver": "gpiochip-5", "address": -1}]})"),
                ElementsAre(5));
}

TEST_F(NamedChipsTest, AMapThatCannotBeLoadedNamesNone) {
    for (const char* map :
         {"", "{", "[]", "7", "null", "{}", R"({"io_mapping": {"driver": "gpiochip-1"}})",
          R"({"io_mapping": null})", R"({"io_mapping": 7})",
          R"({"io_mapping": [{"driver": "gpiochip-1"}])"}) {
        EXPECT_THAT(namedIn(map), IsEmpty()) << map;
    }
    EXPECT_THAT(Server::gpioChipsNamedIn("/nowhere/map.json"), IsEmpty());
}

}  // namespace
