// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "DriverInterface.h"
#include "InfoIo.h"

/// Driver "pd5-N": the IO expander with number N, whose values are files below "/sys/kernel/pd5-N".
///
/// | register type | index | value |
/// |---|---|---|
/// | relay | 0 to the expander's relays | 0 or 1, writable, watched |
/// | input_digital | 0 to the expander's inputs | 0 or 1, watched |
/// | input_counter | 0 to the expander's inputs | edges counted, writable |
/// | input_analog | 0 to the expander's analogs | raw value * 4.137; 0 while not enabled |
/// | enable_analog | 0 to the expander's analogs | 0 or 1, writable |
///
/// Every range includes its last number. Reads may come from any thread. setBasePath() belongs
/// before the first use.
class [[gnu::visibility("default")]] PD5Driver : public DriverInterface {
 public:
    /// Where the kernel driver publishes its trees, without the hyphen and the number.
    static const std::string PD5_BASE_PATH;

    /// Reads how many IOs the expander has.
    ///
    /// @param index the expander's number, 0 or more
    /// @throws tesk::NotFoundException "file %s not found": there is no such expander
    /// @throws Poco::SyntaxException a count of the expander is not a number
    explicit PD5Driver(int index);

    /// For an expander that is not there. Reads nothing.
    ///
    /// @param index the expander's number, 0 or more
    /// @param counts how many IOs the expander has
    PD5Driver(int index, const InfoIo& counts);
    ~PD5Driver() override;

    /// Whether the expander is there.
    ///
    /// @param index the expander's number
    static bool driverIsAvailable(int index);

    /// Whether configureIO() watches the value files of a register type.
    static bool isWatched(RegisterType type);

    /// Sets the directory of the expander's files. The counts stay as the expander stated them.
    ///
    /// @param path completed by a hyphen and the expander's number
    void setBasePath(const std::string& path);

    /// Watches relay and input_digital. Selects both edges for input_digital and the rising edge
    /// for input_counter; errors of the edge files are ignored. A counter is not watched. Does
    /// nothing for other register types.
    ///
    /// @param type the register type
    /// @param index the IO's number
    /// @param callback called on the notifier's thread at every change
    /// @throws tesk::InvalidArgumentsException "invalid IO index %d", for the watched types
    /// @throws tesk::InputOutputException "error enabling notification for file '%s': %s"
    void configureIO(RegisterType type, int index, std::function<void(int)> callback) override;

    /// The path of an IO's value file.
    ///
    /// @throws tesk::InvalidArgumentsException "invalid IO index %d"
    /// @throws tesk::UnsupportedException "type '%s' not supported"
    std::string getIOFileName(RegisterType type, int index) const override;

    /// Scales input_analog and drops the fraction. Beyond 32 bits the result is the nearest end of
    /// the range. An input that is not enabled is 0, and a warning is logged. The values of other
    /// register types stay as they are.
    ///
    /// @throws tesk::InputOutputException "error opening file '%s' for reading" for the file that
    ///         tells whether the input is enabled
    int convertValue(RegisterType type, int value, int index) const override;

    /// Whether a value may be written; a value that may not is logged at error.
    ///
    /// @throws tesk::UnsupportedException "write not supported for IO type %s": the type is only
    ///         read; "type '%s' not supported": the table above has no such type
    bool isValueValid(RegisterType type, int value) const override;

    int getRelaysCount() const override;          ///< The count that the expander states.
    int getDigitalOutputsCount() const override;  ///< The count that the expander states.
    int getDigitalInputsCount() const override;   ///< The count that the expander states.
    int getAnalogOutputsCount() const override;   ///< 0: no expander states analog outputs.
    int getAnalogInputsCount() const override;    ///< The count that the expander states.

 private:
    friend class BoardWatch;

    std::string basePath;
    InfoIo infoIo;
};
