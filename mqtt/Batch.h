// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Moment.h"

/// Changes that go out as one message.
struct Batch {
    std::uint64_t sequence{0};  ///< From 1 for each start of the program, without a gap.
    std::string session;        ///< A word of this start of the program.
    std::string boot;           ///< The id of the device's start.
    Moment moment;              ///< When the batch was closed.
    std::string changes;        ///< A JSON array, without line ends.

    /// The message.
    std::string payload() const;

    /// The batch as one line of a file, without its end.
    std::string line() const;

    /// A batch from its line.
    ///
    /// @return nothing if the line is no batch: it was cut off
    static std::optional<Batch> fromLine(const std::string& line);

    /// Corrects the time of a batch that was closed before the clock was synchronised.
    ///
    /// @param now a moment of the device's start `currentBoot`
    void correct(const Moment& now, const std::string& currentBoot);

    bool corrected{false};  ///< Whether the time was corrected afterwards.
};
