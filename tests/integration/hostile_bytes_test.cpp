// Bytes that a careful service would not send, and amounts and cuts that are merely unusual.
#include <cstring>

#include "support/process.h"
#include "support/service_fixture.h"

namespace {

using support::event;
using support::HostEvent;

constexpr std::size_t kMegabyte = 1024U * 1024U;

// After each test's bytes comes a packet in good order: the stream must still be in step.
class HostileBytes : public support::ServiceTest {};

TEST_F(HostileBytes, PacketSplitIntoSingleBytesIsOnePacket) {
    playConnected("split pace 2\n packet 34\n  int player-state 2\n  string phone-name \"Handset A\"\n"
                  "  int buffering-start 1\n end\nend");
    EXPECT_EQ(events.all(),
              (std::vector<HostEvent>{event(200001, 0), event(SONVIA_EVENT_MODE_CHANGED, kLastMode)}));
    EXPECT_EQ(api.state(handle), 2U);
    EXPECT_STREQ(api.sourceName(handle), "Handset A");
}

TEST_F(HostileBytes, ThousandPacketsInOneWriteAreAThousandEventsInOrder) {
    playConnected("join\n repeat 1000\n  notify int change-mode $i\n end\nend");
    const std::vector<HostEvent> all = events.all();
    ASSERT_EQ(all.size(), 1001U);
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(all[static_cast<std::size_t>(i)], event(SONVIA_EVENT_MODE_CHANGED, i));
    }
}

TEST_F(HostileBytes, PacketOfSixteenMegabytesArrivesWhole) {
    playConnected("notify fill-string phone-name 16777216");
    const char* name = api.sourceName(handle);
    EXPECT_EQ(std::strlen(name), 16 * kMegabyte);
    EXPECT_EQ(std::strspn(name, "x"), 16 * kMegabyte);
}

TEST_F(HostileBytes, PromiseOfFourGigabytesCostsOnlyWhatArrives) {
    startAndConfigure("wait packet key KORUInfo\nnotify int buffering-start 1\nwait file go\n"
                      "packet 34 size 4294967295\n hex 01\nend\nfill 1048576 0x41\nexit\n");
    ASSERT_TRUE(events.waitFor(event(200001, 0)));
    const std::size_t before = support::ownSize().memoryBytes;
    standin.signal("go");
    ASSERT_TRUE(events.waitForCount(2)); // the service has left: every byte it sent has been read
    const std::size_t after = support::ownSize().memoryBytes;
    EXPECT_TRUE(events.all().back().isError);
    EXPECT_LT(after, before + 64 * kMegabyte);
}

TEST_F(HostileBytes, EveryTruncationOfAPayloadIsSurvived) {
    playConnected("repeat 110 as lost\n packet 34 cut $lost\n"
                  "  string phone-name \"Handset A\"\n  int player-state 2\n  byte first-audiopcm 1\n"
                  "  nested buffering-end\n   int a 1\n  end\n  typed 8 volume 0102030405060708\n"
                  "  int change-mode 5\n end\nend");
    EXPECT_STREQ(api.sourceName(handle), "Handset A");
}

TEST_F(HostileBytes, EntryWhoseLengthRunsPastThePayloadIsNotRead) {
    playConnected("notify string phone-name short length 1000000\n"
                  "notify string phone-name short length 0xFFFFFFFF\n"
                  "notify string phone-name short length 6\n"
                  "packet 34\n nested n length 65535\n  int a 1\n end\nend\n"
                  "packet 34\n hex FF 70 68\nend\n"
                  "packet 34\n hex 0A\nend");
    EXPECT_STREQ(api.sourceName(handle), "phone");
    EXPECT_EQ(events.count(), 1U);
}

TEST_F(HostileBytes, TruncatedModeIsNoEvent) {
    playConnected("packet 34 cut 2\n int change-mode 5\nend");
    EXPECT_EQ(events.count(), 1U);
}

TEST_F(HostileBytes, UnknownTypesAndCommandsKeepTheStreamInStep) {
    playConnected("repeat 256 as n\n packet 40000\n  hex 01 41\n  byte k 1\n end\nend\n"
                  "packet 34\n typed 15 a\n typed 23 b\n typed 255 c\n int player-state 3\nend");
    EXPECT_EQ(api.state(handle), 3U);
    EXPECT_EQ(events.count(), 1U);
}

TEST_F(HostileBytes, EmptyPayloadChangesNothing) {
    playConnected("packet 34\nend\npacket 0\nend\nrepeat 100\n packet 34\n end\nend");
    EXPECT_EQ(events.count(), 1U);
    EXPECT_EQ(api.state(handle), 4U);
}

TEST_F(HostileBytes, FirstByteOfAHeaderIsNotLookedAt) {
    playConnected(
        "packet 34 magic 0\n int player-state 1\nend\npacket 34 magic 255\n int buffering-start 1\nend");
    EXPECT_EQ(api.state(handle), 1U);
    EXPECT_EQ(events.all().at(0), event(200001, 0));
}

TEST_F(HostileBytes, EmptyKeyAndKeyOf255BytesAreUnknownKeys) {
    playConnected("packet 34\n int \"\" 1\n string " + std::string(255, 'k') +
                  " v\n int player-state 9\nend");
    EXPECT_EQ(api.state(handle), 9U);
    EXPECT_EQ(events.count(), 1U);
}

} // namespace
