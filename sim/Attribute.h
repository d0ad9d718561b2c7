// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <filesystem>
#include <string>

namespace sim {

/// A file with one value, a number or a word, as a kernel driver publishes it.
///
/// The kernel hands every reader a whole value. A regular file does so only if nobody ever shortens
/// it, and if its length, which a reader may see before or after the text, does not matter. So the
/// file has a fixed length: the value, blanks, and a line end. A new value is written over the old
/// one in one piece; a reader finds the old value or the new one, never nothing and never the half
/// of one, and inotify tells of one modification (IN_MODIFY) per change. (File systems in memory
/// copy the dozen bytes without a lock. On 64-bit processors the first eight characters come in one
/// piece; a reader has been seen to find a longer value mixed with the one before it.)
///
/// A client that truncates the file to its own value, as the service does, makes it shorter. It
/// gets its length back with the next value. One that is longer than the whole file is written
/// after the file has been filled with blanks, which is a modification of its own; only a reader
/// that is caught between the client's truncation and the end of that can find anything but a whole
/// value. inotify, too, merges a modification with the one before it if that has not been read yet.
class Attribute {
 public:
    /// The longest value there may be, in characters. All 32-bit numbers fit.
    static constexpr std::size_t LONGEST = 11;

    /// Touches nothing; the file may not be there yet.
    explicit Attribute(std::filesystem::path file);

    const std::filesystem::path& path() const { return place; }

    /// Makes the file and the directories above it.
    ///
    /// @throws Error the value is too long, or the file cannot be made
    void create(const std::string& value) const;
    void create(int value) const;

    /// Changes the value, as above. The file must be there.
    ///
    /// @throws Error the value is too long, or the file cannot be written
    void set(const std::string& value) const;
    void set(int value) const;

    /// The value without the blanks around it.
    ///
    /// @throws Error the file cannot be read
    std::string text() const;

    /// The value as a number; 0 when it is none.
    ///
    /// @throws Error the file cannot be read
    int number() const;

    /// Waits until the file holds a value, whoever writes it.
    ///
    /// @return whether it did within the time
    /// @throws Error the file cannot be read
    bool waitFor(const std::string& value, std::chrono::duration<double> time) const;

 private:
    std::filesystem::path place;
};

}  // namespace sim
