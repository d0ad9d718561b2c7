// SPDX-License-Identifier: MIT
#include <Poco/DateTimeFormatter.h>
#include <Poco/LocalDateTime.h>
#include <glib.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include "Arguments.h"
#include "Commands.h"
#include "LineOutput.h"
#include "Output.h"
#include "ServiceFollower.h"
#include "WakeUp.h"
#include "client/Failure.h"
#include "client/ServiceProbe.h"
#include "program/Report.h"
#include "program/UsageError.h"
#include "tesk/Exceptions.h"

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

/// More questions would keep the service from its other work.
constexpr Seconds SHORTEST_INTERVAL(0.1);

/// How long lines that nobody reads are waited for when everything else is over.
constexpr std::chrono::milliseconds FINISH_TIME(300);

struct Options {
    std::vector<std::string> registers;
    std::vector<std::string> types;
    std::optional<unsigned> count;
    std::optional<std::string> timeout;
    std::optional<std::string> interval;
    bool initial{false};
    bool changesOnly{false};
    std::string format{"text"};
    bool json{false};
    bool raw{false};
};

/// How a change is printed.
enum class Format { TEXT, JSON, CSV };

Format formatOf(const Options& options) {
    if (options.json || options.format == "json") {
        return Format::JSON;
    }
    return options.format == "csv" ? Format::CSV : Format::TEXT;
}

/// The options, understood.
struct Request {
    std::vector<int> addresses;
    std::vector<RegisterType> types;
    std::optional<unsigned> count;
    std::optional<Seconds> timeout;
    std::optional<Seconds> interval;
    bool initial;
    bool changesOnly;
    Format format;
    Labels labels;  ///< None where raw values are wanted.
};

Request requestOf(const Options& options) {
    const Labels names = deviceLabels();
    Request request{parseAddresses(options.registers, names),
                    parseTypes(options.types),
                    options.count,
                    {},
                    {},
                    options.initial,
                    options.changesOnly,
                    formatOf(options),
                    options.raw ? Labels() : names};
    if (options.timeout) {
        request.timeout = parseSeconds(*options.timeout);
    }
    if (options.interval) {
        request.interval = parseSeconds(*options.interval);
        if (*request.interval < SHORTEST_INTERVAL) {
            throw UsageError("--interval is 0.1 seconds at least");
        }
    }
    return request;
}

/// The end of the time for a watch that begins now.
Clock::time_point endOf(const Request& request) {
    return request.timeout
               ? Clock::now() + std::chrono::duration_cast<Clock::duration>(*request.timeout)
               : Clock::time_point::max();
}

/// "door open", or "open" for a register without a name.
std::string nameAndValue(const Label& label, const Reading& reading) {
    return (label.name.empty() ? "" : label.name + ' ') + shownText(reading, &label);
}

std::string textLineOf(const std::string& time, const RegisterInfo& info, const Reading& reading,
                       const Label* label) {
    return time + ' ' + std::to_string(info.address) + ' ' + getTypeName(info.type) + ' ' +
           std::to_string(info.index) + ' ' + textOf(reading) +
           (label == nullptr ? "" : ' ' + nameAndValue(*label, reading));
}

std::string jsonLineOf(const std::string& time, const RegisterInfo& info, const Reading& reading,
                       const Label* label) {
    Poco::JSON::Object::Ptr object = newJsonObject();
    object->set("time", time);
    object->set("address", info.address);
    object->set("type", getTypeName(info.type));
    object->set("index", info.index);
    setReading(*object, reading);
    setLabel(*object, reading, label);
    return lineOf(object);
}

/// A sensor that is not there has no value; a register without a label has no scaled value.
std::string csvLineOf(const std::string& time, const RegisterInfo& info, const Reading& reading,
                      const Label* label) {
    const std::string value = reading.missing ? "" : std::to_string(reading.value);
    if (label == nullptr) {
        return csvLine({time, std::to_string(info.address), "", value, "", ""});
    }
    return csvLine({time, std::to_string(info.address), label->name, value,
                    reading.missing ? "" : label->scaledText(reading.value), label->unit});
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
        choose();
        tellOfSilence();
        end = endOf(request);
        if (request.timeout) {
            wakeAfter(*request.timeout);
        }
        if (request.format == Format::CSV) {
            changes.print("time,address,name,value,scaled,unit");
        }
        lookFirst();
        // Without anybody who reads, the rest is for nothing.
        while (!isEnough() && Clock::now() < end && !changes.hasFailed()) {
            io.run(true);
            service.follow();
            pollIfDue();
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
        silent.clear();
        for (const RegisterInfo& info : infosOf(io, addresses)) {
            infos[info.address] = info;
            if (!isAnnounced(info.type)) {
                silent.push_back(info);
            }
        }
        io.enableNotificationsRange(addresses,
                                    [this](int address, int value) { hear(address, value); });
    }

    /// Who asks for certain registers must know that some of them would be silent for ever.
    void tellOfSilence() {
        if (silent.empty() || request.interval ||
            (request.addresses.empty() && request.types.empty())) {
            return;
        }
        std::string text = silent.size() == 1 ? "register" : "registers";
        for (const RegisterInfo& info : silent) {
            text += " " + std::to_string(info.address);
        }
        tell(text + (silent.size() == 1 ? " is" : " are") + " never announced; use --interval");
    }

    /// Prints what there is, if asked for, and learns the values that are to be compared.
    void lookFirst() {
        if (request.interval) {
            planPoll(Clock::now());
        }
        std::vector<RegisterInfo> wanted = silent;
        if (request.initial) {
            wanted.clear();
            for (const auto& [address, info] : infos) {
                wanted.push_back(info);
            }
        } else if (!request.interval) {
            return;
        }
        look(wanted, request.initial);
    }

    /// Reads registers and prints what differs from what was seen last, or only notes it.
    void look(const std::vector<RegisterInfo>& wanted, bool printing) {
        const std::vector<Reading> readings = readKnown(io, wanted);
        for (std::size_t i = 0; i < wanted.size() && !isEnough(); ++i) {
            const int address = wanted[i].address;
            const bool isNews = note(address, textOf(readings[i]));
            if (!readings[i].error.empty()) {
                if (isNews) {
                    tell("register " + std::to_string(address) + ": " + readings[i].error);
                }
            } else if (isNews && printing) {
                print(wanted[i], readings[i]);
            }
        }
    }

    /// From one beginning to the next: how long a reading takes does not count.
    void planPoll(Clock::time_point begin) {
        nextPoll = begin + std::chrono::duration_cast<Clock::duration>(*request.interval);
        wakeOnceAfter(nextPoll - Clock::now());
    }

    void pollIfDue() {
        const auto now = Clock::now();
        if (!request.interval || now < nextPoll || isEnough()) {
            return;
        }
        if (!service.isAway()) {
            poll();
        }
        planPoll(now);
    }

    void poll() {
        try {
            if (request.timeout) {
                probeService(probeLimit(end), ServiceStart::REFUSED);
            }
            look(silent, true);
            pollTrouble.clear();
        } catch (const tesk::InputOutputException& e) {
            // Once is enough: it may last.
            if (std::exchange(pollTrouble, reasonOf(e)) != reasonOf(e)) {
                tell(pollTrouble);
            }
        }
    }

    /// Notes what a register shows.
    ///
    /// @return whether that differs from what it showed last
    bool note(int address, const std::string& text) {
        std::string& last = shown[address];
        return std::exchange(last, text) != text;
    }

    void hear(int address, int value) {
        const bool isNews = note(address, std::to_string(value));
        if (isNews || !request.changesOnly) {
            print(infos.at(address), {value, {}});
        }
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

    /// Nobody announces what a register shows after a restart: the next change is news.
    void forget() {
        for (const auto& [address, info] : infos) {
            if (isAnnounced(info.type)) {
                shown.erase(address);
            }
        }
    }

    /// The registers may be others now.
    void chooseAnew() {
        probeService(probeLimit(end), ServiceStart::ALLOWED);
        try {
            choose();
        } catch (const Failure& e) {
            tell(e.what());
        }
    }

    void print(const RegisterInfo& info, const Reading& reading) {
        if (isEnough()) {
            return;
        }
        const Label* const label = request.labels.find(info.address);
        const Poco::LocalDateTime now;
        const std::string time = Poco::DateTimeFormatter::format(now, "%Y-%m-%dT%H:%M:%S.%i%z");
        switch (request.format) {
            case Format::TEXT:
                changes.print(textLineOf(time, info, reading, label));
                break;
            case Format::JSON:
                changes.print(jsonLineOf(time, info, reading, label));
                break;
            case Format::CSV:
                changes.print(csvLineOf(time, info, reading, label));
                break;
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
    ServiceFollower service{{[this] { forget(); }, [this] { chooseAnew(); },
                             [this](const std::string& text) { tell(text); }}};
    std::map<int, RegisterInfo> infos;
    std::vector<RegisterInfo> silent;  ///< Those that are never announced.
    std::map<int, std::string> shown;  ///< What each register showed last.
    std::string pollTrouble;           ///< Why the last poll failed.
    Clock::time_point nextPoll;
    Clock::time_point end;
    unsigned printed{0};
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
    command
        ->add_option("register", options->registers,
                     "Names, addresses and ranges; all unless given")
        ->type_name("NAME|ADDR|FIRST-LAST");
    command->add_option("--type", options->types, "All registers of this type; may be repeated")
        ->type_name("TYPE")
        ->allow_extra_args(false);
    command->add_option("--count", options->count, "End after this many changes")
        ->type_name("N")
        ->check(CLI::Range(1, 1000000000));
    command->add_option("--timeout", options->timeout, "End after this time")->type_name("SECONDS");
    command
        ->add_option("--interval", options->interval,
                     "Ask for the registers that are never announced, this often")
        ->type_name("SECONDS");
    command->add_flag("--initial", options->initial,
                      "Print the present values first; --count counts them, too");
    command->add_flag("--changes", options->changesOnly,
                      "Leave out values equal to the last one of the register");
    command->add_flag("--raw", options->raw, "Leave out names, scaled values and units");
    CLI::Option* const format =
        command
            ->add_option("--format", options->format,
                         "How a change is printed: text, json or csv, which has a header line")
            ->type_name("FORMAT")
            ->check(CLI::IsMember({"text", "json", "csv"}));
    command->add_flag("--json", options->json, "Print one JSON object a line, as --format json")
        ->excludes(format);
    command->footer("Example:\n  iomap watch door --timeout 60");
    command->callback([options] { watch(*options); });
}
