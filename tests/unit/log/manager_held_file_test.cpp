// The system's own files, some of them kept by another program.

#include "support/effort.h"
#include "support/log/fake_clock.h"
#include "support/log/held_file.h"
#include "support/log/line_account.h"
#include "support/log/recording_console.h"
#include "support/log/test_folder.h"
#include "support/wait.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

using namespace support;
using namespace orvel::log4z;

namespace {

class HeldFiles : public ::testing::Test {
protected:
    HeldFiles() : manager({clock, platform::systemFiles(), console, "host"}) {
        clock.setLocal({2026, 3, 9, 8, 0, 0});
        id = manager.createLogger("Test");
        manager.setLoggerPath(id, folder.path().c_str());
        manager.setLoggerDisplay(id, false);
        manager.setLoggerReserveDelType(id, kReserveByTime);
        manager.setLoggerReserveTime(id, 86400);
    }

    std::string day(int number, int second = 0) const {
        char name[64];
        std::snprintf(name, sizeof name, "sonvia_Test_2026-03-%02d-08-00-%02d.log", number, second);
        return folder.path(name);
    }

    void write(int number) {
        EXPECT_TRUE(pushNumbered(manager, id, number));
        ASSERT_TRUE(manager.flush(kTimeoutMs));
    }

    static std::vector<int> numbersOf(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        std::ostringstream text;
        text << file.rdbuf();
        return numbersIn(text.str());
    }

    TestFolder folder;
    FakeClock clock;
    RecordingConsole console;
    LogerManager manager;
    int id = 0;
};

} // namespace

TEST_F(HeldFiles, ALogThatAnotherProgramKeepsSwitchesFileOutputOffUntilItIsSetAgain) {
    const int rounds = support::rounds(3, 15);
    ASSERT_TRUE(manager.start());
    for (int round = 0; round < rounds; ++round) {
        std::vector<std::unique_ptr<HeldFile>> held; // all names that are tried
        for (int second = 0; second < 5; ++second) {
            held.push_back(std::make_unique<HeldFile>(day(9 + round, second)));
        }
        write(2 * round);
        EXPECT_EQ(manager.totalLinesLost(), static_cast<std::uint64_t>(2 * round + 1));
        held.clear();
        write(2 * round); // free again, but the log has given up
        EXPECT_EQ(manager.totalLinesLost(), static_cast<std::uint64_t>(2 * round + 2));
        manager.setLoggerOutFile(id, true);
        write(2 * round + 1);
        EXPECT_EQ(numbersOf(day(9 + round)), std::vector<int>{2 * round + 1});
        clock.advance(86400);
    }
    manager.stop();
    EXPECT_EQ(console.timesColoured("!!!!!!!!!!!!!!!!!!!!!!!!!! \r\n"), 2 * rounds);
    support::tried("log: log file held by another program", rounds);
}

TEST_F(HeldFiles, AnOldLogThatAnotherProgramKeepsIsLeftAndNothingElseIs) {
    ASSERT_TRUE(manager.start());
    write(1);
    clock.advance(86400);
    write(2);
    {
        const HeldFile held(day(9));
        clock.advance(3 * 86400);
        write(3);
        EXPECT_TRUE(numbersOf(day(10)).empty()) << "the next older one could be removed";
    }
    clock.advance(86400);
    write(4);
    EXPECT_EQ(numbersOf(day(13)), std::vector<int>{3});
    EXPECT_EQ(numbersOf(day(14)), std::vector<int>{4});
    manager.stop();
    EXPECT_EQ(manager.totalLinesLost(), 0u);
}

TEST_F(HeldFiles, AVersionFileThatAnotherProgramKeepsStopsNoLine) {
    manager.setLoggerVersion(id, "2.1");
    const HeldFile held(folder.path("sonvia_version"));
    ASSERT_TRUE(manager.start());
    write(1);
    manager.stop();
    EXPECT_EQ(numbersOf(day(9)), std::vector<int>{1});
}

TEST_F(HeldFiles, AnArchiveThatAnotherProgramKeepsLeavesItsLog) {
    manager.setLoggerZip(id, true);
    manager.setLoggerReserveTime(id, 0);
    ASSERT_TRUE(manager.start());
    write(1);
    {
        const HeldFile held(day(9) + ".zip");
        clock.advance(86400);
        write(2);
    }
    manager.stop();
    EXPECT_EQ(numbersOf(day(9)), std::vector<int>{1});
    EXPECT_EQ(numbersOf(day(10)), std::vector<int>{2});
}
