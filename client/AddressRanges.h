// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <vector>

/// A set of addresses, written as addresses and ranges.
class AddressRanges {
 public:
    /// The first and the last address of a range.
    struct Range {
        int first;
        int last;
    };

    /// A range as users write one: "12" or "12-20", in decimal, from 0 to 2147483647.
    ///
    /// @return nothing if the text is no range
    static std::optional<Range> parse(const std::string& text);

    /// Adds a range. Ranges may overlap.
    void add(const Range& range);

    /// Whether an address lies in one of the ranges.
    bool contains(int address) const;

    bool empty() const { return ranges.empty(); }

    /// The ranges as they were added.
    const std::vector<Range>& all() const { return ranges; }

 private:
    std::vector<Range> ranges;
};

/// A range as users write one.
std::string textOf(const AddressRanges::Range& range);

/// Addresses in few words: "5-7, 9".
///
/// @param addresses in any order; repeated ones count once
std::string rangesText(std::vector<int> addresses);
