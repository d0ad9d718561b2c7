// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <chrono>
#include <map>

#include "FakeService.h"
#include "PrivateBus.h"
#include "client/RegisterCache.h"

namespace {

using std::chrono::seconds;
using testing::ElementsAre;

TEST(RegisterCacheOfManyTest, PropertiesAreNotAskedForHoweverManyRegistersAGroupHas) {
    const PrivateBus bus;
    std::map<int, FakeRegister> counters;
    for (int index = 1; index <= 6; ++index) {
        counters[index] = {RegisterType::INPUT_COUNTER, index, -1, 0};
    }
    FakeService service(counters);
    IoMapping io;
    RegisterCache cache(io, PollPlan(), [](const CachedRegister& /*entry*/) {});
    cache.load();
    service.forgetCalls();
    cache.poll(RegisterCache::Clock::now() + seconds(2));
    EXPECT_THAT(service.calls(), ElementsAre("ReadList (<[1, 2, 3, 4, 5, 6]>,)"));
}

}  // namespace
