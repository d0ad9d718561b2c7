// SPDX-License-Identifier: MIT
/// @file The texts of all messages but batches.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "HomeAssistant.h"
#include "Moment.h"
#include "Request.h"
#include "client/Labels.h"
#include "client/RegisterCache.h"

/// No message is longer.
constexpr std::size_t LONGEST_MESSAGE = std::size_t{128} * 1024;

/// The answer to a request.
///
/// @param error why the request was not carried out; empty if it was
std::string ackOf(const Request& request, const std::string& error);

/// Why the value of a register means nothing to people; empty if it means something. What the
/// service reads of a temperature sensor that is not there is a number like any other.
std::string faultOf(const CachedRegister& entry);

/// The value of a labelled register, as its label shows it, or the reason why there is none.
std::string valueOf(const CachedRegister& entry, const Label& label, const Moment& now);

/// Answers to a request of values, as few as their length allows. Each has its number and how many
/// there are.
///
/// @param entries the registers to tell of, in order
/// @param now as in Moment
std::vector<std::string> snapshotOf(const std::string& token,
                                    const std::vector<const CachedRegister*>& entries,
                                    const Moment& now);

/// What the device is and can do.
struct DeviceInfo {
    std::string device;
    std::string session;
    std::string boot;
    bool serviceRuns{false};
    std::size_t registers{0};
    std::string hash;    ///< Of all registers, as hashOf() gives it.
    std::string labels;  ///< As labelsText() gives it.
    AddressRanges writable;
    Entities entities;  ///< For Home Assistant; none without it.
};

/// @param dropped how many batches the store has dropped
std::string infoOf(const DeviceInfo& info, std::uint64_t dropped);

/// A hash of the fixed properties of all registers: the same as long as the map is.
std::string hashOf(const std::map<int, CachedRegister>& entries);

/// The labels as JSON; null when they are too long for one message.
std::string labelsText(const Labels& labels);
