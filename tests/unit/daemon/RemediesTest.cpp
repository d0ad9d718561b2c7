// SPDX-License-Identifier: MIT
#include "daemon/Remedies.h"

#include <gtest/gtest.h>

namespace {

TEST(RemediesTest, AMessageIsKnownByItsBeginning) {
    EXPECT_EQ(remedyFor("not valid address: 1301"), "use 1 to 1300 or 60001 to 60101");
    EXPECT_EQ(remedyFor("invalid IO index 9"), "lower the count to what the board has");
    EXPECT_NE(remedyFor("Bad cast exception: Can not convert l to x"),
              remedyFor("Bad cast exception"));
    EXPECT_EQ(remedyFor("another fault"), "see io-mapping-map(5)");
}

TEST(RemediesTest, TheNearestWordIsThatWithTheFewestChanges) {
    const std::vector<std::string> keys{"address", "size", "count", "type", "virtual_backup"};
    EXPECT_EQ(nearest("adress", keys), "address");
    EXPECT_EQ(nearest("Address", keys), "address");
    EXPECT_EQ(nearest("cuont", keys), "count");
    EXPECT_EQ(nearest("kr26", {"vadu", "kr62"}), "kr62");
    EXPECT_EQ(nearest("coumt", keys), "count");
    EXPECT_EQ(nearest("virtual-backup", keys), "virtual_backup");
    EXPECT_EQ(nearest("virtualBackup", keys), "virtual_backup");
    EXPECT_EQ(nearest("types", keys), "type");
}

TEST(RemediesTest, AWordThatIsFarFromAllHasNoNearest) {
    const std::vector<std::string> keys{"address", "size", "count", "type", "virtual_backup"};
    for (const std::string word : {"", "note", "comment", "x", "description", "lamp"}) {
        EXPECT_EQ(nearest(word, keys), "") << word;
    }
    EXPECT_EQ(nearest(std::string(100000, 's'), keys), "");
}

}  // namespace
