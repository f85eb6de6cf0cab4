// What the service reports and what the host then sees.
#include "support/service_fixture.h"

namespace {

using support::error;
using support::event;
using support::HostEvent;

class Notifications : public support::ServiceTest {
protected:
    // All events but the last one, which playConnected added.
    std::vector<HostEvent> seen() {
        std::vector<HostEvent> all = events.all();
        if (!all.empty()) {
            all.pop_back();
        }
        return all;
    }
};

TEST_F(Notifications, PlayerStateAndPhoneNameAreKeptForPolling) {
    playConnected("packet 34\n int player-state 2\n string phone-name \"Handset A\"\nend");
    EXPECT_EQ(api.state(handle), 2U);
    EXPECT_STREQ(api.sourceName(handle), "Handset A");
    EXPECT_TRUE(seen().empty());
}

TEST_F(Notifications, PlayerStateIsUnsigned) {
    playConnected("notify int player-state -1");
    EXPECT_EQ(api.state(handle), 0xFFFFFFFFU);
}

TEST_F(Notifications, EmptyPhoneNameFallsBackToPhone) {
    playConnected("notify string phone-name \"Handset A\"\nnotify string phone-name \"\"");
    EXPECT_STREQ(api.sourceName(handle), "phone");
}

TEST_F(Notifications, PhoneNameOfAnotherTypeIsNotTaken) {
    playConnected("notify string phone-name \"Handset A\"\nnotify int phone-name 5");
    EXPECT_STREQ(api.sourceName(handle), "Handset A");
}

TEST_F(Notifications, PhoneNameKeepsEveryByteOfItsEncoding) {
    playConnected(R"(notify string phone-name "\xe6\x89\x8b\xe6\x9c\xba")");
    EXPECT_STREQ(api.sourceName(handle), "\xe6\x89\x8b\xe6\x9c\xba");
}

TEST_F(Notifications, BufferingAndFirstAudioAreEventsWhateverTheirValue) {
    playConnected("notify string buffering-start text\n"
                  "notify byte buffering-end 9\n"
                  "notify typed 8 first-audiopcm 0102030405060708\n"
                  "notify int buffering-start -5");
    EXPECT_EQ(seen(), (std::vector<HostEvent>{event(200001, 0), event(200002, 0), event(200003, 0),
                                              event(200001, 0)}));
}

TEST_F(Notifications, ModeIsPassedAsItIs) {
    playConnected("notify int change-mode 3\nnotify int change-mode -3\nnotify int change-mode 0x80000000");
    EXPECT_EQ(seen(), (std::vector<HostEvent>{event(200006, 3), event(200006, -3),
                                              event(200006, std::numeric_limits<int>::min())}));
}

TEST_F(Notifications, SeveralKeysInOnePacketAreHandledInTheOrderOfTheKeys) {
    playConnected("packet 34\n"
                  " int player-state 1\n string phone-name B\n int first-audiopcm 1\n"
                  " int change-mode 4\n int buffering-start 1\n int buffering-end 1\n"
                  "end");
    EXPECT_EQ(seen(), (std::vector<HostEvent>{event(200002, 0), event(200001, 0), event(200006, 4),
                                              event(200003, 0)}));
    EXPECT_EQ(api.state(handle), 1U);
    EXPECT_STREQ(api.sourceName(handle), "B");
}

TEST_F(Notifications, ValueOfAnotherTypeIsReadAsZero) {
    playConnected("notify int player-state 2\nnotify string player-state x\nnotify byte change-mode 7");
    EXPECT_EQ(api.state(handle), 0U);
    EXPECT_EQ(seen(), std::vector<HostEvent>{event(200006, 0)});
}

TEST_F(Notifications, LastOfTwoEntriesWithOneKeyCounts) {
    playConnected("packet 34\n int change-mode 1\n int change-mode 2\nend");
    EXPECT_EQ(seen(), std::vector<HostEvent>{event(200006, 2)});
}

TEST_F(Notifications, UnknownKeysChangeNothing) {
    playConnected(
        "packet 34\n int volume 3\n string Phone-Name X\n nested player\n  int player-state 1\n end\nend");
    EXPECT_TRUE(seen().empty());
    EXPECT_EQ(api.state(handle), 4U);
    EXPECT_STREQ(api.sourceName(handle), "phone");
}

TEST_F(Notifications, PacketsOfOtherCommandsChangeNothing) {
    playConnected("repeat 34 as c\n packet $c\n  int player-state 1\n  int buffering-start 1\n end\nend\n"
                  "packet 35\n int player-state 1\n int change-mode 1\nend\n"
                  "packet 8193\n int StopSonviaAudioService 200004\nend\n"
                  "packet 65535\n int player-state 1\nend");
    EXPECT_TRUE(seen().empty());
    EXPECT_EQ(api.state(handle), 4U);
}

TEST_F(Notifications, CallbacksAllComeFromOneThreadThatIsNotTheHosts) {
    playConnected("repeat 100\n notify int buffering-start 1\nend");
    const std::vector<HostEvent> all = events.all();
    ASSERT_EQ(all.size(), 101U);
    for (const HostEvent& each : all) {
        EXPECT_EQ(each.thread, all[0].thread);
        EXPECT_NE(each.thread, std::this_thread::get_id());
    }
}

TEST_F(Notifications, HostMayCallTheLibraryInsideACallback) {
    start(support::kAfterDeviceInformation +
          std::string("notify int player-state 6\nnotify int buffering-start 1\n"));
    std::uint32_t state = 0;
    bool results = false;
    events.setReaction([&](const HostEvent&) {
        const AudioServiceParam again = support::completeParam();
        state = api.state(handle);
        results = api.setAccountID(handle, "inside") && api.exitProjection(handle) &&
                  api.setParam(handle, &again) && std::string(api.sourceName(handle)) == "phone";
    });
    const AudioServiceParam param = support::completeParam();
    ASSERT_TRUE(api.setParam(handle, &param));
    ASSERT_TRUE(standin.waitForPackets(2, support::kNotify, "KORUInfo"));
    EXPECT_EQ(standin.packets(support::kNotify, "accountID").size(), 1U);
    EXPECT_EQ(standin.packets(support::kNotify, "exitAudioProjection").size(), 1U);
    stop();
    EXPECT_TRUE(results);
    EXPECT_EQ(state, 6U);
}

TEST_F(Notifications, NameThatWasReadStaysReadableWhileTheNextOneArrives) {
    startAndConfigure(
        support::kAfterDeviceInformation +
        std::string("notify string phone-name \"First name of the phone, too long to be kept inside a "
                    "small text object\"\nnotify int change-mode 1\n"
                    "wait packet key exitAudioProjection\n"
                    "notify string phone-name Second\nnotify int change-mode 2\n"));
    ASSERT_TRUE(events.waitFor(event(SONVIA_EVENT_MODE_CHANGED, 1)));
    const char* first = api.sourceName(handle);
    EXPECT_TRUE(api.exitProjection(handle));
    ASSERT_TRUE(events.waitFor(event(SONVIA_EVENT_MODE_CHANGED, 2)));
    EXPECT_EQ(std::string(first).substr(0, 10), "First name");
    EXPECT_STREQ(api.sourceName(handle), "Second");
}

} // namespace
