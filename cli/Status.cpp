// SPDX-License-Identifier: MIT
#include <algorithm>
#include <chrono>
#include <exception>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <thread>

#include "Arguments.h"
#include "BoardHealth.h"
#include "Commands.h"
#include "Output.h"
#include "client/Failure.h"
#include "client/ServiceProbe.h"
#include "program/Report.h"

namespace {

constexpr std::chrono::milliseconds POLL_INTERVAL{100};

struct Options {
    std::optional<std::string> wait;
    BoardPlaces places;
    bool strict{false};
    bool json{false};
};

/// What the service says of the device.
struct Status {
    std::map<int, RegisterType> registers;
    std::vector<std::pair<RegisterType, std::size_t>> perType;
    std::optional<Reading> firmware;
    std::optional<Reading> hardware;
};

/// Waits until the service answers. Every attempt has a connection of its own, as the bus, too, may
/// come and go.
void waitForService(const std::optional<std::chrono::duration<double>>& time) {
    using Clock = std::chrono::steady_clock;
    const auto usual = probeLimit(Clock::time_point::max());
    if (!time) {
        probeService(usual, ServiceStart::REFUSED);
        return;
    }
    const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(*time);
    std::exception_ptr reason;
    for (;;) {
        const auto limit = probeLimit(end);
        const auto attemptEnd = Clock::now() + limit;
        try {
            probeService(limit, ServiceStart::REFUSED);
            return;
        } catch (const std::exception&) {
            // What the user's time has cut short says less than the attempt before.
            const bool isCutShort = limit < usual && Clock::now() >= attemptEnd;
            if (!reason || !isCutShort) {
                reason = std::current_exception();
            }
        }
        if (Clock::now() >= end) {
            std::rethrow_exception(reason);
        }
        std::this_thread::sleep_until(std::min(Clock::now() + POLL_INTERVAL, end));
    }
}

Status ask(IoMapping& io) {
    Status status;
    for (const RegisterType type : getAllTypes()) {
        const std::vector<int> addresses = io.getAddrsPerType(type);
        if (addresses.empty()) {
            continue;
        }
        for (const int address : addresses) {
            status.registers.emplace(address, type);
        }
        status.perType.emplace_back(type, addresses.size());
        if (type == RegisterType::FW_VERSION) {
            status.firmware = readEach(io, {addresses.front()}).front();
        } else if (type == RegisterType::HW_TYPE) {
            status.hardware = readEach(io, {addresses.front()}).front();
        }
    }
    return status;
}

void printHealth(const BoardHealth& health) {
    if (health.isServiceKnown() || !health.boards().empty()) {
        std::cout << "boards: " << health.boards().size() << '\n';
    }
    for (const auto& [name, state] : health.boards()) {
        std::cout << "  " << name << ": " << stateName(state) << '\n';
    }
    if (const auto& standIns = health.standIns()) {
        int count = 0;
        for (const BoardHealth::StandIn& standIn : *standIns) {
            count += standIn.last - standIn.first + 1;
        }
        std::cout << "virtual in place of hardware: " << count << '\n';
        for (const BoardHealth::StandIn& standIn : *standIns) {
            std::cout << "  " << addressesOf(standIn) << ": " << getTypeName(standIn.type) << " of "
                      << standIn.driver << '\n';
        }
    }
    for (const std::string& line : health.unknown()) {
        std::cout << "not known: " << printable(line) << '\n';
    }
}

void setHealth(Poco::JSON::Object& object, const BoardHealth& health) {
    Poco::JSON::Array::Ptr boards = new Poco::JSON::Array;
    for (const auto& [name, state] : health.boards()) {
        Poco::JSON::Object::Ptr board = newJsonObject();
        board->set("name", name);
        board->set("state", stateName(state));
        boards->add(board);
    }
    object.set("boards", boards);
    if (const auto& standIns = health.standIns()) {
        Poco::JSON::Array::Ptr fields = new Poco::JSON::Array;
        for (const BoardHealth::StandIn& standIn : *standIns) {
            Poco::JSON::Object::Ptr field = newJsonObject();
            field->set("first", standIn.first);
            field->set("last", standIn.last);
            field->set("type", getTypeName(standIn.type));
            field->set("driver", standIn.driver);
            fields->add(field);
        }
        object.set("virtual_in_place", fields);
    }
    Poco::JSON::Array::Ptr unknown = new Poco::JSON::Array;
    for (const std::string& line : health.unknown()) {
        unknown->add(line);
    }
    object.set("not_known", unknown);
}

void printText(const Status& status) {
    std::cout << "service: running\nregisters: " << status.registers.size() << '\n';
    for (const auto& [type, count] : status.perType) {
        std::cout << "  " << getTypeName(type) << ": " << count << '\n';
    }
    if (status.firmware) {
        std::cout << "firmware: " << textOf(*status.firmware);
        // Its three parts are hexadecimal digits.
        if (status.firmware->error.empty()) {
            std::cout << " (0x" << std::hex << status.firmware->value << std::dec << ")";
        }
        std::cout << '\n';
    }
    if (status.hardware) {
        std::cout << "hardware: " << textOf(*status.hardware) << '\n';
    }
}

void printJsonStatus(const Status& status, const BoardHealth& health) {
    Poco::JSON::Object::Ptr types = newJsonObject();
    for (const auto& [type, count] : status.perType) {
        types->set(getTypeName(type), count);
    }
    Poco::JSON::Object::Ptr object = newJsonObject();
    object->set("alive", true);
    object->set("registers", status.registers.size());
    object->set("types", types);
    if (status.firmware) {
        setReading(*object, *status.firmware, "firmware", "firmware_error");
    }
    if (status.hardware) {
        setReading(*object, *status.hardware, "hardware", "hardware_error");
    }
    setHealth(*object, health);
    printJson(object);
}

void status(const Options& options) {
    std::optional<std::chrono::duration<double>> wait;
    if (options.wait) {
        wait = parseSeconds(*options.wait);
    }
    try {
        waitForService(wait);
    } catch (const std::exception&) {
        if (options.json) {
            Poco::JSON::Object::Ptr object = newJsonObject();
            object->set("alive", false);
            printJson(object);
        }
        throw;
    }
    IoMapping io;
    const Status answers = ask(io);
    const BoardHealth health(options.places, answers.registers);
    if (options.json) {
        printJsonStatus(answers, health);
    } else {
        printText(answers);
        printHealth(health);
    }
    if (options.strict && !health.trouble().empty()) {
        throw Failure(health.trouble());
    }
}

}  // namespace

void addStatusCommand(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("status",
                                           "Show whether the service runs, what it serves, and the "
                                           "health of the boards; status 0 only if it runs");
    command->add_option("--wait", options->wait, "Wait up to this long for the service")
        ->type_name("SECONDS");
    command->add_flag(
        "--strict", options->strict,
        "Fail if a board is lost or not served, or registers are virtual for lack of one");
    command
        ->add_option("--map", options->places.mapFile,
                     "The map of the service, if it is not /etc/io-mapping/map.json")
        ->type_name("FILE");
    command
        ->add_option("--runtime-directory", options->places.runtimeDirectory,
                     "The runtime directory of the service, if it is not /run/io-mapping")
        ->type_name("DIRECTORY");
    command->add_flag("--json", options->json, "Print a JSON object");
    command->footer("Example:\n  iomap status --wait 60\n  iomap status --strict");
    command->callback([options] { status(*options); });
}
