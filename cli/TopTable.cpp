// SPDX-License-Identifier: MIT
#include "TopTable.h"

#include <algorithm>
#include <iomanip>
#include <iterator>
#include <sstream>
#include <utility>

#include "program/Report.h"

namespace {

constexpr const char* HEADER = "ADDRESS  TYPE                        INDEX  VALUE";
constexpr std::size_t VALUE_WIDTH = 13;

/// The beginning of a text of UTF-8, so many characters wide.
std::string cut(const std::string& text, int width) {
    int characters = 0;
    const auto end = std::find_if(text.begin(), text.end(), [&characters, width](char byte) {
        const bool begins = (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U;
        characters += begins ? 1 : 0;
        return characters > width;
    });
    return {text.begin(), end};
}

}  // namespace

TopTable::TopTable(const Labels& names, Filter shown) : labels(names), filter(std::move(shown)) {}

void TopTable::clear() {
    rows.clear();
}

void TopTable::set(const CachedRegister& entry, Clock::time_point now) {
    const int address = entry.info.address;
    if (!isShown(entry.info)) {
        return;
    }
    Row& row = rows[address];
    const std::string value = valueOf(entry);
    // A value that comes for the first time, or comes back, is no change.
    if (entry.state.quality == CachedValue::Quality::GOOD && !row.value.empty() &&
        row.value != value) {
        row.changedAt = now;
    }
    row.entry = entry;
    row.value = value;
}

void TopTable::move(int distance) {
    if (rows.empty()) {
        return;
    }
    const auto place = selected ? rows.find(*selected) : rows.begin();
    const auto from = place == rows.end() ? 0 : std::distance(rows.begin(), place);
    const auto last = static_cast<std::ptrdiff_t>(rows.size()) - 1;
    const auto to = std::clamp<std::ptrdiff_t>(from + distance, 0, last);
    selected = std::next(rows.begin(), to)->first;
}

std::optional<TopTable::Switch> TopTable::switchOf() const {
    const auto place = selected ? rows.find(*selected) : rows.begin();
    if (place == rows.end()) {
        return std::nullopt;
    }
    const auto& [info, state] = place->second.entry;
    const bool isBit = state.value == 0 || state.value == 1;
    if (state.quality != CachedValue::Quality::GOOD || !isBit ||
        !writeRefusalOf(info.type).empty()) {
        return std::nullopt;
    }
    return Switch{info, 1 - state.value};
}

std::vector<TopTable::Line> TopTable::lines(int height, int width, const std::string& notice,
                                            Clock::time_point now) {
    std::vector<Line> screen;
    if (height < 1 || width < 1) {
        return screen;
    }
    const auto visible = static_cast<std::size_t>(std::max(height - 2, 1));
    const auto place = selected ? rows.find(*selected) : rows.begin();
    const auto chosen =
        place == rows.end() ? 0U : static_cast<std::size_t>(std::distance(rows.begin(), place));
    const std::size_t lastTop = rows.size() > visible ? rows.size() - visible : 0;
    firstRow = std::min(
        std::clamp(firstRow, chosen + 1 > visible ? chosen + 1 - visible : 0, chosen), lastTop);
    screen.push_back(
        {cut(HEADER + std::string(labels.all().empty() ? "" : "        NAME = SHOWN"), width),
         Style::HEADER, false});
    auto row = std::next(rows.begin(), static_cast<std::ptrdiff_t>(firstRow));
    for (std::size_t i = firstRow; i < firstRow + visible; ++i) {
        const bool isRow = row != rows.end();
        screen.push_back({isRow ? cut(textOf(row->second), width) : "",
                          isRow ? styleOf(row->second, now) : Style::PLAIN, isRow && i == chosen});
        row = isRow ? std::next(row) : row;
    }
    screen.push_back({cut(printable(notice), width), Style::HEADER, false});
    // A screen of less than three lines has the selected row first, and then the header.
    if (height < 3) {
        screen.erase(screen.begin());
        screen.resize(static_cast<std::size_t>(height));
    }
    return screen;
}

bool TopTable::isShown(const RegisterInfo& info) const {
    const auto& types = filter.types;
    if (!types.empty() && std::find(types.begin(), types.end(), info.type) == types.end()) {
        return false;
    }
    const Label* const label = labels.find(info.address);
    return filter.group.empty() || (label != nullptr && label->group == filter.group);
}

/// Empty while the register has not been read yet.
std::string TopTable::valueOf(const CachedRegister& entry) const {
    const auto& [info, state] = entry;
    if (state.quality == CachedValue::Quality::UNREADABLE) {
        return printable(state.reason);
    }
    if (state.readAt == Clock::time_point()) {
        return "";
    }
    if (isMissing(info.type, state.value)) {
        return "missing";
    }
    std::string text = std::to_string(state.value);
    if (const Label* const label = labels.find(info.address)) {
        text.resize(std::max(text.size() + 1, VALUE_WIDTH), ' ');
        text += (label->name.empty() ? "" : label->name + " = ") + label->shown(state.value);
    }
    return text;
}

std::string TopTable::textOf(const Row& row) const {
    const RegisterInfo& info = row.entry.info;
    std::ostringstream text;
    text << std::setw(7) << info.address << "  " << std::left << std::setw(26)
         << getTypeName(info.type) << std::right << std::setw(7) << info.index << "  " << row.value;
    return text.str();
}

TopTable::Style TopTable::styleOf(const Row& row, Clock::time_point now) const {
    if (row.entry.state.quality != CachedValue::Quality::GOOD) {
        return Style::STALE;
    }
    return row.changedAt && now - *row.changedAt < CHANGE_TIME ? Style::CHANGED : Style::PLAIN;
}
