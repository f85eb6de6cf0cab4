// The record that the host hands over, and how it reaches the service.

#include "oracle/packets.h"
#include "support/log_capture.h"
#include "support/session/session_support.h"

#include <gtest/gtest.h>

#include <string>

using namespace support;

namespace {

using Texts = std::vector<std::pair<std::string, std::string>>;

class DeviceInfo : public testing::Test {
protected:
    void connected() {
        direct.session.onConnect(nullptr, 0);
        direct.stream.writes.clear();
    }

    Texts sent(std::size_t packet = 0) { return koruInfoOf(direct.stream.packets().at(packet).payload); }

    Host host;
    DirectSession direct;
};

} // namespace

TEST_F(DeviceInfo, HoldsTheSixTextsInTheirOrderInsideOneNestedEntry) {
    connected();
    LogCapture log;
    EXPECT_TRUE(direct.session.init(Host::record()));
    EXPECT_EQ(log.lines(kSessionTag),
              (std::vector<LogLine>{
                  {'I', kSessionTag, "QuPCAudioMessage::_setKORUInfoNotify", 0, "send notify koru info."}}));
    ASSERT_EQ(direct.stream.packets().size(), 1U);
    EXPECT_EQ(direct.stream.packets()[0].command, 34);
    EXPECT_EQ(sent(), (Texts{{"accountID", "the account"},
                             {"bluetoothMac", "the mac"},
                             {"deviceID", "the device"},
                             {"model", "the model"},
                             {"sn", "the serial number"},
                             {"pcName", "the name"}}));
}

TEST_F(DeviceInfo, EmptyTextsAreSentAsEmptyEntries) {
    connected();
    AudioServiceParam param = Host::record();
    for (auto* field :
         {&param.accountID, &param.deviceID, &param.sn, &param.model, &param.bluetoothMac, &param.pcName}) {
        setText(*field, "");
    }
    direct.session.init(param);
    EXPECT_EQ(sent(), (Texts{{"accountID", ""},
                             {"bluetoothMac", ""},
                             {"deviceID", ""},
                             {"model", ""},
                             {"sn", ""},
                             {"pcName", ""}}));
}

TEST_F(DeviceInfo, TextsThatAreNotTerminatedAreReadTo256Bytes) {
    connected();
    AudioServiceParam param = Host::record();
    const std::string full(256, 'f');
    for (auto* field :
         {&param.accountID, &param.deviceID, &param.sn, &param.model, &param.bluetoothMac, &param.pcName}) {
        setText(*field, full);
    }
    direct.session.init(param);
    EXPECT_EQ(sent(), (Texts{{"accountID", full},
                             {"bluetoothMac", full},
                             {"deviceID", full},
                             {"model", full},
                             {"sn", full},
                             {"pcName", full}}));
}

TEST_F(DeviceInfo, BytesAfterATerminatorAreNotSent) {
    connected();
    AudioServiceParam param = Host::record();
    setText(param.model, std::string("short\0and more", 14));
    direct.session.init(param);
    EXPECT_EQ(sent().at(3).second, "short");
}

TEST_F(DeviceInfo, ALaterRecordIsSentAgainOverTheOpenConnection) {
    direct.session.onConnect(nullptr, 0); // takes the sequence number 0
    AudioServiceParam param = Host::record();
    direct.session.init(param);
    setText(param.pcName, "another");
    EXPECT_TRUE(direct.session.init(param));
    const std::vector<oracle::Packet> packets = direct.stream.packets();
    ASSERT_EQ(packets.size(), 3U);
    EXPECT_EQ(sent(2).at(5).second, "another");
    EXPECT_EQ(packets[2].sequence, 2);
}

TEST_F(DeviceInfo, ARecordWithoutACallbackOrContextIsRefused) {
    for (int missing = 0; missing < 3; ++missing) {
        AudioServiceParam param = Host::record();
        (missing == 0 ? param.onEvent : param.onError) = nullptr;
        if (missing == 2) {
            param = Host::record();
            param.context = nullptr;
        }
        LogCapture log;
        EXPECT_FALSE(direct.session.init(param)) << missing;
        EXPECT_EQ(log.lines(kSessionTag), (std::vector<LogLine>{{'E', kSessionTag, "QuPCAudioMessage::init",
                                                                 0, "param error, init failed."}}));
        EXPECT_EQ(direct.session.handle(), nullptr); // no connect was begun
    }
    EXPECT_TRUE(direct.stream.writes.empty());
}

TEST_F(DeviceInfo, OfARefusedRecordNothingIsTaken) {
    connected();
    direct.session.init(Host::record());
    AudioServiceParam bad = Host::record();
    setText(bad.pcName, "from a refused record");
    bad.context = nullptr;
    direct.session.init(bad);
    direct.session._setKORUInfoNotify();
    EXPECT_EQ(sent(1).at(5).second, "the name");
    direct.session.onError(UV_EOF);
    EXPECT_EQ(Host::errors().size(), 1U); // the callbacks of the good record are still in force
}

TEST_F(DeviceInfo, ContextIsNeverFollowed) {
    connected();
    AudioServiceParam param = Host::record();
    param.context = reinterpret_cast<void*>(std::uintptr_t{1});
    EXPECT_TRUE(direct.session.init(param));
}

TEST_F(DeviceInfo, TheRecordIsCopiedAndMayBeReused) {
    connected();
    {
        auto param = std::make_unique<AudioServiceParam>(Host::record());
        direct.session.init(*param);
    }
    direct.session._setKORUInfoNotify();
    EXPECT_EQ(sent(0), sent(1));
}

TEST_F(DeviceInfo, AConnectUnderWayRefusesAndLogsAnotherOne) {
    PipeSession pipe;
    pipe.runLoop();
    const auto release = pipe.holdLoop();
    ASSERT_TRUE(pipe.session->init(Host::record()));
    LogCapture log;
    EXPECT_FALSE(pipe.session->init(Host::record()));
    EXPECT_EQ(log.lines(kSessionTag),
              (std::vector<LogLine>{{'E', kSessionTag, "QuPCAudioMessage::init", 0, "connect failed 0."}}));
    release->set_value();
}

TEST_F(DeviceInfo, ARecordThatIsRefusedDuringAConnectIsTheOneThatIsSent) {
    PipeSession pipe;
    pipe.listen();
    pipe.runLoop();
    const auto release = pipe.holdLoop();
    LogCapture quiet;
    ASSERT_TRUE(pipe.session->init(Host::record()));
    AudioServiceParam later = Host::record();
    setText(later.model, "later");
    EXPECT_FALSE(pipe.session->init(later));
    release->set_value();
    const std::vector<oracle::Packet> packets = pipe.waitForPackets(1);
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(koruInfoOf(packets[0].payload).at(3).second, "later");
}

TEST_F(DeviceInfo, AConnectThatNoThreadRunsTheLoopForYetIsTheNextRecordsToo) {
    PipeSession pipe;
    pipe.listen();
    ASSERT_TRUE(pipe.session->init(Host::record()));
    AudioServiceParam later = Host::record();
    setText(later.model, "later");
    EXPECT_TRUE(pipe.session->init(later));
    pipe.runLoop();
    const std::vector<oracle::Packet> packets = pipe.waitForPackets(1);
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(koruInfoOf(packets[0].payload).at(3).second, "later");
}
