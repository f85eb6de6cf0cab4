// What is left when the system has no thread for the loop or for the log's writer.

#include "log/manager.h"
#include "support/api/api_support.h"
#include "support/api/refusing_threads.h"
#include "support/log_capture.h"
#include "support/output_capture.h"

#include <gtest/gtest.h>

#include <string>

using namespace support;

namespace {

class RefusedThread : public testing::Test {
protected:
    // As a host does: libuv holds the pipe until its loop has run.
    ~RefusedThread() override { EXPECT_TRUE(uninitSonviaAudioService(direct.handle)); }

    bool setParamWithoutThreads() {
        const RefusingThreads refusing;
        return setParam(direct.handle, &record);
    }

    Host host;
    AudioServiceParam record = Host::record();
    DirectHandle direct;
};

} // namespace

TEST_F(RefusedThread, ForTheLoopMakesSetParamFailAndTheHandleCanBeReleased) {
    LogCapture log;
    EXPECT_FALSE(setParamWithoutThreads());
    bool reported = false;
    for (const LogLine& line : log.lines(kApiTag)) {
        reported = reported || (line.letter == 'E' && line.function == "setParam" &&
                                line.text.find("thread start failed: ") == 0);
    }
    EXPECT_TRUE(reported);
    EXPECT_EQ(direct.record->loopThread, nullptr);
}

TEST_F(RefusedThread, ForTheLoopLetsALaterSetParamSucceed) {
    EXPECT_FALSE(setParamWithoutThreads());
    EXPECT_TRUE(setParam(direct.handle, &record));
    ASSERT_NE(direct.record->loopThread, nullptr);
    // Nobody serves the pipe: that is what the connect of the first call ends with.
    EXPECT_TRUE(Host::waitForErrors(1));
}

TEST_F(RefusedThread, ForTheLoopLetsTheHandleBeReleasedByAHostThatTriesAgain) {
    EXPECT_FALSE(setParamWithoutThreads());
    AudioServiceHandle* const handle = direct.handle;
    int tries = 0;
    Host::whenError([&](int, int) {
        ++tries;
        EXPECT_FALSE(setParam(handle, &record));
    });
    EXPECT_TRUE(uninitSonviaAudioService(handle));
    EXPECT_EQ(tries, 1);
    Host::whenError({});
}

TEST(RefusedWriterThread, LeavesTheManagerNotRunningUntilItIsStartedAgain) {
    orvel::log4z::LogerManager manager(orvel::log4z::LogSystem::real());
    OutputCapture output;
    {
        const RefusingThreads refusing;
        EXPECT_FALSE(manager.start());
    }
    EXPECT_EQ(output.end(), "log: create log thread error! \n");
    EXPECT_FALSE(manager.stop());
    EXPECT_TRUE(manager.start());
    EXPECT_TRUE(manager.stop());
}
