// What happens to a file whose name comes up a second time: the clock stands or steps back, and all names are in use.

#include "log/rotation.h"
#include "unit/log/fake_clock.h"
#include "unit/log/memory_files.h"
#include "unit/log/recording_console.h"

#include <gtest/gtest.h>

#include <string>

using namespace orvel::log4z;

namespace {

constexpr std::size_t kMb = 1048576;

class NameReuse : public ::testing::Test {
protected:
    NameReuse() {
        slot.enable = true;
        slot.name = "sonvia_Test";
        slot.path = "logs/";
        slot.reserveDelType = kReserveBySize;
        clock.setLocal({2026, 3, 9, 8, 0, 0});
    }

    void line(const std::string& text) {
        ASSERT_TRUE(rotation.openFor(slot, clock.now().seconds));
        slot.file.write(text.data(), text.size());
        slot.file.flush();
    }

    FakeClock clock;
    MemoryFiles files;
    RecordingConsole screen;
    ConsoleEcho console{screen};
    Rotation rotation{clock, files, console};
    LoggerSlot slot;
};

} // namespace

TEST_F(NameReuse, AFileThatIsUsedAgainIsCountedOnce) {
    // Two producers whose lines cross midnight: the last of five names takes turn after turn, and the older files that
    // fit must stay.
    clock.setLocal({2026, 3, 9, 12, 0, 0});
    line(std::string(kMb, 'x'));
    for (int turn = 0; turn < 40; ++turn) {
        clock.setLocal(turn % 2 == 0 ? platform::CalendarTime{2026, 3, 9, 23, 59, 59}
                                     : platform::CalendarTime{2026, 3, 10, 0, 0, 0});
        slot.file.close();
        line(std::string(10000, 'x'));
    }
    EXPECT_TRUE(files.exists("logs/sonvia_Test_2026-03-09-12-00-00.log"));
    EXPECT_EQ(slot.history.count(), files.pathsWith(".log").size());
    EXPECT_EQ(files.totalSize(".log"), kMb + 40 * 10000);
    slot.file.close();
    clock.advance(100);
    line(std::string(1, 'x'));
    EXPECT_EQ(slot.history.writeLength(), kMb + 40 * 10000);
}

TEST_F(NameReuse, AnArchiveIsNotReplacedByALaterLogOfItsName) {
    slot.isZip = true;
    slot.limitSizeMb = 1;
    slot.totalSizeMb = kNoLimit;
    const std::string text = std::string(kMb + 1, 'x');
    for (int i = 0; i < 7; ++i) { // more files than names in one second
        line(text);
    }
    clock.advance(86400);
    line("");
    EXPECT_EQ(files.pathsWith(".zip").size(), 5u);
    EXPECT_EQ(files.content("logs/sonvia_Test_2026-03-09-08-00-04.log"), text + text);
    slot.file.close();
    rotation.loadHistory(0, slot);
    EXPECT_EQ(files.pathsWith(".zip").size(), 5u) << "a whole archive is not what a killed process has left";
    EXPECT_EQ(slot.history.count(), 7u);
}
