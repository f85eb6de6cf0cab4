// What each notification of the service does.

#include "oracle/entries.h"
#include "support/log_capture.h"
#include "support/session/session_support.h"

#include <gtest/gtest.h>

#include <string>

using namespace support;
using oracle::Bytes;
using oracle::encodeInt;
using oracle::encodeText;
using oracle::join;

namespace {

using Calls = std::vector<Host::Call>;

LogLine debugLine(const std::string& handler, const std::string& text) {
    return {'D', kSessionTag, "QuPCAudioMessage::" + handler, 0, text};
}

class Notify : public testing::Test {
protected:
    Notify() {
        direct.session.onConnect(nullptr, 0);
        direct.session.init(Host::record());
        direct.stream.writes.clear();
    }

    std::string phoneName() {
        const char* name = direct.session.getPhoneName();
        return name != nullptr ? name : "<null>";
    }

    Host host;
    DirectSession direct;
};

const Bytes kAllSix =
    join({encodeInt("player-state", 2), encodeText("phone-name", "Handset A"), encodeInt("first-audiopcm", 1),
          encodeInt("change-mode", 3), encodeInt("buffering-start", 1), encodeInt("buffering-end", 1)});

} // namespace

TEST_F(Notify, PlayerStateIsStoredAndLoggedWithoutACallback) {
    LogCapture log;
    direct.receive(encodeInt("player-state", 2));
    EXPECT_EQ(log.lines(), (std::vector<LogLine>{debugLine("handlePlayerState", "Player state is 2.")}));
    EXPECT_EQ(direct.session.getPlayerState(), 2U);
    EXPECT_TRUE(Host::events().empty());
}

TEST_F(Notify, PlayerStateKeepsAllThirtyTwoBits) {
    direct.receive(encodeInt("player-state", -1));
    EXPECT_EQ(direct.session.getPlayerState(), 0xFFFFFFFFU);
    direct.receive(encodeInt("player-state", INT32_MIN));
    EXPECT_EQ(direct.session.getPlayerState(), 0x80000000U);
}

TEST_F(Notify, PlayerStateOfAnotherTypeStoresZero) {
    const std::vector<Bytes> others = {encodeText("player-state", "2"),
                                       oracle::encodeRaw("player-state", 3, {2}),
                                       oracle::encodeRaw("player-state", 7, {0, 0, 0, 2}),
                                       oracle::encode({"player-state", 14, encodeInt("player-state", 2)})};
    for (const Bytes& other : others) {
        direct.receive(encodeInt("player-state", 7));
        LogCapture log;
        direct.receive(other);
        EXPECT_EQ(log.lines(), (std::vector<LogLine>{debugLine("handlePlayerState", "Player state is 0.")}));
        EXPECT_EQ(direct.session.getPlayerState(), 0U);
    }
}

TEST_F(Notify, FirstAudioIsAnEventWithValueZero) {
    LogCapture log;
    direct.receive(encodeInt("first-audiopcm", 17));
    EXPECT_EQ(log.lines(),
              (std::vector<LogLine>{debugLine("handleFirstPCM", "kKORUSinkInfoFirstAudioPCM.")}));
    EXPECT_EQ(Host::events(), (Calls{{200003, 0}}));
}

TEST_F(Notify, BufferingStartIsAnEventWithValueZero) {
    LogCapture log;
    direct.receive(encodeInt("buffering-start", 17));
    EXPECT_EQ(log.lines(),
              (std::vector<LogLine>{debugLine("handleBufferStart", "kKORUSinkInfoBufferingStart.")}));
    EXPECT_EQ(Host::events(), (Calls{{200001, 0}}));
}

TEST_F(Notify, BufferingEndIsAnEventWithValueZero) {
    LogCapture log;
    direct.receive(encodeInt("buffering-end", 17));
    EXPECT_EQ(log.lines(),
              (std::vector<LogLine>{debugLine("handleBufferEnd", "kKORUSinkInfoBufferingEnd.")}));
    EXPECT_EQ(Host::events(), (Calls{{200002, 0}}));
}

TEST_F(Notify, ValuesOfTheThreePlainEventsAreNeverRead) {
    for (const std::string key : {"first-audiopcm", "buffering-start", "buffering-end"}) {
        for (const std::uint8_t type : Bytes{0, 3, 4, 6, 7, 8, 12, 14, 20, 22}) {
            const unsigned width = oracle::layoutOf(type).fixedWidth;
            Host fresh;
            direct.receive(oracle::encode({key, type, Bytes(width == 0 ? 5 : width, 0xEE)}));
            ASSERT_EQ(Host::events().size(), 1U) << key << " of type " << +type;
            EXPECT_EQ(Host::events()[0].second, 0);
        }
    }
}

TEST_F(Notify, ChangeModeIsAnEventWithTheMode) {
    LogCapture log;
    direct.receive(encodeInt("change-mode", 3));
    EXPECT_EQ(log.lines(), (std::vector<LogLine>{debugLine("handleChangeMode", "change mode to 3.")}));
    EXPECT_EQ(Host::events(), (Calls{{200006, 3}}));
}

TEST_F(Notify, NegativeModeIsPassedAsItIs) {
    LogCapture log;
    direct.receive(encodeInt("change-mode", -3));
    direct.receive(encodeInt("change-mode", INT32_MIN));
    EXPECT_EQ(log.lines(),
              (std::vector<LogLine>{debugLine("handleChangeMode", "change mode to -3."),
                                    debugLine("handleChangeMode", "change mode to -2147483648.")}));
    EXPECT_EQ(Host::events(), (Calls{{200006, -3}, {200006, INT32_MIN}}));
}

TEST_F(Notify, ChangeModeOfAnotherTypeIsAnEventWithModeZero) {
    direct.receive(encodeText("change-mode", "3"));
    EXPECT_EQ(Host::events(), (Calls{{200006, 0}}));
}

TEST_F(Notify, PhoneNameIsStoredWithoutALineOrACallback) {
    LogCapture log;
    direct.receive(encodeText("phone-name", "Handset A"));
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(phoneName(), "Handset A");
    EXPECT_TRUE(Host::events().empty());
}

TEST_F(Notify, EmptyPhoneNameMakesTheStoredOneEmpty) {
    direct.receive(encodeText("phone-name", "Handset A"));
    direct.receive(encodeText("phone-name", ""));
    EXPECT_EQ(phoneName(), "<null>");
}

TEST_F(Notify, PhoneNameOfAnotherTypeKeepsTheStoredOne) {
    direct.receive(encodeText("phone-name", "Handset A"));
    direct.receive(encodeInt("phone-name", 1));
    EXPECT_EQ(phoneName(), "Handset A");
}

TEST_F(Notify, LongPhoneNameIsStoredWhole) {
    const std::string name(100000, 'n');
    direct.receive(encodeText("phone-name", name));
    EXPECT_EQ(phoneName(), name);
}

TEST_F(Notify, NameAndStateInOnePayloadAreBothStored) {
    direct.receive(join({encodeInt("player-state", 2), encodeText("phone-name", "Handset A")}));
    EXPECT_EQ(direct.session.getPlayerState(), 2U);
    EXPECT_EQ(phoneName(), "Handset A");
}

TEST_F(Notify, HandlersOfOnePayloadRunInAscendingOrderOfTheirKeys) {
    LogCapture log;
    direct.receive(kAllSix);
    std::vector<std::string> functions;
    for (const LogLine& line : log.lines(kSessionTag)) {
        functions.push_back(line.function.substr(line.function.rfind(':') + 1));
    }
    EXPECT_EQ(functions, (std::vector<std::string>{"handleBufferEnd", "handleBufferStart", "handleChangeMode",
                                                   "handleFirstPCM", "handlePlayerState"}));
    EXPECT_EQ(Host::events(), (Calls{{200002, 0}, {200001, 0}, {200006, 3}, {200003, 0}}));
    EXPECT_EQ(phoneName(), "Handset A");
}

TEST_F(Notify, NameAndStateAreStoredAfterTheEventsOfTheirPayload) {
    std::vector<std::string> seen;
    Host::whenEvent(
        [&](int, int) { seen.push_back(phoneName() + std::to_string(direct.session.getPlayerState())); });
    direct.receive(kAllSix);
    EXPECT_EQ(seen, std::vector<std::string>(4, "<null>4"));
}

TEST_F(Notify, AKeyThatComesTwiceRunsItsHandlerOnceWithTheLaterValue) {
    direct.receive(
        join({encodeInt("change-mode", 1), encodeInt("buffering-end", 0), encodeInt("change-mode", 2)}));
    EXPECT_EQ(Host::events(), (Calls{{200002, 0}, {200006, 2}}));
}

TEST_F(Notify, UnknownKeysAreSkippedSilently) {
    LogCapture log;
    direct.receive(join({encodeInt("volume", 3), encodeText("Phone-Name", "x"), encodeInt("player-state ", 1),
                         encodeInt("", 1), encodeInt("player-stat", 1)}));
    EXPECT_TRUE(log.lines().empty());
    EXPECT_TRUE(Host::events().empty());
    EXPECT_TRUE(Host::errors().empty());
    EXPECT_EQ(direct.session.getPlayerState(), 4U);
    EXPECT_EQ(phoneName(), "<null>");
    EXPECT_TRUE(direct.stream.writes.empty());
}

TEST_F(Notify, UnknownKeysBetweenKnownOnesAreSkipped) {
    direct.receive(join({encodeInt("a", 1), encodeInt("change-mode", 3), encodeText("zzz", "z"),
                         encodeInt("player-state", 1)}));
    EXPECT_EQ(Host::events(), (Calls{{200006, 3}}));
    EXPECT_EQ(direct.session.getPlayerState(), 1U);
}

TEST_F(Notify, EmptyPayloadDoesNothing) {
    LogCapture log;
    direct.receive({});
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(direct.session.getPlayerState(), 4U);
}

TEST_F(Notify, EveryTruncationRunsOnlyTheHandlersOfWholeEntries) {
    for (std::size_t size = 0; size < kAllSix.size(); ++size) {
        Host fresh;
        DirectSession cut;
        cut.session.onConnect(nullptr, 0);
        cut.session.init(Host::record());
        cut.receive(Bytes(kAllSix.begin(), kAllSix.begin() + static_cast<std::ptrdiff_t>(size)));
        const std::size_t state = encodeInt("player-state", 2).size();
        const std::size_t name = state + encodeText("phone-name", "Handset A").size();
        EXPECT_EQ(cut.session.getPlayerState(), size >= state ? 2U : 4U) << size;
        EXPECT_EQ(cut.session.getPhoneName() != nullptr, size >= name) << size;
        EXPECT_LT(Host::events().size(), 4U) << size;
    }
}

TEST_F(Notify, PacketsWithAnyOtherCommandChangeNothing) {
    LogCapture log;
    for (int command = 0; command < 65536; ++command) {
        if (command != 34) {
            direct.receive(kAllSix, static_cast<std::uint16_t>(command));
        }
    }
    EXPECT_TRUE(log.lines().empty());
    EXPECT_TRUE(Host::events().empty());
    EXPECT_EQ(direct.session.getPlayerState(), 4U);
    EXPECT_EQ(phoneName(), "<null>");
    EXPECT_TRUE(direct.stream.writes.empty());
}

TEST_F(Notify, WithoutARecordEventsAreOnlyLogged) {
    DirectSession fresh;
    LogCapture log;
    fresh.receive(kAllSix);
    EXPECT_EQ(log.lines(kSessionTag).size(), 5U);
    EXPECT_EQ(fresh.session.getPlayerState(), 2U);
    EXPECT_TRUE(Host::events().empty());
}

TEST_F(Notify, EventsStillArriveAfterTheSessionEnded) {
    direct.session.stopService(seriesFrom(1)); // silences errors only
    direct.receive(encodeInt("buffering-end", 0));
    EXPECT_EQ(Host::events(), (Calls{{200002, 0}}));
}

TEST_F(Notify, ReadsAreHandedOnHoweverTheyAreCut) {
    const Bytes stream = join({notify(encodeInt("change-mode", 1)), notify(encodeInt("change-mode", 2))});
    for (const std::uint8_t byte : stream) {
        direct.session.onRead(chainOf({byte}), 0);
    }
    EXPECT_EQ(Host::events(), (Calls{{200006, 1}, {200006, 2}}));
}

TEST_F(Notify, CallbacksMayCallBackIntoTheSession) {
    int depth = 0;
    Host::whenEvent([&](int, int value) {
        if (++depth > 1) {
            return;
        }
        EXPECT_EQ(value, 3);
        EXPECT_TRUE(direct.session.setAccountID("inside"));
        EXPECT_TRUE(direct.session.init(Host::record()));
        direct.session.endProjection(seriesFrom(9));
        EXPECT_EQ(direct.session.getPlayerState(), 4U);
        EXPECT_EQ(direct.session.getPhoneName(), nullptr);
    });
    direct.receive(encodeInt("change-mode", 3));
    EXPECT_EQ(depth, 1);
    EXPECT_EQ(direct.stream.packets().size(), 3U);
}

TEST_F(Notify, ServiceThatGoesEndsTheHandlersOfItsPayload) {
    Host::whenEvent([this](int, int) { direct.session.serviceHasEnded(); });
    direct.receive(kAllSix); // "buffering-end" is the first in the order of the keys
    EXPECT_EQ(Host::events(), (Calls{{200002, 0}}));
    EXPECT_EQ(direct.session.getPlayerState(), 4U);
}

TEST_F(Notify, PayloadOfAHundredThousandKeysIsDispatchedWithoutAnIndexOfThem) {
    Bytes payload = encodeInt("change-mode", 7);
    for (int entry = 0; entry < 100000; ++entry) {
        const Bytes next = {4,
                            'k',
                            static_cast<std::uint8_t>(entry >> 16),
                            static_cast<std::uint8_t>(entry >> 8),
                            static_cast<std::uint8_t>(entry),
                            3,
                            1};
        payload.insert(payload.end(), next.begin(), next.end());
    }
    direct.receive(payload);
    EXPECT_EQ(Host::events(), (Calls{{200006, 7}}));
}
