// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <optional>
#include <string>

#include "Batch.h"

/// Keeps the batches of the time without a broker, in order, until they are acknowledged: the
/// newest in memory, older ones in files of a directory. Both are bounded: the oldest batches give
/// way, and are counted.
///
/// A file holds as much as the memory does, or a quarter of what may be in files if that is less,
/// but one batch at least. A file goes when all its batches are acknowledged, so after a crash some
/// batches are sent twice, and none is lost that was flushed.
class OutageStore {
 public:
    /// Finds what an earlier start has left.
    ///
    /// @param directory where files may be written; empty: memory only
    /// @param memory, files how many bytes may be kept there
    OutageStore(std::filesystem::path directory, std::size_t memory, std::size_t files);

    /// Adds the newest batch.
    void push(const Batch& batch);

    /// The oldest batch. It stays until it is removed.
    std::optional<Batch> oldest();

    /// Removes a batch that oldest() gave. If it has given way meanwhile, nothing happens.
    void remove(const Batch& batch);

    /// Writes what is in memory to files. Costs nothing if there is nothing in memory.
    void flush();

    /// Whether there is nothing left.
    bool empty() const;

    /// How many batches have given way, or could not be read again.
    std::uint64_t dropped() const { return droppedCount; }

 private:
    struct Segment {
        std::filesystem::path path;
        std::size_t bytes;
        std::size_t lines;
        bool growing;  ///< Whether more may be appended: no crash can have cut its last line off.
    };

    void findSegments();
    void loadOldest();
    void dropOldestSegment();
    void dropOldSegments();
    void spill();
    bool writePart();
    Segment& segmentFor(std::size_t bytes);

    std::filesystem::path place;
    std::size_t memoryLimit;
    std::size_t fileLimit;
    std::size_t segmentLimit;
    std::deque<Segment> segments;  ///< Of files not loaded; the oldest first.
    std::size_t segmentBytes{0};
    std::uint64_t nextNumber{1};
    std::deque<std::string> head;  ///< Lines of the oldest file, while it is sent.
    std::filesystem::path headPath;
    std::deque<std::string> tail;  ///< Lines that are in no file.
    std::size_t tailBytes{0};
    std::uint64_t droppedCount{0};
};
