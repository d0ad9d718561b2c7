// SPDX-License-Identifier: MIT
#include "support/KeptFile.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <thread>
#include <vector>

#include "Build.h"
#include "CapturedLog.h"
#include "HostSysfs.h"
#include "TemporaryDirectory.h"
#include "support/FileDescriptor.h"
#include "support/ValueFile.h"

namespace {

namespace fs = std::filesystem;

bool isOpen(const std::string& path) {
    const auto all = openAttributes();
    return std::any_of(all.begin(), all.end(), [&](const OpenFile& f) { return f.path == path; });
}

/// A soft limit of descriptors, until it goes.
class DescriptorLimit {
 public:
    explicit DescriptorLimit(rlim_t most) {
        ::getrlimit(RLIMIT_NOFILE, &before);
        const rlimit lower{most, before.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &lower);
    }
    ~DescriptorLimit() { ::setrlimit(RLIMIT_NOFILE, &before); }
    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;

 private:
    rlimit before{};
};

/// Whether a file is open between reads.
bool isKept(KeptFile& file) {
    return file.read([](const FileDescriptor& /*file*/) { return true; });
}

void sendPacketToOneself() {
    const FileDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(9);
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(::sendto(socket.get(), "", 1, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to),
              1)
        << std::strerror(errno);
}

/// What a read gives: a value, or an error's text.
std::string resultOf(const std::function<int()>& read) {
    try {
        return std::to_string(read());
    } catch (const std::exception& e) {
        return e.what();
    }
}

/// Has every read of a descriptor fail, as the kernel has it once the attribute is gone.
void spoil(int fd) {
    const FileDescriptor writeOnly(::open("/dev/null", O_WRONLY | O_CLOEXEC));
    ASSERT_EQ(::dup2(writeOnly.get(), fd), fd) << std::strerror(errno);
}

class KeptFileTest : public testing::Test {
 protected:
    static const std::vector<std::string>& attributes() {
        static const auto& found = *new std::vector<std::string>(integerAttributes());
        return found;
    }
    static const std::string& attribute(std::size_t place) { return attributes().at(place); }

    CapturedLog log;
};

TEST_F(KeptFileTest, AnAttributeIsOpenedOnceAndStaysOpenUntilTheOwnerGoes) {
    {
        KeptFile kept;
        EXPECT_FALSE(isOpen(attribute(0)));
        const int value = ValueFile::read(attribute(0));
        EXPECT_EQ(ValueFile::read(attribute(0), kept), value);
        const auto open = openAttributes();
        ASSERT_EQ(open.size(), 1);
        EXPECT_EQ(open.front().path, attribute(0));
        EXPECT_EQ(ValueFile::read(attribute(0), kept), value);
        EXPECT_EQ(openAttributes().size(), 1);
        EXPECT_EQ(openAttributes().front().fd, open.front().fd);
    }
    EXPECT_FALSE(isOpen(attribute(0)));
}

TEST_F(KeptFileTest, AKeptAttributeTellsItsPresentValue) {
    const std::string packets = HOST_SYSFS + "/devices/virtual/net/lo/statistics/rx_packets";
    KeptFile kept;
    for (int i = 0; i < 100; ++i) {
        const int before = ValueFile::read(packets, kept);
        sendPacketToOneself();
        const int after = ValueFile::read(packets, kept);
        EXPECT_GT(after, before);
        EXPECT_LE(after, ValueFile::read(packets));
    }
    EXPECT_TRUE(isOpen(packets));
}

TEST_F(KeptFileTest, AFileElsewhereIsOpenedAnewForEachRead) {
    const TemporaryDirectory directory;
    const std::string path = directory.file("value", "1");
    KeptFile kept;
    EXPECT_EQ(ValueFile::read(path, kept), 1);
    directory.file("new", "2");
    fs::rename(directory.path() / "new", path);
    EXPECT_EQ(ValueFile::read(path, kept), 2);
    fs::remove(path);
    EXPECT_THROW(ValueFile::read(path, kept), std::exception);
    directory.file("value", "3");
    EXPECT_EQ(ValueFile::read(path, kept), 3);
}

TEST_F(KeptFileTest, AnAttributeBehindASymbolicLinkIsOpenedAnewForEachRead) {
    const TemporaryDirectory directory;
    const std::string link = directory.path() / "link";
    fs::create_symlink(attribute(0), link);
    KeptFile kept;
    EXPECT_EQ(ValueFile::read(link, kept), ValueFile::read(attribute(0)));
    EXPECT_FALSE(isOpen(attribute(0)));
    fs::remove(link);
    EXPECT_THROW(ValueFile::read(link, kept), std::exception);
}

TEST_F(KeptFileTest, AnAttributeWithoutANumberIsNotKept) {
    const std::string text = HOST_SYSFS + "/devices/virtual/net/lo/operstate";
    KeptFile kept;
    EXPECT_EQ(ValueFile::read(text, kept), 0);
    EXPECT_FALSE(isOpen(text));
    EXPECT_THAT(log.lines(), testing::IsEmpty());
}

TEST_F(KeptFileTest, ADescriptorThatFailsIsClosedAndTheFileOpenedAnew) {
    KeptFile kept;
    const int value = ValueFile::read(attribute(0), kept);
    const int fd = openAttributes().front().fd;
    spoil(fd);
    EXPECT_FALSE(isOpen(attribute(0)));
    EXPECT_EQ(ValueFile::read(attribute(0), kept), value);
    EXPECT_TRUE(isOpen(attribute(0)));
    EXPECT_EQ(ValueFile::read(attribute(0), kept), value);
    EXPECT_THAT(log.lines(), testing::IsEmpty());
}

TEST_F(KeptFileTest, NoMoreThanHalfOfTheDescriptorsAreKept) {
    const DescriptorLimit limit(64);
    std::deque<KeptFile> kept(100);
    for (std::size_t i = 0; i < kept.size(); ++i) {
        ValueFile::read(attribute(i), kept[i]);
        EXPECT_EQ(openAttributes().size(), std::min<std::size_t>(i + 1, 32));
    }
}

TEST_F(KeptFileTest, TheLongestUnusedDescriptorIsClosedFirst) {
    constexpr std::size_t MOST = 16;
    const DescriptorLimit limit(2 * MOST);
    std::deque<KeptFile> kept(MOST + 1);
    for (std::size_t place = 0; place < MOST; ++place) {
        ValueFile::read(attribute(place), kept[place]);
    }
    ValueFile::read(attribute(0), kept[0]);
    ValueFile::read(attribute(MOST), kept[MOST]);
    for (std::size_t place = 0; place <= MOST; ++place) {
        EXPECT_EQ(isOpen(attribute(place)), place != 1) << place;
    }
}

/// Paths for random steps: attributes, and what cannot be read as one.
std::vector<std::string> paths(const std::vector<std::string>& attributes) {
    constexpr std::size_t MOST = 300;
    std::vector<std::string> all(
        attributes.begin(),
        attributes.begin() + static_cast<long>(std::min(attributes.size(), MOST)));
    for (const char* const other : {"/kernel", "/kernel/missing", "/kernel/missing/value",
                                    "/devices/virtual/net/lo/operstate"}) {
        all.push_back(HOST_SYSFS + other);
    }
    return all;
}

/// Reads files at random, kept and the plain way, while descriptors fail, files are forgotten and
/// limits change.
class RandomSteps {
 public:
    explicit RandomSteps(const std::vector<std::string>& attributes)
        : files(paths(attributes)), kept(files.size()) {
        forgetAll();
    }

    void step() {
        disturb();
        const std::size_t place = below(files.size());
        const std::string& path = files[place];
        foundOpen += isKept(*kept[place]) ? 1 : 0;
        const auto plain = [&] { return resultOf([&] { return ValueFile::read(path); }); };
        const auto before = plain();
        const auto found = resultOf([&] { return ValueFile::read(path, *kept[place]); });
        // The kernel itself may have changed the value meanwhile.
        if (plain() == before) {
            ASSERT_EQ(found, before) << path;
        }
    }

    int foundOpen{0};
    int spoiled{0};

 private:
    void forgetAll() { std::generate(kept.begin(), kept.end(), std::make_unique<KeptFile>); }

    std::size_t below(std::size_t end) {
        return std::uniform_int_distribution<std::size_t>(0, end - 1)(random);
    }

    void disturb() {
        switch (below(500)) {
            case 0:
                kept[below(kept.size())] = std::make_unique<KeptFile>();
                break;
            case 1:
                // The plain way could open nothing while more files are open than may be.
                forgetAll();
                limit.reset();
                limit.emplace(std::array<rlim_t, 4>{24, 40, 200, 1000}.at(below(4)));
                break;
            case 2: {
                const auto open = openAttributes();
                if (!open.empty()) {
                    spoil(open[below(open.size())].fd);
                    ++spoiled;
                }
                break;
            }
            default:
                break;
        }
    }

    std::vector<std::string> files;
    std::vector<std::unique_ptr<KeptFile>> kept;
    std::optional<DescriptorLimit> limit;
    std::mt19937 random{1};
};

TEST_F(KeptFileTest, GivesWhatThePlainWayGivesInRandomSteps) {
    constexpr int STEPS = SANITIZED || EMULATED ? 10'000 : 100'000;
    RandomSteps files(attributes());
    for (int i = 0; i < STEPS && !HasFatalFailure(); ++i) {
        files.step();
    }
    EXPECT_GT(files.foundOpen, STEPS / 10);
    EXPECT_GT(files.spoiled, STEPS / 1000);
}

TEST_F(KeptFileTest, SeveralThreadsMayReadTheSameFiles) {
    constexpr int STEPS = 20'000;
    const DescriptorLimit limit(32);
    std::deque<KeptFile> kept(20);
    std::vector<int> values;
    for (std::size_t place = 0; place < kept.size(); ++place) {
        values.push_back(ValueFile::read(attribute(place)));
    }
    const auto readAll = [&](unsigned seed) {
        std::mt19937 random{seed};
        for (int i = 0; i < STEPS; ++i) {
            const std::size_t place = random() % kept.size();
            ASSERT_EQ(ValueFile::read(attribute(place), kept[place]), values.at(place));
        }
    };
    std::thread other(readAll, 1);
    readAll(2);
    other.join();
    EXPECT_LE(openAttributes().size(), 16);
}

}  // namespace
