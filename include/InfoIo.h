// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

/// How many IOs of each kind a board has, as its "info_io" file states it.
///
/// Each line is a kind, one blank and a number ("relays 4"). Lines of another form and unknown
/// kinds are skipped; of two lines with the same kind the later one counts.
struct InfoIo {
    /// @param fileName the board's file
    /// @throws tesk::NotFoundException "file %s not found"
    /// @throws Poco::SyntaxException a number of a known kind is none
    explicit InfoIo(const std::string& fileName);

    std::uint32_t relays{0};         ///< Relays.
    std::uint32_t outputs{0};        ///< Digital outputs.
    std::uint32_t inputs{0};         ///< Digital inputs.
    std::uint32_t analogOutputs{0};  ///< Analog outputs; no line states them.
    std::uint32_t analogs{0};        ///< Analog inputs.
};
