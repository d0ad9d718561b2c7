// SPDX-License-Identifier: MIT
#pragma once

#include <gio/gio.h>

#include <string>

#include "ServiceError.h"

/// The name under which an error came over D-Bus; empty for an error that did not.
std::string busNameOf(const GError& error);

/// What has gone wrong with a call to the service.
ServiceError::Cause causeOf(const GError& error);
