// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "DriverInterface.h"
#include "InfoIo.h"

/// Driver "pd5-N": the IO expander with number N, whose values are files below "/sys/kernel/pd5-N".
///
/// | kind | index | value |
/// |---|---|---|
/// | relay | 0 to the expander's relays | 0 or 1, writable, watched |
/// | input_digital | 0 to the expander's inputs | 0 or 1, watched |
/// | input_counter | 0 to the expander's inputs | edges counted, writable |
/// | input_analog | 0 to the expander's analogs | scaled; 0 while the input is not enabled |
/// | enable_analog | 0 to the expander's analogs | 0 or 1, writable |
///
/// Reads may come from any thread; setBasePath() belongs before the first use.
class [[gnu::visibility("default")]] PD5Driver : public DriverInterface {
 public:
    /// Where the kernel driver publishes its trees, without the hyphen and the number.
    static const std::string PD5_BASE_PATH;

    /// Reads how many IOs the expander has.
    ///
    /// @param index the expander's number, 0 or more
    /// @throws tesk::NotFoundException "file %s not found": there is no such expander
    /// @throws Poco::SyntaxException the expander states a number that is none
    explicit PD5Driver(int index);
    ~PD5Driver() override;

    /// Whether the expander with a number is there.
    static bool driverIsAvailable(int index);

    /// Takes the files from another directory, whose name is completed by a hyphen and the
    /// expander's number. The counts stay those of the real expander.
    void setBasePath(const std::string& path);

    /// Watches relay and input_digital; has inputs report both edges, and counters count the rising
    /// one. Counters are not watched. Other kinds need nothing.
    ///
    /// @throws tesk::InvalidArgumentsException "invalid IO index %d", for the watched kinds
    /// @throws tesk::InputOutputException "error enabling notification for file '%s': %s"
    void configureIO(RegisterType type, int index, std::function<void(int)> callback) override;

    /// The file of a kind above.
    ///
    /// @throws tesk::InvalidArgumentsException "invalid IO index %d"
    /// @throws tesk::UnsupportedException "type '%s' not supported"
    std::string getIOFileName(RegisterType type, int index) const override;

    /// Scales an analog input that is enabled and drops the fraction; beyond 32 bits the result is
    /// the nearest end of the range. One that is not enabled is 0, with a warning. Other kinds stay
    /// as they are.
    ///
    /// @throws tesk::InputOutputException "error opening file '%s' for reading" for the file that
    ///         tells whether the input is enabled
    int convertValue(RegisterType type, int value, int index) const override;

    /// @throws tesk::UnsupportedException "write not supported for IO type %s" for the kinds that
    ///         are only read, "type '%s' not supported" for others
    bool isValueValid(RegisterType type, int value) const override;

    int getRelaysCount() const override;          ///< As the expander states it.
    int getDigitalOutputsCount() const override;  ///< As the expander states it.
    int getDigitalInputsCount() const override;   ///< As the expander states it.
    int getAnalogOutputsCount() const override;   ///< 0, as no expander states it.
    int getAnalogInputsCount() const override;    ///< As the expander states it.

 private:
    std::string basePath;
    InfoIo infoIo;
};
