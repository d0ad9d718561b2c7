// SPDX-License-Identifier: MIT
//
// What a change of a value file costs on its way to a client, against a bare program that does the
// same. Both watch files of their own; only one side's change at a time.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "BlockingClient.h"
#include "BusContract.h"
#include "ChangeListeners.h"
#include "Comparison.h"
#include "Deadline.h"
#include "PrivateBus.h"
#include "ProcessFigures.h"
#include "RunBench.h"
#include "RunningService.h"
#include "Subscription.h"
#include "TemporaryDirectory.h"
#include "WatchedFiles.h"

namespace {

constexpr const char* BARE_NAME = "org.mirel.BareNotifier";

constexpr int FILES = 1300;
/// Watched by the service, too, but never changed.
constexpr int PULLUPS = 100;
constexpr int LAST_FILE = FILES;
constexpr int ROUNDS = EMULATED ? 1 : 6;
constexpr int LATENCY_PAIRS = 60;
constexpr int CHANGES_PER_SAMPLE = 20;
constexpr int TAIL_PAIRS = 6;
constexpr int CHANGES_PER_TAIL = 300;
constexpr int STORM_PAIRS = 4;
constexpr int STORM_CHANGES = EMULATED ? 2'000 : 20'000;
constexpr std::chrono::seconds IDLE_TIME{10};

constexpr Target LATENCY_TARGET{Target::RATIO, 1.00};
constexpr Target CPU_TARGET{Target::RATIO, EMULATED ? 1.05 : 1.00};
constexpr Target RESIDENT_TARGET{Target::RATIO, 1.6};
/// A rate of 95 %, as time per change.
constexpr Target RATE_TARGET{Target::RATIO, 1 / 0.95};

/// One of the two programs and the files that it watches.
struct Side {
    const WatchedFiles& files;
    const RunningService& program;
};

class NotificationBench {
 public:
    NotificationBench() {
        for (int pullup = 1; pullup <= PULLUPS; ++pullup) {
            writeFile("/sys/kernel/kr62/pullups/" + std::to_string(pullup) + "/value", "0\n");
        }
        writeFile("/sys/kernel/kr62/info_io",
                  "relays " + std::to_string(FILES) + "\ninputs " + std::to_string(PULLUPS) + "\n");
    }

    void run() {
        for (int round = 0; round < rounds; ++round) {
            const RunningService service(watcher.connection(), BusContract::SERVICE_NAME,
                                         measuredService(SERVICE_PROGRAM, map));
            const RunningService bareProgram(
                watcher.connection(), BARE_NAME,
                {BARE_PROGRAM, BARE_NAME, BusContract::OBJECT_PATH, BusClient::INTERFACE, bareBoard,
                 std::to_string(FILES)});
            const Side bare{bareFiles, bareProgram};
            const Side ours{serviceFiles, service};
            measureMemory(bare, ours);
            measureLatency(bare, ours);
            measureRate(bare, ours);
            if (round + 1 == ROUNDS) {
                measureIdle(service);
            }
        }
        print();
    }

 private:
    void measureMemory(const Side& bare, const Side& ours) {
        const auto compare = [&](Comparison& memory, const char* file, const char* key) {
            memory.measure(
                1, [&] { return kilobytes(bare.program.pid(), file, key); },
                [&] { return kilobytes(ours.program.pid(), file, key); });
        };
        compare(resident, "status", "VmRSS:");
        compare(own, "smaps_rollup", "Anonymous:");
    }

    void measureLatency(const Side& bare, const Side& ours) {
        const BlockingClient listener;
        const Subscription changes(listener);
        const auto sampleOf = [&](const Side& side) {
            return median(timesOf(CHANGES_PER_SAMPLE, [&] {
                side.files.set(1, ++lastValue);
                changes.waitFor(lastValue);
            }));
        };
        latency.measure(
            LATENCY_PAIRS, [&] { return sampleOf(bare); }, [&] { return sampleOf(ours); });
        const auto tailOf = [&](const Side& side) {
            return percentile99(timesOf(CHANGES_PER_TAIL, [&] {
                side.files.set(1, ++lastValue);
                changes.waitFor(lastValue);
            }));
        };
        tail.measure(
            TAIL_PAIRS, [&] { return tailOf(bare); }, [&] { return tailOf(ours); });
    }

    /// Lets all files of a side change at random, as fast as can be, and waits until the listener
    /// has heard of the last change.
    ///
    /// @return microseconds per change
    double storm(const Side& side, const ChangeListeners& listeners) {
        std::uniform_int_distribution<int> choice(1, FILES - 1);
        std::vector<int> truth(FILES, -1);
        const double time = timeOf([&] {
            for (int i = 0; i < STORM_CHANGES; ++i) {
                const int relay = choice(random);
                truth.at(static_cast<std::size_t>(relay)) = ++lastValue;
                side.files.set(relay, lastValue);
            }
            side.files.set(LAST_FILE, ++lastValue);
            if (!listeners.waitUntilAllHeard(LAST_FILE, lastValue)) {
                throw std::runtime_error(side.program.name() + " lost the last change");
            }
        });
        for (int relay = 1; relay < FILES; ++relay) {
            const int value = truth.at(static_cast<std::size_t>(relay));
            if (value != -1 && !listeners.allHeard(relay, value)) {
                throw std::runtime_error(side.program.name() + " lost a change");
            }
        }
        return time / STORM_CHANGES;
    }

    void measureRate(const Side& bare, const Side& ours) {
        const ChangeListeners listeners(CHANGE_LISTENER, 1);
        rate.measure(
            STORM_PAIRS, [&] { return storm(bare, listeners); },
            [&] { return storm(ours, listeners); });
        const auto cpuOf = [&](const Side& side) {
            const double before = side.program.cpuTime();
            storm(side, listeners);
            return (side.program.cpuTime() - before) * 1000 / STORM_CHANGES;
        };
        cpuTime.measure(
            STORM_PAIRS, [&] { return cpuOf(bare); }, [&] { return cpuOf(ours); });
    }

    void measureIdle(const RunningService& service) {
        const long before = wakeUps(service.pid());
        std::this_thread::sleep_for(IDLE_TIME);
        idleWakeUps = wakeUps(service.pid()) - before;
    }

    /// How often the threads of a process have gone to sleep so far.
    static long wakeUps(pid_t pid) {
        long total = 0;
        for (const auto& task :
             std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
            std::ifstream lines(task.path() / "status");
            for (std::string line; std::getline(lines, line);) {
                const std::string key = "voluntary_ctxt_switches:";
                if (line.rfind(key, 0) == 0) {
                    total += std::stol(line.substr(key.size()));
                }
            }
        }
        return total;
    }

    void print() const {
        Comparison::printHeading();
        latency.print();
        tail.print();
        rate.print();
        cpuTime.print();
        resident.print();
        own.print();
        if (rounds < ROUNDS) {
            return;
        }
        std::cout << "Wake-ups of the idle service in " << IDLE_TIME.count()
                  << " s: " << idleWakeUps << " (target 0"
                  << (idleWakeUps == 0 ? " met" : " NOT MET") << ")\n";
    }

    const int rounds = roundsToTake(ROUNDS);
    TemporaryDirectory directory;
    PrivateBus bus;
    BlockingClient watcher;
    WatchedFiles serviceFiles{FILES};
    std::string bareBoard{directory.path() / "board"};
    WatchedFiles bareFiles{FILES, bareBoard};
    std::string map{directory.file("map.json", "{\"io_mapping\": [" + serviceFiles.field() + R"(,
            {"address": 60001, "size": 1, "count": 100, "type": "pullup", "driver": "kr62"},
            {"address": 60101, "size": 32, "count": 300}]})")};
    std::mt19937 random{1};
    int lastValue{0};
    long idleWakeUps{0};
    Comparison latency{"A file's change until the client's callback", "us", LATENCY_TARGET};
    Comparison tail{"The same, 99th percentile", "us", LATENCY_TARGET};
    Comparison rate{"Storm over 1,300 files, per change carried", "us", RATE_TARGET};
    Comparison cpuTime{"CPU time per change in the service", "us", CPU_TARGET};
    Comparison resident{"Memory with 1,700 registers, VmRSS", "kB", RESIDENT_TARGET};
    Comparison own{"Memory with 1,700 registers, its own", "kB"};
};

}  // namespace

int main() {
    return runBench<NotificationBench>("notification-bench");
}
