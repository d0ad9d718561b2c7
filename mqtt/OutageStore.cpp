// SPDX-License-Identifier: MIT
#include "OutageStore.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <utility>
#include <vector>

#include "support/FileDescriptor.h"

namespace fs = std::filesystem;

namespace {

/// Into how many files the bound is divided at least: the oldest one gives way as a whole.
constexpr std::size_t LEAST_SEGMENTS = 4;

constexpr const char* SUFFIX = ".batches";

std::size_t linesOf(const fs::path& path) {
    std::ifstream file(path);
    return static_cast<std::size_t>(std::count(std::istreambuf_iterator<char>(file), {}, '\n'));
}

std::string nameOf(std::uint64_t number) {
    std::string digits = std::to_string(number);
    digits.insert(0, 20 - std::min<std::size_t>(digits.size(), 20), '0');
    return digits + SUFFIX;
}

void removeFile(const fs::path& path) {
    std::error_code ignored;
    fs::remove(path, ignored);
}

std::string withoutEnd(std::string line) {
    line.pop_back();
    return line;
}

/// Appends a text to a file, wholly or not at all.
bool append(const fs::path& path, std::size_t size, const std::string& text) {
    const FileDescriptor file(
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR));
    std::size_t done = 0;
    while (file.isOpen() && done < text.size()) {
        const ssize_t written = ::pwrite(file.get(), text.data() + done, text.size() - done,
                                         static_cast<off_t>(size + done));
        if (written <= 0) {
            break;
        }
        done += static_cast<std::size_t>(written);
    }
    if (done == text.size() && file.isOpen() && ::fsync(file.get()) == 0) {
        return true;
    }
    std::error_code ignored;
    fs::resize_file(path, size, ignored);
    return false;
}

}  // namespace

OutageStore::OutageStore(fs::path directory, std::size_t memory, std::size_t files)
    : place(std::move(directory)),
      memoryLimit(memory),
      fileLimit(files),
      segmentLimit(std::min(memory, files / LEAST_SEGMENTS)) {
    if (!place.empty()) {
        findSegments();
    }
}

void OutageStore::findSegments() {
    std::vector<fs::path> paths;
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(place, ignored)) {
        if (entry.path().extension() == SUFFIX) {
            paths.push_back(entry.path());
        }
    }
    std::sort(paths.begin(), paths.end());
    for (const fs::path& path : paths) {
        const auto bytes = static_cast<std::size_t>(fs::file_size(path, ignored));
        segments.push_back({path, bytes, linesOf(path), false});
        segmentBytes += bytes;
        nextNumber = std::max<std::uint64_t>(nextNumber,
                                             std::strtoull(path.stem().c_str(), nullptr, 10) + 1);
    }
    dropOldSegments();
}

void OutageStore::push(const Batch& batch) {
    tail.push_back(batch.line() + "\n");
    tailBytes += tail.back().size();
    if (tailBytes > memoryLimit) {
        spill();
    }
}

/// Makes room in memory: by a file, or by what is oldest in memory.
void OutageStore::spill() {
    flush();
    while (tailBytes > memoryLimit) {
        tailBytes -= tail.front().size();
        tail.pop_front();
        ++droppedCount;
    }
}

void OutageStore::flush() {
    while (!place.empty() && !tail.empty() && writePart()) {
    }
}

/// Moves what is oldest in memory to a file, as much as one file takes.
///
/// @return false if nothing can be written
bool OutageStore::writePart() {
    Segment& segment = segmentFor(tail.front().size());
    std::string text;
    std::size_t lines = 0;
    for (const std::string& line : tail) {
        if (lines > 0 && segment.bytes + text.size() + line.size() > segmentLimit) {
            break;
        }
        text += line;
        ++lines;
    }
    if (!append(segment.path, segment.bytes, text)) {
        return false;
    }
    segment.bytes += text.size();
    segment.lines += lines;
    segmentBytes += text.size();
    tail.erase(tail.begin(), tail.begin() + static_cast<std::ptrdiff_t>(lines));
    tailBytes -= text.size();
    dropOldSegments();
    return true;
}

/// The file that takes this many bytes more.
OutageStore::Segment& OutageStore::segmentFor(std::size_t bytes) {
    if (segments.empty() || !segments.back().growing ||
        segments.back().bytes + bytes > segmentLimit) {
        segments.push_back({place / nameOf(nextNumber++), 0, 0, true});
    }
    return segments.back();
}

/// The newest file stays, however small the bound is: it has the newest batches.
void OutageStore::dropOldSegments() {
    while (segmentBytes > fileLimit && segments.size() > 1) {
        dropOldestSegment();
    }
}

void OutageStore::dropOldestSegment() {
    droppedCount += segments.front().lines;
    segmentBytes -= segments.front().bytes;
    removeFile(segments.front().path);
    segments.pop_front();
}

void OutageStore::loadOldest() {
    while (head.empty() && !segments.empty()) {
        headPath = segments.front().path;
        std::ifstream file(headPath);
        for (std::string line; std::getline(file, line);) {
            if (Batch::fromLine(line)) {
                head.push_back(line + "\n");
            } else {
                ++droppedCount;
            }
        }
        segmentBytes -= segments.front().bytes;
        segments.pop_front();
        if (head.empty()) {
            removeFile(headPath);
        }
    }
}

std::optional<Batch> OutageStore::oldest() {
    loadOldest();
    const std::deque<std::string>& lines = head.empty() ? tail : head;
    return lines.empty() ? std::nullopt : Batch::fromLine(withoutEnd(lines.front()));
}

void OutageStore::remove(const Batch& batch) {
    const std::optional<Batch> front = oldest();
    if (!front || front->sequence != batch.sequence || front->session != batch.session) {
        return;
    }
    if (head.empty()) {
        tailBytes -= tail.front().size();
        tail.pop_front();
        return;
    }
    head.pop_front();
    if (head.empty()) {
        removeFile(headPath);
    }
}

bool OutageStore::empty() const {
    return head.empty() && segments.empty() && tail.empty();
}
