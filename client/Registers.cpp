// SPDX-License-Identifier: MIT
#include "Registers.h"

#include <algorithm>
#include <iterator>

#include "Failure.h"
#include "tesk/Exceptions.h"

namespace {

using Addresses = std::vector<int>::const_iterator;

/// Appends the readings of a part of a list. One register that cannot be read fails a whole call,
/// so a part that fails is read in halves.
void readPart(  // NOLINT(misc-no-recursion): as deep as the list can be halved
    IoMapping& io, Addresses first, Addresses last, std::vector<Reading>& readings) {
    try {
        for (const int value : io.readValues({first, last})) {
            readings.push_back({value, {}});
        }
    } catch (const tesk::InputOutputException& e) {
        if (!isRefusal(e)) {
            throw;
        }
        if (last - first == 1) {
            readings.push_back({0, reasonOf(e)});
            return;
        }
        const auto middle = first + (last - first) / 2;
        readPart(io, first, middle, readings);
        readPart(io, middle, last, readings);
    }
}

}  // namespace

std::vector<int> addressesOf(IoMapping& io, const std::vector<RegisterType>& types) {
    std::vector<int> addresses;
    const auto add = [&io, &addresses](RegisterType type) {
        const std::vector<int> found = io.getAddrsPerType(type);
        addresses.insert(addresses.end(), found.begin(), found.end());
    };
    const std::vector<RegisterType>& wanted = types.empty() ? getAllTypes() : types;
    std::for_each(wanted.begin(), wanted.end(), add);
    std::sort(addresses.begin(), addresses.end());
    addresses.erase(std::unique(addresses.begin(), addresses.end()), addresses.end());
    return addresses;
}

RegisterInfo infoOf(IoMapping& io, int address) {
    try {
        const auto [type, index, maximum] = io.getParams(address);
        return {address, type, index, static_cast<unsigned int>(maximum)};
    } catch (const tesk::InputOutputException& e) {
        if (!isRefusal(e)) {
            throw;
        }
        throw Failure("register " + std::to_string(address) + ": " + reasonOf(e));
    }
}

std::vector<RegisterInfo> infosOf(IoMapping& io, const std::vector<int>& addresses) {
    std::vector<RegisterInfo> infos;
    std::transform(addresses.begin(), addresses.end(), std::back_inserter(infos),
                   [&io](int address) { return infoOf(io, address); });
    return infos;
}

std::vector<Reading> readEach(IoMapping& io, const std::vector<int>& addresses) {
    std::vector<Reading> readings;
    if (!addresses.empty()) {
        readPart(io, addresses.begin(), addresses.end(), readings);
    }
    return readings;
}

std::string nameOf(IoMapping& io, int address) {
    std::string name = "register " + std::to_string(address);
    try {
        const auto [type, index, maximum] = io.getParams(address);
        return name + " (" + getTypeName(type) + " " + std::to_string(index) + ")";
    } catch (const tesk::InputOutputException&) {
        return name;
    }
}
