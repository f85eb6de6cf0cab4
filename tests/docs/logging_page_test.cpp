// The configuration in docs/logging.md can be copied unchanged.

#include "log/log_level.h"
#include "support/log/log_fixture.h"

#include <fstream>
#include <gtest/gtest.h>
#include <string>

using namespace support;
using namespace orvel::log4z;

namespace {

std::string configurationOfThePage() {
    std::ifstream page(std::string(SONVIA_DOCS_DIR) + "/logging.md");
    std::string text;
    bool inside = false;
    for (std::string line; std::getline(page, line);) {
        if (line.rfind("```", 0) == 0) {
            inside = line == "```ini";
        } else if (inside) {
            text += line + "\n";
        }
    }
    return text;
}

using LoggingPage = LogEngine;

} // namespace

TEST_F(LoggingPage, TheConfigurationShownSetsWhatItSays) {
    ASSERT_TRUE(manager.configFromText(configurationOfThePage().c_str()));
    const int id = manager.findLogger("Main");
    ASSERT_EQ(id, 0);
    const LoggerSlot& slot = manager.slot(id);
    EXPECT_EQ(slot.settings.path, "D:\\logs/");
    EXPECT_EQ(slot.settings.name, "host");
    EXPECT_EQ(slot.settings.level, kLevelInfo);
    EXPECT_FALSE(slot.settings.display);
    EXPECT_TRUE(slot.settings.outfile && slot.settings.monthdir && slot.settings.enable);
    EXPECT_EQ(slot.settings.limitSizeMb, 2u);
    EXPECT_FALSE(slot.settings.fileline);
    EXPECT_EQ(slot.settings.reserveSeconds, 172800);
}
