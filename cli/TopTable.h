// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "client/Labels.h"
#include "client/RegisterCache.h"

/// The table of `iomap top` as lines of text. Knows neither the terminal nor the bus.
class TopTable {
 public:
    using Clock = CachedValue::Clock;

    /// How long a changed value stands out.
    static constexpr std::chrono::seconds CHANGE_TIME{3};

    enum class Style { PLAIN, HEADER, CHANGED, STALE };

    /// A line of the screen.
    struct Line {
        std::string text;  ///< No wider than the screen.
        Style style{Style::PLAIN};
        bool isSelected{false};  ///< Whether a key would act on the register of this line.
    };

    /// A register to write, and the value for it.
    struct Switch {
        RegisterInfo info;
        int value;
    };

    /// Which registers are shown. What is empty admits all.
    struct Filter {
        std::vector<RegisterType> types;
        std::string group;  ///< Of the label of the register.
    };

    /// @param names outlives the table
    TopTable(const Labels& names, Filter shown);

    /// Forgets all registers; the selection stays at its address.
    void clear();

    /// Takes note of a register. A value that differs from the one before stands out for a while.
    void set(const CachedRegister& entry, Clock::time_point now);

    bool isEmpty() const { return rows.empty(); }

    /// Selects the register so many rows below, or above if negative; the last or the first one if
    /// there are not so many.
    void move(int distance);

    /// What the selected register would be switched to: 1 where 0 is, and 0 where 1 is. Nothing if
    /// no register is selected, or it cannot be written, or its value is not known, or another one.
    std::optional<Switch> switchOf() const;

    /// The whole screen: a header, the rows around the selected one, and the notice at the bottom.
    ///
    /// @param height, width in characters; anything below 1 shows nothing
    /// @param notice the last line
    std::vector<Line> lines(int height, int width, const std::string& notice,
                            Clock::time_point now);

 private:
    struct Row {
        CachedRegister entry;
        std::string value;
        std::optional<Clock::time_point> changedAt;
    };

    bool isShown(const RegisterInfo& info) const;
    std::string valueOf(const CachedRegister& entry) const;
    std::string textOf(const Row& row) const;
    Style styleOf(const Row& row, Clock::time_point now) const;

    const Labels& labels;
    Filter filter;
    std::map<int, Row> rows;      ///< By address.
    std::optional<int> selected;  ///< An address; nothing selects the first row.
    std::size_t firstRow{0};      ///< The row at the top of the screen.
};
