// SPDX-License-Identifier: MIT
#include "FakeGpiod.h"

#include <gpiod.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <memory>

namespace {

FakeGpiod* present = nullptr;

std::string nameOf(const std::string& chip, unsigned offset) {
    return chip + " " + std::to_string(offset);
}

}  // namespace

FakeGpiod::FakeGpiod() {
    present = this;
}

FakeGpiod::~FakeGpiod() {
    present = nullptr;
}

std::vector<std::string> FakeGpiod::calls() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return record;
}

void FakeGpiod::fail(const std::string& call, int error) {
    const std::lock_guard<std::mutex> lock(mutex);
    errors[call] = error;
}

void FakeGpiod::setLineCount(unsigned count) {
    const std::lock_guard<std::mutex> lock(mutex);
    lines = count;
}

unsigned FakeGpiod::lineCount() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return lines;
}

bool FakeGpiod::fails(const std::string& call) const {
    const auto error = errors.find(call);
    errno = error != errors.end() ? error->second : 0;
    return errno != 0;
}

const FakeGpiod::Wire* FakeGpiod::find(const Place& place) const {
    const auto wire = wires.find(place);
    return wire != wires.end() ? &wire->second : nullptr;
}

bool FakeGpiod::isHeld(const Wire& wire) {
    pollfd end{wire.kernelSide.get(), 0, 0};
    return wire.kernelSide.isOpen() && (poll(&end, 1, 0) == 0 || (end.revents & POLLHUP) == 0);
}

int FakeGpiod::level(const std::string& chip, unsigned offset) const {
    const std::lock_guard<std::mutex> lock(mutex);
    const Wire* const wire = find({chip, offset});
    return wire != nullptr ? wire->level : 1;
}

void FakeGpiod::drive(const std::string& chip, unsigned offset, int level) {
    const std::lock_guard<std::mutex> lock(mutex);
    Wire& wire = wires[{chip, offset}];
    if (wire.level != level && wire.hasEvents && isHeld(wire)) {
        const bool isRising = (level != 0) != wire.isActiveLow;
        const char event = isRising ? GPIOD_LINE_EVENT_RISING_EDGE : GPIOD_LINE_EVENT_FALLING_EDGE;
        // Like the kernel, drops what nobody takes.
        send(wire.kernelSide.get(), &event, 1, MSG_NOSIGNAL | MSG_DONTWAIT);
    }
    wire.level = level;
}

bool FakeGpiod::isFree(const std::string& chip, unsigned offset) const {
    const std::lock_guard<std::mutex> lock(mutex);
    const Wire* const wire = find({chip, offset});
    return wire == nullptr || !isHeld(*wire);
}

int FakeGpiod::eventDescriptor(const std::string& chip, unsigned offset) const {
    const std::lock_guard<std::mutex> lock(mutex);
    const Wire* const wire = find({chip, offset});
    return wire != nullptr && wire->isRequested && wire->hasEvents ? wire->userSide.get() : -1;
}

void FakeGpiod::takeAway(const std::string& chip, unsigned offset) {
    const std::lock_guard<std::mutex> lock(mutex);
    wires[{chip, offset}].isRequested = false;
}

int FakeGpiod::open(const std::string& chip) {
    const std::lock_guard<std::mutex> lock(mutex);
    record.push_back("open " + chip);
    return fails("open") ? -1 : 0;
}

void FakeGpiod::close(const std::string& chip) {
    const std::lock_guard<std::mutex> lock(mutex);
    record.push_back("close " + chip);
}

int FakeGpiod::request(const std::string& chip, unsigned offset, const std::string& details,
                       int type, int flags, int defaultValue) {
    const std::lock_guard<std::mutex> lock(mutex);
    record.push_back("request " + nameOf(chip, offset) + ": " + details);
    Wire& wire = wires[{chip, offset}];
    if (fails("request")) {
        return -1;
    }
    if (wire.isRequested || isHeld(wire)) {
        errno = EBUSY;
        return -1;
    }
    wire.kernelSide.reset();
    std::array<int, 2> ends{-1, -1};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        return -1;
    }
    wire.kernelSide.reset(ends[0]);
    wire.userSide.reset(ends[1]);
    wire.isActiveLow = (flags & GPIOD_LINE_REQUEST_FLAG_ACTIVE_LOW) != 0;
    wire.hasEvents = type >= GPIOD_LINE_REQUEST_EVENT_FALLING_EDGE;
    wire.isRequested = true;
    if (type == GPIOD_LINE_REQUEST_DIRECTION_OUTPUT) {
        wire.level = static_cast<int>((defaultValue != 0) != wire.isActiveLow);
    }
    return 0;
}

void FakeGpiod::release(const std::string& chip, unsigned offset) {
    const std::lock_guard<std::mutex> lock(mutex);
    record.push_back("release " + nameOf(chip, offset));
    Wire& wire = wires[{chip, offset}];
    wire.isRequested = false;
    wire.userSide.reset();
}

bool FakeGpiod::isRequested(const std::string& chip, unsigned offset) const {
    const std::lock_guard<std::mutex> lock(mutex);
    const Wire* const wire = find({chip, offset});
    return wire != nullptr && wire->isRequested;
}

int FakeGpiod::getValue(const std::string& chip, unsigned offset) const {
    const std::lock_guard<std::mutex> lock(mutex);
    const Wire* const wire = find({chip, offset});
    if (fails("get")) {
        return -1;
    }
    if (wire == nullptr || !wire->isRequested) {
        errno = EPERM;
        return -1;
    }
    return static_cast<int>((wire->level != 0) != wire->isActiveLow);
}

int FakeGpiod::setValue(const std::string& chip, unsigned offset, int value) {
    const std::lock_guard<std::mutex> lock(mutex);
    record.push_back("set " + nameOf(chip, offset) + ": " + std::to_string(value));
    Wire& wire = wires[{chip, offset}];
    if (fails("set")) {
        return -1;
    }
    if (!wire.isRequested || wire.hasEvents) {
        errno = EPERM;
        return -1;
    }
    wire.level = static_cast<int>((value != 0) != wire.isActiveLow);
    return 0;
}

int FakeGpiod::readEvent(const std::string& chip, unsigned offset) {
    int fd = -1;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        const Wire* const wire = find({chip, offset});
        if (fails("read")) {
            return -1;
        }
        if (wire == nullptr || !wire->isRequested || !wire->hasEvents) {
            errno = EPERM;
            return -1;
        }
        fd = wire->userSide.get();
    }
    char event = 0;
    return recv(fd, &event, 1, 0) == 1 ? event : -1;
}

// The C functions, which the bindings find here before they find those of the library.

struct gpiod_line {
    gpiod_chip* chip;
    unsigned offset;
};

struct gpiod_chip {
    std::string name;
    std::map<unsigned, gpiod_line> lines;
};

namespace {

gpiod_line& only(const gpiod_line_bulk* bulk) {
    return *bulk->lines[0];
}

}  // namespace

gpiod_chip* gpiod_chip_open_lookup(const char* descr) {
    if (present == nullptr) {
        errno = ENOENT;
        return nullptr;
    }
    return present->open(descr) == 0 ? new gpiod_chip{descr, {}} : nullptr;
}

void gpiod_chip_close(gpiod_chip* chip) {
    const std::unique_ptr<gpiod_chip> owner(chip);
    if (present == nullptr) {
        return;
    }
    for (const auto& [offset, line] : chip->lines) {
        if (present->isRequested(chip->name, offset)) {
            present->release(chip->name, offset);
        }
    }
    present->close(chip->name);
}

unsigned int gpiod_chip_num_lines(gpiod_chip* /*chip*/) {
    return present->lineCount();
}

gpiod_line* gpiod_chip_get_line(gpiod_chip* chip, unsigned int offset) {
    return &chip->lines.insert({offset, gpiod_line{chip, offset}}).first->second;
}

unsigned int gpiod_line_offset(gpiod_line* line) {
    return line->offset;
}

bool gpiod_line_is_requested(gpiod_line* line) {
    return present->isRequested(line->chip->name, line->offset);
}

int gpiod_line_request_bulk(gpiod_line_bulk* bulk, const gpiod_line_request_config* config,
                            const int* default_vals) {
    const gpiod_line& line = only(bulk);
    const std::string details = "type " + std::to_string(config->request_type) + ", flags " +
                                std::to_string(config->flags) + ", consumer " + config->consumer +
                                ", default " + std::to_string(default_vals[0]);
    return present->request(line.chip->name, line.offset, details, config->request_type,
                            config->flags, default_vals[0]);
}

void gpiod_line_release_bulk(gpiod_line_bulk* bulk) {
    present->release(only(bulk).chip->name, only(bulk).offset);
}

int gpiod_line_get_value_bulk(gpiod_line_bulk* bulk, int* values) {
    values[0] = present->getValue(only(bulk).chip->name, only(bulk).offset);
    return values[0] == -1 ? -1 : 0;
}

int gpiod_line_set_value_bulk(gpiod_line_bulk* bulk, const int* values) {
    return present->setValue(only(bulk).chip->name, only(bulk).offset, values[0]);
}

int gpiod_line_event_get_fd(gpiod_line* line) {
    return present->eventDescriptor(line->chip->name, line->offset);
}

int gpiod_line_event_read(gpiod_line* line, gpiod_line_event* event) {
    event->event_type = present->readEvent(line->chip->name, line->offset);
    event->ts = {};
    return event->event_type == -1 ? -1 : 0;
}
