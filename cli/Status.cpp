// SPDX-License-Identifier: MIT
#include <algorithm>
#include <chrono>
#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <thread>

#include "Arguments.h"
#include "Commands.h"
#include "Output.h"
#include "client/ServiceProbe.h"

namespace {

constexpr std::chrono::milliseconds POLL_INTERVAL{100};

struct Options {
    std::optional<std::string> wait;
    bool json{false};
};

/// What the service says of the device.
struct Status {
    std::size_t registers{0};
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
        status.registers += addresses.size();
        status.perType.emplace_back(type, addresses.size());
        if (type == RegisterType::FW_VERSION) {
            status.firmware = readEach(io, {addresses.front()}).front();
        } else if (type == RegisterType::HW_TYPE) {
            status.hardware = readEach(io, {addresses.front()}).front();
        }
    }
    return status;
}

void printText(const Status& status) {
    std::cout << "service: running\nregisters: " << status.registers << '\n';
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

void printJsonStatus(const Status& status) {
    Poco::JSON::Object::Ptr types = newJsonObject();
    for (const auto& [type, count] : status.perType) {
        types->set(getTypeName(type), count);
    }
    Poco::JSON::Object::Ptr object = newJsonObject();
    object->set("alive", true);
    object->set("registers", status.registers);
    object->set("types", types);
    if (status.firmware) {
        setReading(*object, *status.firmware, "firmware", "firmware_error");
    }
    if (status.hardware) {
        setReading(*object, *status.hardware, "hardware", "hardware_error");
    }
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
    if (options.json) {
        printJsonStatus(ask(io));
    } else {
        printText(ask(io));
    }
}

}  // namespace

void addStatusCommand(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand(
        "status", "Show whether the service runs and what it serves; status 0 only if it runs");
    command->add_option("--wait", options->wait, "Wait up to this long for the service")
        ->type_name("SECONDS");
    command->add_flag("--json", options->json, "Print a JSON object");
    command->footer("Example:\n  iomap status --wait 60");
    command->callback([options] { status(*options); });
}
