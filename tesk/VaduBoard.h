// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace tesk {

/// What the main board's system image says of itself.
class VaduBoard {
 public:
    /// The firmware version, as the image states it in os-release(5): `IMAGE_VERSION`, or
    /// `VERSION_ID` where there is none. "/etc/os-release" is read, or "/usr/lib/os-release" when
    /// the former does not exist; anew on every call.
    ///
    /// @return the text, without the quotes of the file
    /// @throws tesk::NotFoundException neither file exists, or the file states no version; names
    ///         the file
    static std::string readFwVersion();
};

}  // namespace tesk
