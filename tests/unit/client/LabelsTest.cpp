// SPDX-License-Identifier: MIT
#include "client/Labels.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "TemporaryDirectory.h"
#include "client/Failure.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class LabelsTest : public testing::Test {
 protected:
    const std::string& file(const std::string& text) {
        std::ofstream(path) << text;
        return path;
    }

    /// A file with one label, at register 12.
    const std::string& label(const std::string& text) {
        return file(R"({"labels": {"12": )" + text + "}}");
    }

    /// What is wrong with a file, in words.
    static std::vector<std::string> faultsOf(const std::string& path) {
        std::vector<std::string> messages;
        for (const Labels::Fault& fault : Labels::faultsIn(Labels::textOf(path).value())) {
            messages.push_back(fault.message);
        }
        return messages;
    }

    std::string refusal() {
        try {
            Labels::read(path);
            return "read";
        } catch (const Failure& e) {
            return e.what();
        }
    }

    TemporaryDirectory directory;
    std::string path{directory.path() / "labels.json"};
};

TEST_F(LabelsTest, AMissingFileHoldsNoLabel) {
    EXPECT_THAT(Labels::read(path).all(), IsEmpty());
    EXPECT_EQ(Labels::textOf(path), std::nullopt);
}

TEST_F(LabelsTest, ALabelIsFoundByAddressAndByName) {
    const Labels labels = Labels::read(file(R"({"$schema": "x", "labels": {
        "12": {"name": "door", "description": "Door opener", "group": "entrance",
               "states": {"0": "closed", "-1": "odd"}},
        "51": {"name": "pump_pressure", "unit": "bar", "scale": 0.01, "offset": -1,
               "deadband": 0.05}}})"));
    ASSERT_NE(labels.find(12), nullptr);
    EXPECT_EQ(labels.find(12)->name, "door");
    EXPECT_EQ(labels.find(12)->description, "Door opener");
    EXPECT_EQ(labels.find(12)->group, "entrance");
    EXPECT_EQ(labels.find(12)->shown(-1), "odd");
    EXPECT_EQ(labels.find(51)->unit, "bar");
    EXPECT_EQ(labels.find(51)->scale, 0.01);
    EXPECT_EQ(labels.find(51)->offset, -1);
    EXPECT_EQ(labels.find(51)->deadband, 0.05);
    EXPECT_EQ(labels.find(13), nullptr);
    EXPECT_EQ(labels.addressOf("pump_pressure"), 51);
    EXPECT_EQ(labels.addressOf("pump"), std::nullopt);
}

TEST_F(LabelsTest, ARegisterMayHaveALabelWithoutAName) {
    EXPECT_EQ(Labels::read(label(R"({"unit": "V"})")).find(12)->shown(3), "3 V");
}

TEST_F(LabelsTest, TwoRegistersOfOneNameAreAFault) {
    EXPECT_THAT(faultsOf(file(R"({"labels": {"1": {"name": "door"}, "2": {"name": "door"}}})")),
                ElementsAre("register 2: register 1 has the name 'door' already"));
}

TEST_F(LabelsTest, EveryFaultIsTold) {
    file(R"({"labels": {"1": {"name": "1st", "skale": 2, "scale": 0}, "x": {}, "2": [],
                        "3": {"deadband": -1}}})");
    EXPECT_THAT(
        faultsOf(path),
        testing::UnorderedElementsAre(
            "register 1: name must be a word: a letter, then letters, digits, '_', '.' or '-'",
            "register 1: there is no key 'skale'",
            "register 1: scale must not be nearer to 0 than 0.000000001",
            "'x' is not the address of a register in decimal",
            "register 2: the label must be an object",
            "register 3: deadband must not be negative"));
}

TEST_F(LabelsTest, EveryFaultIsToldWithItsPlace) {
    const auto places = [](const std::string& text) {
        std::vector<std::string> found;
        for (const Labels::Fault& fault : Labels::faultsIn(text)) {
            found.push_back(fault.label + "/" + fault.key + "/" +
                            (fault.byte ? std::to_string(*fault.byte) : ""));
        }
        return found;
    };
    EXPECT_THAT(places(R"({"labels": {"1": {"skale": 2, "scale": 0}, "x": {}, "2": []}})"),
                testing::UnorderedElementsAre("1/skale/", "1/scale/", "x//", "2//"));
    EXPECT_THAT(places(R"({"labels": {"1": {"name": "a"}, "2": {"name": "a"}}})"),
                ElementsAre("2/name/"));
    EXPECT_THAT(places("{}"), ElementsAre("//"));
    EXPECT_THAT(places("{\"labels\" 1}"), ElementsAre("//10"));
}

TEST_F(LabelsTest, AFaultyFileIsRefusedWithItsFirstFault) {
    label(R"({"scale": "2"})");
    EXPECT_EQ(refusal(), "fault in '" + path + "': register 12: scale must be a number");
}

/// A label, and what is wrong with it.
struct Fault {
    const char* label;
    const char* words;
};

TEST_F(LabelsTest, EveryKeyRefusesWhatItIsNotFor) {
    const std::string longText(201, 'a');
    const std::string tooLong = R"({"unit": ")" + longText + "\"}";
    const std::vector<Fault> faults{
        {R"({"name": 1})", "name must be a text"},
        {R"({"name": ""})", "name must be a word: a letter, then letters, digits, '_', '.' or '-'"},
        {R"({"group": "two words"})",
         "group must be a word: a letter, then letters, digits, '_', '.' or '-'"},
        {R"({"unit": "\u001b[2J"})", "unit must not hold control characters"},
        {tooLong.c_str(), "unit must have at most 200 bytes"},
        {R"({"scale": true})", "scale must be a number"},
        {R"({"scale": null})", "scale must be a number"},
        {R"({"offset": 1e10})", "offset must be a number from -1000000000 to 1000000000"},
        {R"({"states": []})", "states must be an object"},
        {R"({"states": {"on": "on"}})",
         "states has the key 'on', which is not a raw value in decimal"},
        {R"({"states": {"0": "on", "1": "on"}})", "states has two states of the name 'on'"},
    };
    for (const Fault& fault : faults) {
        EXPECT_THAT(faultsOf(label(fault.label)),
                    ElementsAre(std::string("register 12: ") + fault.words))
            << fault.label;
    }
}

TEST_F(LabelsTest, AFileWithoutLabelsIsAFault) {
    for (const char* const text : {"{}", "[]", "1", R"({"labels": 1})"}) {
        EXPECT_THAT(faultsOf(file(text)), ElementsAre("there is no object \"labels\"")) << text;
    }
}

/// The files of a folder below the root of the sources.
std::vector<std::string> filesIn(const std::string& folder) {
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(SOURCE_ROOT "/" + folder)) {
        files.push_back(entry.path());
    }
    return files;
}

TEST_F(LabelsTest, EveryGoodFileIsReadAndEveryBadOneRefused) {
    ASSERT_GT(filesIn("tests/labels/good").size(), 3U);
    ASSERT_GT(filesIn("tests/labels/bad").size(), 20U);
    for (const std::string& good : filesIn("tests/labels/good")) {
        EXPECT_THAT(faultsOf(good), IsEmpty()) << good;
    }
    for (const std::string& bad : filesIn("tests/labels/bad")) {
        EXPECT_EQ(faultsOf(bad).size(), 1U) << bad;
    }
}

TEST_F(LabelsTest, TheLabelsOfTheExampleMapAreGood) {
    EXPECT_EQ(Labels::read(SOURCE_ROOT "/data/labels/device.json").addressOf("door"), 1);
}

TEST_F(LabelsTest, AFileThatIsNotJsonIsToldWithItsLine) {
    EXPECT_THAT(faultsOf(file("{\n\"labels\": {\n}")),
                ElementsAre(testing::ContainsRegex("line 3")));
}

TEST_F(LabelsTest, AFileThatCannotBeReadIsRefused) {
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(refusal(), "cannot read '" + path + "': this is not a regular file");
}

TEST_F(LabelsTest, AFileThatIsTooLongIsRefused) {
    file(std::string(4 * 1024 * 1024 + 1, ' '));
    EXPECT_EQ(refusal(), "cannot read '" + path + "': the file is longer than 4194304 bytes");
}

}  // namespace
