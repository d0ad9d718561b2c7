// SPDX-License-Identifier: MIT
//
// Measures the client class against bare GDBus on the same calls and signals of the real service,
// and prints a table. The exit status tells only whether everything ran.

#include "BlockingClient.h"
#include "BusContract.h"
#include "Comparison.h"
#include "Deadline.h"
#include "IoMapping.h"
#include "Layout.h"
#include "MapText.h"
#include "PrivateBus.h"
#include "RunBench.h"
#include "RunningService.h"
#include "Subscription.h"
#include "TemporaryDirectory.h"

namespace {

constexpr int ROUNDS = EMULATED ? 1 : 6;
constexpr int PAIRS = 60;
constexpr int CALLS = 20;
constexpr int LIST_LENGTH = 1000;

constexpr Target CALL_TARGET{Target::RATIO, 1.03};
constexpr Target LIST_TARGET{Target::RATIO, 1.05};

class ClientBench {
 public:
    ClientBench() {
        addresses.resize(LIST_LENGTH);
        for (int i = 0; i < LIST_LENGTH; ++i) {
            addresses[static_cast<std::size_t>(i)] =
                addressAt(placeOf(VIRTUAL_FIRST) + i % (REGISTER_COUNT - FILE_COUNT));
        }
    }

    void run() {
        for (int round = 0; round < ROUNDS; ++round) {
            const RunningService service(watcher.connection(), BusContract::SERVICE_NAME,
                                         {SERVICE_PROGRAM, "--map", map});
            IoMapping io;
            const BlockingClient bare;
            measureRead(io, bare);
            measureList(io, bare);
            measureNotification(io);
        }
        Comparison::printHeading();
        read.print();
        list.print();
        notification.print();
    }

 private:
    static double batch(const std::function<void()>& action) {
        return median(timesOf(CALLS, action));
    }

    void measureRead(IoMapping& io, const BlockingClient& bare) {
        read.measure(
            PAIRS,
            [&] {
                return batch([&] {
                    gint32 value = 0;
                    const VariantOwner reply = bare.call(BusContract::SERVICE_NAME, "Read",
                                                         g_variant_new("(i)", VIRTUAL_FIRST));
                    g_variant_get(reply.get(), "(i)", &value);
                });
            },
            [&] { return batch([&] { io.readValue(VIRTUAL_FIRST); }); });
    }

    void measureList(IoMapping& io, const BlockingClient& bare) {
        list.measure(
            PAIRS,
            [&] {
                return batch([&] {
                    const VariantOwner reply = bare.call(
                        BusContract::SERVICE_NAME, "ReadList",
                        g_variant_new(
                            "(v)", g_variant_new_fixed_array(G_VARIANT_TYPE_INT32, addresses.data(),
                                                             addresses.size(), sizeof(gint32))));
                });
            },
            [&] { return batch([&] { io.readValues(addresses); }); });
    }

    /// From the write of a register until its change has reached the callback.
    void measureNotification(IoMapping& io) {
        const BlockingClient writer;
        const auto write = [&writer](int value) {
            writer.call(BusContract::SERVICE_NAME, "Write",
                        g_variant_new("(ii)", VIRTUAL_FIRST, value));
        };
        int written = 0;
        notification.measure(
            PAIRS,
            [&] {
                const BlockingClient listener;
                const Subscription changes(listener, BusContract::SERVICE_NAME);
                return batch([&] {
                    write(++written % 2 + 1);
                    changes.waitFor(written % 2 + 1);
                });
            },
            [&] {
                int last = 0;
                io.enableNotifications(VIRTUAL_FIRST,
                                       [&last](int /*address*/, int value) { last = value; });
                const double time = batch([&] {
                    write(++written % 2 + 1);
                    while (last != written % 2 + 1) {
                        io.run(true);
                    }
                });
                io.disableNotifications(VIRTUAL_FIRST);
                return time;
            });
    }

    TemporaryDirectory directory;
    PrivateBus bus;
    BlockingClient watcher;
    std::string map{directory.file("map.json", mapOfFewFields())};
    std::vector<int> addresses;
    Comparison read{"IoMapping::readValue, bare call", "us", CALL_TARGET};
    Comparison list{"IoMapping::readValues, 1,000 addresses", "us", LIST_TARGET};
    Comparison notification{"Write until the callback, bare signal", "us"};
};

}  // namespace

int main() {
    return runBench<ClientBench>("client-bench");
}
