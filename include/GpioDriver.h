// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "DriverInterface.h"

namespace gpiod {
class chip;
}

/// Driver "gpiochip-N": the handshake lines of a serial port, on the GPIO chip with number N.
///
/// | type | line | value |
/// |---|---|---|
/// | rts | 200, an output that starts at 0 | 0 or 1, writable |
/// | cts | 201, an input | 0 or 1, every edge is announced |
///
/// Both lines are active-low: 1 is asserted, which is the low level. A chip serves at most one
/// register of each type; the index only names the register. Lines are held until the driver is
/// destroyed.
///
/// Notifications run on the notifier's thread; everything else belongs to one thread. A
/// notification must not destroy the driver. Failures of a line or of the chip are libgpiod's own
/// exceptions, mostly `std::system_error`. A line that cannot be read at an edge
/// ends the process with exit status 1, after a fatal line with chip, line and reason.
class [[gnu::visibility("default")]] GpioDriver : public DriverInterface {
 public:
    /// Opens the chip, "gpiochip0" for the number 0.
    ///
    /// @throws std::system_error the chip does not exist or cannot be opened
    explicit GpioDriver(int chipNumber);

    /// Releases the lines. No callback runs any more once this has returned. A watched line leaves
    /// one open descriptor behind, which is never ready: its number must not go to another file
    /// while the notifier may still poll it.
    ~GpioDriver() override;

    /// Requests the line of a type above and, for cts, watches its edges.
    ///
    /// The notifier gets a descriptor whose number is at least 4096, beyond the keys of watched
    /// files. Where the limit of open files forbids that number, the notifier gets the line's own
    /// descriptor, and a warning says so.
    ///
    /// @param type rts or cts
    /// @param index any number; later calls name the line by it
    /// @param callback for cts, called with the line's value at every edge; not used for rts
    /// @throws tesk::UnsupportedException "type '%s' not supported"
    /// @throws std::system_error the line cannot be requested, for instance because it already is
    /// @throws std::out_of_range the chip has no such line
    void configureIO(RegisterType type, int index, std::function<void(int)> callback) override;

    /// An empty text: the lines have no files.
    ///
    /// @throws tesk::UnsupportedException "type '%s' not supported"
    std::string getIOFileName(RegisterType type, int index) const override;

    /// The present value of the line that was configured with this type and index; `value` where
    /// there is none.
    ///
    /// @throws std::system_error the line cannot be read
    int convertValue(RegisterType type, int value, int index) const override;

    /// @throws tesk::UnsupportedException "write not supported for IO type %s" for cts, "type '%s'
    ///         not supported" for every other type but rts
    bool isValueValid(RegisterType type, int value) const override;

    /// Sets the rts line that was configured with this index. Does nothing where there is none.
    ///
    /// @throws tesk::UnsupportedException "type '%s' not supported" for every other type
    /// @throws std::system_error the line cannot be set
    void specificWriteValue(RegisterType type, int value, int index) override;

 private:
    struct GpioInfo;

    void requestOutput(RegisterType type, int index);
    void requestInput(RegisterType type, int index, std::function<void(int)> callback);
    /// Hidden, as no user of the class calls it.
    [[gnu::visibility("hidden")]] void add(GpioInfo info);
    void watchEdges(GpioInfo & info);
    void takeEvent(const GpioInfo& info) const;
    const GpioInfo* find(RegisterType type, int index) const;

    std::unique_ptr<gpiod::chip> chip;
    /// The notifier searches the lines at an edge, which may come while the map is being loaded.
    /// Its thread takes this mutex while the notifier's own is locked: never the other way around.
    mutable std::mutex infosMutex;
    /// Only the thread of configureIO() changes it, under the mutex.
    std::vector<GpioInfo> gpioInfos;
};
