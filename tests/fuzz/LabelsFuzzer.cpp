// SPDX-License-Identifier: MIT
//
// Reads any bytes as a file of labels. The file must be taken, or refused with its faults. What a
// label shows for a raw value must mean that value when it is written back.

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>

#include "FuzzInput.h"
#include "MemoryFile.h"
#include "client/Failure.h"
#include "client/Labels.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

constexpr unsigned int ALL_VALUES = std::numeric_limits<std::uint32_t>::max();

constexpr std::array<int, 8> RAW_VALUES{0,
                                        1,
                                        -1,
                                        1000,
                                        65535,
                                        -123456789,
                                        std::numeric_limits<int>::max(),
                                        std::numeric_limits<int>::min()};

/// Whether nine decimals and the digits of a double tell each raw value from the next one.
bool isExact(const Label& label) {
    constexpr double SMALLEST_STEP = 1e-5;
    const double largest = std::abs(label.scale) * ALL_VALUES + std::abs(label.offset);
    return std::abs(label.scale) >= SMALLEST_STEP && std::abs(label.scale) >= largest * 1e-11;
}

/// The shown value as a user writes it.
std::string written(const Label& label, int raw) {
    const std::string shown = label.shown(raw);
    const bool isState = label.states.count(raw) != 0;
    return isState || label.unit.empty() ? shown
                                         : shown.substr(0, shown.size() - label.unit.size() - 1);
}

void requireWayBack(const Label& label, int raw) {
    const std::string text = written(label, raw);
    try {
        const int again = label.rawOf(text, ALL_VALUES);
        if (again != raw && isExact(label)) {
            fail(std::to_string(raw) + " is shown as '" + text + "', which means " +
                 std::to_string(again));
        }
    } catch (const Failure& e) {
        if (isExact(label)) {
            fail(std::to_string(raw) + " is shown as '" + text + "': " + e.what());
        }
    }
}

/// Any text means a raw value in range, or nothing.
void requireRange(const Label& label, const std::string& text) {
    constexpr unsigned int MAXIMUM = 255;
    try {
        const int raw = label.rawOf(text, MAXIMUM);
        if (label.states.count(raw) == 0 && (raw < 0 || raw > static_cast<int>(MAXIMUM))) {
            fail("'" + text + "' means " + std::to_string(raw));
        }
    } catch (const Failure&) {
        // It means nothing.
    }
}

void requireGood(const Labels& labels, const std::string& text) {
    for (const auto& [address, label] : labels.all()) {
        if (!label.name.empty() && labels.addressOf(label.name) != address) {
            fail("the name '" + label.name + "' leads to another register");
        }
        for (const int raw : RAW_VALUES) {
            requireWayBack(label, raw);
        }
        for (const auto& [raw, state] : label.states) {
            requireWayBack(label, raw);
        }
        requireRange(label, text.substr(0, 40));
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const MemoryFile file;
    file.replace(data, size);
    const auto faults = Labels::faultsIn(std::string(data, data + size));
    for (const Labels::Fault& fault : faults) {
        if (fault.message.empty()) {
            fail("a fault has no words");
        }
    }
    try {
        const Labels labels = Labels::read(file.path());
        if (!faults.empty()) {
            fail("a file with faults is taken");
        }
        requireGood(labels, std::string(data, data + size));
    } catch (const Failure& e) {
        if (faults.empty()) {
            fail(std::string("a file without faults is refused: ") + e.what());
        }
    }
    return 0;
}
