// SPDX-License-Identifier: MIT
#include <chrono>
#include <csignal>
#include <filesystem>

#include "Deadline.h"
#include "IomapFixture.h"
#include "sim/Device.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class IomapWriteTest : public IomapFixture {
 protected:
    void SetUp() override {
        std::filesystem::remove_all("/sys/kernel");
        sim::Device("/").board("kr62").make({1, 0, 0, 0});
        service = &startService(mapOf(
            {R"({"address": 10, "size": 1, "count": 4})",
             R"({"address": 20, "size": 32, "count": 2})",
             R"({"address": 30, "size": 8, "count": 1, "type": "reserved"})",
             R"({"address": 40, "size": 32, "count": 1, "type": "cpu_temp"})",
             R"({"address": 50, "size": 8, "count": 1, "type": "relay", "driver": "kr62"})"}));
        client = std::make_unique<BusClient>();
        client->call("Read", "(10,)");
    }

    /// The changes since the start, in order. A last change is made so that none is missed.
    std::vector<BusClient::Change> changes() const {
        client->call("Write", "(13, 1)");
        EXPECT_TRUE(runUntil(
            [this] { return !client->changes().empty() && client->changes().back().first == 13; }));
        auto all = client->changes();
        all.pop_back();
        return all;
    }

    const Process* service{nullptr};

    /// Why a relay, unlike the size of its register, does not take the value 2.
    const std::string notOfRelay = "value 2 is invalid for address 50";

 private:
    std::unique_ptr<BusClient> client;
};

TEST_F(IomapWriteTest, WritesInTheOrderGivenAndSaysNothing) {
    EXPECT_EQ(iomapDone({"write", "11=1", "10=1", "20=1234567", "11=0"}), "");
    EXPECT_THAT(changes(), ElementsAre(std::pair(11, 1), std::pair(10, 1), std::pair(20, 1234567),
                                       std::pair(11, 0)));
}

TEST_F(IomapWriteTest, ValuesMayBeHexadecimalNegativeOrUnsigned) {
    iomapDone({"write", "0x14=0x7fffFFFF", "20=0xFFFFFFFE", "20=4294967295", "20=-2147483648",
               "20=-1", "20=0X0"});
    EXPECT_THAT(changes(),
                ElementsAre(std::pair(20, 2147483647), std::pair(20, -2), std::pair(20, -1),
                            std::pair(20, -2147483647 - 1), std::pair(20, -1), std::pair(20, 0)));
}

TEST_F(IomapWriteTest, ARefusalNamesTheRegisterAndTheReason) {
    expectFailure(iomap({"write", "12=2"}), 1,
                  "register 12 (virtual 3): value 2 is higher than max value 1");
    expectFailure(iomap({"write", "30=0"}), 1,
                  "register 30 (reserved 1): this register is reserved. No writes are allowed");
    expectFailure(iomap({"write", "40=0"}), 1,
                  "register 40 (cpu_temp 1): write not supported with type 'cpu_temp'");
    expectFailure(iomap({"write", "99=0"}), 1, "register 99: address '99' not found");
}

TEST_F(IomapWriteTest, StopsAtTheFirstRefusalAndSaysWhatIsDone) {
    expectFailure(iomap({"write", "10=1", "20=-5", "50=2", "12=1"}), 1,
                  "register 50 (relay 1): " + notOfRelay + "; written before it: 10=1 20=-5");
    EXPECT_THAT(changes(), ElementsAre(std::pair(10, 1), std::pair(20, -5)));
}

TEST_F(IomapWriteTest, SaysSoWhenNothingIsDone) {
    expectFailure(iomap({"write", "50=2", "10=1"}), 1,
                  "register 50 (relay 1): " + notOfRelay + "; written before it: none");
    EXPECT_THAT(changes(), IsEmpty());
}

TEST_F(IomapWriteTest, AListIsRefusedAsAWholeAndAllThatIsNotPossibleIsNamed) {
    expectFailure(
        iomap({"write", "10=1", "20=-1", "11=2", "99=1", "30=0", "12=2", "40=1", "98=0", "97=0"}),
        1,
        "registers 11-12: value 2 is higher than max value 1; registers 97-99: addresses not "
        "found; register 30 (reserved 1): this register is reserved. No writes are allowed; "
        "register 40 (cpu_temp 1): write not supported with type 'cpu_temp'; nothing is written");
    expectFailure(iomap({"write", "10=1", "99=1", "11=-1"}), 1,
                  "register 99: address '99' not found; register 11 (virtual 2): value -1 is "
                  "higher than max value 1; nothing is written");
    EXPECT_THAT(changes(), IsEmpty());
}

TEST_F(IomapWriteTest, ARangeIsWrittenInAscendingOrder) {
    iomapDone({"write", "10-12=1", "20-21=0x7f"});
    EXPECT_THAT(changes(), ElementsAre(std::pair(10, 1), std::pair(11, 1), std::pair(12, 1),
                                       std::pair(20, 127), std::pair(21, 127)));
}

TEST_F(IomapWriteTest, ARangeWithAGapIsNotWritten) {
    expectFailure(iomap({"write", "12-15=1"}), 1,
                  "registers 14-15: addresses not found; nothing is written");
    expectFailure(iomap({"write", "13-60000=1"}), 1,
                  "registers 14-19, 22-29, 31-39, 41-49, 51-60000: addresses not found; register "
                  "30 (reserved 1): this register is reserved. No writes are allowed; register 40 "
                  "(cpu_temp 1): write not supported with type 'cpu_temp'; nothing is written");
    EXPECT_THAT(changes(), IsEmpty());
}

TEST_F(IomapWriteTest, AServiceThatDoesNotAnswerIsGivenUpAfterOneTimeout) {
    service->signal(SIGSTOP);
    const auto start = std::chrono::steady_clock::now();
    expectFailure(iomap({"write", "20=5"}), 3,
                  "register 20: the service does not answer; restart iomappingd; the write may "
                  "still be carried out");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(9));
    service->signal(SIGCONT);
    EXPECT_THAT(changes(), ElementsAre(std::pair(20, 5)));
}

TEST_F(IomapWriteTest, JsonSaysWhatIsWritten) {
    EXPECT_EQ(iomapJson({"write", "--json", "10=1", "20=0xFFFFFFFF"}),
              json(R"({"written": [{"address": 10, "value": 1}, {"address": 20, "value": -1}]})"));
}

TEST_F(IomapWriteTest, JsonSaysWhatIsRefusedAndWhy) {
    const Outcome outcome = iomap({"write", "--json", "10=1", "50=2", "12=1"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.errors,
              "iomap: register 50 (relay 1): " + notOfRelay + "; written before it: 10=1\n");
    EXPECT_EQ(json(outcome.output), json(R"({"written": [{"address": 10, "value": 1}],
        "failed": {"address": 50, "value": 2, "error": ")" +
                                         notOfRelay + R"("}})"));
}

TEST_F(IomapWriteTest, JsonNamesAllThatIsRefusedBeforehand) {
    const Outcome outcome = iomap({"write", "--json", "10=1", "11=2", "99=1"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(json(outcome.output), json(R"({"written": [],
        "failed": {"address": 11, "value": 2, "error": "value 2 is higher than max value 1"},
        "refused": [
            {"address": 11, "value": 2, "error": "value 2 is higher than max value 1"},
            {"address": 99, "value": 1, "error": "address '99' not found"}]})"));
}

TEST_F(IomapWriteTest, NothingIsWrittenWhenAnythingIsNotUnderstood) {
    for (const char* wrong : {"11", "11=x", "--bogus", "11=4294967296", "x=1"}) {
        EXPECT_EQ(iomap({"write", "10=1", wrong}).status, 2) << wrong;
    }
    EXPECT_THAT(changes(), IsEmpty());
}

}  // namespace
