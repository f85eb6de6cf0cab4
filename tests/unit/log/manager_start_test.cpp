// A writer thread that does not come, or comes late.

#include "support/log/log_fixture.h"
#include "support/wait.h"

#include <atomic>
#include <functional>
#include <string>
#include <thread>

using namespace support;
using namespace orvel::log4z;

namespace {

/// What the test makes of the request for a thread; the starter itself is a plain function.
std::function<bool(platform::Thread&, void (*)(void*), void*)> onStart;

bool start(platform::Thread& thread, void (*entry)(void*), void* argument) {
    return onStart(thread, entry, argument);
}

/// A thread that comes when the gate is opened.
struct LateThread {
    std::atomic<bool> gate{false};
    void (*entry)(void*) = nullptr;
    void* argument = nullptr;

    static void run(void* self) {
        auto& late = *static_cast<LateThread*>(self);
        while (!late.gate.load()) {
            platform::systemClock().sleep(1);
        }
        late.entry(late.argument);
    }
};

class ManagerStart : public ::testing::Test {
protected:
    ~ManagerStart() override { onStart = nullptr; }

    void startLate() {
        onStart = [this](platform::Thread& thread, void (*entry)(void*), void* argument) {
            late.entry = entry;
            late.argument = argument;
            return thread.start(LateThread::run, &late);
        };
    }

    FakeClock clock;
    MemoryFiles files;
    RecordingConsole console;
    LateThread late;
    LogerManager manager{{clock, files, console, "host", 1, start}};
    const int id = manager.createLogger("Test");
};

} // namespace

TEST(LogSystem, TheRealOneWaitsThreeSecondsForItsThread) {
    EXPECT_EQ(LogSystem::real().startLimit, 3000u);
}

TEST_F(ManagerStart, AThreadThatCannotBeCreatedIsReportedAndTheSettingsQueuedMeanwhileAreInForce) {
    onStart = [this](platform::Thread&, void (*)(void*), void*) {
        EXPECT_TRUE(manager.setLoggerName(id, "sonvia_Queued"));
        EXPECT_TRUE(manager.loadHistory());
        return false;
    };
    EXPECT_FALSE(manager.start());
    EXPECT_EQ(console.timesPlain("log: create log thread error! \r\n"), 1);
    EXPECT_EQ(manager.slot(id).settings.name, "sonvia_Queued");
    EXPECT_TRUE(manager.setLoggerName(id, "sonvia_AtOnce"));
    EXPECT_EQ(manager.slot(id).settings.name, "sonvia_AtOnce")
        << "nothing waits for a thread that does not come";
    EXPECT_TRUE(manager.flush(kTimeoutMs));
    EXPECT_FALSE(manager.stop());
}

TEST_F(ManagerStart, AfterAFailedStartAnotherOneSucceeds) {
    onStart = [](platform::Thread&, void (*)(void*), void*) { return false; };
    EXPECT_FALSE(manager.start());
    onStart = [](platform::Thread& thread, void (*entry)(void*), void* argument) {
        return thread.start(entry, argument);
    };
    ASSERT_TRUE(manager.start());
    manager.stop();
}

TEST_F(ManagerStart, AThreadThatStartsLateIsReportedAndTakesWhatWasQueued) {
    startLate();
    EXPECT_TRUE(manager.start()) << "there is a thread";
    EXPECT_EQ(console.timesPlain("log: the log thread did not start within 1 ms! \r\n"), 1);
    EXPECT_FALSE(manager.isRunning());
    EXPECT_FALSE(manager.wouldLog(id, kLevelFatal));
    EXPECT_TRUE(manager.setLoggerName(id, "sonvia_Queued"));
    EXPECT_FALSE(manager.start()) << "one is enough";
    EXPECT_EQ(console.timesColoured("log already start \r\n"), 1);
    late.gate.store(true);
    ASSERT_TRUE(manager.flush(kTimeoutMs));
    EXPECT_EQ(manager.slot(id).settings.name, "sonvia_Queued");
    EXPECT_TRUE(manager.isRunning());
    EXPECT_TRUE(manager.stop());
}

TEST_F(ManagerStart, AThreadThatStartsAfterStopEndsAtOnce) {
    startLate();
    EXPECT_TRUE(manager.start());
    EXPECT_TRUE(manager.setLoggerName(id, "sonvia_Queued"));
    std::thread opener([this] {
        while (console.timesColoured("log stopping \r\n") == 0) {
            platform::systemClock().sleep(1);
        }
        late.gate.store(true);
    });
    EXPECT_TRUE(manager.stop()) << "waits for the thread";
    opener.join();
    EXPECT_FALSE(manager.isRunning());
    EXPECT_EQ(manager.slot(id).settings.name, "sonvia_Queued");
    EXPECT_FALSE(manager.stop());
}
