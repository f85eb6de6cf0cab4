#include "oracle/entries.h"
#include "oracle/packets.h"
#include "support/log_capture.h"
#include "support/session/session_support.h"

#include <gtest/gtest.h>

#include <string>

using namespace support;

namespace {

class AccountId : public testing::Test {
protected:
    Host host;
    DirectSession direct;
};

std::vector<std::string> accountsOf(const RecordingSocket& stream) {
    std::vector<std::string> accounts;
    for (const oracle::Packet& packet : stream.packets()) {
        accounts.push_back(accountOf(packet.payload));
    }
    return accounts;
}

} // namespace

TEST_F(AccountId, IsSentAsANotifyAndLogged) {
    LogCapture log;
    EXPECT_TRUE(direct.session.setAccountID("someone"));
    EXPECT_EQ(log.lines("Sonvia_PCAudioMessage"),
              (std::vector<LogLine>{{'I', "Sonvia_PCAudioMessage", "QuPCAudioMessage::setAccountID", 0,
                                     "send notify accountid."}}));
    EXPECT_EQ(direct.stream.packets(),
              (std::vector<oracle::Packet>{{0x24, 34, 0, oracle::encodeText("accountID", "someone")}}));
}

TEST_F(AccountId, IsLoggedWhenItHasBeenSent) {
    LoggingSocket stream;
    direct.session.setStream(&stream);
    LogCapture log;
    EXPECT_TRUE(direct.session.setAccountID("someone"));
    const std::vector<LogLine> lines = log.lines("Sonvia_PCAudioMessage");
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].text, "written");
    EXPECT_EQ(lines[1].text, "send notify accountid.");
}

TEST_F(AccountId, EmptyTextIsRefusedAndNothingIsSent) {
    LogCapture log;
    EXPECT_FALSE(direct.session.setAccountID(""));
    EXPECT_TRUE(log.lines().empty());
    EXPECT_TRUE(direct.stream.writes.empty());
}

TEST_F(AccountId, NullIsAnEmptyText) {
    EXPECT_FALSE(direct.session.setAccountID(nullptr));
    EXPECT_TRUE(direct.stream.writes.empty());
}

TEST_F(AccountId, TextOf255BytesIsSentWhole) {
    const std::string text(255, 'a');
    EXPECT_TRUE(direct.session.setAccountID(text.c_str()));
    EXPECT_EQ(accountsOf(direct.stream), std::vector<std::string>{text});
}

TEST_F(AccountId, TextOf256BytesOrMoreIsRefusedAndNothingIsSent) {
    LogCapture log;
    for (const std::size_t length : {256U, 257U, 100000U}) {
        EXPECT_FALSE(direct.session.setAccountID(std::string(length, 'a').c_str())) << length;
    }
    EXPECT_TRUE(log.lines().empty());
    EXPECT_TRUE(direct.stream.writes.empty());
}

TEST_F(AccountId, ARefusedTextChangesNeitherTheIdNorTheSequence) {
    direct.session.setAccountID("abcdef");
    direct.session.setAccountID("");
    direct.session.setAccountID(std::string(256, 'x').c_str());
    direct.session.setAccountID("x");
    EXPECT_EQ(accountsOf(direct.stream), (std::vector<std::string>{"abcdef", "xbcdef"}));
    EXPECT_EQ(direct.stream.packets().back().sequence, 1);
}

TEST_F(AccountId, AShorterIdLeavesTheTailOfALongerOneForCompatibility) {
    direct.session.setAccountID("abcdef");
    direct.session.setAccountID("abc");
    direct.session.setAccountID("xyz");
    EXPECT_EQ(accountsOf(direct.stream), (std::vector<std::string>{"abcdef", "abcdef", "xyzdef"}));
}

TEST_F(AccountId, OverwritesTheStartOfTheRecordsId) {
    direct.session.onConnect(nullptr, 0);
    direct.session.init(Host::record());
    direct.stream.writes.clear();
    direct.session.setAccountID("THE");
    EXPECT_EQ(accountsOf(direct.stream), std::vector<std::string>{"THE account"});
}

TEST_F(AccountId, WhatIsSetGoesOutWithTheNextDeviceInformationToo) {
    direct.session.setAccountID("abcdef");
    direct.session.setAccountID("xyz");
    direct.stream.writes.clear();
    direct.session._setKORUInfoNotify();
    EXPECT_EQ(koruInfoOf(direct.stream.packets().at(0).payload).at(0).second, "xyzdef");
}

TEST_F(AccountId, InAnUnterminatedFieldAtMost256BytesAreRead) {
    AudioServiceParam param = Host::record();
    setText(param.accountID, std::string(300, 'o'));
    direct.session.onConnect(nullptr, 0);
    direct.session.init(param);
    direct.stream.writes.clear();
    direct.session.setAccountID("abc");
    EXPECT_EQ(accountsOf(direct.stream), std::vector<std::string>{"abc" + std::string(253, 'o')});
}

TEST_F(AccountId, EachSendTakesTheNextSequenceNumberFromZero) {
    for (int index = 0; index < 5; ++index) {
        direct.session.setAccountID("a");
    }
    std::vector<int> numbers;
    for (const oracle::Packet& packet : direct.stream.packets()) {
        numbers.push_back(packet.sequence);
    }
    EXPECT_EQ(numbers, (std::vector<int>{0, 1, 2, 3, 4}));
}

TEST_F(AccountId, SequenceNumbersAreTheLowSixteenBitsOfACounter) {
    LogCapture quiet;
    for (int index = 0; index < 65535; ++index) {
        direct.session.setAccountID("a");
    }
    direct.stream.writes.clear();
    direct.session.setAccountID("a");
    direct.session.setAccountID("a");
    direct.session._setKORUInfoNotify();
    const std::vector<oracle::Packet> packets = direct.stream.packets();
    ASSERT_EQ(packets.size(), 3U);
    EXPECT_EQ(packets[0].sequence, 65535);
    EXPECT_EQ(packets[1].sequence, 0);
    EXPECT_EQ(packets[2].sequence, 1);
}

TEST_F(AccountId, IsTakenAndTrueWithoutAnyConnection) {
    PipeSession unconnected;
    EXPECT_TRUE(unconnected.session->setAccountID("a"));
}
