// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <memory>

#include "DriverInterface.h"

/// Driver "special": how many IOs of each kind the whole device has, and which expanders are
/// fitted.
///
/// Reads no file: the host hands it every driver of the device once, before the service starts.
/// Afterwards it is only read, from any thread. Nothing can be written and nothing is watched.
class [[gnu::visibility("default")]] SpecialDriver : public DriverInterface {
 public:
    /// All numbers are 0 until addIoCount() adds to them.
    SpecialDriver();
    ~SpecialDriver() override;

    /// Adds one driver's counts to the totals and, for an expander with number 1 to 4, notes that
    /// it is fitted. A driver added twice counts twice.
    void addIoCount(const std::shared_ptr<DriverInterface>& driver);

    /// Does nothing: the totals never change while the service runs.
    void configureIO(RegisterType type, int index, std::function<void(int)> callback) override;

    /// An empty text for count_serials, count_relays, count_outputs, count_inputs,
    /// count_analog_outputs, count_analog_inputs and pd5_detected.
    ///
    /// @throws tesk::InvalidArgumentsException "invalid PD5 index %d": not 0 to 4
    /// @throws tesk::UnsupportedException "type '%s' not supported"
    std::string getIOFileName(RegisterType type, int index) const override;

    /// The total of a kind; for pd5_detected 1 when expander `index` (1 to 4) is fitted, else 0.
    ///
    /// @throws tesk::InvalidArgumentsException "invalid PD5 index %d": not 0 to 4
    /// @throws tesk::UnsupportedException "type '%s' not supported"
    int convertValue(RegisterType type, int value, int index) const override;

    /// Never returns.
    ///
    /// @throws tesk::UnsupportedException "write not supported for IO type %s", whatever the kind
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
