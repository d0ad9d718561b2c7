// SPDX-License-Identifier: MIT
#include <cstdlib>
#include <fstream>

#include "IomapFixture.h"
#include "TemporaryDirectory.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;

/// The command with names, units and scales of registers.
class IomapNamesTest : public IomapFixture {
 protected:
    IomapNamesTest() { setenv("IO_MAPPING_LABELS", file.c_str(), 1); }
    ~IomapNamesTest() override { unsetenv("IO_MAPPING_LABELS"); }

    void SetUp() override {
        label(R"({"1": {"name": "door", "description": "Door opener", "group": "entrance",
                        "states": {"0": "closed", "1": "open"}},
                  "20": {"name": "setpoint", "unit": "°C", "scale": 0.1, "offset": -40},
                  "30": {"unit": "V"}})");
        startService(mapOf({R"({"address": 1, "size": 1, "count": 2})",
                            R"({"address": 20, "size": 10, "count": 1})",
                            R"({"address": 30, "size": 8, "count": 1})"}));
    }

    void label(const std::string& labels) {
        std::ofstream(file) << R"({"labels": )" + labels + "}";
    }

    TemporaryDirectory directory;
    std::string file{directory.path() / "labels.json"};
};

TEST_F(IomapNamesTest, ANameStandsForAnAddress) {
    iomapDone({"write", "door=open"});
    EXPECT_EQ(iomapDone({"read", "door", "1", "2"}), "open\nopen\n0\n");
    EXPECT_EQ(iomapDone({"read", "--raw", "door", "1", "2"}), "1\n1\n0\n");
}

TEST_F(IomapNamesTest, AScaledValueIsWrittenByNameAndARawOneByAddress) {
    iomapDone({"write", "setpoint=21.5"});
    EXPECT_EQ(iomapDone({"read", "20"}), "21.5 °C\n");
    EXPECT_EQ(iomapDone({"read", "--raw", "20"}), "615\n");
    iomapDone({"write", "20=0"});
    EXPECT_EQ(iomapDone({"read", "setpoint"}), "-40.0 °C\n");
    iomapDone({"write", "--raw", "setpoint=400"});
    EXPECT_EQ(iomapDone({"read", "setpoint"}), "0.0 °C\n");
}

TEST_F(IomapNamesTest, AValueThatIsNotPossibleIsRefusedBeforeAnythingIsWritten) {
    expectFailure(iomap({"write", "2=1", "setpoint=21.55"}), 1,
                  "setpoint: '21.55' lies between the possible values 21.5 and 21.6");
    expectFailure(iomap({"write", "2=1", "setpoint=62.4"}), 1,
                  "setpoint: '62.4' is out of range -40.0 to 62.3");
    expectFailure(iomap({"write", "2=1", "door=ajar"}), 1,
                  "door: 'ajar' is neither a number nor one of the states closed, open");
    EXPECT_EQ(iomapDone({"read", "2"}), "0\n");
}

TEST_F(IomapNamesTest, AnUnknownNameIsRefusedWithThePlaceOfTheNames) {
    expectFailure(iomap({"read", "window"}), 2,
                  "'window' is neither an address nor a range FIRST-LAST, nor the name of a "
                  "register in '" +
                      file + "'; see iomap --help");
    expectFailure(iomap({"write", "window=1"}), 2,
                  "'window=1' does not start with an address, nor the name of a register in '" +
                      file + "'; see iomap --help");
}

TEST_F(IomapNamesTest, JsonHasTheRawValueAndBesideItWhatItMeans) {
    iomapDone({"write", "door=open", "setpoint=21.5"});
    EXPECT_EQ(iomapJson({"read", "--json", "door", "2", "setpoint"}), json(R"([
        {"address": 1, "value": 1, "name": "door", "shown": "open", "scaled": 1.0},
        {"address": 2, "value": 0},
        {"address": 20, "value": 615, "name": "setpoint", "shown": "21.5 °C", "scaled": 21.5,
         "unit": "°C"}])"));
    EXPECT_EQ(iomapJson({"read", "--json", "--raw", "door"}),
              json(R"([{"address": 1, "value": 1}])"));
}

TEST_F(IomapNamesTest, TheTableHasNamesAndShownValues) {
    EXPECT_EQ(iomapDone({"list"}),
              "ADDRESS  TYPE                        INDEX     MAXIMUM  VALUE        NAME = SHOWN\n"
              "      1  virtual                         1           1  0            door = closed\n"
              "      2  virtual                         2           1  0\n"
              "     20  virtual                         1        1023  0            setpoint = "
              "-40.0 °C\n"
              "     30  virtual                         1         255  0            0 V\n");
    EXPECT_THAT(iomapDone({"list", "--raw"}), Not(HasSubstr("door")));
}

TEST_F(IomapNamesTest, InfoTellsWhatTheLabelSays) {
    EXPECT_EQ(iomapDone({"info", "door"}),
              "register 1: type virtual, index 1, maximum 1, name door, value closed (raw 0), "
              "states closed/open, group entrance: Door opener\n");
    EXPECT_EQ(iomapJson({"info", "--json", "setpoint"}), json(R"([
        {"address": 20, "type": "virtual", "index": 1, "maximum": 1023, "value": 0,
         "name": "setpoint", "shown": "-40.0 °C", "scaled": -40.0, "unit": "°C", "scale": 0.1,
         "offset": -40.0, "deadband": 0.0}])"));
}

TEST_F(IomapNamesTest, AWatchTellsNamesAndShownValues) {
    iomapDone({"write", "door=open"});
    const std::string line =
        iomapDone({"watch", "door", "--interval", "1", "--initial", "--count", "1"});
    EXPECT_THAT(line, EndsWith(" 1 virtual 1 1 door open\n"));
}

TEST_F(IomapNamesTest, FaultyLabelsAreToldAndAddressesStillWork) {
    label(R"({"1": {"scale": 0}})");
    const Outcome outcome = iomap({"read", "1"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, "0\n");
    EXPECT_EQ(outcome.errors,
              "iomap: no names and units of registers are used: fault in '" + file +
                  "': register 1: scale must not be nearer to 0 than 0.000000001\n");
}

}  // namespace
