// SPDX-License-Identifier: MIT
#pragma once

/// The order of initialisation before main().
namespace StartOrder {

/// The earliest priority that is not the compiler's own. The library's constants take it: in a
/// program that is linked with the static library, global objects may use them in their
/// constructors.
///
///     const std::string Server::DBUS_SERVICE_NAME [[gnu::init_priority(StartOrder::CONSTANTS)]] =
///         BusContract::SERVICE_NAME;
inline constexpr int CONSTANTS = 101;

}  // namespace StartOrder
