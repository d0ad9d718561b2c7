// SPDX-License-Identifier: MIT
#include <cstdlib>

#include "IomapFixture.h"

namespace {

class IomapToggleTest : public IomapFixture {
 protected:
    void SetUp() override {
        startService(mapOf({R"({"address": 1, "size": 8, "count": 3})",
                            R"({"address": 30, "size": 8, "count": 1, "type": "reserved"})"}));
    }
    void TearDown() override { unsetenv("IO_MAPPING_LABELS"); }
};

TEST_F(IomapToggleTest, EachRegisterGetsItsOtherValueWhichIsPrinted) {
    iomapDone({"write", "2=1"});
    EXPECT_EQ(iomapDone({"toggle", "1-2", "3"}), "1\n0\n1\n");
    EXPECT_EQ(iomapDone({"read", "1-3"}), "1\n0\n1\n");
    EXPECT_EQ(iomapDone({"toggle", "3"}), "0\n");
}

TEST_F(IomapToggleTest, ARegisterNamedTwiceIsToggledTwice) {
    EXPECT_EQ(iomapDone({"toggle", "1", "1"}), "1\n0\n");
    EXPECT_EQ(iomapDone({"read", "1"}), "0\n");
}

TEST_F(IomapToggleTest, ANameStandsForItsAddressAndStatesArePrinted) {
    const std::string file = directory.file(
        "labels.json",
        R"({"labels": {"1": {"name": "door", "states": {"0": "closed", "1": "open"}}}})");
    setenv("IO_MAPPING_LABELS", file.c_str(), 1);
    EXPECT_EQ(iomapDone({"toggle", "door"}), "open\n");
    EXPECT_EQ(iomapDone({"toggle", "--raw", "door"}), "0\n");
}

TEST_F(IomapToggleTest, JsonSaysWhatIsWritten) {
    EXPECT_EQ(iomapJson({"toggle", "--json", "2"}),
              json(R"({"written": [{"address": 2, "value": 1}]})"));
}

TEST_F(IomapToggleTest, WhatHasAnotherValueIsRefusedAndNothingIsWritten) {
    iomapDone({"write", "2=57"});
    expectFailure(iomap({"toggle", "1-4"}), 1,
                  "there is no register at 4; register 2 (virtual 2): the value is 57, neither 0 "
                  "nor 1; nothing is written");
    expectFailure(iomap({"toggle", "1", "30"}), 1,
                  "register 30 (reserved 1): this register is reserved. No writes are allowed; "
                  "nothing is written");
    EXPECT_EQ(iomapDone({"read", "1"}), "0\n");
}

TEST_F(IomapToggleTest, ALongWrongRangeIsRefusedAtOnce) {
    const Outcome outcome = iomap({"toggle", "1-65535"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.errors, testing::StartsWith("iomap: there is no register at 4-"));
    EXPECT_LT(outcome.errors.size(), 300U);
}

}  // namespace
