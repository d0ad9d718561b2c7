// SPDX-License-Identifier: MIT
#include "GpioDriver.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <gpiod.hpp>
#include <utility>

#include "EndProcess.h"
#include "FileNotify.h"
#include "support/DriverRefusal.h"
#include "support/FileDescriptor.h"
#include "support/Log.h"
#include "tesk/Exceptions.h"

namespace {

constexpr Pattern<int> CHIP_NAME("gpiochip%d");

constexpr Pattern<int, unsigned, int> GPIO_EVENT("gpio event: type %d, line %u, value %d");
constexpr Pattern<int, unsigned, std::string, int> NUMBER_IS_LOW(
    "descriptor %d of line %u may be taken for a watched file: %s; raise the limit of open files "
    "above %d");

constexpr Pattern<unsigned, std::string, std::string> EDGE_LOST(
    "line %u of %s cannot be read at an edge: %s");

constexpr unsigned RTS_LINE = 200;
constexpr unsigned CTS_LINE = 201;

/// The notifier keeps files and descriptors in one table. The keys of files count up from 1, and no
/// device has this many files.
constexpr int LOWEST_DESCRIPTOR = 4096;

/// Replaces a descriptor by one that is never ready. Returns false when that fails.
bool silence(int fd) {
    const FileDescriptor quiet(::eventfd(0, EFD_CLOEXEC));
    return ::dup3(quiet.get(), fd, O_CLOEXEC) != -1;
}

/// Ends the watch of a line whose driver is destroyed.
void endWatch(int key, bool isDuplicate) {
    FileNotify& notifier = *FileNotify::getInstance();
    if (isDuplicate && silence(key)) {
        // Replaces the driver's callback and wakes the notifier. A sleeping notifier would hold the
        // line for as long as it sleeps.
        notifier.enableNotifications(key, [](int /*fd*/) {});
        return;
    }
    try {
        notifier.disableNotifications(key);
    } catch (const tesk::NotFoundException&) {  // NOLINT(bugprone-empty-catch): the watch has ended
    }
}

}  // namespace

/// One configured register.
struct [[gnu::visibility("hidden")]] GpioDriver::GpioInfo {
    RegisterType type;
    int index;
    gpiod::line line;
    std::function<void(int)> callback;
    /// What the notifier polls; -1 without a watch. A duplicate stays open for good: its number
    /// must not go to another file while the notifier may still poll it.
    int watchKey{-1};
    bool isDuplicate{false};
};

GpioDriver::GpioDriver(int chipNumber)
    : DriverInterface(GPIOCHIP, chipNumber),
      chip(std::make_unique<gpiod::chip>(CHIP_NAME(chipNumber), gpiod::chip::OPEN_LOOKUP)) {}

GpioDriver::~GpioDriver() {
    for (const GpioInfo& info : gpioInfos) {
        if (info.watchKey != -1) {
            endWatch(info.watchKey, info.isDuplicate);
        }
        if (info.line.is_requested()) {
            info.line.release();
        }
    }
}

void GpioDriver::configureIO(RegisterType type, int index, std::function<void(int)> callback) {
    switch (type) {
        case RegisterType::RTS:
            requestOutput(type, index);
            break;
        case RegisterType::CTS:
            requestInput(type, index, std::move(callback));
            break;
        default:
            DriverRefusal::unsupportedType(type);
    }
}

void GpioDriver::requestOutput(RegisterType type, int index) {
    const gpiod::line line = chip->get_line(RTS_LINE);
    line.request(
        {"rts", gpiod::line_request::DIRECTION_OUTPUT, gpiod::line_request::FLAG_ACTIVE_LOW}, 0);
    add({type, index, line, {}});
}

void GpioDriver::requestInput(RegisterType type, int index, std::function<void(int)> callback) {
    const gpiod::line line = chip->get_line(CTS_LINE);
    line.request(
        {"cts", gpiod::line_request::EVENT_BOTH_EDGES, gpiod::line_request::FLAG_ACTIVE_LOW}, 0);
    add({type, index, line, std::move(callback)});
    watchEdges(gpioInfos.back());
}

void GpioDriver::add(GpioInfo info) {
    const std::lock_guard<std::mutex> guard(infosMutex);
    gpioInfos.push_back(std::move(info));
}

void GpioDriver::watchEdges(GpioInfo& info) {
    FileNotify& notifier = *FileNotify::getInstance();
    const int original = info.line.event_get_fd();
    const int duplicate = ::fcntl(original, F_DUPFD_CLOEXEC, LOWEST_DESCRIPTOR);
    if (duplicate == -1) {
        log(logger, Poco::Message::PRIO_WARNING, NUMBER_IS_LOW, original, info.line.offset(),
            std::strerror(errno), LOWEST_DESCRIPTOR);
    }
    info.isDuplicate = duplicate != -1;
    info.watchKey =
        notifier.enableNotifications(info.isDuplicate ? duplicate : original,
                                     [this, copy = info](int /*fd*/) { takeEvent(copy); });
}

void GpioDriver::takeEvent(const GpioInfo& info) const {
    int value = 0;
    try {
        const gpiod::line_event event = info.line.event_read();
        if (logger.is(Poco::Message::PRIO_INFORMATION)) {
            log(logger, Poco::Message::PRIO_INFORMATION, GPIO_EVENT, event.event_type,
                event.source.offset(), event.source.get_value());
        }
        value = event.source.get_value();
    } catch (const std::exception& e) {
        // The edge is lost, and so may be those to come: nobody must rely on the register.
        log(logger, Poco::Message::PRIO_FATAL, EDGE_LOST, info.line.offset(), CHIP_NAME(getIndex()),
            e.what());
        endProcess(EXIT_FAILURE);
    }
    info.callback(value);
}

std::string GpioDriver::getIOFileName(RegisterType type, int /*index*/) const {
    if (type != RegisterType::RTS && type != RegisterType::CTS) {
        DriverRefusal::unsupportedType(type);
    }
    return {};
}

int GpioDriver::convertValue(RegisterType type, int value, int index) const {
    const std::lock_guard<std::mutex> guard(infosMutex);
    const GpioInfo* const info = find(type, index);
    return info != nullptr ? info->line.get_value() : value;
}

bool GpioDriver::isValueValid(RegisterType type, int value) const {
    switch (type) {
        case RegisterType::RTS:
            return DriverRefusal::acceptBit(type, value, logger);
        case RegisterType::CTS:
            DriverRefusal::unsupportedWrite(type);
        default:
            DriverRefusal::unsupportedType(type);
    }
}

void GpioDriver::specificWriteValue(RegisterType type, int value, int index) {
    if (type != RegisterType::RTS) {
        DriverRefusal::unsupportedType(type);
    }
    const std::lock_guard<std::mutex> guard(infosMutex);
    if (const GpioInfo* const info = find(type, index)) {
        info->line.set_value(value);
    }
}

const GpioDriver::GpioInfo* GpioDriver::find(RegisterType type, int index) const {
    const auto info = std::find_if(gpioInfos.begin(), gpioInfos.end(), [=](const GpioInfo& entry) {
        return entry.type == type && entry.index == index;
    });
    return info != gpioInfos.end() ? &*info : nullptr;
}
