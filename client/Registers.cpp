// SPDX-License-Identifier: MIT
#include "Registers.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <optional>

#include "Failure.h"
#include "tesk/Exceptions.h"

namespace {

using Addresses = std::vector<int>;

/// A temperature sensor may take 0.75 s. So many of them stay well within the time-out of a call.
constexpr std::size_t MOST_TOGETHER = 5;

/// What the value of a temperature sensor is when there is no such sensor.
constexpr int SENSOR_MISSING = 4096;

/// Which registers there are: what is known of them before, or what the service says. The service
/// is asked once, and only if need be.
class Catalogue {
 public:
    explicit Catalogue(IoMapping& service) : io(service) {}
    Catalogue(IoMapping& service, const std::vector<RegisterInfo>& infos)
        : io(service), all(Addresses()), temperatures(Addresses()) {
        for (const RegisterInfo& info : infos) {
            all->push_back(info.address);
            if (info.type == RegisterType::SENSOR_TEMP_VALUE) {
                temperatures->push_back(info.address);
            }
        }
        std::sort(all->begin(), all->end());
        std::sort(temperatures->begin(), temperatures->end());
    }

    bool has(int address) { return isIn(all, {}, address); }
    bool isTemperature(int address) {
        return isIn(temperatures, {RegisterType::SENSOR_TEMP_VALUE}, address);
    }

 private:
    bool isIn(std::optional<Addresses>& list, const std::vector<RegisterType>& types, int address) {
        if (!list) {
            list = addressesOf(io, types);
        }
        return std::binary_search(list->begin(), list->end(), address);
    }

    IoMapping& io;
    std::optional<Addresses> all;
    std::optional<Addresses> temperatures;
};

template <std::size_t COUNT>
bool isOneOf(const std::array<RegisterType, COUNT>& types, RegisterType type) {
    return std::find(types.begin(), types.end(), type) != types.end();
}

/// Calls the service.
///
/// @return the reason why it refuses, or nothing
template <typename Call>
std::string refusalOf(const Call& call) {
    try {
        call();
    } catch (const tesk::InputOutputException& e) {
        if (!isRefusal(e)) {
            throw;
        }
        return reasonOf(e);
    }
    return {};
}

/// Appends the values of registers, or else nothing.
///
/// @return the reason why the service refuses the list, or nothing
std::string readList(IoMapping& io, const Addresses& addresses, std::vector<Reading>& readings) {
    return refusalOf([&] {
        for (const int value : io.readValues(addresses)) {
            readings.push_back({value, {}});
        }
    });
}

Reading unknownReading(int address) {
    Reading reading{0, "address '" + std::to_string(address) + "' not found"};
    reading.unknown = true;
    return reading;
}

void readByHalves(IoMapping& io, const Addresses& addresses, std::vector<Reading>& readings);

/// Appends the readings of registers whose list is refused, by two shorter lists.
void readHalves(  // NOLINT(misc-no-recursion): as deep as the list can be halved
    IoMapping& io, const Addresses& addresses, std::vector<Reading>& readings) {
    const auto middle = addresses.begin() + static_cast<std::ptrdiff_t>(addresses.size() / 2);
    readByHalves(io, {addresses.begin(), middle}, readings);
    readByHalves(io, {middle, addresses.end()}, readings);
}

/// Appends the readings of registers. One register that cannot be read fails a whole call, so a
/// list that fails is read in halves.
void readByHalves(  // NOLINT(misc-no-recursion): as deep as the list can be halved
    IoMapping& io, const Addresses& addresses, std::vector<Reading>& readings) {
    if (addresses.empty()) {
        return;
    }
    const std::string reason = readList(io, addresses, readings);
    if (reason.empty()) {
        return;
    }
    if (addresses.size() == 1) {
        readings.push_back({0, reason});
        return;
    }
    readHalves(io, addresses, readings);
}

/// Reads registers none of which takes long. Unknown addresses are sorted out before a list is
/// halved: each list that is refused is a line in the log of the service.
std::vector<Reading> readQuick(IoMapping& io, const Addresses& addresses, Catalogue& catalogue) {
    std::vector<Reading> readings;
    if (addresses.size() < 2) {
        readByHalves(io, addresses, readings);
        return readings;
    }
    if (readList(io, addresses, readings).empty()) {
        return readings;
    }
    Addresses known;
    std::copy_if(addresses.begin(), addresses.end(), std::back_inserter(known),
                 [&catalogue](int address) { return catalogue.has(address); });
    if (known.size() == addresses.size()) {
        readHalves(io, addresses, readings);
        return readings;
    }
    std::vector<Reading> found;
    readByHalves(io, known, found);
    auto next = found.cbegin();
    for (const int address : addresses) {
        readings.push_back(catalogue.has(address) ? *next++ : unknownReading(address));
    }
    return readings;
}

Reading readAlone(IoMapping& io, int address) {
    Reading reading{0, {}};
    reading.error = refusalOf([&] { reading.value = io.readValue(address); });
    return reading;
}

/// Reads registers; the temperatures each by itself, if that is asked for.
std::vector<Reading> readEach(IoMapping& io, const Addresses& addresses, Catalogue& catalogue,
                              bool temperaturesAlone) {
    const auto isAlone = [&catalogue, temperaturesAlone](int address) {
        return temperaturesAlone && catalogue.isTemperature(address);
    };
    Addresses quick;
    std::copy_if(addresses.begin(), addresses.end(), std::back_inserter(quick),
                 [&isAlone](int address) { return !isAlone(address); });
    const std::vector<Reading> found = readQuick(io, quick, catalogue);
    std::vector<Reading> readings;
    auto next = found.cbegin();
    for (const int address : addresses) {
        Reading reading = isAlone(address) ? readAlone(io, address) : *next++;
        // It may have been the only quick one.
        if (!reading.error.empty() && addresses.size() > 1 && !isAlone(address) &&
            !catalogue.has(address)) {
            reading = unknownReading(address);
        }
        reading.missing = reading.error.empty() && reading.value == SENSOR_MISSING &&
                          catalogue.isTemperature(address);
        readings.push_back(reading);
    }
    return readings;
}

}  // namespace

bool isMissing(RegisterType type, int value) {
    return type == RegisterType::SENSOR_TEMP_VALUE && value == SENSOR_MISSING;
}

bool isAnnounced(RegisterType type) {
    constexpr std::array ANNOUNCED{RegisterType::RELAY, RegisterType::INPUT_DIGITAL,
                                   RegisterType::PULLUP, RegisterType::CTS, RegisterType::VIRTUAL};
    return isOneOf(ANNOUNCED, type);
}

std::string writeRefusalOf(RegisterType type) {
    constexpr std::array OF_MAIN_BOARD{RegisterType::SENSOR_TEMP_VALUE,
                                       RegisterType::SENSOR_TEMP_ADDRESS_LOWER,
                                       RegisterType::SENSOR_TEMP_ADDRESS_HIGHER,
                                       RegisterType::CPU_TEMP,
                                       RegisterType::UPTIME,
                                       RegisterType::HW_TYPE,
                                       RegisterType::FW_VERSION};
    constexpr std::array OF_OTHERS{RegisterType::INPUT_DIGITAL,
                                   RegisterType::INPUT_ANALOG,
                                   RegisterType::CTS,
                                   RegisterType::DEVICE_CURRENT,
                                   RegisterType::DEVICE_VOLTAGE,
                                   RegisterType::COUNT_SERIALS,
                                   RegisterType::COUNT_RELAYS,
                                   RegisterType::COUNT_OUTPUTS,
                                   RegisterType::COUNT_INPUTS,
                                   RegisterType::COUNT_ANALOG_OUTPUTS,
                                   RegisterType::COUNT_ANALOG_INPUTS,
                                   RegisterType::PD5_DETECTED};
    if (type == RegisterType::RESERVED) {
        return "this register is reserved. No writes are allowed";
    }
    if (isOneOf(OF_MAIN_BOARD, type)) {
        return "write not supported with type '" + getTypeName(type) + "'";
    }
    return isOneOf(OF_OTHERS, type) ? "write not supported for IO type " + getTypeName(type) : "";
}

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

std::optional<RegisterInfo> findInfo(IoMapping& io, int address) {
    std::optional<RegisterInfo> info;
    refusalOf([&] {
        const auto [type, index, maximum] = io.getParams(address);
        info = RegisterInfo{address, type, index, static_cast<unsigned int>(maximum)};
    });
    return info;
}

std::vector<RegisterInfo> infosOf(IoMapping& io, const std::vector<int>& addresses) {
    std::vector<RegisterInfo> infos;
    std::transform(addresses.begin(), addresses.end(), std::back_inserter(infos),
                   [&io](int address) { return infoOf(io, address); });
    return infos;
}

std::vector<Reading> readEach(IoMapping& io, const std::vector<int>& addresses) {
    Catalogue catalogue(io);
    return readEach(io, addresses, catalogue, addresses.size() > MOST_TOGETHER);
}

std::vector<Reading> readKnown(IoMapping& io, const std::vector<RegisterInfo>& infos) {
    Catalogue catalogue(io, infos);
    Addresses addresses;
    std::transform(infos.begin(), infos.end(), std::back_inserter(addresses),
                   [](const RegisterInfo& info) { return info.address; });
    return readEach(io, addresses, catalogue, true);
}

std::string nameOf(IoMapping& io, int address) {
    try {
        return nameOf(address, findInfo(io, address));
    } catch (const tesk::InputOutputException&) {
        return nameOf(address, std::nullopt);
    }
}

std::string nameOf(int address, const std::optional<RegisterInfo>& info) {
    const std::string name = "register " + std::to_string(address);
    return info ? name + " (" + getTypeName(info->type) + " " + std::to_string(info->index) + ")"
                : name;
}
