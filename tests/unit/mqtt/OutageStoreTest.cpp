// SPDX-License-Identifier: MIT
#include "mqtt/OutageStore.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "TemporaryDirectory.h"

namespace {

constexpr std::size_t MEMORY = 1024 * 1024;
constexpr std::size_t FILES = 16 * MEMORY;

using testing::ElementsAre;
using testing::IsEmpty;

Batch batch(std::uint64_t sequence) {
    Batch result;
    result.sequence = sequence;
    result.session = "s";
    result.boot = "b";
    result.changes = "[" + std::string(80, '1') + "]";
    return result;
}

class OutageStoreTest : public testing::Test {
 protected:
    static void push(OutageStore& store, std::uint64_t first, std::uint64_t last) {
        for (auto sequence = first; sequence <= last; ++sequence) {
            store.push(batch(sequence));
        }
    }

    /// Takes everything out.
    static std::vector<std::uint64_t> drain(OutageStore& store) {
        std::vector<std::uint64_t> found;
        while (const auto oldest = store.oldest()) {
            found.push_back(oldest->sequence);
            store.remove(*oldest);
        }
        EXPECT_TRUE(store.empty());
        return found;
    }

    std::ptrdiff_t files() const {
        const std::filesystem::directory_iterator all(directory.path());
        return std::distance(begin(all), end(all));
    }

    /// Whether numbers follow each other without a gap.
    static bool isWhole(const std::vector<std::uint64_t>& numbers) {
        return std::adjacent_find(numbers.begin(), numbers.end(),
                                  [](auto a, auto b) { return b != a + 1; }) == numbers.end();
    }

    TemporaryDirectory directory;
};

TEST_F(OutageStoreTest, BatchesComeInOrderAndStayUntilTheyAreRemoved) {
    OutageStore store("", MEMORY, FILES);
    push(store, 1, 3);
    EXPECT_EQ(store.oldest()->sequence, 1U);
    EXPECT_EQ(store.oldest()->sequence, 1U);
    EXPECT_THAT(drain(store), ElementsAre(1, 2, 3));
}

TEST_F(OutageStoreTest, InMemoryTheOldestGiveWayAndAreCounted) {
    OutageStore store("", 1000, FILES);
    push(store, 1, 100);
    const auto left = drain(store);
    EXPECT_EQ(left.back(), 100U);
    EXPECT_TRUE(isWhole(left));
    EXPECT_EQ(store.dropped() + left.size(), 100U);
    EXPECT_GT(left.size(), 5U);
}

TEST_F(OutageStoreTest, WhatMemoryDoesNotHoldGoesToFiles) {
    OutageStore store(directory.path(), 1000, 1'000'000);
    push(store, 1, 1000);
    EXPECT_GT(files(), 10);
    const auto left = drain(store);
    EXPECT_EQ(left.size(), 1000U);
    EXPECT_TRUE(isWhole(left));
    EXPECT_EQ(files(), 0) << "what was removed leaves nothing behind";
    EXPECT_EQ(store.dropped(), 0U);
}

TEST_F(OutageStoreTest, FilesAreBoundedToo) {
    OutageStore store(directory.path(), 1000, 10'000);
    push(store, 1, 1000);
    std::uintmax_t bytes = 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
        bytes += entry.file_size();
    }
    EXPECT_LE(bytes, 10'000U);
    const auto left = drain(store);
    EXPECT_EQ(left.back(), 1000U);
    EXPECT_TRUE(isWhole(left));
    EXPECT_EQ(store.dropped() + left.size(), 1000U) << "the count is exact";
}

TEST_F(OutageStoreTest, TheNewestStayEvenIfFilesMayHoldNoMoreThanTheMemory) {
    for (const std::size_t limit : {5000U, 1100U}) {
        const TemporaryDirectory place;
        OutageStore store(place.path(), 5000, limit);
        push(store, 1, 200);
        store.flush();
        const auto left = drain(store);
        ASSERT_FALSE(left.empty()) << limit;
        EXPECT_EQ(left.back(), 200U) << limit;
        EXPECT_TRUE(isWhole(left)) << limit;
        EXPECT_EQ(store.dropped() + left.size(), 200U) << limit;
        EXPECT_GT(left.size() * 100, limit / 2) << "the room is used";
    }
}

TEST_F(OutageStoreTest, ABatchThatIsLargerThanAllFilesStaysAsTheNewest) {
    OutageStore store(directory.path(), MEMORY, 100);
    push(store, 1, 2);
    store.flush();
    EXPECT_THAT(drain(store), ElementsAre(2));
    EXPECT_EQ(store.dropped(), 1U);
}

TEST_F(OutageStoreTest, TheNextStartFindsWhatWasFlushed) {
    {
        OutageStore store(directory.path(), MEMORY, FILES);
        push(store, 1, 3);
        store.flush();
        push(store, 4, 5);
        store.flush();
        EXPECT_EQ(files(), 1) << "flushing now and then makes no file each time";
    }
    OutageStore again(directory.path(), MEMORY, FILES);
    push(again, 6, 6);
    EXPECT_THAT(drain(again), ElementsAre(1, 2, 3, 4, 5, 6));
}

TEST_F(OutageStoreTest, ALineThatACrashHasCutOffIsCounted) {
    {
        OutageStore store(directory.path(), MEMORY, FILES);
        push(store, 1, 3);
        store.flush();
    }
    const auto path = std::filesystem::directory_iterator(directory.path())->path();
    std::filesystem::resize_file(path, std::filesystem::file_size(path) - 10);
    OutageStore again(directory.path(), MEMORY, FILES);
    push(again, 4, 4);
    again.flush();
    EXPECT_THAT(drain(again), ElementsAre(1, 2, 4));
    EXPECT_EQ(again.dropped(), 1U);
}

TEST_F(OutageStoreTest, RemovingWhatHasGivenWayRemovesNothingElse) {
    OutageStore store("", 1000, FILES);
    push(store, 1, 1);
    const Batch first = *store.oldest();
    push(store, 2, 100);
    const auto oldest = store.oldest()->sequence;
    store.remove(first);
    EXPECT_EQ(store.oldest()->sequence, oldest);
}

TEST_F(OutageStoreTest, WithoutADirectoryThatCanBeWrittenMemoryIsLeft) {
    OutageStore store(directory.path() / "missing", 1000, FILES);
    push(store, 1, 100);
    store.flush();
    const auto left = drain(store);
    EXPECT_EQ(left.back(), 100U);
    EXPECT_EQ(store.dropped() + left.size(), 100U);
}

}  // namespace
