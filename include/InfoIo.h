// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

/// How many relays, inputs and outputs a board has, as the board's "info_io" file states.
///
/// A line is a key, one blank and a number ("relays 4"). The keys are "relays", "outputs", "inputs"
/// and "analogs". Lines of another form and lines with another key are skipped. Of two lines with
/// the same key the later line counts.
struct InfoIo {
    /// Reads the file. Never waits.
    ///
    /// @param fileName the path of the board's file
    /// @throws tesk::NotFoundException "file %s not found": the file is missing, not accessible, or
    ///         neither a regular file nor in sysfs
    /// @throws Poco::SyntaxException what follows a key is not a number from 0 to 4294967295
    explicit InfoIo(const std::string& fileName);

    /// A board without IOs. Reads nothing.
    InfoIo() = default;

    std::uint32_t relays{0};         ///< Relays.
    std::uint32_t outputs{0};        ///< Digital outputs.
    std::uint32_t inputs{0};         ///< Digital inputs.
    std::uint32_t analogOutputs{0};  ///< Analog outputs; no line states them.
    std::uint32_t analogs{0};        ///< Analog inputs.
};
