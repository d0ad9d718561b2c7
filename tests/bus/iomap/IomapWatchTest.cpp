// SPDX-License-Identifier: MIT
#include <Poco/DateTimeFormat.h>
#include <Poco/DateTimeParser.h>
#include <Poco/Timestamp.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <thread>

#include "Build.h"
#include "FakeService.h"
#include "IoMapping.h"
#include "IomapFixture.h"
#include "support/FileDescriptor.h"

namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::SizeIs;

/// A register that is written to find out whether a watch hears of changes already.
constexpr int PROBE = 99;

constexpr const char* GONE = "iomap: the service has gone; waiting for it";
constexpr const char* BACK = "iomap: the service is back";

/// Times that are up as soon as the watch has begun, or soon after. An emulated processor needs
/// seconds to find the service at all, and a sanitized build on a busy machine more than the 0.4
/// that iomap has at least.
constexpr const char* NO_TIME = EMULATED ? "8" : SANITIZED ? "2" : "0";
constexpr const char* SHORT_TIME = EMULATED ? "8" : SANITIZED ? "2" : "0.3";

/// Why some tests are left out on an emulated processor.
constexpr const char* PACE = "thousands of changes take minutes on an emulated processor";

/// Writes one higher value after the other to the probe, as long as it lives.
class Prober {
 public:
    Prober() : worker([this] { work(); }) {}
    ~Prober() {
        ended = true;
        worker.join();
    }
    Prober(const Prober&) = delete;
    Prober& operator=(const Prober&) = delete;

 private:
    void work() {
        for (int value = 1; !ended; ++value) {
            io.writeValue(PROBE, value);
        }
    }

    IoMapping io;
    std::atomic<bool> ended{false};
    std::thread worker;
};

/// A pipe that nobody reads unless asked to.
class UnreadPipe {
 public:
    explicit UnreadPipe(const std::string& name) : path(name) {
        EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
        end.reset(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
        EXPECT_TRUE(end.isOpen());
        fcntl(end.get(), F_SETFL, 0);
        fcntl(end.get(), F_SETPIPE_SZ, 4096);
    }

    /// Starts a watch that prints into the pipe.
    std::unique_ptr<Process> startWatch(const std::vector<std::string>& arguments) const {
        std::vector<std::string> command{
            "sh", "-c", "out=$1; shift; exec \"$0\" watch \"$@\" >\"$out\"", IOMAP, path};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return std::make_unique<Process>(command);
    }

    /// What comes out of the pipe until a text is the last of it.
    std::string readUntil(const std::string& last) const {
        std::string text;
        std::array<char, 65536> buffer{};
        while (text.size() < last.size() ||
               text.compare(text.size() - last.size(), last.size(), last) != 0) {
            const ssize_t got = read(end.get(), buffer.data(), buffer.size());
            if (got <= 0) {
                throw std::runtime_error("the pipe has ended");
            }
            text.append(buffer.data(), static_cast<std::size_t>(got));
        }
        return text;
    }

 private:
    const std::string path;
    FileDescriptor end;
};

class IomapWatchTest : public IomapFixture {
 protected:
    static constexpr int TERMINATED = 128 + SIGTERM;

    const std::string map = mapOf({R"({"address": 1, "size": 8, "count": 4})",
                                   R"({"address": 20, "size": 32, "count": 1})",
                                   R"({"address": 30, "size": 8, "count": 1, "type": "reserved"})",
                                   R"({"address": 99, "size": 32, "count": 1})"});

    /// Starts a watch that includes the probe, and waits until it prints changes.
    static std::unique_ptr<Process> startWatch(
        const std::vector<std::string>& arguments,
        const std::map<std::string, std::string>& environment = {}) {
        std::vector<std::string> command = commandOf({"watch"});
        command.insert(command.end(), arguments.begin(), arguments.end());
        auto watch = std::make_unique<Process>(command, environment);
        const Prober prober;
        const std::string line = watch->waitForLine("virtual");
        EXPECT_THAT(line, AnyOf(HasSubstr(" 99 virtual 1 "), HasSubstr("\"address\":99,")));
        return watch;
    }

    static void stop(Process& service) {
        service.signal(SIGTERM);
        service.waitForExit();
    }

    /// Ends a watch that has printed what was waited for.
    ///
    /// @return the lines without those of the probe, and without their times
    static std::vector<std::string> end(Process& watch) {
        watch.signal(SIGTERM);
        EXPECT_EQ(watch.waitForExit(), TERMINATED);
        std::vector<std::string> changes;
        for (const std::string& line : Process::lines(watch.standardOutput())) {
            const std::string change = line.substr(line.find(' ') + 1);
            if (change.find("99 virtual 1 ") != 0) {
                changes.push_back(change);
            }
        }
        return changes;
    }

    static void expectInVain(const std::vector<std::string>& arguments, const std::string& reason,
                             int status = 1) {
        expectFailure(iomap(arguments), status, reason);
    }
};

TEST_F(IomapWatchTest, AChangeIsALineThatIsSeenAtOnce) {
    startService(map);
    const auto watch = startWatch({});
    iomapDone({"write", "2=7"});
    EXPECT_THAT(watch->waitForLine(" 2 virtual "),
                MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}"
                             "[-+][0-9]{2}:[0-9]{2} 2 virtual 2 7"));
    iomapDone({"write", "20=0x80000000", "20=-1", "2=7"});
    EXPECT_THAT(watch->waitForLine(" 2 virtual "), HasSubstr(" 2 virtual 2 7"));
    EXPECT_THAT(end(*watch), ElementsAre("2 virtual 2 7", "20 virtual 1 -2147483648",
                                         "20 virtual 1 -1", "2 virtual 2 7"));
    EXPECT_EQ(watch->standardError(), "");
}

TEST_F(IomapWatchTest, TheTimeStampIsTheLocalTimeWithItsZone) {
    startService(map);
    for (const auto& [variable, zone] : std::vector<std::pair<std::string, std::string>>{
             {"UTC0", "+00:00"}, {"INDIA-5:30", "+05:30"}, {"EAST5", "-05:00"}}) {
        const auto watch = startWatch({}, {{"TZ", variable}});
        const Poco::Timestamp before;
        iomapDone({"write", "1=1"});
        const std::string line = watch->waitForLine(" 1 virtual ");
        const Poco::Timestamp after;
        const std::string stamp = line.substr(0, line.find(' '));
        EXPECT_EQ(stamp.substr(stamp.size() - zone.size()), zone);
        int seconds = 0;
        Poco::DateTime time =
            Poco::DateTimeParser::parse(Poco::DateTimeFormat::ISO8601_FRAC_FORMAT, stamp, seconds);
        time.makeUTC(seconds);
        // The stamp has no more than milliseconds.
        EXPECT_GE(time.timestamp(), before - 1000) << stamp;
        EXPECT_LE(time.timestamp(), after) << stamp;
    }
}

TEST_F(IomapWatchTest, OnlyTheRegistersAskedForArePrinted) {
    startService(map);
    const auto watch = startWatch({"0x2-3", "99", "2"});
    iomapDone({"write", "1=1", "2=2", "3=3", "4=4", "20=20", "2=22"});
    watch->waitForLine(" 2 virtual 2 22");
    EXPECT_THAT(end(*watch), ElementsAre("2 virtual 2 2", "3 virtual 3 3", "2 virtual 2 22"));
}

TEST_F(IomapWatchTest, ATypeStandsForItsRegisters) {
    startService(map);
    const auto watch = startWatch({"--type", "virtual"});
    const auto other = startWatch({"--type", "reserved", "--type=uptime", "99", "3"});
    iomapDone({"write", "1=1", "3=3"});
    watch->waitForLine(" 3 virtual 3 3");
    other->waitForLine(" 3 virtual 3 3");
    EXPECT_THAT(end(*watch), ElementsAre("1 virtual 1 1", "3 virtual 3 3"));
    EXPECT_THAT(end(*other), ElementsAre("3 virtual 3 3"));
}

TEST_F(IomapWatchTest, JsonIsADocumentALine) {
    startService(map);
    const auto watch = startWatch({"--json"});
    iomapDone({"write", "20=-5"});
    watch->waitForLine("\"address\":20,");
    watch->signal(SIGTERM);
    watch->waitForExit();
    for (const std::string& line : Process::lines(watch->standardOutput())) {
        auto change = Poco::JSON::Parser().parse(line).extract<Poco::JSON::Object::Ptr>();
        EXPECT_THAT(change->getNames(), ElementsAre("address", "index", "time", "type", "value"));
        EXPECT_THAT(change->getValue<std::string>("time"), MatchesRegex("20[-+0-9.:T]{27}"));
        change->remove("time");
        if (change->getValue<int>("address") != PROBE) {
            std::ostringstream rest;
            change->stringify(rest);
            EXPECT_EQ(rest.str(), R"({"address":20,"index":1,"type":"virtual","value":-5})");
        }
    }
}

TEST_F(IomapWatchTest, TheCountEndsItAndNoChangeIsLeftOut) {
    constexpr std::size_t COUNT = 200;
    startService(map);
    Process watch(commandOf({"watch", "99", "--count", std::to_string(COUNT)}));
    const Prober prober;
    EXPECT_EQ(watch.waitForExit(), 0);
    EXPECT_EQ(watch.standardError(), "");
    const auto lines = Process::lines(watch.standardOutput());
    ASSERT_THAT(lines, SizeIs(COUNT));
    const auto valueOf = [](const std::string& line) {
        return std::stoi(line.substr(line.rfind(' ')));
    };
    for (std::size_t i = 0; i < COUNT; ++i) {
        EXPECT_EQ(valueOf(lines[i]), valueOf(lines[0]) + static_cast<int>(i));
    }
}

TEST_F(IomapWatchTest, ATimeOutAloneIsStatus0) {
    startService(map);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(iomapDone({"watch", "--timeout", SHORT_TIME}), "");
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
    EXPECT_EQ(iomapDone({"watch", "--timeout", NO_TIME}), "");
}

TEST_F(IomapWatchTest, AStoppedBusOrServiceDoesNotKeepItBeyondItsTime) {
    const auto expectEndAfterASecond = [](const std::string& reason) {
        const auto start = std::chrono::steady_clock::now();
        expectInVain({"watch", "--timeout", "1"}, reason, 3);
        EXPECT_LT(std::chrono::steady_clock::now() - start,
                  std::chrono::milliseconds(EMULATED || SANITIZED ? 6000 : 1500));
    };
    startService(map).signal(SIGSTOP);
    expectEndAfterASecond("the service does not answer; restart iomappingd");
    bus.signal(SIGSTOP);
    expectEndAfterASecond(
        "cannot reach the D-Bus system bus: Timeout was reached; is dbus-daemon running?");
}

TEST_F(IomapWatchTest, ABusThatStopsMeanwhileDoesNotKeepItBeyondItsTime) {
    startService(map);
    const auto watch = startWatch({"--timeout", EMULATED ? "20" : "2"});
    bus.signal(SIGSTOP);
    EXPECT_EQ(watch->waitForExit(), 0);
    EXPECT_EQ(watch->standardError(), "");
}

TEST_F(IomapWatchTest, ACountThatIsNotReachedInTimeIsStatus1) {
    startService(map);
    expectInVain({"watch", "--count", "2", "--timeout", SHORT_TIME},
                 "only 0 of 2 changes came in time");
    const auto watch = startWatch({"--count", "1000000000", "--timeout", "2"});
    EXPECT_EQ(watch->waitForExit(), 1);
    const std::size_t printed = Process::lines(watch->standardOutput()).size();
    EXPECT_EQ(watch->standardError(),
              "iomap: only " + std::to_string(printed) + " of 1000000000 changes came in time\n");
}

TEST_F(IomapWatchTest, ACountReachedInTimeIsStatus0) {
    startService(map);
    const auto watch = startWatch({"--count", "1", "--timeout", "1000"});
    EXPECT_EQ(watch->waitForExit(), 0);
    EXPECT_THAT(Process::lines(watch->standardOutput()), SizeIs(1));
}

TEST_F(IomapWatchTest, ARestartOfTheServiceIsSurvivedAndSaidOnStandardError) {
    Process* service = &startService(map);
    const auto watch = startWatch({});
    for (const char* value : {"1", "2", "3"}) {
        stop(*service);
        EXPECT_EQ(watch->waitForLine("gone"), GONE);
        service = &startService(map);
        EXPECT_EQ(watch->waitForLine("back"), BACK);
        iomapDone({"write", std::string("1=") + value});
        watch->waitForLine(std::string(" 1 virtual 1 ") + value);
    }
    EXPECT_THAT(end(*watch), ElementsAre("1 virtual 1 1", "1 virtual 1 2", "1 virtual 1 3"));
    EXPECT_THAT(Process::lines(watch->standardError()),
                ElementsAre(GONE, BACK, GONE, BACK, GONE, BACK));
}

TEST_F(IomapWatchTest, ARestartIsNoticedHoweverQuickItIs) {
    Process& service = startService(map);
    const auto watch = startWatch({});
    watch->signal(SIGSTOP);
    stop(service);
    startService(map);
    watch->signal(SIGCONT);
    EXPECT_EQ(watch->waitForLine("iomap: "), GONE);
    EXPECT_EQ(watch->waitForLine("iomap: "), BACK);
    iomapDone({"write", "1=1"});
    watch->waitForLine(" 1 virtual 1 1");
}

TEST_F(IomapWatchTest, AServiceThatIsBackAndHangsIsAskedAgain) {
    Process& service = startService(map);
    const auto watch = startWatch({});
    watch->signal(SIGSTOP);
    stop(service);
    Process& hanging = startService(map);
    hanging.signal(SIGSTOP);
    watch->signal(SIGCONT);
    EXPECT_EQ(watch->waitForLine("iomap: "), GONE);
    EXPECT_EQ(watch->waitForLine("iomap: "),
              "iomap: the service does not answer; restart iomappingd");
    hanging.signal(SIGCONT);
    EXPECT_EQ(watch->waitForLine("iomap: "), BACK);
    iomapDone({"write", "1=1"});
    watch->waitForLine(" 1 virtual 1 1");
}

TEST_F(IomapWatchTest, AfterARestartTheLastValueIsAChangeAgain) {
    Process* service = &startService(map);
    const auto watch = startWatch({"--changes"});
    for (int run = 0; run < 2; ++run) {
        iomapDone({"write", "1=5"});
        watch->waitForLine(" 1 virtual 1 5");
        stop(*service);
        service = &startService(map);
        watch->waitForLine(BACK);
    }
}

TEST_F(IomapWatchTest, AfterARestartTheRegistersAreThoseOfTheNewMap) {
    Process& service = startService(mapOf({R"({"address": 2, "size": 8, "count": 1})",
                                           R"({"address": 99, "size": 32, "count": 1})"}));
    const auto watch = startWatch({"--type", "virtual"});
    stop(service);
    startService(map);
    watch->waitForLine("is back");
    iomapDone({"write", "2=2", "20=20"});
    watch->waitForLine(" 20 virtual 1 20");
    EXPECT_THAT(end(*watch), ElementsAre("2 virtual 2 2", "20 virtual 1 20"));
}

TEST_F(IomapWatchTest, ARegisterThatTheNewMapLacksIsNamedAndTheOthersAreStillWatched) {
    Process& service = startService(map);
    const auto watch = startWatch({"1", "20", "99"});
    stop(service);
    startService(mapOf({R"({"address": 1, "size": 8, "count": 1})"}));
    EXPECT_EQ(watch->waitForLine("iomap: "), GONE);
    EXPECT_EQ(watch->waitForLine("iomap: "), "iomap: register 20: address '20' not found");
    EXPECT_EQ(watch->waitForLine("iomap: "), BACK);
    iomapDone({"write", "1=5"});
    watch->waitForLine(" 1 virtual 1 5");
}

TEST_F(IomapWatchTest, TheLossOfTheBusIsStatus3) {
    startService(map);
    const auto watch = startWatch({});
    bus.kill();
    EXPECT_EQ(watch->waitForExit(), 3);
    EXPECT_THAT(watch->standardError(),
                testing::EndsWith("iomap: the D-Bus system bus has gone; start it and "
                                  "iomappingd\n"));
}

TEST_F(IomapWatchTest, TheLossOfTheBusAfterThatOfTheServiceIsStatus3) {
    Process& service = startService(map);
    const auto watch = startWatch({});
    stop(service);
    watch->waitForLine("gone");
    bus.kill();
    EXPECT_EQ(watch->waitForExit(), 3);
    EXPECT_EQ(watch->standardError(), std::string(GONE) +
                                          "\niomap: the D-Bus system bus has gone; start it and "
                                          "iomappingd\n");
}

TEST_F(IomapWatchTest, ItEndsWhenNobodyReadsIt) {
    startService(map);
    Process pipe({"sh", "-c", "\"$0\" watch 99 | head -n 1", IOMAP});
    const Prober prober;
    EXPECT_EQ(pipe.waitForExit(), 0);
    EXPECT_THAT(Process::lines(pipe.standardOutput()), SizeIs(1));
    EXPECT_EQ(pipe.standardError(), "iomap: cannot write to standard output\n");
}

TEST_F(IomapWatchTest, WhoAsksForARegisterThatIsNeverAnnouncedIsTold) {
    startService(map);
    const std::string told = "iomap: register 30 is never announced; use --interval\n";
    for (const std::vector<std::string>& which :
         {std::vector<std::string>{"30", "1"}, {"--type", "reserved"}}) {
        std::vector<std::string> arguments{"watch", "--timeout", NO_TIME};
        arguments.insert(arguments.end(), which.begin(), which.end());
        const Outcome outcome = iomap(arguments);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.errors, told);
    }
    iomapDone({"watch", "--timeout", NO_TIME});
    iomapDone({"watch", "--timeout", NO_TIME, "1", "--type", "virtual"});
    iomapDone({"watch", "--timeout", NO_TIME, "30", "--interval", "1"});
}

TEST_F(IomapWatchTest, WhatIsNeverAnnouncedCanBeAskedForAgainAndAgain) {
    const std::string file = "/sys/class/thermal/thermal_zone0/temp";
    startService(
        mapOf({R"({"address": 40, "size": 32, "count": 1, "type": "cpu_temp"})",
               R"({"address": 41, "size": 32, "count": 1, "type": "sensor_temp_value"})"}));
    writeFile(file, "1000\n");
    Process watch(commandOf({"watch", "40-41", "--interval", "0.1", "--initial"}));
    EXPECT_THAT(watch.waitForLine(" 40 "), testing::EndsWith(" 40 cpu_temp 1 1000"));
    EXPECT_THAT(watch.waitForLine(" 41 "), testing::EndsWith(" 41 sensor_temp_value 1 missing"));
    // A file that is written in place is empty for a moment.
    writeFile(file + ".new", "2000\n");
    std::filesystem::rename(file + ".new", file);
    EXPECT_THAT(watch.waitForLine(" 40 "), testing::EndsWith(" 40 cpu_temp 1 2000"));
    std::filesystem::remove(file);
    EXPECT_EQ(watch.waitForLine("iomap: "),
              "iomap: register 40: error opening file '" + file + "' for reading");
    // A file that is written in place is empty for a moment.
    writeFile(file + ".new", "2000\n");
    std::filesystem::rename(file + ".new", file);
    EXPECT_THAT(watch.waitForLine(" 40 "), testing::EndsWith(" 40 cpu_temp 1 2000"));
    EXPECT_EQ(end(watch).size(), 4);
}

TEST_F(IomapWatchTest, TheIntervalIsKeptHoweverLongAReadingTakes) {
    FakeService slow({{1, {RegisterType::UPTIME, 1, 100, 5}}});
    slow.slowDown(std::chrono::milliseconds(20));
    const char* const time = EMULATED ? "20" : "4";
    const double interval = EMULATED ? 2 : 0.4;
    iomapDone({"watch", "1", "--interval", std::to_string(interval), "--timeout", time});
    const auto times = slow.timesOf("ReadList");
    std::vector<double> pauses;
    for (std::size_t i = 1; i < times.size(); ++i) {
        pauses.push_back(std::chrono::duration<double>(times[i] - times[i - 1]).count());
    }
    ASSERT_FALSE(pauses.empty());
    // The median: a busy machine may be late now and then.
    std::sort(pauses.begin(), pauses.end());
    EXPECT_GT(pauses[pauses.size() / 2], 0.5 * interval);
    EXPECT_LT(pauses[pauses.size() / 2], 1.5 * interval);
}

TEST_F(IomapWatchTest, ThePresentValuesComeFirstIfAskedFor) {
    startService(map);
    iomapDone({"write", "1=1", "3=3"});
    std::vector<std::string> values;
    for (const std::string& line :
         Process::lines(iomapDone({"watch", "1-3", "--initial", "--timeout", NO_TIME}))) {
        values.push_back(line.substr(line.find(' ') + 1));
    }
    EXPECT_THAT(values, ElementsAre("1 virtual 1 1", "2 virtual 2 0", "3 virtual 3 3"));
}

TEST_F(IomapWatchTest, EqualValuesAreLeftOutIfAskedFor) {
    startService(map);
    const auto watch = startWatch({"--changes"});
    iomapDone({"write", "1=5", "1=5", "2=5", "1=6", "2=5", "1=5", "4=1"});
    watch->waitForLine(" 4 virtual 4 1");
    EXPECT_THAT(end(*watch), ElementsAre("1 virtual 1 5", "2 virtual 2 5", "1 virtual 1 6",
                                         "1 virtual 1 5", "4 virtual 4 1"));
}

TEST_F(IomapWatchTest, WithoutAReaderTheOldestChangesAreLostAndCounted) {
    if (EMULATED) {
        GTEST_SKIP() << PACE;
    }
    startService(map);
    const UnreadPipe pipe(directory.path() / "pipe");
    const auto watch = pipe.startWatch({"99", "1"});
    {
        const Prober prober;
        EXPECT_EQ(watch->waitForLine("iomap: "),
                  "iomap: nobody reads the changes; the oldest are being lost");
    }
    iomapDone({"write", "1=1"});
    const auto lines = Process::lines(pipe.readUntil(" 1 virtual 1 1\n"));
    const std::string lost = watch->waitForLine("iomap: ");
    EXPECT_THAT(lost, MatchesRegex("iomap: [0-9]+ changes are lost"));
    const auto valueOf = [](const std::string& line) {
        return std::stoul(line.substr(line.rfind(' ')));
    };
    const auto all = valueOf(lines[lines.size() - 2]) - valueOf(lines[0]) + 1;
    EXPECT_EQ(lines.size() - 1 + std::stoul(lost.substr(7)), all);
}

TEST_F(IomapWatchTest, WithoutAReaderItStillEndsAtOnceOnASignal) {
    if (EMULATED) {
        GTEST_SKIP() << PACE;
    }
    startService(map);
    const UnreadPipe pipe(directory.path() / "pipe");
    const auto watch = pipe.startWatch({});
    const Prober prober;
    watch->waitForLine("being lost");
    watch->signal(SIGTERM);
    EXPECT_EQ(watch->waitForExit(), TERMINATED);
}

TEST_F(IomapWatchTest, WithoutAReaderItStillEndsWhenTheTimeIsUp) {
    if (EMULATED) {
        GTEST_SKIP() << PACE;
    }
    startService(map);
    const UnreadPipe pipe(directory.path() / "pipe");
    const auto watch = pipe.startWatch({"--timeout", SANITIZED ? "15" : "3"});
    const Prober prober;
    EXPECT_EQ(watch->waitForExit(), 1);
    EXPECT_THAT(Process::lines(watch->standardError()).back(),
                MatchesRegex("iomap: [0-9]+ changes are lost, as nobody has read them"));
}

TEST_F(IomapWatchTest, WhatCannotBeWatchedIsStatus1) {
    startService(map);
    expectInVain({"watch", "1", "77"}, "register 77: address '77' not found");
    expectInVain({"watch", "--type", "relay"}, "there is no such register to watch");
    expectInVain({"watch", "--json", "--type", "relay"}, "there is no such register to watch");
}

TEST_F(IomapWatchTest, CsvHasAHeaderAndALineForEachChange) {
    const std::string file = directory.file("labels.json", R"({"labels": {
        "1": {"name": "pressure", "unit": "bar, \"gauge\"", "scale": 0.1},
        "2": {"name": "door", "states": {"0": "closed", "1": "open"}}}})");
    startService(map);
    iomapDone({"write", "1=12", "2=1"});
    const Outcome outcome =
        outcomeOf(commandOf({"watch", "1-3", "--initial", "--count", "3", "--format", "csv"}),
                  {{"IO_MAPPING_LABELS", file}});
    EXPECT_EQ(outcome.status, 0);
    const auto lines = Process::lines(outcome.output);
    ASSERT_THAT(lines, SizeIs(4));
    EXPECT_EQ(lines[0], "time,address,name,value,scaled,unit");
    const std::string time =
        "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}(Z|[-+][0-9]{2}:[0-9]{2})";
    EXPECT_THAT(lines[1], MatchesRegex(time + ",1,pressure,12,1.2,\"bar, \"\"gauge\"\"\""));
    EXPECT_THAT(lines[2], MatchesRegex(time + ",2,door,1,1,"));
    EXPECT_THAT(lines[3], MatchesRegex(time + ",3,,0,,"));
}

TEST_F(IomapWatchTest, InCsvASensorThatIsMissingHasNoValue) {
    std::filesystem::remove_all("/sys/bus/w1");
    startService(
        mapOf({R"({"address": 41, "size": 32, "count": 1, "type": "sensor_temp_value"})"}));
    const std::string output =
        iomapDone({"watch", "41", "--interval", "1", "--initial", "--count", "1", "--format=csv"});
    EXPECT_THAT(output, testing::EndsWith(",41,,,,\n"));
}

TEST_F(IomapWatchTest, AFormatMayBeNamed) {
    startService(map);
    EXPECT_THAT(
        iomapDone({"watch", "1", "--initial", "--count", "1", "--format", "json"}),
        MatchesRegex("\\{\"time\":\"[^\"]+\",\"address\":1,\"type\":\"virtual\",\"index\":1,"
                     "\"value\":0\\}\n"));
    EXPECT_THAT(iomapDone({"watch", "1", "--initial", "--count", "1", "--format", "text"}),
                testing::EndsWith(" 1 virtual 1 0\n"));
    EXPECT_EQ(iomap({"watch", "--format", "xml"}).status, 2);
    EXPECT_EQ(iomap({"watch", "--format", "csv", "--json"}).status, 2);
}

}  // namespace
