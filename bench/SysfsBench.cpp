// SPDX-License-Identifier: MIT
//
// Measures reads of attributes of sysfs against the bare minimum of a service, side by side on a
// bus of its own, and prints a table. The relays of the board are attributes of the host's kernel;
// see sysfs_board, which runs this program.
#include <stdexcept>
#include <string>
#include <vector>

#include "BlockingClient.h"
#include "Build.h"
#include "BusContract.h"
#include "Comparison.h"
#include "Layout.h"
#include "PrivateBus.h"
#include "RunBench.h"
#include "RunningService.h"
#include "TemporaryDirectory.h"
#include "support/GLibOwners.h"

namespace {

constexpr const char* BOARD = "/sys/kernel/kr62";
constexpr const char* VALUE_FILE = "/sys/kernel/kr62/relays/%d/value";
constexpr const char* REOPENING_NAME = "org.mirel.BareService";
constexpr const char* KEEPING_NAME = "org.mirel.KeepingBareService";

constexpr int ROUNDS = EMULATED ? 1 : 6;

constexpr Target KEEPING_TARGET{Target::RATIO, 1.05};
constexpr Target READ_TARGET{Target::RATIO, 0.92};

class SysfsBench {
 public:
    SysfsBench() {
        writeFile(std::string(BOARD) + "/info_io", "relays " + std::to_string(FILE_COUNT) + "\n");
        for (int relay = 1; relay <= FILE_COUNT; ++relay) {
            addresses.push_back(relay);
        }
    }

    void run() {
        for (int round = roundsToTake(ROUNDS); round > 0; --round) {
            measure();
        }
        Comparison::printHeading();
        for (const Comparison* row : {&keptList, &list, &keptRead, &read}) {
            row->print();
        }
    }

 private:
    static std::vector<std::string> bare(const char* name, const char* mode) {
        return {BARE_PROGRAM, name, BusContract::INTROSPECTION_XML, BusContract::OBJECT_PATH,
                VALUE_FILE,   mode};
    }

    void measure() {
        const RunningService service(watcher.connection(), BusContract::SERVICE_NAME,
                                     measuredService(SERVICE_PROGRAM, map));
        const RunningService reopening(watcher.connection(), REOPENING_NAME,
                                       bare(REOPENING_NAME, "board"));
        const RunningService keeping(watcher.connection(), KEEPING_NAME,
                                     bare(KEEPING_NAME, "kept"));
        requireSameValues(reopening, service);
        const auto listTime = [this](const RunningService& side) {
            return [&] { return median(timesOf(5, [&] { readList(side); })); };
        };
        const auto readTime = [this](const RunningService& side) {
            return [&] { return median(timesOf(20, [&] { readOne(side); })); };
        };
        keptList.measure(40, listTime(keeping), listTime(service));
        list.measure(20, listTime(reopening), listTime(service));
        keptRead.measure(60, readTime(keeping), readTime(service));
        read.measure(60, readTime(reopening), readTime(service));
    }

    VariantOwner readList(const RunningService& side) const {
        return client.call(
            side.name(), "ReadList",
            g_variant_new("(v)", g_variant_new_fixed_array(G_VARIANT_TYPE_INT32, addresses.data(),
                                                           addresses.size(), sizeof(gint32))));
    }

    VariantOwner readOne(const RunningService& side) const {
        return client.call(side.name(), "Read", g_variant_new("(i)", FILE_FIRST));
    }

    void requireSameValues(const RunningService& bareSide, const RunningService& service) const {
        if (g_variant_equal(readList(bareSide).get(), readList(service).get()) == FALSE) {
            throw std::runtime_error("the values of the attributes differ");
        }
    }

    std::vector<gint32> addresses;
    TemporaryDirectory directory;
    PrivateBus bus;
    BlockingClient watcher;
    BlockingClient client;
    std::string map{directory.file(
        "map.json", R"({"io_mapping": [{"address": 1, "size": 32, "type": "relay", "count": )" +
                        std::to_string(FILE_COUNT) + R"(, "driver": "kr62"}]})")};
    Comparison keptList{"ReadList, 1,000 attributes, bare keeps open", "us", KEEPING_TARGET};
    Comparison list{"ReadList, 1,000 attributes, bare opens anew", "us"};
    Comparison keptRead{"Read, attribute, bare keeps open", "us"};
    Comparison read{"Read, attribute, bare opens anew", "us", READ_TARGET};
};

}  // namespace

int main() {
    return runBench<SysfsBench>("sysfs-bench");
}
