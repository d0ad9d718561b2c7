// SPDX-License-Identifier: MIT
#include "cli/BoardHealth.h"

#include <gmock/gmock.h>

#include "TemporaryDirectory.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Types = std::map<int, RegisterType>;

constexpr const char* RELAYS =
    R"({"io_mapping": [{"address": 1, "size": 1, "count": 2, "type": "relay", "driver": "kr62",
                        "virtual_backup": true},
                       {"address": 9, "size": 8, "count": 1}]})";

class BoardHealthTest : public testing::Test {
 protected:
    BoardHealthTest() {
        places.trees = directory.path() / "sys";
        places.runtimeDirectory = directory.path() / "run";
        places.mapFile = directory.path() / "map.json";
        list("");
        map(R"({"io_mapping": []})");
    }

    void fit(const std::string& board) const {
        writeFile(places.trees + "/" + board + "/info_io", "relays 2\n");
    }
    void list(const std::string& lines) const {
        writeFile(places.runtimeDirectory + "/boards", lines);
    }
    void map(const std::string& text) const { writeFile(places.mapFile, text); }

    BoardHealth health(const Types& served = {}) const { return {places, served}; }

    /// Each board with its state: "kr62 served".
    std::vector<std::string> boards() const {
        std::vector<std::string> texts;
        const BoardHealth found = health();
        for (const auto& [name, state] : found.boards()) {
            texts.push_back(name + " " + stateName(state));
        }
        return texts;
    }

    /// Why nothing can be said of virtual registers; empty if it can.
    std::string whyMapIsUnknown(const Types& served) const {
        const BoardHealth found = health(served);
        EXPECT_EQ(found.standIns().has_value(), found.unknown().empty());
        return found.unknown().empty() ? "" : found.unknown().back();
    }

    void expectOtherMap(const Types& served) const {
        EXPECT_EQ(whyMapIsUnknown(served),
                  "what is virtual in place of hardware: the service has another map than '" +
                      places.mapFile + "'");
    }

    TemporaryDirectory directory;
    BoardPlaces places;
};

TEST_F(BoardHealthTest, ADeviceWithoutBoardsIsWell) {
    const BoardHealth found = health();
    EXPECT_TRUE(found.isServiceKnown());
    EXPECT_THAT(found.boards(), IsEmpty());
    EXPECT_THAT(found.unknown(), IsEmpty());
    EXPECT_EQ(found.trouble(), "");
}

TEST_F(BoardHealthTest, BoardsAreServedLostOrNotServed) {
    fit("kr62");
    fit("pd5-2");
    fit("pd5-15");
    list("kr62\npd5-0\npd5-15\n");
    EXPECT_THAT(boards(),
                ElementsAre("kr62 served", "pd5-0 lost", "pd5-2 not served", "pd5-15 served"));
    EXPECT_EQ(health().trouble(), "lost: pd5-0; not served: pd5-2");
}

TEST_F(BoardHealthTest, ADirectoryWithoutInfoIsNoBoard) {
    std::filesystem::create_directories(places.trees + "/kr62");
    EXPECT_THAT(boards(), IsEmpty());
    list("kr62\n");
    EXPECT_THAT(boards(), ElementsAre("kr62 lost"));
}

TEST_F(BoardHealthTest, WithoutTheListNobodyKnowsWhichBoardsAreServed) {
    std::filesystem::remove_all(places.runtimeDirectory);
    fit("pd5-3");
    EXPECT_THAT(boards(), ElementsAre("pd5-3 fitted"));
    const BoardHealth found = health();
    EXPECT_FALSE(found.isServiceKnown());
    EXPECT_THAT(found.unknown(), ElementsAre("which boards are served: there is no file '" +
                                             places.runtimeDirectory + "/boards'"));
    EXPECT_EQ(found.trouble(), "");
}

TEST_F(BoardHealthTest, AListThatCannotBeReadIsNotGuessedAt) {
    std::filesystem::remove(places.runtimeDirectory + "/boards");
    std::filesystem::create_directories(places.runtimeDirectory + "/boards");
    EXPECT_THAT(health().unknown(),
                ElementsAre("which boards are served: cannot read '" + places.runtimeDirectory +
                            "/boards': this is not a regular file"));
}

TEST_F(BoardHealthTest, RegistersThatHaveTheirHardwareAreNotVirtual) {
    map(RELAYS);
    const BoardHealth found =
        health({{1, RegisterType::RELAY}, {2, RegisterType::RELAY}, {9, RegisterType::VIRTUAL}});
    EXPECT_THAT(found.unknown(), IsEmpty());
    ASSERT_TRUE(found.standIns());
    EXPECT_THAT(*found.standIns(), IsEmpty());
}

TEST_F(BoardHealthTest, RegistersThatAreVirtualInPlaceOfHardwareAreNamedWithTheirDriver) {
    map(RELAYS);
    const BoardHealth found = health(
        {{1, RegisterType::VIRTUAL}, {2, RegisterType::VIRTUAL}, {9, RegisterType::VIRTUAL}});
    ASSERT_TRUE(found.standIns());
    ASSERT_EQ(found.standIns()->size(), 1U);
    const BoardHealth::StandIn& standIn = found.standIns()->front();
    EXPECT_EQ(addressesOf(standIn), "1-2");
    EXPECT_EQ(standIn.type, RegisterType::RELAY);
    EXPECT_EQ(standIn.driver, "kr62");
    EXPECT_EQ(found.trouble(), "virtual in place of hardware: 1-2");
}

TEST_F(BoardHealthTest, OneAddressIsNoRange) {
    EXPECT_EQ(addressesOf(BoardHealth::StandIn{4, 4, RegisterType::RELAY, "kr62"}), "4");
}

TEST_F(BoardHealthTest, AMissingMapIsNotGuessedAt) {
    std::filesystem::remove(places.mapFile);
    EXPECT_EQ(whyMapIsUnknown({}),
              "what is virtual in place of hardware: there is no file '" + places.mapFile + "'");
}

TEST_F(BoardHealthTest, AnotherMapIsRecognisedByItsRegisters) {
    const RegisterType relay = RegisterType::RELAY;
    const RegisterType standIn = RegisterType::VIRTUAL;
    map(RELAYS);
    expectOtherMap({});
    expectOtherMap({{1, relay}, {2, relay}});
    expectOtherMap({{1, relay}, {3, relay}, {9, standIn}});
    expectOtherMap({{1, relay}, {2, standIn}, {9, standIn}});
    expectOtherMap({{1, relay}, {2, relay}, {9, relay}});
    expectOtherMap({{1, relay}, {2, relay}, {9, standIn}, {10, standIn}});
}

TEST_F(BoardHealthTest, AFieldWithoutBackupIsNeverVirtual) {
    map(R"({"io_mapping": [{"address": 1, "size": 1, "count": 1, "type": "relay"}]})");
    expectOtherMap({{1, RegisterType::VIRTUAL}});
}

TEST_F(BoardHealthTest, AFieldWithANegativeCountHasNoRegister) {
    map(R"({"io_mapping": [{"address": 1, "size": 1, "count": -3, "type": "relay"}]})");
    EXPECT_EQ(whyMapIsUnknown({}), "");
}

TEST_F(BoardHealthTest, AFileThatIsNoMapIsNotThatOfTheService) {
    for (const char* text : {"", "[]", "{}", R"({"io_mapping": 1})", R"({"io_mapping": [7]})",
                             R"({"io_mapping": [{"address": 1}]})",
                             R"({"io_mapping": [{"address": 1, "size": 1, "count": 2147483647}]})",
                             R"({"io_mapping": [{"address": 1, "count": 1, "type": "door"}]})"}) {
        map(text);
        expectOtherMap({{1, RegisterType::VIRTUAL}});
    }
}

}  // namespace
