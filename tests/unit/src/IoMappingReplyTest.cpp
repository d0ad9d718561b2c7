// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "IoMapping.h"
#include "OddService.h"
#include "PrivateBus.h"
#include "ServiceError.h"

namespace {

/// A service of another program, or of another time, may answer with other types.
class IoMappingReplyTest : public testing::Test {
 protected:
    /// Expects that a call fails when the service answers it with a body.
    static void expectFailure(const std::string& body, const std::string& type,
                              const std::function<void(IoMapping&)>& call) {
        const OddService service(body);
        IoMapping io;
        try {
            call(io);
            ADD_FAILURE() << body << " was taken";
        } catch (const ServiceError& e) {
            EXPECT_EQ(e.what(),
                      "Error calling method: the service has replied with the type '" + type + "'");
            EXPECT_EQ(e.getCause(), ServiceError::Cause::OTHER);
            EXPECT_EQ(e.getErrorName(), "");
        }
    }

    PrivateBus bus;
};

TEST_F(IoMappingReplyTest, AReplyOfAnotherTypeIsAFailure) {
    expectFailure("('five',)", "(s)", [](IoMapping& io) { io.readValue(1); });
    expectFailure("(1,)", "(i)", [](IoMapping& io) { io.writeValue(1, 1); });
    expectFailure("(1, 2)", "(ii)", [](IoMapping& io) { io.getParams(1); });
}

TEST_F(IoMappingReplyTest, AListOfAnotherTypeIsAFailure) {
    expectFailure("([1, 2],)", "(ai)", [](IoMapping& io) { io.readValues({1, 2}); });
    expectFailure("(<['a', 'b']>,)", "as", [](IoMapping& io) { io.readValues({1, 2}); });
    expectFailure("(<5>,)", "i", [](IoMapping& io) { io.getAddrsPerType(RegisterType::RELAY); });
}

}  // namespace
