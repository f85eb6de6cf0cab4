#include "oracle/commands.h"

#include <gtest/gtest.h>

namespace oracle {
namespace {

TEST(OracleCommands, NamesAndNumbersBelongTogether) {
    int named = 0;
    for (unsigned command = 0; command <= 0xFFFF; ++command) {
        const std::string name = nameOf(static_cast<std::uint16_t>(command));
        if (commandOf(name)) {
            EXPECT_EQ(commandOf(name), command);
            ++named;
        } else {
            EXPECT_EQ(name, std::to_string(command));
        }
    }
    EXPECT_EQ(named, 156);
    EXPECT_EQ(nameOf(34), "Notify");
    EXPECT_EQ(nameOf(8193), "StopPCAudioZLK");
}

} // namespace
} // namespace oracle
