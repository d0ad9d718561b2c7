// SPDX-License-Identifier: MIT
#include "daemon/LabelCheck.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>

#include "TemporaryDirectory.h"
#include "client/Failure.h"
#include "client/Labels.h"

namespace {

class LabelCheckTest : public testing::Test {
 protected:
    /// The lines of a check, with "L" for the path. The map has the registers 1 to 20.
    std::string check(const std::string& text) {
        return linesOf(checkLabels(directory.file("labels.json", text),
                                   [](int address) { return address >= 1 && address <= 20; }));
    }

    static std::string linesOf(std::vector<Finding> findings) {
        for (Finding& finding : findings) {
            finding.labelsFile = "L";
        }
        std::ostringstream lines;
        printLines(lines, "M", findings);
        return lines.str();
    }

    TemporaryDirectory directory;
};

TEST_F(LabelCheckTest, GoodLabelsHaveNoFindings) {
    EXPECT_EQ(check(R"({"$schema": "x", "labels": {"1": {"name": "door", "scale": 2},
                                                    "20": {"unit": "bar"}}})"),
              "");
}

TEST_F(LabelCheckTest, EveryFaultIsToldAtItsValueInTheOrderOfTheText) {
    EXPECT_EQ(check("{\"labels\": {\n"
                    " \"11\": {\"name\": \"door\", \"scale\": 0, \"states\": {\"on\": \"on\"}},\n"
                    " \"12\": {\"nmae\": 1, \"name\": \"door\"},\n"
                    " \"pump\": {}, \"13\": [], \"14\": {\"unit\": 7}}}"),
              "L:2:34: error: register 11: scale must not be nearer to 0 than 0.000000001; correct "
              "it; iomap refuses the whole file until then\n"
              "L:2:47: error: register 11: states has the key 'on', which is not a raw value in "
              "decimal; correct it; iomap refuses the whole file until then\n"
              "L:3:17: error: register 12: there is no key 'nmae'; write \"name\"\n"
              "L:3:28: error: register 12: register 11 has the name 'door' already; correct it; "
              "iomap refuses the whole file until then\n"
              "L:4:2: error: 'pump' is not the address of a register in decimal; write the "
              "address in digits, in quotes\n"
              "L:4:14: error: register 13: the label must be an object; correct it; iomap refuses "
              "the whole file until then\n"
              "L:4:39: error: register 14: unit must be a text; correct it; iomap refuses the "
              "whole file until then\n");
}

TEST_F(LabelCheckTest, ALabelWithoutARegisterIsAWarning) {
    EXPECT_EQ(check("{\"labels\": {\n \"20\": {}, \"21\": {}}}"),
              "L:2:12: warning: register 21: the map has no such register; correct the address, or "
              "remove the label\n");
    EXPECT_EQ(linesOf(checkLabels(directory.file("labels.json", R"({"labels": {"21": {}}})"), {})),
              "");
}

TEST_F(LabelCheckTest, AKeyThatOccursAgainIsAWarningAndTheLastOneCounts) {
    EXPECT_EQ(check("{\"labels\": {\"1\": {\"scale\": 0, \"scale\": 1}, \"2\": {},\n"
                    " \"2\": {\"scale\": true}}}"),
              "L:1:19: warning: the key \"scale\" occurs again; remove one; the last one counts\n"
              "L:1:44: warning: the key \"2\" occurs again; remove one; the last one counts\n"
              "L:2:17: error: register 2: scale must be a number; correct it; iomap refuses the "
              "whole file until then\n");
}

TEST_F(LabelCheckTest, ATextWithoutLabelsIsAFault) {
    EXPECT_EQ(
        check("{\"labels\" 1}"),
        "L:1:11: error: JSON Exception: expected ':' after member name, line 1; correct the JSON "
        "here, or at the end of the line before\n");
    EXPECT_EQ(check("{\n\"labels\": []}"),
              "L:2:11: error: there is no object \"labels\"; put the labels into {\"labels\": "
              "{...}}\n");
    EXPECT_EQ(check("[]"),
              "L:1:1: error: there is no object \"labels\"; put the labels into {\"labels\": "
              "{...}}\n");
}

TEST_F(LabelCheckTest, AFileThatCannotBeReadIsAFault) {
    EXPECT_EQ(linesOf(checkLabels("/nowhere/labels.json", {})),
              "L: error: there is no such file; name another one with --labels\n");
    EXPECT_EQ(linesOf(checkLabels(directory.path(), {})),
              "L: error: cannot read '" + directory.path().string() +
                  "': this is not a regular file; name another one with --labels\n");
}

TEST_F(LabelCheckTest, ClientsRefuseExactlyTheFilesWithFaults) {
    std::size_t count = 0;
    for (const char* const folder : {"good", "bad"}) {
        for (const auto& entry : std::filesystem::directory_iterator(
                 std::string(SOURCE_ROOT "/tests/labels/") + folder)) {
            bool isRefused = false;
            try {
                Labels::read(entry.path());
            } catch (const Failure&) {
                isRefused = true;
            }
            const auto findings = checkLabels(entry.path(), {});
            EXPECT_EQ(std::any_of(findings.begin(), findings.end(),
                                  [](const Finding& finding) { return finding.isFault; }),
                      isRefused)
                << entry.path() << '\n'
                << linesOf(findings);
            EXPECT_TRUE(std::all_of(findings.begin(), findings.end(), [](const Finding& finding) {
                return finding.place.has_value();
            })) << entry.path();
            ++count;
        }
    }
    EXPECT_GT(count, 25U);
}

}  // namespace
