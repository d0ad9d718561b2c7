// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <string>

#include "DriverInterface.h"
#include "InfoIo.h"

/// Driver "kr62": the IO extension board, whose values are files below "/sys/kernel/kr62".
///
/// | kind | index | value |
/// |---|---|---|
/// | relay, pullup | 0 to the board's relays, inputs | 0 or 1, writable, watched |
/// | input_digital | 0 to the board's inputs | 0 or 1, watched |
/// | input_counter | 0 to the board's inputs | edges counted, writable |
/// | input_analog | 0 to the board's analogs | thousandths of a volt |
/// | device_current, device_voltage | any | thousandths of an ampere, of a volt |
/// | usb_enable | any | 0 or 1, writable |
/// | color_led | 1 or 2 | 1 to 7, writable |
/// | brightness_led | 1 or 2 | 0 to 15, writable |
///
/// Reads may come from any thread; setBasePath() belongs before the first use.
class [[gnu::visibility("default")]] KR62Driver : public DriverInterface {
 public:
    /// Where the board's kernel driver publishes its tree.
    static const std::string KR62_BASE_PATH;
    /// Colours of the LEDs, for users of the class.
    static const std::array<std::string, 7> LED_COLORS;

    /// Reads how many IOs the board has.
    ///
    /// @throws tesk::NotFoundException "file %s not found": there is no board
    /// @throws Poco::SyntaxException the board states a number that is none
    KR62Driver();
    ~KR62Driver() override;

    /// Whether the board is there.
    static bool driverIsAvailable();

    /// Takes the files from another directory. The counts stay those of the real board.
    void setBasePath(const std::string& path);

    /// Watches relay, pullup and input_digital; has inputs report both edges, and counters count
    /// the rising one. Counters are not watched. Other kinds need nothing.
    ///
    /// @throws tesk::InvalidArgumentsException "invalid IO index %d", for the watched kinds
    /// @throws tesk::InputOutputException "error enabling notification for file '%s': %s"
    void configureIO(RegisterType type, int index, std::function<void(int)> callback) override;

    /// The file of a kind above.
    ///
    /// @throws tesk::InvalidArgumentsException "invalid IO index %d"; "invalid led index: 0"
    ///         whatever the index
    /// @throws tesk::UnsupportedException "type '%s' not supported"
    std::string getIOFileName(RegisterType type, int index) const override;

    /// Scales the analog kinds by the board's reference, which is read anew each time, and drops
    /// fractions; beyond 32 bits the result is the nearest end of the range. Other kinds stay as
    /// they are.
    ///
    /// @throws tesk::InputOutputException "error opening file '%s' for reading" for the reference;
    ///         "analog ref is zero"
    int convertValue(RegisterType type, int value, int index) const override;

    /// @throws tesk::UnsupportedException "write not supported for IO type %s" for the kinds that
    ///         are only read, "type '%s' not supported" for others
    bool isValueValid(RegisterType type, int value) const override;

    int getRelaysCount() const override;          ///< As the board states it.
    int getDigitalOutputsCount() const override;  ///< As the board states it.
    int getDigitalInputsCount() const override;   ///< As the board states it.
    int getAnalogOutputsCount() const override;   ///< 0, as no board states it.
    int getAnalogInputsCount() const override;    ///< As the board states it.

 private:
    int readReference(const std::string& file) const;

    std::string basePath;
    InfoIo infoIo;
};
