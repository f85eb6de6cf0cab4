// Clocks that step, and what is found in the folder after years.

#include "support/effort.h"
#include "support/log/line_account.h"
#include "support/log/log_fixture.h"
#include "support/wait.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <random>
#include <string>

using namespace support;
using namespace orvel::log4z;

namespace {

constexpr std::size_t kLine = 8192;

class LogOverTime : public LogEngine {
protected:
    int makeLogger() {
        files.keepRemoved();
        return makeQuietLogger();
    }

    void write(int id, int number, int size = 1) {
        EXPECT_TRUE(pushNumbered(manager, id, number, size));
        ASSERT_TRUE(manager.flush(kTimeoutMs));
    }
};

std::string oldName(int number) {
    char text[80];
    std::snprintf(text, sizeof text, "logs/20%02d_%02d/sonvia_Test_20%02d-%02d-%02d-00-00-00.log",
                  number / 336, number / 28 % 12 + 1, number / 336, number / 28 % 12 + 1, number % 28 + 1);
    return text;
}

} // namespace

TEST_F(LogOverTime, AClockThatStepsBothWaysLosesNoLineAndNoLimit) {
    const int id = makeLogger();
    manager.setLoggerReserveDelType(id, kReserveBySizeOrTime);
    manager.setLoggerReserveTime(id, 100 * 86400);
    manager.setLoggerLimitsize(id, 1);
    manager.setLoggerTotalsize(id, 4);
    manager.setLoggerMonthdir(id, true);
    ASSERT_TRUE(manager.start());
    constexpr std::int64_t kSteps[] = {1,     -1,    3,      -3,      59,       3600,
                                       -3600, 86400, -86400, 2678400, -2678400, 31622400};
    std::mt19937 random(20260309);
    const int lines = rounds(1500, 30000);
    std::int64_t years = 0;
    std::uint64_t largest = 0;
    for (int number = 0; number < lines; ++number) {
        if (number % 4 == 0) {
            // First steps of up to a month, so that only the sizes limit the files; then years, and their time does.
            const std::size_t choices = std::size(kSteps) - (number < lines * 2 / 3 ? 1 : 0);
            const std::int64_t step = kSteps[random() % choices];
            years += step == 31622400 ? 1 : 0;
            // Around midnight of the last day of a month, and no further than a life lasts.
            clock.set(1793491190 + (years % 20) * 31622400 + step + static_cast<std::int64_t>(random() % 20));
        }
        write(id, number, 40 + static_cast<int>(random() % 40));
        largest = std::max(largest, files.totalSize("sonvia_Test_"));
        ASSERT_LE(files.totalSize("sonvia_Test_"), 4 * kMb + kMb + kLine) << "line " << number;
    }
    manager.stop();
    EXPECT_GT(largest, 3 * kMb) << "no limit was reached, or too much was deleted";
    const LineAccount account = accountFor(files, "sonvia_Test_");
    EXPECT_TRUE(account.onceEach());
    EXPECT_TRUE(account.inOrder);
    EXPECT_EQ(account.times.size(), static_cast<std::size_t>(lines));
    EXPECT_EQ(manager.totalLinesLost(), 0u);
    support::tried("log: steps of the clock", lines, "lines");
}

TEST_F(LogOverTime, AYearOfDaysWithARestartEachWeekKeepsWhatTheReserveTimeAllows) {
    const int id = makeLogger();
    manager.setLoggerReserveDelType(id, kReserveByTime);
    manager.setLoggerReserveTime(id, 30 * 86400);
    manager.setLoggerZip(id, true);
    manager.setLoggerMonthdir(id, true);
    manager.setLoggerVersion(id, "1");
    clock.setLocal({2026, 1, 1, 12, 0, 0});
    const int days = rounds(365, 10 * 365);
    for (int day = 0; day < days; ++day) {
        if (day % 7 == 0) {
            manager.stop();
            manager.enableLogger(id, true);
            ASSERT_TRUE(manager.start());
        }
        write(id, day, 20);
        ASSERT_LE(files.pathsWith("sonvia_Test_").size(), 33u) << "day " << day;
        clock.advance(86400);
    }
    manager.stop();
    EXPECT_GE(files.pathsWith("sonvia_Test_").size(), 30u);
    const LineAccount account = accountFor(files, "sonvia_Test_");
    EXPECT_TRUE(account.onceEach() && account.inOrder && account.namesInOrder && account.archivesHold);
    EXPECT_EQ(account.times.size(), static_cast<std::size_t>(days));
    support::tried("log: days with archives and restarts", days, "days");
}

TEST_F(LogOverTime, OfSixHundredOldFilesTheOldestGoUntilFiveHundredAreLeft) {
    const int id = makeLogger();
    manager.setLoggerTotalsize(id, 0);
    manager.setLoggerVersion(id, "1");
    files.put("logs/sonvia_version", "1");
    for (int number = 0; number < 600; ++number) {
        files.put(oldName(number) + (number % 3 == 0 ? ".zip" : ""), "old");
    }
    ASSERT_TRUE(manager.start());
    manager.setLoggerDisplay(id, false); // comes after the folder has been read, as a line would
    ASSERT_TRUE(manager.flush(kTimeoutMs));
    EXPECT_EQ(files.pathsWith("sonvia_Test_").size(), 600u) << "nothing is deleted before a file is opened";
    write(id, 0);
    EXPECT_EQ(files.pathsWith("sonvia_Test_").size(), 501u);
    EXPECT_FALSE(files.exists(oldName(99) + ".zip"));
    EXPECT_TRUE(files.exists(oldName(100)));
    for (int number = 1; number < 10; ++number) {
        clock.advance(86400);
        write(id, number);
        EXPECT_EQ(files.pathsWith("sonvia_Test_").size(), 501u);
    }
    manager.stop();
}

TEST_F(LogOverTime, AFolderDeletedAtAnyTimeIsMadeAnewByTheNextLine) {
    const int rounds = support::rounds(60, 1500);
    const int id = makeLogger();
    manager.setLoggerMonthdir(id, true);
    ASSERT_TRUE(manager.start());
    for (int round = 0; round < rounds; ++round) {
        write(id, 2 * round);
        ASSERT_GE(files.pathsWith("sonvia_Test_").size(), 1u) << "round " << round;
        files.removeFolder(round % 2 == 0
                               ? "logs"
                               : files.paths().back().substr(0, 12)); // the open file goes on without a name
        write(id, 2 * round + 1);
        EXPECT_TRUE(accountFor(files, "sonvia_Test_").found(2 * round + 1)) << "round " << round;
        clock.advance(round % 3 == 0 ? 86400 : round % 3);
    }
    write(id, 2 * rounds);
    write(id, 2 * rounds + 1);
    manager.stop();
    const LineAccount account = accountFor(files, "sonvia_Test_");
    EXPECT_TRUE(account.found(2 * rounds) && account.found(2 * rounds + 1));
    EXPECT_EQ(manager.totalLinesLost(), 0u) << "what went with the folder had been written";
    support::tried("log: folder deleted while a file is open", rounds);
}
