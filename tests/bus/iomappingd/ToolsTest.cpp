// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include "BusFixture.h"
#include "Outcome.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* SERVICE = BusClient::SERVICE;
constexpr const char* PATH = BusClient::PATH;
constexpr const char* INTERFACE = BusClient::INTERFACE;

/// The service as the tools of the distribution see it.
class ToolsTest : public BusFixture {
 protected:
    void SetUp() override {
        startService(mapOf({R"({"address": 1, "size": 8, "count": 3})",
                            R"({"address": 10, "size": 8, "count": 1, "type": "reserved"})"}));
    }

    /// What a tool prints; its errors behind its output.
    static std::string run(const std::vector<std::string>& command) {
        const Outcome outcome = outcomeOf(command);
        return outcome.output + outcome.errors +
               (outcome.status == 0 ? "" : "status " + std::to_string(outcome.status));
    }

    static std::string busctl(const std::vector<std::string>& arguments) {
        std::vector<std::string> command{"busctl", "--system", "call", SERVICE, PATH, INTERFACE};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return run(command);
    }

    static std::string gdbus(const std::string& method, const std::vector<std::string>& arguments) {
        std::vector<std::string> command{
            "gdbus",  "call",     "--system",
            "--dest", SERVICE,    "--object-path",
            PATH,     "--method", std::string(INTERFACE) + "." + method};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return run(command);
    }
};

TEST_F(ToolsTest, BusctlUsesEveryMethod) {
    EXPECT_EQ(busctl({"Write", "ii", "1", "200"}), "");
    EXPECT_EQ(busctl({"Read", "i", "1"}), "i 200\n");
    EXPECT_EQ(busctl({"ReadList", "v", "ai", "3", "3", "2", "1"}), "v ai 3 0 0 200\n");
    EXPECT_EQ(busctl({"GetAddrsPerType", "i", "29"}), "v ai 3 1 2 3\n");
    EXPECT_EQ(busctl({"GetParams", "i", "2"}), "iii 29 2 255\n");
}

TEST_F(ToolsTest, BusctlShowsTheTextOfARefusal) {
    EXPECT_EQ(busctl({"Write", "ii", "1", "256"}),
              "Call failed: value 256 is higher than max value 255\nstatus 1");
    EXPECT_EQ(busctl({"Read", "i", "4"}), "Call failed: address '4' not found\nstatus 1");
    EXPECT_EQ(busctl({"ReadList", "v", "s", "no list"}),
              "Call failed: the addresses must be an array of integers, type 'ai', not 's'\n"
              "status 1");
}

TEST_F(ToolsTest, GdbusUsesEveryMethod) {
    EXPECT_EQ(gdbus("Write", {"2", "7"}), "()\n");
    EXPECT_EQ(gdbus("Read", {"2"}), "(7,)\n");
    EXPECT_EQ(gdbus("ReadList", {"<[2, 2, 1]>"}), "(<[7, 7, 0]>,)\n");
    EXPECT_EQ(gdbus("GetAddrsPerType", {"28"}), "(<[10]>,)\n");
    EXPECT_EQ(gdbus("GetParams", {"10"}), "(28, 1, 255)\n");
}

TEST_F(ToolsTest, GdbusShowsTheNameAndTextOfARefusal) {
    EXPECT_EQ(gdbus("Write", {"10", "1"}),
              "Error: GDBus.Error:org.freedesktop.DBus.Error.Failed: this register is reserved. No "
              "writes are allowed\nstatus 1");
}

TEST_F(ToolsTest, GdbusMonitorSeesEveryChange) {
    Process monitor({"gdbus", "monitor", "--system", "--dest", SERVICE});
    monitor.waitForLine("is owned by");
    // gdbus says so right before it subscribes.
    const Process writer({"sh", "-c",
                          "while :; do for value in 32 33; do \"$@\" Write ii 3 $value; done; done",
                          "sh", "busctl", "--system", "call", SERVICE, PATH, INTERFACE});
    EXPECT_EQ(monitor.waitForLine("OnValueChange (3, 33)"),
              "/org/mirel/register: org.mirel.Register.OnValueChange (3, 33)");
}

TEST_F(ToolsTest, TheInterfaceIsDescribedInFullAndInOrder) {
    const std::string text =
        run({"gdbus", "introspect", "--system", "--dest", SERVICE, "--object-path", PATH});
    const std::string start = "interface org.mirel.Register {\n";
    ASSERT_THAT(text, HasSubstr(start));
    EXPECT_EQ(text.substr(text.find(start)),
              "interface org.mirel.Register {\n"
              "    methods:\n"
              "      GetAddrsPerType(in  i type,\n"
              "                      out v indexes);\n"
              "      Write(in  i address,\n"
              "            in  i value);\n"
              "      Read(in  i address,\n"
              "           out i value);\n"
              "      ReadList(in  v addresses,\n"
              "               out v values);\n"
              "      GetParams(in  i address,\n"
              "                out i type,\n"
              "                out i index,\n"
              "                out i maxValue);\n"
              "    signals:\n"
              "      OnValueChange(i address,\n"
              "                    i value);\n"
              "    properties:\n"
              "  };\n"
              "};\n");
}

TEST_F(ToolsTest, BusctlIntrospectsTheMembers) {
    const auto lines = Process::lines(
        run({"busctl", "--system", "--no-legend", "introspect", SERVICE, PATH, INTERFACE}));
    std::vector<std::string> members;
    for (const std::string& line : lines) {
        members.push_back(line.substr(0, line.find(' ')));
    }
    EXPECT_THAT(members, ElementsAre(".GetAddrsPerType", ".GetParams", ".Read", ".ReadList",
                                     ".Write", ".OnValueChange"));
}

}  // namespace
