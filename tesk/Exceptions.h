// SPDX-License-Identifier: MIT
#pragma once

#include <stdexcept>

namespace tesk {

/// Root of the exception family. The text given at construction is what `what()` returns.
class [[gnu::visibility("default")]] Exception : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

/// Something looked up by name or number does not exist.
class [[gnu::visibility("default")]] NotFoundException : public Exception {
 public:
    using Exception::Exception;
};

/// A value or index given by the caller is out of its range.
class [[gnu::visibility("default")]] InvalidArgumentsException : public Exception {
 public:
    using Exception::Exception;
};

/// The operation does not exist for this type of register.
class [[gnu::visibility("default")]] UnsupportedException : public Exception {
 public:
    using Exception::Exception;
};

/// A file, a device or the bus failed.
class [[gnu::visibility("default")]] InputOutputException : public Exception {
 public:
    using Exception::Exception;
};

/// The object is in a state that does not allow the operation.
class [[gnu::visibility("default")]] InvalidStateException : public Exception {
 public:
    using Exception::Exception;
};

/// Something with this name is already there.
class [[gnu::visibility("default")]] AlreadyExistsException : public Exception {
 public:
    using Exception::Exception;
};

/// A text does not follow its format.
class [[gnu::visibility("default")]] ParseException : public Exception {
 public:
    using Exception::Exception;
};

}  // namespace tesk
