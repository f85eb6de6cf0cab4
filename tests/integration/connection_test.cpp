// Services that do not behave: late, gone, killed, deaf.
#include <algorithm>

#include <uv.h>

#include "support/process.h"
#include "support/service_fixture.h"
#include "support/wait.h"

namespace {

using support::error;
using support::event;
using support::HostEvent;

class Connection : public support::ServiceTest {
protected:
    // Exactly one event: the loss of a connection.
    void expectOneConnectionError() {
        const std::vector<HostEvent> all = events.all();
        ASSERT_EQ(all.size(), 1U);
        EXPECT_TRUE(all[0].isError);
        EXPECT_EQ(all[0].code, SONVIA_ERROR_CONNECTION);
        EXPECT_TRUE(all[0].value == UV_EOF || all[0].value == UV_ECONNRESET) << all[0].value;
    }
};

TEST_F(Connection, NobodyListeningIsReportedOnceAfterSetParamSucceeded) {
    startAndConfigure("no-pipe\n");
    ASSERT_TRUE(events.waitForCount(1));
    EXPECT_EQ(events.all().at(0), error(-2, 0));
    stop();
    EXPECT_EQ(events.count(), 1U);
}

TEST_F(Connection, ServiceThatEndedAtOnceIsReportedAsNoConnection) {
    start("no-pipe\nexit 3\n");
    ASSERT_TRUE(standin.waitForEvent("exit"));
    const AudioServiceParam param = support::completeParam();
    EXPECT_TRUE(api.setParam(handle, &param));
    ASSERT_TRUE(events.waitForCount(1));
    stop();
    EXPECT_EQ(events.all(), std::vector<HostEvent>{error(-2, 0)});
}

TEST_F(Connection, LaterSetParamConnectsToAServiceThatOpenedItsPipeLate) {
    startAndConfigure("wait file open\nlisten\nwait packet key KORUInfo\nnotify int buffering-start 1\n");
    ASSERT_TRUE(events.waitForCount(1));
    EXPECT_EQ(events.all().at(0), error(-2, 0));

    standin.signal("open");
    ASSERT_TRUE(standin.waitForEvent("listen"));
    const AudioServiceParam param = support::completeParam();
    ASSERT_TRUE(api.setParam(handle, &param));
    EXPECT_TRUE(events.waitFor(event(200001, 0)));
    EXPECT_EQ(standin.packets(support::kNotify, "KORUInfo").size(), 1U);
    EXPECT_EQ(events.count(), 2U);
}

TEST_F(Connection, RepeatedFailuresAreReportedEachTime) {
    startAndConfigure("no-pipe\n");
    for (std::size_t failures = 1; failures <= 5; ++failures) {
        ASSERT_TRUE(events.waitForCount(failures));
        const AudioServiceParam param = support::completeParam();
        // The connection that failed is cleared a moment before its callback is made.
        ASSERT_TRUE(api.setParam(handle, &param));
    }
    ASSERT_TRUE(events.waitForCount(6));
    stop();
    EXPECT_EQ(events.count(), 6U);
}

TEST_F(Connection, ServiceThatLeavesIsReportedOnce) {
    startAndConfigure("wait packet key KORUInfo\nexit\n");
    ASSERT_TRUE(events.waitForCount(1));
    EXPECT_EQ(api.state(handle), 4U);
    EXPECT_TRUE(api.exitProjection(handle));
    EXPECT_TRUE(api.setAccountID(handle, "nobody receives it"));
    stop();
    expectOneConnectionError();
}

TEST_F(Connection, ServiceKilledInTheMiddleOfAPacketIsReportedOnce) {
    startAndConfigure("wait packet key KORUInfo\nbytes 24 0022 0001 00001000 0F 62 75 66\ncrash\n");
    ASSERT_TRUE(events.waitForCount(1));
    stop();
    expectOneConnectionError();
}

TEST_F(Connection, ServiceKilledInTheMiddleOfAHeaderIsReportedOnce) {
    startAndConfigure("wait packet key KORUInfo\nbytes 24 00\ncrash\n");
    ASSERT_TRUE(events.waitForCount(1));
    stop();
    expectOneConnectionError();
}

TEST_F(Connection, LostConnectionIsNotMadeAgain) {
    startAndConfigure("wait packet key KORUInfo\ndisconnect\n");
    ASSERT_TRUE(events.waitForCount(1));
    const AudioServiceParam param = support::completeParam();
    EXPECT_TRUE(api.setParam(handle, &param));
    EXPECT_TRUE(api.setParam(handle, &param));
    stop();
    expectOneConnectionError();
    EXPECT_EQ(standin.recorded("connect").size(), 1U);
}

TEST_F(Connection, EventsBeforeALossAreAllDelivered) {
    startAndConfigure("wait packet key KORUInfo\nrepeat 500\n notify int change-mode $i\nend\nexit\n");
    ASSERT_TRUE(events.waitForCount(501));
    const std::vector<HostEvent> all = events.all();
    for (int i = 0; i < 500; ++i) {
        ASSERT_EQ(all[static_cast<std::size_t>(i)], event(200006, i));
    }
    EXPECT_TRUE(all.back().isError);
}

TEST_F(Connection, ServiceThatIgnoresTheStopIsEndedWithItsChildren) {
    startAndConfigure("on-stop ignore\nchildren 2\nnote ready\n");
    ASSERT_TRUE(standin.waitForNote("ready"));
    ASSERT_TRUE(standin.waitForPackets(1, support::kNotify, "KORUInfo"));
    const std::vector<support::Json> children = standin.recorded("child");
    ASSERT_EQ(children.size(), 2U);
    ASSERT_TRUE(support::processRuns(children[0].at("pid").number(), "standin_child.exe"));
    stop();
    EXPECT_FALSE(standin.running());
    for (const support::Json& child : children) {
        EXPECT_TRUE(support::processEnds(child.at("pid").number(), "standin_child.exe"));
    }
    EXPECT_EQ(standin.packets(support::kStop).size(), 1U);
    EXPECT_TRUE(standin.recorded("exit").empty());
    EXPECT_EQ(events.count(), 0U);
}

TEST_F(Connection, ServiceThatEndsInTimeIsNotEndedByForce) {
    startAndConfigure("on-stop exit code 7 after 100\n");
    ASSERT_TRUE(standin.waitForPackets(1, support::kNotify, "KORUInfo"));
    stop();
    ASSERT_EQ(standin.recorded("exit").size(), 1U);
    EXPECT_EQ(standin.recorded("exit").at(0).at("code").number(), 7);
    EXPECT_EQ(events.count(), 0U);
}

TEST_F(Connection, ServiceThatNeverReadsBlocksNobody) {
    startAndConfigure("wait packet key KORUInfo\nstop-reading\nnote deaf\n");
    ASSERT_TRUE(standin.waitForNote("deaf"));
    const std::string account(255, 'a');
    for (int i = 0; i < 5000; ++i) {
        ASSERT_TRUE(api.setAccountID(handle, account.c_str()));
    }
    stop();
    EXPECT_FALSE(standin.running());
    EXPECT_EQ(events.count(), 0U);
}

TEST_F(Connection, ServiceThatReadsInSmallBitesGetsEverything) {
    startAndConfigure("read-slowly 16 1\nwait packet key KORUInfo\nnotify int buffering-start 1\n");
    ASSERT_TRUE(events.waitFor(event(200001, 0)));
    ASSERT_TRUE(api.setAccountID(handle, "bite by bite"));
    ASSERT_TRUE(standin.waitForPackets(1, support::kNotify, "accountID"));
    stop();
    EXPECT_EQ(standin.packets(support::kStop).size(), 1U);
    EXPECT_EQ(events.count(), 1U);
}

TEST_F(Connection, NothingIsReportedOnceUninitHasReturned) {
    for (int i = 0; i < 3; ++i) {
        startAndConfigure("wait packet key KORUInfo\nrepeat forever\n notify int buffering-start 1\nend\n");
        ASSERT_TRUE(events.waitForCount(100));
        stop();
        const std::size_t count = events.count();
        const std::vector<HostEvent> all = events.all();
        EXPECT_TRUE(std::none_of(all.begin(), all.end(), [](const HostEvent& each) { return each.isError; }));
        EXPECT_TRUE(support::processEnds(standin.pid(), "QuPCAudio.exe"));
        EXPECT_EQ(events.count(), count);
        events.reset();
    }
}

} // namespace
