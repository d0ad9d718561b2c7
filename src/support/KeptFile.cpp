// SPDX-License-Identifier: MIT
#include "KeptFile.h"

#include <linux/magic.h>
#include <sys/resource.h>
#include <sys/vfs.h>

#include <algorithm>
#include <climits>
#include <filesystem>
#include <mutex>
#include <vector>

/// What all kept files share.
class KeptFiles {
 public:
    static KeptFiles& instance() {
        // Never destroyed: the notifier's thread reads files until the process is gone.
        static auto& files = *new KeptFiles;  // NOLINT(*-avoid-non-const-global-variables)
        return files;
    }

    /// The time of a use. Two threads may get the same one.
    std::uint32_t now() {
        const std::uint32_t time = clock.load(std::memory_order_relaxed);
        clock.store(time + 1, std::memory_order_relaxed);
        return time;
    }

    /// Makes room for one more descriptor and counts it.
    ///
    /// @return false if there may not be one more
    bool admit(KeptFile& file);

    /// Counts a descriptor less.
    void dismiss();

    void forget(KeptFile& file);

 private:
    static std::size_t mostDescriptors();
    bool closeOldest();

    std::atomic<std::uint32_t> clock{0};
    std::mutex mutex;
    std::vector<KeptFile*> files;
    /// How many descriptors are kept, or in the hands of a reader.
    std::size_t count{0};
};

namespace {

bool isInSysfs(const FileDescriptor& file) {
    struct statfs status {};
    return ::fstatfs(file.get(), &status) == 0 && status.f_type == SYSFS_MAGIC;
}

bool hasNoSymbolicLink(const std::string& path) {
    std::error_code ignored;
    return std::filesystem::canonical(path, ignored).native() == path;
}

}  // namespace

std::size_t KeptFiles::mostDescriptors() {
    rlimit limit{};
    // A limit that is none still leaves no more numbers than these.
    constexpr rlim_t MOST_NUMBERS = INT_MAX;
    return ::getrlimit(RLIMIT_NOFILE, &limit) == 0
               ? static_cast<std::size_t>(std::min(limit.rlim_cur, MOST_NUMBERS) / 2)
               : 0;
}

bool KeptFiles::admit(KeptFile& file) {
    const std::lock_guard<std::mutex> guard(mutex);
    const std::size_t most = mostDescriptors();
    while (count >= most) {
        if (!closeOldest()) {
            return false;
        }
    }
    ++count;
    if (!file.isListed) {
        files.push_back(&file);
        file.isListed = true;
    }
    return true;
}

/// @return false if there is none that nobody is reading
bool KeptFiles::closeOldest() {
    const std::uint32_t time = clock.load(std::memory_order_relaxed);
    KeptFile* oldest = nullptr;
    std::uint32_t oldestAge = 0;
    for (KeptFile* const file : files) {
        if (file->descriptor.load(std::memory_order_relaxed) == KeptFile::NONE) {
            continue;
        }
        // Unsigned: right also after the clock has run over.
        const std::uint32_t age = time - file->lastUse.load(std::memory_order_relaxed);
        if (oldest == nullptr || age > oldestAge) {
            oldest = file;
            oldestAge = age;
        }
    }
    if (oldest == nullptr) {
        return false;
    }
    const FileDescriptor closed(oldest->descriptor.exchange(KeptFile::NONE));
    count -= closed.isOpen() ? 1 : 0;
    return true;
}

void KeptFiles::dismiss() {
    const std::lock_guard<std::mutex> guard(mutex);
    --count;
}

void KeptFiles::forget(KeptFile& file) {
    const std::lock_guard<std::mutex> guard(mutex);
    const FileDescriptor closed(file.descriptor.exchange(KeptFile::NONE));
    count -= closed.isOpen() ? 1 : 0;
    files.erase(std::find(files.begin(), files.end(), &file));
}

KeptFile::~KeptFile() {
    if (isListed) {
        KeptFiles::instance().forget(*this);
    }
}

void KeptFile::tryToKeep(FileDescriptor file, const std::string& path) {
    if (kind == Kind::UNKNOWN) {
        kind = isInSysfs(file) && hasNoSymbolicLink(path) ? Kind::ATTRIBUTE : Kind::REOPENED;
    }
    if (kind == Kind::ATTRIBUTE && KeptFiles::instance().admit(*this)) {
        putBack(std::move(file));
    }
}

void KeptFile::putBack(FileDescriptor file) {
    lastUse.store(KeptFiles::instance().now(), std::memory_order_relaxed);
    // Another thread may have opened the file meanwhile and kept its descriptor.
    const FileDescriptor other(descriptor.exchange(file.release()));
    if (other.isOpen()) {
        KeptFiles::instance().dismiss();
    }
}

void KeptFile::drop(FileDescriptor file) {
    file.reset();
    // The path may lead to another file by now.
    kind = Kind::UNKNOWN;
    KeptFiles::instance().dismiss();
}
