// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <string>

#include "DriverInterface.h"
#include "InfoIo.h"

/// Driver "kr62": the IO extension board, whose values are files below "/sys/kernel/kr62".
///
/// | register type | index | value |
/// |---|---|---|
/// | relay | 0 to the board's relays | 0 or 1, writable, watched |
/// | pullup | 0 to the board's inputs | 0 or 1, writable, watched |
/// | input_digital | 0 to the board's inputs | 0 or 1, watched |
/// | input_counter | 0 to the board's inputs | edges counted, writable |
/// | input_analog | 0 to the board's analogs | thousandths of a volt |
/// | device_current, device_voltage | any | thousandths of an ampere, of a volt |
/// | usb_enable | any | 0 or 1, writable |
/// | color_led | 1 or 2 | 1 to 7, writable |
/// | brightness_led | 1 or 2 | 0 to 15, writable |
///
/// Every range includes its last number. Reads may come from any thread. setBasePath() belongs
/// before the first use.
class [[gnu::visibility("default")]] KR62Driver : public DriverInterface {
 public:
    /// Where the board's kernel driver publishes its tree.
    static const std::string KR62_BASE_PATH;
    /// The names of the LEDs' colours, for users of the class.
    static const std::array<std::string, 7> LED_COLORS;

    /// Reads how many IOs the board has.
    ///
    /// @throws tesk::NotFoundException "file %s not found": there is no board
    /// @throws Poco::SyntaxException a count of the board is not a number
    KR62Driver();

    /// For a board that is not there. Reads nothing.
    ///
    /// @param counts how many IOs the board has
    explicit KR62Driver(const InfoIo& counts);
    ~KR62Driver() override;

    /// Whether the board is there.
    static bool driverIsAvailable();

    /// Whether configureIO() watches the value files of a register type.
    static bool isWatched(RegisterType type);

    /// Sets the directory of the board's files. The counts stay as the board stated them.
    ///
    /// @param path taken as it stands
    void setBasePath(const std::string& path);

    /// Watches relay, pullup and input_digital. Selects both edges for input_digital and the rising
    /// edge for input_counter; errors of the edge files are ignored. A counter is not watched. Does
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
    /// @throws tesk::InvalidArgumentsException "invalid IO index %d"; "invalid led index: 0" for
    ///         every invalid index of an LED
    /// @throws tesk::UnsupportedException "type '%s' not supported"
    std::string getIOFileName(RegisterType type, int index) const override;

    /// Scales input_analog, device_current and device_voltage by the board's reference and drops
    /// the fraction. Beyond 32 bits the result is the nearest end of the range. Every call reads
    /// the reference anew. The values of other register types stay as they are.
    ///
    /// @throws tesk::InputOutputException "error opening file '%s' for reading" for the reference;
    ///         "analog ref is zero"
    int convertValue(RegisterType type, int value, int index) const override;

    /// Whether a value may be written; a value that may not is logged at error.
    ///
    /// @throws tesk::UnsupportedException "write not supported for IO type %s": the type is only
    ///         read; "type '%s' not supported": the table above has no such type
    bool isValueValid(RegisterType type, int value) const override;

    int getRelaysCount() const override;          ///< The count that the board states.
    int getDigitalOutputsCount() const override;  ///< The count that the board states.
    int getDigitalInputsCount() const override;   ///< The count that the board states.
    int getAnalogOutputsCount() const override;   ///< 0: no board states analog outputs.
    int getAnalogInputsCount() const override;    ///< The count that the board states.

 private:
    friend class BoardWatch;

    int readReference(const std::string& file) const;

    std::string basePath;
    InfoIo infoIo;
};
