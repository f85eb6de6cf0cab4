#include "log/record_queue.h"

#include "support/wait.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using orvel::log4z::backPressureDelay;
using orvel::log4z::heldBackFor;
using orvel::log4z::LogRecord;
using orvel::log4z::RecordQueue;

TEST(BackPressure, FortyThousandWaitingRecordsGiveADelayOfAHundredMilliseconds) {
    EXPECT_EQ(backPressureDelay(40000), 100u);
    EXPECT_EQ(backPressureDelay(39999), 99u);
    EXPECT_EQ(backPressureDelay(1000000), 100u);
}

TEST(BackPressure, TwentyThousandAndOneWaitingRecordsGiveNoDelay) {
    EXPECT_EQ(backPressureDelay(0), 0u);
    EXPECT_EQ(backPressureDelay(20000), 0u);
    EXPECT_EQ(backPressureDelay(20001), 0u);
    EXPECT_EQ(backPressureDelay(20199), 0u);
    EXPECT_EQ(backPressureDelay(20200), 1u);
    EXPECT_EQ(backPressureDelay(30000), 50u);
}

TEST(BackPressure, HoldsBackAsManyOfAHundredCallersAsTheDelayHasMilliseconds) {
    for (const std::uint64_t waiting : {20200u, 25000u, 30000u, 39999u, 40000u}) {
        const unsigned delay = backPressureDelay(waiting);
        unsigned held = 0;
        for (unsigned dice = 700; dice < 800; ++dice) {
            const unsigned time = heldBackFor(waiting, dice, [&] { return waiting; });
            EXPECT_TRUE(time == 0 || time == delay);
            held += time == 0 ? 0 : 1;
        }
        EXPECT_EQ(held, delay);
    }
}

TEST(BackPressure, ALongSleepIsSkippedWhenTheWriterHasCaughtUpMeanwhile) {
    EXPECT_EQ(heldBackFor(30200, 0, [] { return 20001u; }), 51u);
    EXPECT_EQ(heldBackFor(30200, 0, [] { return 20000u; }), 0u);
    bool wasAsked = false;
    const auto fewLeft = [&] {
        wasAsked = true;
        return 0u;
    };
    EXPECT_EQ(heldBackFor(30000, 0, fewLeft), 50u) << "a short sleep is not looked at twice";
    EXPECT_EQ(heldBackFor(40000, 100, fewLeft), 0u);
    EXPECT_TRUE(wasAsked);
}

TEST(RecordQueue, RecordsComeOutInTheOrderTheyWerePushed) {
    RecordQueue queue;
    queue.open();
    std::vector<LogRecord> records(5);
    for (LogRecord& record : records) {
        ASSERT_TRUE(queue.push(&record, true));
    }
    std::vector<LogRecord*> batch;
    queue.takeAll(batch);
    ASSERT_EQ(batch.size(), 5u);
    for (std::size_t i = 0; i < batch.size(); ++i) {
        EXPECT_EQ(batch[i], &records[i]);
    }
}

TEST(RecordQueue, WaitingRecordsFallOneByOneAlthoughTheyAreTakenAtOnce) {
    RecordQueue queue;
    queue.open();
    LogRecord record{};
    for (int i = 0; i < 3; ++i) {
        queue.push(&record, true);
    }
    std::vector<LogRecord*> batch;
    queue.takeAll(batch);
    EXPECT_EQ(queue.waitingNow(), 3u);
    queue.countTaken();
    EXPECT_EQ(queue.waitingNow(), 2u);
    std::uint64_t waiting = 0;
    EXPECT_TRUE(queue.isLongerThan(1, waiting));
    EXPECT_EQ(waiting, 2u);
    EXPECT_FALSE(queue.isLongerThan(2, waiting));
}

TEST(RecordQueue, SettingChangesWaitButAreNoLines) {
    RecordQueue queue;
    queue.open();
    LogRecord record{};
    queue.push(&record, false);
    queue.push(&record, true);
    EXPECT_EQ(queue.waitingNow(), 2u);
    EXPECT_EQ(queue.pushed(), 2u);
    EXPECT_EQ(queue.linesPushed(), 1u);
}

TEST(RecordQueue, AClosedQueueRefusesRecordsAndAFilledOneDoesNotClose) {
    RecordQueue queue;
    LogRecord record{};
    EXPECT_FALSE(queue.push(&record, true)) << "it is not open yet";
    queue.open();
    EXPECT_TRUE(queue.push(&record, true));
    EXPECT_FALSE(queue.closeIfEmpty());
    EXPECT_TRUE(queue.isOpen());
    std::vector<LogRecord*> batch;
    queue.takeAll(batch);
    EXPECT_TRUE(queue.closeIfEmpty());
    EXPECT_FALSE(queue.push(&record, true));
    EXPECT_EQ(queue.linesPushed(), 1u);
}

TEST(RecordQueue, ASleepingWriterIsWokenWhenEnoughRecordsWait) {
    RecordQueue queue;
    queue.open();
    std::atomic<bool> woken{false};
    std::thread writer([&] {
        queue.waitForRecords(3, support::kTimeoutMs);
        woken.store(true);
    });
    LogRecord record{};
    for (int i = 0; i < 3; ++i) {
        queue.push(&record, true);
    }
    writer.join(); // ends only when woken
    EXPECT_TRUE(woken.load());
    EXPECT_EQ(queue.waitingNow(), 3u);
}

TEST(RecordQueue, AWriterDoesNotSleepOnWaitingRecords) {
    RecordQueue queue;
    queue.open();
    LogRecord record{};
    queue.push(&record, true);
    queue.waitForRecords(1, support::kTimeoutMs); // returns at once, else the test runs into its limit
    std::vector<LogRecord*> batch;
    queue.takeAll(batch);
    EXPECT_EQ(batch.size(), 1u);
}
