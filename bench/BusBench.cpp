// SPDX-License-Identifier: MIT
//
// Measures the service against the bare minimum of a service, side by side on a bus of its own, and
// prints a table. The exit status tells only whether everything ran.
//
// All processes share one core. On several, a round trip depends more on which of them happen to
// run beside each other than on what they do; on one it is the sum of all their work, none of it
// hidden.
#include <fcntl.h>
#include <gio/gio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "BlockingClient.h"
#include "BusContract.h"
#include "Comparison.h"
#include "Deadline.h"
#include "Layout.h"
#include "MapText.h"
#include "PrivateBus.h"
#include "ProcessFigures.h"
#include "RunBench.h"
#include "RunningService.h"
#include "TemporaryDirectory.h"
#include "support/FileDescriptor.h"
#include "support/GLibOwners.h"

namespace {

/// Where driver "vadu" finds cpu_temp, and what the kernel's file looks like.
constexpr const char* VALUE_FILE = "/sys/class/thermal/thermal_zone0/temp";
constexpr const char* VALUE_TEXT = "48250\n";

constexpr const char* BARE_NAME = "org.mirel.BareService";
constexpr const char* SECOND_BARE_NAME = "org.mirel.BareServiceAgain";
constexpr const char* SILENT_BARE_NAME = "org.mirel.SilentBareService";

/// Each round starts the services anew, so that no accident of where a process lies in memory or on
/// which core it settles decides the result.
constexpr int ROUNDS = EMULATED ? 1 : 6;
constexpr int STARTS_PER_ROUND = 15;

constexpr Target CALL_TARGET{Target::RATIO, 1.05};
constexpr Target FILES_TARGET{Target::RATIO, 0.95};
constexpr Target START_TARGET{Target::DIFFERENCE, 10};

GVariant* addressList(int first, int distinct, int count) {
    std::vector<gint32> addresses;
    addresses.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        addresses.push_back(addressAt(placeOf(first) + i % distinct));
    }
    return g_variant_new("(v)", g_variant_new_fixed_array(G_VARIANT_TYPE_INT32, addresses.data(),
                                                          addresses.size(), sizeof(gint32)));
}

GVariant* fileList(int count) {
    return addressList(FILE_FIRST, FILE_COUNT, count);
}

/// A list of virtual registers. A list that is longer than their number repeats them.
GVariant* virtualList(int count) {
    return addressList(VIRTUAL_FIRST, REGISTER_COUNT - FILE_COUNT, count);
}

/// A call that is measured.
struct Scenario {
    const char* what;
    const char* method;
    GVariant* (*arguments)();
    int callsPerBatch;
    int pairsPerRound;
    Target target;
};

constexpr Scenario READ{
    "Read, virtual", "Read", [] { return g_variant_new("(i)", VIRTUAL_FIRST); }, 20, 60,
    CALL_TARGET};
constexpr Scenario WRITE{
    "Write, virtual", "Write", [] { return g_variant_new("(ii)", VIRTUAL_FIRST, 7); }, 20, 60,
    CALL_TARGET};

constexpr std::array<Scenario, 10> SCENARIOS{{
    READ,
    {"Read, file", "Read", [] { return g_variant_new("(i)", FILE_FIRST); }, 20, 60, CALL_TARGET},
    WRITE,
    {"GetParams", "GetParams", [] { return g_variant_new("(i)", FILE_FIRST); }, 20, 60, {}},
    {"ReadList, 10 virtual", "ReadList", [] { return virtualList(10); }, 10, 40, {}},
    {"ReadList, 100 virtual", "ReadList", [] { return virtualList(100); }, 10, 40, {}},
    {"ReadList, 1,000 virtual", "ReadList", [] { return virtualList(1000); }, 10, 40, {}},
    {"ReadList, 10 files", "ReadList", [] { return fileList(10); }, 10, 40, {}},
    {"ReadList, 100 files", "ReadList", [] { return fileList(100); }, 10, 40, {}},
    {"ReadList, 1,000 files", "ReadList", [] { return fileList(1000); }, 5, 40, FILES_TARGET},
}};

std::vector<std::string> bareCommand(const char* name) {
    return {BARE_PROGRAM, name, BusContract::INTROSPECTION_XML, BusContract::OBJECT_PATH,
            VALUE_FILE};
}

std::vector<std::string> silentCommand() {
    std::vector<std::string> command = bareCommand(SILENT_BARE_NAME);
    command.emplace_back("silent");
    return command;
}

std::vector<std::string> serviceCommand(const std::string& mapFile) {
    return measuredService(SERVICE_PROGRAM, mapFile);
}

void readPlainFile(int times) {
    std::array<char, 64> text;
    for (int i = 0; i < times; ++i) {
        const FileDescriptor file(open(VALUE_FILE, O_RDONLY | O_CLOEXEC));
        if (read(file.get(), text.data(), text.size()) <= 0) {
            throw std::runtime_error(std::string("cannot read ") + VALUE_FILE);
        }
    }
}

/// The start with one map file, and what the processes hold afterwards.
struct StartComparison {
    StartComparison(const std::string& map, const std::string& mapFilePath)
        : mapFile(mapFilePath),
          time("Start until on the bus, " + map, "ms", START_TARGET),
          cpuTime("CPU time of that start, " + map, "ms", START_TARGET),
          resident("Memory then, VmRSS", "kB"),
          own("Memory then, its own", "kB") {}

    std::string mapFile;
    Comparison time;
    Comparison cpuTime;
    Comparison resident;
    /// Without the files that it maps and shares.
    Comparison own;
};

class BusBench {
 public:
    BusBench() {
        writeFile(VALUE_FILE, VALUE_TEXT);
        for (const Scenario& scenario : SCENARIOS) {
            calls.emplace_back(scenario.what, "us", scenario.target);
        }
    }

    void run() {
        for (int round = 0; round < rounds; ++round) {
            measureCalls();
            for (int i = 0; i < STARTS_PER_ROUND; ++i) {
                measureStart(fewFields);
                measureStart(manyFields);
            }
        }
        print();
    }

 private:
    void measureCalls() {
        const RunningService bare(watcher.connection(), BARE_NAME, bareCommand(BARE_NAME));
        const RunningService again(watcher.connection(), SECOND_BARE_NAME,
                                   bareCommand(SECOND_BARE_NAME));
        const RunningService silent(watcher.connection(), SILENT_BARE_NAME, silentCommand());
        const RunningService service(watcher.connection(), BusContract::SERVICE_NAME,
                                     serviceCommand(fewFields.mapFile));
        measureScenario(READ, bare, again, control);
        for (std::size_t i = 0; i < SCENARIOS.size(); ++i) {
            measureScenario(SCENARIOS.at(i), bare, service, calls[i]);
        }
        measureScenario(WRITE, silent, service, silentWrite);
        measureCpuOfList(bare, service);
        measureFileValue(service);
    }

    void measureScenario(const Scenario& scenario, const RunningService& bare,
                         const RunningService& service, Comparison& comparison) {
        requireSameReply(scenario, bare, service);
        const auto batchOf = [&](const RunningService& side) {
            return [&] {
                return median(timesOf(scenario.callsPerBatch, [&] { make(scenario, side); }));
            };
        };
        comparison.measure(scenario.pairsPerRound, batchOf(bare), batchOf(service));
    }

    VariantOwner make(const Scenario& scenario, const RunningService& side) const {
        return client.call(side.name(), scenario.method, scenario.arguments());
    }

    void requireSameReply(const Scenario& scenario, const RunningService& bare,
                          const RunningService& service) const {
        const VariantOwner one = make(scenario, bare);
        const VariantOwner other = make(scenario, service);
        if (g_variant_equal(one.get(), other.get()) == FALSE) {
            throw std::runtime_error(std::string(scenario.what) + ": the replies differ");
        }
    }

    void measureCpuOfList(const RunningService& bare, const RunningService& service) {
        constexpr int PAIRS = 10;
        constexpr int CALLS = 100;
        const auto cpuOf = [this](const RunningService& side) {
            const double before = side.cpuTime();
            for (int i = 0; i < CALLS; ++i) {
                client.call(side.name(), "ReadList", virtualList(1000));
            }
            return (side.cpuTime() - before) * 1000 / CALLS;
        };
        listCpu.measure(
            PAIRS, [&] { return cpuOf(bare); }, [&] { return cpuOf(service); });
    }

    /// What one value file adds to a list, against the system calls that it takes. The runs are
    /// long enough to be interrupted, which the fastest of a few is not.
    void measureFileValue(const RunningService& service) {
        constexpr int COUNT = 1000;
        constexpr int PAIRS = 40;
        const auto fastest = [](const auto& action) {
            const std::vector<double> times = timesOf(5, action);
            return *std::min_element(times.begin(), times.end()) / COUNT;
        };
        const auto timeOfList = [&](GVariant* (*list)(int)) {
            return fastest([&] { client.call(service.name(), "ReadList", list(COUNT)); });
        };
        fileValue.measure(
            PAIRS, [&] { return fastest([] { readPlainFile(COUNT); }); },
            [&] { return timeOfList(fileList) - timeOfList(virtualList); });
    }

    void measureStart(StartComparison& map) const {
        std::optional<RunningService> bare;
        std::optional<RunningService> service;
        const auto startTime = [this](std::optional<RunningService>& side, const std::string& name,
                                      const std::vector<std::string>& command) {
            return side.emplace(watcher.connection(), name, command).startTime();
        };
        map.time.measure(
            1, [&] { return startTime(bare, BARE_NAME, bareCommand(BARE_NAME)); },
            [&] {
                return startTime(service, BusContract::SERVICE_NAME, serviceCommand(map.mapFile));
            });
        map.cpuTime.measure(
            1, [&] { return bare->cpuTime(); }, [&] { return service->cpuTime(); });
        make(READ, *bare);
        make(READ, *service);
        const auto compare = [&](Comparison& memory, const char* file, const char* key) {
            memory.measure(
                1, [&] { return kilobytes(bare->pid(), file, key); },
                [&] { return kilobytes(service->pid(), file, key); });
        };
        compare(map.resident, "status", "VmRSS:");
        compare(map.own, "smaps_rollup", "Anonymous:");
    }

    void print() const {
        Comparison::printHeading();
        control.print();
        for (const Comparison& comparison : calls) {
            comparison.print();
        }
        listCpu.print();
        fileValue.print();
        silentWrite.print();
        for (const StartComparison* map : {&fewFields, &manyFields}) {
            map->time.print();
            map->cpuTime.print();
            map->resident.print();
            map->own.print();
        }
    }

    const int rounds = roundsToTake(ROUNDS);
    TemporaryDirectory directory;
    PrivateBus bus;
    BlockingClient watcher;
    BlockingClient client;
    Comparison control{"Control: Read, virtual, bare twice", "us"};
    std::vector<Comparison> calls;
    Comparison silentWrite{"Write, virtual, bare without its signal", "us"};
    Comparison listCpu{"ReadList, 1,000 virtual, CPU in the service", "us", CALL_TARGET};
    Comparison fileValue{"A file in ReadList, bare: open+read+close", "us", FILES_TARGET};
    StartComparison fewFields{"3 fields", directory.file("few.json", mapOfFewFields())};
    StartComparison manyFields{"1,401 fields", directory.file("many.json", mapOfManyFields())};
};

}  // namespace

int main() {
    return runBench<BusBench>("bus-bench");
}
