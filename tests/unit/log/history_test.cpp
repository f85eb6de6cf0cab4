#include "log/history.h"
#include "support/log/memory_files.h"

#include <gtest/gtest.h>

using namespace orvel::log4z;
using support::kMb;

namespace {

History historyOf(std::initializer_list<std::uint64_t> sizes, std::int64_t firstTime = 1000) {
    History history;
    for (const std::uint64_t size : sizes) {
        history.append("file" + std::to_string(history.count()), firstTime++);
        history.countNewest(size);
    }
    return history;
}

bool mustDelete(const History& history, const Retention& retention, std::int64_t now = 2000) {
    bool bySize = false;
    return history.mustDelete(retention, now, bySize);
}

} // namespace

TEST(History, WithLimitsTwoAndFiveDeletionStartsAtThreeMegabytes) {
    const Retention retention{kReserveBySize, 2, 5, 0};
    EXPECT_FALSE(mustDelete(historyOf({3 * kMb - 1}), retention));
    EXPECT_TRUE(mustDelete(historyOf({3 * kMb}), retention));
    EXPECT_TRUE(mustDelete(historyOf({kMb, kMb, kMb}), retention));
}

TEST(History, TheFiveHundredAndFirstEntryIsTooManyWhateverTheSizes) {
    History history;
    for (int i = 0; i < 500; ++i) {
        history.append("file", 0);
    }
    for (const ReserveDelType type :
         {kReserveBySize, kReserveByTime, kReserveBySizeOrTime, kReserveBySizeAndTime}) {
        EXPECT_FALSE(mustDelete(history, {type, 2, kNoLimit, 0}));
    }
    history.append("file", 0);
    for (const ReserveDelType type :
         {kReserveBySize, kReserveByTime, kReserveBySizeOrTime, kReserveBySizeAndTime}) {
        EXPECT_TRUE(mustDelete(history, {type, 2, kNoLimit, 0}));
    }
}

TEST(History, AnEmptyHistoryHasNothingToDelete) {
    EXPECT_FALSE(mustDelete(History(), {kReserveBySizeOrTime, 5, 5, 1}));
}

TEST(History, AgeIsTestedOnlyWithAReserveTime) {
    const History history = historyOf({1}, 1000);
    EXPECT_FALSE(mustDelete(history, {kReserveByTime, 2, 5, 0}, 1'000'000));
    EXPECT_FALSE(mustDelete(history, {kReserveByTime, 2, 5, 100}, 1100)) << "exactly that old";
    EXPECT_TRUE(mustDelete(history, {kReserveByTime, 2, 5, 100}, 1101));
}

TEST(History, EachTypeCombinesTheTestsInItsOwnWay) {
    struct Case {
        bool large;
        bool old;
        bool expected[4]; // by type
    };

    const Case cases[] = {
        {false, false, {false, false, false, false}},
        {true, false, {true, false, true, false}},
        {false, true, {false, true, true, false}},
        {true, true, {true, true, true, true}},
    };
    for (const Case& c : cases) {
        const History history = historyOf({c.large ? 3 * kMb : 1});
        for (int type = 0; type < 4; ++type) {
            const Retention retention{static_cast<ReserveDelType>(type), 2, 5, 100};
            bool bySize = false;
            EXPECT_EQ(history.mustDelete(retention, c.old ? 5000 : 1000, bySize), c.expected[type])
                << "large " << c.large << " old " << c.old << " type " << type;
            EXPECT_EQ(bySize, c.large && type != kReserveByTime) << "type " << type;
        }
    }
}

TEST(History, WithoutATotalLimitNoSizeIsTooLarge) {
    EXPECT_FALSE(mustDelete(historyOf({4000 * kMb}), {kReserveBySize, 2, kNoLimit, 0}));
    EXPECT_FALSE(mustDelete(historyOf({1}), {kReserveBySize, kNoLimit, kNoLimit, 0}));
    EXPECT_TRUE(mustDelete(historyOf({1 * kMb}), {kReserveBySize, kNoLimit, 5, 0}))
        << "no wrap to a small sum";
}

TEST(History, TheTotalIsTheSumOfWhatTheEntriesWereCountedWith) {
    History history = historyOf({10, 20, 30});
    EXPECT_EQ(history.writeLength(), 60u);
    history.countNewest(5);
    EXPECT_EQ(history.writeLength(), 35u) << "counted again, not twice";
    history.dropOldest();
    EXPECT_EQ(history.writeLength(), 25u);
    history.renameNewest("file2.zip");
    EXPECT_EQ(history.newest().path, "file2.zip");
    history.dropOldest();
    history.dropOldest();
    EXPECT_TRUE(history.empty());
    EXPECT_EQ(history.writeLength(), 0u);
}
