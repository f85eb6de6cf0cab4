// What happens to a file whose name comes up a second time: the clock stops or steps back, and all names are in use.

#include "support/log/rolling_file_fixture.h"

using namespace support;
using namespace orvel::log4z;

namespace {

using NameReuse = RollingFileTest;

} // namespace

TEST_F(NameReuse, AFileThatIsUsedAgainIsCountedOnce) {
    // Two producers whose lines cross midnight: the last of five names takes turn after turn, and the older files that
    // fit must stay.
    clock.setLocal({2026, 3, 9, 12, 0, 0});
    ASSERT_TRUE(line(kMb));
    for (int turn = 0; turn < 40; ++turn) {
        clock.setLocal(turn % 2 == 0 ? platform::CalendarTime{2026, 3, 9, 23, 59, 59}
                                     : platform::CalendarTime{2026, 3, 10, 0, 0, 0});
        slot.file.close();
        ASSERT_TRUE(line(10000));
    }
    EXPECT_TRUE(files.exists("logs/sonvia_Test_2026-03-09-12-00-00.log"));
    EXPECT_EQ(slot.file.history().count(), files.pathsWith(".log").size());
    EXPECT_EQ(files.totalSize(".log"), kMb + 40 * 10000);
    slot.file.close();
    clock.advance(100);
    ASSERT_TRUE(line(1));
    EXPECT_EQ(slot.file.history().writeLength(), kMb + 40 * 10000);
}

TEST_F(NameReuse, AnArchiveIsNotReplacedByALaterLogOfItsName) {
    slot.settings.isZip = true;
    slot.settings.limitSizeMb = 1;
    slot.settings.totalSizeMb = kNoLimit;
    const std::string text = std::string(kMb + 1, 'x');
    for (int i = 0; i < 7; ++i) { // more files than names in one second
        ASSERT_TRUE(line(text.size()));
    }
    clock.advance(86400);
    ASSERT_TRUE(line(0));
    EXPECT_EQ(files.pathsWith(".zip").size(), 5u);
    EXPECT_EQ(files.content("logs/sonvia_Test_2026-03-09-08-00-04.log"), text + text);
    slot.file.close();
    slot.file.loadHistory(0);
    EXPECT_EQ(files.pathsWith(".zip").size(), 5u) << "a whole archive is not what a killed process has left";
    EXPECT_EQ(slot.file.history().count(), 7u);
}
