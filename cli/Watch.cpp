// SPDX-License-Identifier: MIT
#include <Poco/DateTimeFormatter.h>
#include <Poco/LocalDateTime.h>
#include <glib.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <iostream>
#include <map>
#include <memory>
#include <optional>

#include "Arguments.h"
#include "Commands.h"
#include "LineOutput.h"
#include "Output.h"
#include "client/Failure.h"
#include "client/ServiceProbe.h"
#include "client/ServiceWatch.h"
#include "program/Report.h"

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

/// How long lines that nobody reads are waited for when everything else is over.
constexpr std::chrono::milliseconds FINISH_TIME(300);

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

std::string messageOf(const std::string& text) {
    return "iomap: " + printable(text);
}

LineOutput::Listener listenerOfChanges(const std::shared_ptr<LineOutput>& messages) {
    LineOutput::Listener listener;
    listener.onLoss = [messages] {
        messages->print(messageOf("nobody reads the changes; the oldest are being lost"));
    };
    listener.onResumption = [messages](std::size_t lost) {
        messages->print(messageOf(std::to_string(lost) + " changes are lost"));
    };
    listener.onFailure = [] { g_main_context_wakeup(nullptr); };
    return listener;
}

/// Prints the changes of some registers until it has printed enough or the time is up.
class Watcher {
 public:
    explicit Watcher(const Request& whatToWatch) : request(whatToWatch) {}
    ~Watcher() { messages->finish(Clock::now() + FINISH_TIME); }
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

    void watch() {
        service.waitForFirstEvent();
        service.takeEvents();
        choose();
        end = endOf(request);
        if (request.timeout) {
            wakeAfter(*request.timeout);
        }
        // Without anybody who reads, the rest is for nothing.
        while (!isEnough() && Clock::now() < end && !changes.hasFailed()) {
            io.run(true);
            for (const ServiceWatch::Event event : service.takeEvents()) {
                heed(event);
            }
        }
        finish();
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

    /// Has the rest written. After the time is up, nobody waits for that.
    void finish() {
        const std::size_t lost =
            changes.finish(request.timeout ? std::optional(end + FINISH_TIME) : std::nullopt);
        if (changes.hasFailed()) {
            std::cout.setstate(std::ios::badbit);
        } else if (lost > 0) {
            throw Failure(std::to_string(lost) + " changes are lost, as nobody has read them");
        }
    }

    bool isEnough() const { return request.count && printed >= *request.count; }

    void heed(ServiceWatch::Event event) {
        if (event == ServiceWatch::Event::BUS_LOST) {
            throw Failure("the D-Bus system bus has gone; start it and iomappingd");
        }
        if (event == ServiceWatch::Event::WENT) {
            tell("the service has gone; waiting for it");
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
            tell(reasonOf(e));
        }
        tell("the service is back");
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
            changes.print(lineOf(object));
        } else {
            changes.print(time + ' ' + std::to_string(address) + ' ' + getTypeName(info.type) +
                          ' ' + std::to_string(info.index) + ' ' + std::to_string(value));
        }
        ++printed;
    }

    void tell(const std::string& text) { messages->print(messageOf(text)); }

    const Request& request;
    // Both are written by threads: what nobody reads must not stop the main context, or the changes
    // that it does not take would fill the memory.
    const std::shared_ptr<LineOutput> messages{
        std::make_shared<LineOutput>(STDERR_FILENO, LineOutput::Listener())};
    LineOutput changes{STDOUT_FILENO, listenerOfChanges(messages)};
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
