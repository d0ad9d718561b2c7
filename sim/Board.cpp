// SPDX-License-Identifier: MIT
#include "Board.h"

#include <array>
#include <fstream>
#include <utility>

#include "Error.h"
#include "Lock.h"

namespace sim {

namespace {

/// A file that an IO board has once, and its value at first.
struct SingleFile {
    const char* name;
    int value;
};
constexpr std::array<SingleFile, 9> IO_BOARD_FILES{{
    {"analog_ref", 4096},
    {"analogs/analog_ref", 4096},
    {"supply_current", 2048},
    {"supply_voltage", 3724},
    {"usb_enable", 0},
    {"leds/3/color", 1},
    {"leds/3/brightness", 0},
    {"leds/12/color", 1},
    {"leds/12/brightness", 0},
}};

/// A file that every IO of a group has, and its value at first.
struct IoFile {
    const char* group;
    const char* name;
    const char* value;
    int IoCounts::*count;
};
constexpr std::array<IoFile, 6> IO_FILES{{
    {"relays", "value", "0", &IoCounts::relays},
    {"inputs", "value", "0", &IoCounts::inputs},
    {"inputs", "edge", "none", &IoCounts::inputs},
    {"inputs", "counter", "0", &IoCounts::inputs},
    {"inputs", "counter_edge", "none", &IoCounts::inputs},
    {"analogs", "value", "0", &IoCounts::analogs},
}};
constexpr IoFile PULLUP{"pullups", "value", "0", &IoCounts::inputs};
constexpr IoFile ENABLE{"analogs", "enable", "0", &IoCounts::analogs};

constexpr std::array<std::pair<const char*, int IoCounts::*>, 4> INFO_LINES{{
    {"relays", &IoCounts::relays},
    {"inputs", &IoCounts::inputs},
    {"outputs", &IoCounts::outputs},
    {"analogs", &IoCounts::analogs},
}};

void makeIoFiles(const std::filesystem::path& tree, const IoCounts& counts, const IoFile& file) {
    for (int number = 1; number <= counts.*file.count; ++number) {
        Attribute(tree / file.group / std::to_string(number) / file.name).create(file.value);
    }
}

bool counts(const std::string& edge, int value) {
    return edge == "both" || edge == (value == 1 ? "rising" : "falling");
}

}  // namespace

Board::Board(std::filesystem::path directory, Type boardType)
    : tree(std::move(directory)),
      spare(tree.parent_path() / ("." + tree.filename().string() + ".pulled")),
      type(boardType) {}

void Board::make(const IoCounts& counts) const {
    if (isThere()) {
        throw Error(tree.string() + " is there already");
    }
    std::filesystem::remove_all(spare);
    std::filesystem::create_directories(spare);
    std::ofstream info(spare / "info_io");
    for (const auto& [name, count] : INFO_LINES) {
        info << name << ' ' << counts.*count << '\n';
    }
    for (const IoFile& file : IO_FILES) {
        makeIoFiles(spare, counts, file);
    }
    makeIoFiles(spare, counts, type == Type::IO_BOARD ? PULLUP : ENABLE);
    if (type == Type::IO_BOARD) {
        for (const SingleFile& file : IO_BOARD_FILES) {
            Attribute(spare / file.name).create(file.value);
        }
    }
    info.close();
    restore();
}

bool Board::isThere() const {
    return std::filesystem::is_directory(tree);
}

IoCounts Board::counts() const {
    std::ifstream info(tree / "info_io");
    if (!info.is_open()) {
        throw Error("no board at " + tree.string());
    }
    IoCounts counts;
    int number = 0;
    for (std::string word; info >> word >> number;) {
        for (const auto& [name, count] : INFO_LINES) {
            if (word == name) {
                counts.*count = number;
            }
        }
    }
    return counts;
}

void Board::pull() const {
    if (!isThere()) {
        throw Error("no board at " + tree.string());
    }
    std::filesystem::remove_all(spare);
    std::filesystem::copy(tree, spare, std::filesystem::copy_options::recursive);
    auto gone = spare;
    gone.replace_extension("gone");
    std::filesystem::rename(tree, gone);
    std::filesystem::remove_all(gone);
}

void Board::restore() const {
    if (!std::filesystem::is_directory(spare)) {
        throw Error("no board has been pulled from " + tree.string());
    }
    if (isThere()) {
        throw Error(tree.string() + " is there already");
    }
    std::filesystem::rename(spare, tree);
}

Attribute Board::relay(int number) const {
    return at("relays/" + std::to_string(number) + "/value");
}

Attribute Board::input(int number) const {
    return Attribute(inputDirectory(number) / "value");
}

Attribute Board::counter(int number) const {
    return Attribute(inputDirectory(number) / "counter");
}

Attribute Board::analog(int number) const {
    return at("analogs/" + std::to_string(number) + "/value");
}

void Board::setInput(int number, int value) const {
    if (value != 0 && value != 1) {
        throw Error("an input is 0 or 1, not " + std::to_string(value));
    }
    const Lock lock(inputDirectory(number));
    if (input(number).number() != value) {
        changeInput(number, value);
    }
}

int Board::toggleInput(int number) const {
    const Lock lock(inputDirectory(number));
    const int value = input(number).number() == 0 ? 1 : 0;
    changeInput(number, value);
    return value;
}

void Board::changeInput(int number, int value) const {
    const Attribute edge(inputDirectory(number) / "counter_edge");
    if (sim::counts(edge.text(), value)) {
        counter(number).set(counter(number).number() + 1);
    }
    input(number).set(value);
}

Attribute Board::at(const std::string& file) const {
    return Attribute(tree / file);
}

std::filesystem::path Board::inputDirectory(int number) const {
    return tree / "inputs" / std::to_string(number);
}

}  // namespace sim
