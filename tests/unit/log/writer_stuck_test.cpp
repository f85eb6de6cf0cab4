// What callers and the writer do while the writer is stuck.

#include "support/log/log_fixture.h"
#include "support/wait.h"

#include <atomic>
#include <string>
#include <vector>

using namespace support;
using namespace orvel::log4z;

namespace {

/// A console that blocks while the gate is shut: any slow device the writer may meet.
class StuckConsole final : public platform::Console {
public:
    bool printColoured(unsigned, const char*) override { return false; }

    void print(const char*) override {
        while (!go.load()) {
            platform::systemClock().sleep(1);
        }
    }

    std::atomic<bool> go{true};
};

/// An engine whose writer is stuck at the line that `shut` pushes, until `open`.
class ManagerWithStuckWriter : public LogEngine {
protected:
    ManagerWithStuckWriter() {
        id = engine.createLogger("Test");
        engine.setLoggerPath(id, "logs");
        engine.setLoggerLevel(id, kLevelTrace);
    }

    void shut() {
        ASSERT_TRUE(engine.start());
        ASSERT_TRUE(engine.flush(kTimeoutMs));
        stuck.go.store(false);
        push(kLevelTrace, "stuck here");
    }

    bool push(int level, const std::string& text) {
        LogRecord* record = engine.makeRecord(id, level);
        text.copy(record->content + record->contentLength, text.size());
        record->contentLength += static_cast<std::int32_t>(text.size());
        return engine.pushLog(record, nullptr, 0);
    }

    void open() {
        stuck.go.store(true);
        engine.stop();
    }

    std::string written() const {
        std::string all;
        for (const std::string& path : files.pathsWith(".log")) {
            all += files.content(path);
        }
        return all;
    }

    StuckConsole stuck;
    LogerManager engine{{clock, files, stuck, "host"}};
    int id = 0;
};

} // namespace

TEST_F(ManagerWithStuckWriter, ALineThatTheLoggersNewLevelRefusesIsCountedAndNotWritten) {
    shut();
    EXPECT_TRUE(engine.setLoggerLevel(id, kLevelFatal));
    EXPECT_TRUE(push(kLevelError, "accepted, and then too low"));
    EXPECT_TRUE(push(kLevelFatal, "high enough"));
    open();
    EXPECT_EQ(engine.totalRecordsPopped(), 3u);
    EXPECT_EQ(engine.totalLinesWritten(), 2u);
    EXPECT_EQ(written().find("accepted"), std::string::npos);
    EXPECT_NE(written().find("high enough"), std::string::npos);
    EXPECT_EQ(engine.totalLinesLost(), 0u);
}

TEST_F(ManagerWithStuckWriter, ALineOfALoggerThatIsDisabledMeanwhileIsCountedAndNotWritten) {
    shut();
    EXPECT_TRUE(engine.enableLogger(id, false));
    EXPECT_TRUE(push(kLevelFatal, "accepted, and then disabled"));
    open();
    EXPECT_EQ(engine.totalRecordsPopped(), 2u);
    EXPECT_EQ(engine.totalLinesWritten(), 1u);
    EXPECT_EQ(written().find("accepted"), std::string::npos);
    EXPECT_EQ(engine.totalLinesLost(), 0u);
}

TEST_F(ManagerWithStuckWriter,
       HalfOfTheCallersAreHeldBackForFiftyMillisecondsWhileThirtyThousandRecordsWait) {
    engine.setLoggerOutFile(id, false);
    shut();
    for (int i = 0; i < 30000; ++i) {
        engine.pushLog(engine.makeRecord(id, kLevelTrace), nullptr, 0);
    }
    for (int i = 0; i < 1000; ++i) {
        EXPECT_TRUE(engine.wouldLog(id, kLevelTrace));
    }
    const std::vector<unsigned> sleeps = clock.sleeps();
    EXPECT_GT(sleeps.size(), 300u);
    EXPECT_LT(sleeps.size(), 700u);
    EXPECT_EQ(sleeps, std::vector<unsigned>(sleeps.size(), 50u));
    open();
}

TEST_F(ManagerWithStuckWriter, CallersAreHeldBackWhileMoreThanTwentyThousandRecordsWait) {
    engine.setLoggerOutFile(id, false);
    shut();
    for (int i = 0; i < 20001; ++i) {
        engine.pushLog(engine.makeRecord(id, kLevelTrace), nullptr, 0);
    }
    for (int i = 0; i < 1000; ++i) {
        EXPECT_TRUE(engine.wouldLog(id, kLevelTrace));
    }
    EXPECT_TRUE(clock.sleeps().empty()) << "just above the limit the delay is 0";
    for (int i = 0; i < 20000; ++i) {
        engine.pushLog(engine.makeRecord(id, kLevelTrace), nullptr, 0);
    }
    for (int i = 0; i < 10; ++i) {
        EXPECT_TRUE(engine.wouldLog(id, kLevelTrace));
    }
    EXPECT_EQ(clock.sleeps(), std::vector<unsigned>(10, 100u)) << "always, and as long as it gets";
    EXPECT_FALSE(engine.flush(20)) << "a writer that is stuck ends the wait, not the caller";
    open();
    EXPECT_EQ(engine.totalLinesWritten(), 40002u);
}
