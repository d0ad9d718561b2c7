// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "support/FileDescriptor.h"

/// The GPIO chips of a test. This class defines those of libgpiod's C functions that the driver
/// needs. libgpiod's C++ bindings call them in every program that is linked with this class.
///
/// Every name is that of a chip while an object lives; without one there is no chip. Only one may
/// live at a time. A requested line is held until the last descriptor of the request is closed, as
/// the kernel does it. May be used from any thread.
class FakeGpiod {
 public:
    FakeGpiod();
    ~FakeGpiod();
    FakeGpiod(const FakeGpiod&) = delete;
    FakeGpiod& operator=(const FakeGpiod&) = delete;

    /// The calls until now, in order: "open gpiochip0", "request gpiochip0 200: type 3,
    /// flags 4, consumer rts, default 0", "set gpiochip0 200: 1", "release gpiochip0 200", "close
    /// gpiochip0".
    std::vector<std::string> calls() const;

    /// Makes every call of one function fail from now on.
    ///
    /// @param call "open", "request", "get", "set" or "read"
    /// @param error as in errno; with 0 the calls work again
    void fail(const std::string& call, int error);

    /// How many lines every chip has, 256 unless told.
    void setLineCount(unsigned count);
    unsigned lineCount() const;

    /// The electrical level of a line, 0 or 1. Lines start high.
    int level(const std::string& chip, unsigned offset) const;

    /// Changes the electrical level of a line from outside. A level that differs is an event where
    /// events were requested.
    void drive(const std::string& chip, unsigned offset, int level);

    /// Whether nobody holds a line.
    bool isFree(const std::string& chip, unsigned offset) const;

    /// The descriptor of a request's events, as the owner of the line sees it; -1 without one.
    int eventDescriptor(const std::string& chip, unsigned offset) const;

    /// Makes a line look as if it had been released.
    void takeAway(const std::string& chip, unsigned offset);

    /// The electrical side of a line.
    struct Wire {
        int level{1};
        /// The kernel's end of a connection. The other end is the descriptor of the request.
        FileDescriptor kernelSide;
        FileDescriptor userSide;
        bool isActiveLow{false};
        bool hasEvents{false};
        bool isRequested{false};
    };

    /// What the C functions do, errno included.
    int open(const std::string& chip);
    void close(const std::string& chip);
    int request(const std::string& chip, unsigned offset, const std::string& details, int type,
                int flags, int defaultValue);
    void release(const std::string& chip, unsigned offset);
    bool isRequested(const std::string& chip, unsigned offset) const;
    int getValue(const std::string& chip, unsigned offset) const;
    int setValue(const std::string& chip, unsigned offset, int value);
    /// @return 1 for a rising, 2 for a falling edge, -1 for a failure
    int readEvent(const std::string& chip, unsigned offset);

 private:
    using Place = std::pair<std::string, unsigned>;

    bool fails(const std::string& call) const;
    const Wire* find(const Place& place) const;
    static bool isHeld(const Wire& wire);

    mutable std::mutex mutex;
    std::map<Place, Wire> wires;
    std::vector<std::string> record;
    std::map<std::string, int> errors;
    unsigned lines{256};
};
