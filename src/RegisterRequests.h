// SPDX-License-Identifier: MIT
#pragma once

#include <Poco/Logger.h>
#include <gio/gio.h>

#include <string>

class RegisterMap;

/// The methods that the service offers on the registers of a map.
namespace RegisterRequests {

/// Carries out GetAddrsPerType, Write, Read, ReadList or GetParams.
///
/// @param map the registers
/// @param logger the map's
/// @param method the name of the method
/// @param parameters its arguments, of the types that the interface states; borrowed
/// @param reply set to the reply's tuple, a floating reference; left alone for an empty reply
/// @param error set to `G_DBUS_ERROR_UNKNOWN_METHOD` "Method %s not found" for any other name, and
///        to `G_DBUS_ERROR_FAILED` with the failure's own text for a failure; a failure without a
///        text leaves the error alone
void carryOut(const RegisterMap& map, Poco::Logger& logger, const std::string& method,
              GVariant* parameters, GVariant** reply, GError** error);

}  // namespace RegisterRequests
