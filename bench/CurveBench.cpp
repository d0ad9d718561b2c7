// SPDX-License-Identifier: MIT
//
// Measures how the service grows with the number of registers in a list and with the number of
// listeners to a change, beside the bare programs. Prints a line for each point: series, number,
// the bare program's microseconds, the service's. See plot, which draws the lines.
#include <algorithm>
#include <chrono>
#include <iostream>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "BlockingClient.h"
#include "BusContract.h"
#include "ChangeListeners.h"
#include "Comparison.h"
#include "Layout.h"
#include "MapText.h"
#include "PrivateBus.h"
#include "RunBench.h"
#include "RunningService.h"
#include "TemporaryDirectory.h"
#include "WatchedFiles.h"
#include "support/GLibOwners.h"

namespace {

constexpr const char* BARE_NAME = "org.mirel.Bare";
constexpr const char* VALUE_FILE = "/sys/class/thermal/thermal_zone0/temp";

constexpr int PAIRS = 20;
constexpr int CALLS = 50;
constexpr int FILES = 100;
constexpr int CHANGES = 2'000;

/// Registers spread evenly over all: seven of ten are on a file.
GVariant* listOf(int count) {
    std::vector<gint32> addresses;
    addresses.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        addresses.push_back(addressAt(i * REGISTER_COUNT / count));
    }
    return g_variant_new("(v)", g_variant_new_fixed_array(G_VARIANT_TYPE_INT32, addresses.data(),
                                                          addresses.size(), sizeof(gint32)));
}

/// A point of a curve: samples of the bare program and of the service, taken in turns.
class Point {
 public:
    Point(const std::string& seriesName, int x) : series(seriesName), number(x) {}

    template <typename Sample>
    void measure(const Sample& sample, const RunningService& bare, const RunningService& service) {
        for (int pair = 0; pair < PAIRS; ++pair) {
            bareSamples.push_back(sample(bare));
            serviceSamples.push_back(sample(service));
        }
        std::cout << series << '\t' << number << '\t' << median(bareSamples) << '\t'
                  << median(serviceSamples) << std::endl;
    }

 private:
    std::string series;
    int number;
    std::vector<double> bareSamples;
    std::vector<double> serviceSamples;
};

class CurveBench {
 public:
    void run() {
        measureLists();
        measureChanges();
    }

 private:
    void measureLists() {
        writeFile(VALUE_FILE, "48250\n");
        const RunningService bare(watcher.connection(), BARE_NAME,
                                  {BARE_SERVICE, BARE_NAME, BusContract::INTROSPECTION_XML,
                                   BusContract::OBJECT_PATH, VALUE_FILE});
        const RunningService service(
            watcher.connection(), BusContract::SERVICE_NAME,
            measuredService(SERVICE_PROGRAM, directory.file("few.json", mapOfFewFields())));
        for (const int count : {1, 10, 100, REGISTER_COUNT}) {
            const auto call = [&](const RunningService& side) {
                client.call(side.name(), "ReadList", listOf(count));
            };
            Point("list latency", count)
                .measure(
                    [&](const RunningService& side) {
                        return median(timesOf(CALLS, [&] { call(side); }));
                    },
                    bare, service);
            Point("list CPU", count)
                .measure(
                    [&](const RunningService& side) {
                        return cpuOf(side, CALLS, [&] {
                            for (int i = 0; i < CALLS; ++i) {
                                call(side);
                            }
                        });
                    },
                    bare, service);
        }
    }

    void measureChanges() {
        const WatchedFiles serviceFiles(FILES);
        const std::string board = directory.path() / "board";
        const WatchedFiles bareFiles(FILES, board);
        const RunningService bare(watcher.connection(), BARE_NAME,
                                  {BARE_NOTIFIER, BARE_NAME, BusContract::OBJECT_PATH,
                                   BusClient::INTERFACE, board, std::to_string(FILES)});
        const RunningService service(
            watcher.connection(), BusContract::SERVICE_NAME,
            measuredService(
                SERVICE_PROGRAM,
                directory.file("board.json", "{\"io_mapping\": [" + serviceFiles.field() + "]}")));
        const auto filesOf = [&](const RunningService& side) -> const WatchedFiles& {
            return &side == &bare ? bareFiles : serviceFiles;
        };
        for (const int count : {0, 1, 10}) {
            const ChangeListeners listeners(CHANGE_LISTENER, count);
            const auto storm = [&](const RunningService& side) {
                change(filesOf(side), CHANGES);
                awaitAll(side, listeners);
            };
            Point("change CPU", count)
                .measure(
                    [&](const RunningService& side) {
                        return cpuOf(side, CHANGES, [&] { storm(side); });
                    },
                    bare, service);
            if (count > 0) {
                Point("change time", count)
                    .measure(
                        [&](const RunningService& side) {
                            return timeOf([&] { storm(side); }) / CHANGES;
                        },
                        bare, service);
            }
        }
    }

    /// Changes files at random, and the last one of all at the end.
    void change(const WatchedFiles& files, int count) {
        std::uniform_int_distribution<int> choice(1, FILES - 1);
        for (int i = 0; i < count; ++i) {
            files.set(choice(random), ++lastValue);
        }
        files.set(FILES, ++lastValue);
    }

    /// Waits until all listeners have heard of the last change; without any, until the program has
    /// nothing to do any more.
    void awaitAll(const RunningService& side, const ChangeListeners& listeners) const {
        if (listeners.count() == 0) {
            double before = -1;
            for (double now = side.cpuTime(); now > before; now = side.cpuTime()) {
                before = now;
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            }
        } else if (!listeners.waitUntilAllHeard(FILES, lastValue)) {
            throw std::runtime_error(side.name() + " lost the last change");
        }
    }

    /// Microseconds of CPU time that a program takes for one of several things.
    template <typename Action>
    static double cpuOf(const RunningService& side, int count, const Action& action) {
        const double before = side.cpuTime();
        action();
        return (side.cpuTime() - before) * 1000 / count;
    }

    TemporaryDirectory directory;
    PrivateBus bus;
    BlockingClient watcher;
    BlockingClient client;
    std::mt19937 random{1};
    int lastValue{0};
};

}  // namespace

int main() {
    return runBench<CurveBench>("curve-bench");
}
