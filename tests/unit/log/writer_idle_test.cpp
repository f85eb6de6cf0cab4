// How the writer thread sleeps when there is nothing to do. Time does not pass here: the event that the writer sleeps on
// is the test's own, and a sleep with a time limit ends at once.

#include "platform/auto_reset_event.h"
#include "platform/timeout.h"
#include "support/log/log_fixture.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <thread>

using namespace orvel::log4z;
using support::FakeClock;
using support::LogEngine;

namespace {

constexpr auto kRestLimit = std::chrono::seconds(60);

/// What the writer did on its event.
struct Sleeps {
    std::mutex mutex;
    std::condition_variable changed;
    bool isSignalled = false;
    bool isAsleep = false; ///< without a time limit
    int limited = 0;       ///< sleeps with a time limit
    int woken = 0;         ///< sleeps without one that a signal has ended
    int limitedInARow = 0; ///< since the last signal

    /// Waits until the writer sleeps without a time limit. False when it slept with one more than a few times in a
    /// row: it looks again and again.
    bool comeToRest() {
        // One follows lines, so that a caller in full flow does not pay for waking the writer.
        constexpr int kMaxLimited = 20;
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, kRestLimit, [&] { return isAsleep || limitedInARow > kMaxLimited; }) &&
               isAsleep;
    }

    int wakeUps() {
        const std::lock_guard<std::mutex> lock(mutex);
        return woken + limited;
    }
};

class CountingEvent final : public platform::AutoResetEvent {
public:
    explicit CountingEvent(Sleeps& sleeps) : mSleeps(sleeps) {}

    void signal() override {
        const std::lock_guard<std::mutex> lock(mSleeps.mutex);
        mSleeps.isSignalled = true;
        mSleeps.isAsleep = false;
        mSleeps.limitedInARow = 0;
        mSleeps.changed.notify_all();
    }

    bool wait(unsigned milliseconds) override {
        std::unique_lock<std::mutex> lock(mSleeps.mutex);
        if (milliseconds == platform::kNoTimeout) {
            mSleeps.isAsleep = !mSleeps.isSignalled;
            mSleeps.changed.notify_all();
            mSleeps.changed.wait(lock, [&] { return mSleeps.isSignalled; });
            ++mSleeps.woken;
        } else {
            ++mSleeps.limited;
            ++mSleeps.limitedInARow;
            mSleeps.changed.notify_all();
        }
        const bool taken = mSleeps.isSignalled;
        mSleeps.isSignalled = false;
        return taken;
    }

private:
    Sleeps& mSleeps;
};

class IdleWriter : public LogEngine {
protected:
    IdleWriter() {
        id = engine.createLogger("Test");
        engine.setLoggerPath(id, "logs");
        engine.setLoggerDisplay(id, false);
    }

    ~IdleWriter() override { engine.stop(); }

    void push(const std::string& text) {
        LogRecord* record = engine.makeRecord(id, kLevelError);
        text.copy(record->content + record->contentLength, text.size());
        record->contentLength += static_cast<std::int32_t>(text.size());
        ASSERT_TRUE(engine.pushLog(record, nullptr, 0));
    }

    LogSystem system() {
        LogSystem fake{lowClock, files, console, "host"};
        fake.makeEvent = [this] { return std::make_unique<CountingEvent>(sleeps); };
        return fake;
    }

    /// Calendar dates take memory, and the test's own thread can be refused it.
    bool isLow = false;
    const std::thread::id testThread = std::this_thread::get_id();
    FakeClock lowClock{[this](std::int64_t) -> std::int64_t {
        return std::this_thread::get_id() == testThread && isLow ? throw std::bad_alloc() : 0;
    }};
    Sleeps sleeps;
    LogerManager engine{system()};
    int id = 0;
};

} // namespace

TEST_F(IdleWriter, SleepsUntilSomethingHappens) {
    ASSERT_TRUE(engine.start());
    EXPECT_TRUE(sleeps.comeToRest()) << "it looks again and again";
}

TEST_F(IdleWriter, IsWokenOnceForALineThatIsInItsFileWithoutAFlush) {
    ASSERT_TRUE(engine.start());
    ASSERT_TRUE(sleeps.comeToRest());
    const int before = sleeps.wakeUps();
    push("one line");
    ASSERT_TRUE(sleeps.comeToRest());
    EXPECT_EQ(engine.totalLinesWritten(), 1u);
    EXPECT_NE(files.content(files.pathsWith(".log").at(0)).find("one line"), std::string::npos);
    EXPECT_EQ(sleeps.wakeUps(), before + 2) << "by the line, and once more after its short sleep";
}

TEST_F(IdleWriter, IsNotWokenByTheDaysChange) {
    ASSERT_TRUE(engine.start());
    push("the last line of the day");
    ASSERT_TRUE(sleeps.comeToRest());
    const int before = sleeps.wakeUps();
    lowClock.advance(3 * platform::kSecondsPerDay);
    EXPECT_TRUE(sleeps.comeToRest());
    EXPECT_EQ(sleeps.wakeUps(), before);
    EXPECT_EQ(files.pathsWith(".log").size(), 1u) << "the next line opens the next file, and no sooner";
    push("the first line of another day");
    ASSERT_TRUE(engine.flush(support::kTimeoutMs));
    EXPECT_EQ(files.pathsWith(".log").size(), 2u);
}

TEST_F(IdleWriter, IsWokenForASettingAndForAFlush) {
    ASSERT_TRUE(engine.start());
    ASSERT_TRUE(sleeps.comeToRest());
    EXPECT_TRUE(engine.setLoggerName(id, "sonvia_Other"));
    ASSERT_TRUE(sleeps.comeToRest());
    EXPECT_EQ(engine.slot(id).settings.name, "sonvia_Other");
    EXPECT_TRUE(engine.flush(support::kTimeoutMs));
}

TEST_F(IdleWriter, LooksAtAWatchedConfigurationAndRestsWhenItIsWatchedNoMore) {
    ASSERT_TRUE(engine.start());
    ASSERT_TRUE(sleeps.comeToRest());
    engine.setConfigCheckInterval(10);
    EXPECT_FALSE(sleeps.comeToRest()) << "it sleeps for a limited time, again and again";
    engine.setConfigCheckInterval(0);
    EXPECT_TRUE(sleeps.comeToRest());
}

TEST_F(IdleWriter, IsWokenToReportALineThatAnAllocationFailureHasCost) {
    ASSERT_TRUE(engine.start());
    push("opens a file");
    ASSERT_TRUE(sleeps.comeToRest());
    lowClock.advance(platform::kSecondsPerDay); // the prefix asks for the new day's date
    isLow = true;
    EXPECT_EQ(engine.makeRecord(id, kLevelError), nullptr);
    isLow = false;
    ASSERT_TRUE(sleeps.comeToRest());
    EXPECT_NE(files.content(files.pathsWith(".log").at(0)).find("lines lost:1 in all:1"), std::string::npos);
}

TEST_F(IdleWriter, EndsWhenTheManagerStops) {
    ASSERT_TRUE(engine.start());
    ASSERT_TRUE(sleeps.comeToRest());
    EXPECT_TRUE(engine.stop());
}
