// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <memory>

#include "DriverInterface.h"

/// Driver "special": how many serial ports, relays, inputs and outputs the whole device has, and
/// which expanders are fitted.
///
/// The host hands every driver of the device to addIoCount() once, before the service starts.
/// Afterwards the totals are only read, from any thread. The driver reads no file. No value can be
/// written, and no value is watched.
class [[gnu::visibility("default")]] SpecialDriver : public DriverInterface {
 public:
    /// All totals are 0.
    SpecialDriver();
    ~SpecialDriver() override;

    /// Adds one driver's counts to the totals. Notes an expander with a number from 1 to 4 as
    /// fitted. A driver added twice counts twice.
    ///
    /// @param driver not null; not kept
    void addIoCount(const std::shared_ptr<DriverInterface>& driver);

    /// Does nothing: the totals never change while the service runs.
    void configureIO(RegisterType type, int index, std::function<void(int)> callback) override;

    /// An empty text for count_serials, count_relays, count_outputs, count_inputs,
    /// count_analog_outputs, count_analog_inputs and pd5_detected.
    ///
    /// @throws tesk::InvalidArgumentsException "invalid PD5 index %d": not 0 to 4
    /// @throws tesk::UnsupportedException "type '%s' not supported"
    std::string getIOFileName(RegisterType type, int index) const override;

    /// The total of a count type; for pd5_detected 1 when expander `index` (1 to 4) is fitted,
    /// else 0. `value` is ignored.
    ///
    /// @throws tesk::InvalidArgumentsException "invalid PD5 index %d": not 0 to 4
    /// @throws tesk::UnsupportedException "type '%s' not supported"
    int convertValue(RegisterType type, int value, int index) const override;

    /// Never returns: nothing of the special driver can be written.
    ///
    /// @throws tesk::UnsupportedException "write not supported for IO type %s" for every type
    bool isValueValid(RegisterType type, int value) const override;

 private:
    int serialPorts{0};
    int relays{0};
    int digitalOutputs{0};
    int digitalInputs{0};
    int analogOutputs{0};
    int analogInputs{0};
    std::array<bool, 4> pd5Detected{};
};
