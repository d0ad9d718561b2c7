// SPDX-License-Identifier: MIT
#include <Poco/DateTimeFormatter.h>
#include <Poco/LocalDateTime.h>
#include <glib.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <iostream>
#include <map>
#include <memory>
#include <optional>

#include "Arguments.h"
#include "Commands.h"
#include "Output.h"
#include "client/Failure.h"
#include "client/ServiceProbe.h"
#include "client/ServiceWatch.h"
#include "program/Report.h"

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

struct Options {
    std::vector<std::string> registers;
    std::vector<std::string> types;
    std::optional<unsigned> count;
    std::optional<std::string> timeout;
    bool json{false};
};

/// The options, understood.
struct Request {
    std::vector<int> addresses;
    std::vector<RegisterType> types;
    std::optional<unsigned> count;
    std::optional<Seconds> timeout;
    bool json;
};

Request requestOf(const Options& options) {
    Request request{parseAddresses(options.registers),
                    parseTypes(options.types),
                    options.count,
                    {},
                    options.json};
    if (options.timeout) {
        request.timeout = parseSeconds(*options.timeout);
    }
    return request;
}

/// The end of the time for a watch that begins now.
Clock::time_point endOf(const Request& request) {
    return request.timeout
               ? Clock::now() + std::chrono::duration_cast<Clock::duration>(*request.timeout)
               : Clock::time_point::max();
}

/// Makes run(true) return after this time, and again and again after it.
void wakeAfter(Seconds time) {
    const double milliseconds = std::ceil(time.count() * 1000) + 1;
    g_timeout_add(
        static_cast<guint>(std::min(milliseconds, double{G_MAXUINT})),
        [](gpointer /*userData*/) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
}

/// Prints the changes of some registers until it has printed enough or the time is up.
class Watcher {
 public:
    explicit Watcher(const Request& whatToWatch) : request(whatToWatch) {}

    void watch() {
        service.waitForFirstEvent();
        service.takeEvents();
        choose();
        end = endOf(request);
        if (request.timeout) {
            wakeAfter(*request.timeout);
        }
        // Without anybody who reads, the rest is for nothing.
        while (!isEnough() && Clock::now() < end && std::cout) {
            io.run(true);
            for (const ServiceWatch::Event event : service.takeEvents()) {
                heed(event);
            }
        }
        if (request.count && !isEnough() && std::cout) {
            throw Failure("only " + std::to_string(printed) + " of " +
                          std::to_string(*request.count) + " changes came in time");
        }
    }

 private:
    /// Finds out which registers to watch and what they are.
    void choose() {
        std::vector<int> addresses = request.addresses;
        if (addresses.empty() || !request.types.empty()) {
            const std::vector<int> found = addressesOf(io, request.types);
            addresses.insert(addresses.end(), found.begin(), found.end());
        }
        if (addresses.empty()) {
            throw Failure("there is no such register to watch");
        }
        for (const RegisterInfo& info : infosOf(io, addresses)) {
            infos[info.address] = info;
        }
        io.enableNotificationsRange(addresses,
                                    [this](int address, int value) { print(address, value); });
    }

    bool isEnough() const { return request.count && printed >= *request.count; }

    void heed(ServiceWatch::Event event) {
        if (event == ServiceWatch::Event::BUS_LOST) {
            throw Failure("the D-Bus system bus has gone; start it and iomappingd");
        }
        if (event == ServiceWatch::Event::WENT) {
            std::cerr << "iomap: the service has gone; waiting for it" << std::endl;
            away = true;
        } else if (away) {
            welcomeBack();
            away = false;
        }
    }

    /// The registers may be others now.
    void welcomeBack() {
        try {
            probeService(probeLimit(end), ServiceStart::ALLOWED);
            choose();
        } catch (const std::exception& e) {
            report("iomap", reasonOf(e), EXIT_FAILURE);
        }
        std::cerr << "iomap: the service is back" << std::endl;
    }

    void print(int address, int value) {
        if (isEnough()) {
            return;
        }
        const Poco::LocalDateTime now;
        const std::string time = Poco::DateTimeFormatter::format(now, "%Y-%m-%dT%H:%M:%S.%i%z");
        const RegisterInfo& info = infos.at(address);
        if (request.json) {
            Poco::JSON::Object::Ptr object = newJsonObject();
            object->set("time", time);
            object->set("address", address);
            object->set("type", getTypeName(info.type));
            object->set("index", info.index);
            object->set("value", value);
            printJson(object);
        } else {
            std::cout << time << ' ' << address << ' ' << getTypeName(info.type) << ' '
                      << info.index << ' ' << value << std::endl;
        }
        ++printed;
    }

    const Request& request;
    IoMapping io;
    ServiceWatch service;
    std::map<int, RegisterInfo> infos;
    Clock::time_point end;
    unsigned printed{0};
    bool away{false};
};

void watch(const Options& options) {
    const Request request = requestOf(options);
    // What follows has no time limit of the user's.
    probeService(probeLimit(endOf(request)), ServiceStart::ALLOWED);
    Watcher(request).watch();
}

}  // namespace

void addWatchCommand(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand(
        "watch", "Print every change: time, address, type, index and value, one change a line");
    command->add_option("register", options->registers, "Addresses and ranges; all unless given")
        ->type_name("ADDR|FIRST-LAST");
    command->add_option("--type", options->types, "All registers of this type; may be repeated")
        ->type_name("TYPE")
        ->allow_extra_args(false);
    command->add_option("--count", options->count, "End after this many changes")
        ->type_name("N")
        ->check(CLI::Range(1, 1000000000));
    command->add_option("--timeout", options->timeout, "End after this time")->type_name("SECONDS");
    command->add_flag("--json", options->json, "Print one JSON object a line");
    command->callback([options] { watch(*options); });
}
