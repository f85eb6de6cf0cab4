// What a completed connect and a stream error do to the session, which is called as the loop calls it.

#include "log/write_log.h"
#include "oracle/entries.h"
#include "support/log_capture.h"
#include "support/session/session_support.h"

#include <gtest/gtest.h>

#include <iterator>
#include <map>
#include <new>
#include <string>
#include <vector>

using namespace support;

namespace {

using Calls = std::vector<Host::Call>;

LogLine errorLine(const std::string& text) {
    return {'E', kSessionTag, "QuPCAudioMessage::onError", 0, text};
}

LogLine warningLine(int code) {
    return {'W', kSessionTag, "QuPCAudioMessage::onError", 0, "nErrorCode:" + std::to_string(code)};
}

class ConnectionState : public testing::Test {
protected:
    /// The host's record is taken and the connection made.
    void connected() {
        direct.session.onConnect(nullptr, 0);
        direct.session.init(Host::record());
    }

    Host host;
    DirectSession direct;
};

} // namespace

TEST_F(ConnectionState, SuccessIsLoggedAndThenSendsTheDeviceInformation) {
    LogCapture log;
    direct.session.onConnect(nullptr, 0);
    EXPECT_EQ(log.lines(kSessionTag),
              (std::vector<LogLine>{
                  {'I', kSessionTag, "QuPCAudioMessage::onConnect", 0, "Connect successed, start recv."},
                  {'I', kSessionTag, "QuPCAudioMessage::_setKORUInfoNotify", 0, "send notify koru info."}}));
    ASSERT_EQ(direct.stream.packets().size(), 1U);
    EXPECT_EQ(direct.stream.packets()[0].sequence, 0);
    EXPECT_EQ(koruInfoOf(direct.stream.packets()[0].payload).size(), 6U);
}

TEST_F(ConnectionState, ReadingBeginsBeforeTheLineAndTheSendComesAfterItsOwn) {
    LoggingSocket stream;
    direct.session.setStream(&stream);
    direct.session.whenReadStart = [] {
        writeLog(kLogInfo, kSessionTag, "[%s:%d]reading", "test", __LINE__);
    };
    LogCapture log;
    direct.session.onConnect(nullptr, 0);
    std::vector<std::string> texts;
    for (const LogLine& line : log.lines(kSessionTag)) {
        texts.push_back(line.text);
    }
    EXPECT_EQ(texts, (std::vector<std::string>{"reading", "Connect successed, start recv.",
                                               "send notify koru info.", "written"}));
}

TEST_F(ConnectionState, AConnectionThatCannotBeReadIsAFailedConnect) {
    ASSERT_EQ(direct.session.connection(), Connection::Idle);
    direct.session.connects = true;
    ASSERT_TRUE(direct.session.init(Host::record()));
    direct.session.readable = false;
    direct.session.onConnect(nullptr, 0);
    EXPECT_EQ(Host::errors(), (Calls{{-2, 0}}));
    EXPECT_TRUE(direct.stream.writes.empty());
    EXPECT_EQ(direct.session.connection(), Connection::Failed);
}

TEST_F(ConnectionState, ReadingStopsWhenMemoryRunsOut) {
    struct Refusing : DirectSession::Session {
        using DirectSession::Session::Session;

        void onPacket(const CtrlPacketHeader*, const std::uint8_t*, std::uint32_t) override {
            throw std::bad_alloc();
        }
    };

    Refusing session(direct.loop);
    session.setStream(&direct.stream);
    session.onConnect(nullptr, 0);
    session.init(Host::record());
    LogCapture quiet;
    session.onRead(chainOf(notify({})), 0);
    EXPECT_EQ(session.readStops, 1);
    EXPECT_EQ(Host::errors(), (Calls{{-3, int{UV_ENOMEM}}}));
}

TEST_F(ConnectionState, EveryStateAnswersEveryEventAsItsTableSays) {
    using enum Connection;
    using Event = ConnectionEvent;
    const std::vector<Connection> all = {Idle, Connecting, Connected, Failed, Lost, Ending, Gone};
    const std::map<Event, std::vector<Connection>> table = {
        {Event::ConnectBegun, {Connecting, Connecting, Connecting, Connecting, Connecting, Ending, Gone}},
        {Event::ConnectSucceeded, {Connected, Connected, Connected, Connected, Connected, Ending, Gone}},
        {Event::ConnectFailed, {Failed, Failed, Failed, Failed, Failed, Ending, Gone}},
        {Event::StreamEnded, {Idle, Connecting, Lost, Failed, Lost, Ending, Gone}},
        {Event::SessionEnds, {Ending, Ending, Ending, Ending, Ending, Ending, Gone}},
        {Event::ServiceGone, {Gone, Gone, Gone, Gone, Gone, Gone, Gone}},
    };
    for (const auto& [event, to] : table) {
        for (std::size_t from = 0; from < all.size(); ++from) {
            EXPECT_EQ(after(all[from], event), to[from]) << from << " " << static_cast<int>(event);
        }
    }
}

TEST_F(ConnectionState, FailureIsLoggedWithItsStatusAndReportedWithoutIt) {
    connected();
    direct.stream.writes.clear();
    LogCapture log;
    direct.session.onConnect(nullptr, UV_ENOENT);
    EXPECT_EQ(log.lines(kSessionTag),
              (std::vector<LogLine>{{'E', kSessionTag, "QuPCAudioMessage::onConnect", 0,
                                     "connect failed " + std::to_string(int{UV_ENOENT})}}));
    EXPECT_EQ(Host::errors(), (Calls{{-2, 0}}));
    EXPECT_TRUE(direct.stream.writes.empty());
}

TEST_F(ConnectionState, FailureWithoutARecordIsSurvived) {
    direct.session.onConnect(nullptr, UV_ECONNREFUSED);
    EXPECT_TRUE(Host::errors().empty());
}

TEST_F(ConnectionState, FailureMakesTheSessionUnconnected) {
    connected();
    direct.session.onConnect(nullptr, UV_ENOENT);
    direct.session.onError(UV_EOF);
    EXPECT_EQ(Host::errors(), (Calls{{-2, 0}})); // of the connect; the stream's error is silent
}

TEST_F(ConnectionState, ResetAndEndOfStreamAreALostConnection) {
    for (const int code : {int{UV_ECONNRESET}, int{UV_EOF}}) {
        Host fresh;
        connected();
        LogCapture log;
        direct.session.onError(code);
        EXPECT_EQ(log.lines(kSessionTag),
                  (std::vector<LogLine>{warningLine(code), errorLine("kSinkErrorConnection,errorCode: " +
                                                                     std::to_string(code))}));
        EXPECT_EQ(Host::errors(), (Calls{{-2, code}}));
    }
}

TEST_F(ConnectionState, EveryOtherCodeIsAStreamError) {
    for (const int code : {int{UV_EPIPE}, int{UV_ECONNABORTED}, int{UV_ENOBUFS}, int{UV_EINVAL}, -1, 0, 1}) {
        Host fresh;
        connected();
        LogCapture log;
        direct.session.onError(code);
        EXPECT_EQ(log.lines(kSessionTag),
                  (std::vector<LogLine>{warningLine(code),
                                        errorLine("kSinkErrorProtocol,errorCode: " + std::to_string(code))}));
        EXPECT_EQ(Host::errors(), (Calls{{-3, code}}));
    }
}

TEST_F(ConnectionState, EveryErrorIsLoggedBeforeItIsReported) {
    connected();
    Host::whenError([](int, int) { writeLog(kLogInfo, "Host", "called"); });
    LogCapture log;
    direct.session.onError(UV_EOF);
    direct.session.onError(UV_EPIPE);
    direct.session.onConnect(nullptr, UV_ENOENT);
    std::vector<std::string> texts;
    for (const LogLine& line : log.lines()) {
        texts.push_back(line.text.substr(0, line.text.find('-'))); // without libuv's number
    }
    EXPECT_EQ(texts, (std::vector<std::string>{"nErrorCode:", "kSinkErrorConnection,errorCode: ", "called",
                                               "nErrorCode:", "kSinkErrorProtocol,errorCode: ", "called",
                                               "connect failed ", "called"}));
}

// The bytes are the same stream's, whatever it has reported in between.
TEST_F(ConnectionState, HalfAPacketIsKeptThroughAFailure) {
    connected();
    const oracle::Bytes packet = notify(oracle::encodeInt("change-mode", 7));
    LogCapture quiet;
    for (std::ptrdiff_t cut = 0; cut <= std::ssize(packet); ++cut) {
        Host fresh;
        direct.session.onRead(chainOf({packet.begin(), packet.begin() + cut}), 0);
        direct.session.onError(UV_ECONNRESET);
        direct.session.onConnect(nullptr, UV_ECONNREFUSED);
        direct.session.onRead(chainOf({packet.begin() + cut, packet.end()}), 0);
        EXPECT_EQ(Host::events(), (Calls{{200006, 7}})) << cut;
    }
}

TEST_F(ConnectionState, WithoutAConnectionAStreamErrorIsOnlyLogged) {
    LogCapture log;
    direct.session.onError(UV_EOF);
    EXPECT_EQ(log.lines(kSessionTag), (std::vector<LogLine>{warningLine(UV_EOF)}));
    EXPECT_TRUE(Host::errors().empty());
}

TEST_F(ConnectionState, WithoutACallbackAStreamErrorIsOnlyLogged) {
    direct.session.onConnect(nullptr, 0); // connected, but the host has handed nothing over
    LogCapture log;
    direct.session.onError(UV_EOF);
    EXPECT_EQ(log.lines(kSessionTag), (std::vector<LogLine>{warningLine(UV_EOF)}));
}

TEST_F(ConnectionState, StreamErrorAfterTheSessionEndedIsOnlyLogged) {
    connected();
    direct.session.stopService(seriesFrom(1));
    LogCapture log;
    direct.session.onError(UV_EOF);
    direct.session.onError(UV_EPIPE);
    EXPECT_EQ(log.lines(kSessionTag), (std::vector<LogLine>{warningLine(UV_EOF), warningLine(UV_EPIPE)}));
    EXPECT_TRUE(Host::errors().empty());
}

TEST_F(ConnectionState, AConnectThatCompletesAfterTheSessionEndedDoesNotBreakTheSilence) {
    connected();
    direct.session.stopService(seriesFrom(1));
    direct.session.onConnect(nullptr, 0);
    direct.session.onError(UV_EOF);
    EXPECT_TRUE(Host::errors().empty());
}

TEST_F(ConnectionState, StaysConnectedThroughStreamErrors) {
    connected();
    direct.session.onError(UV_EOF);
    direct.session.onError(UV_EPIPE);
    direct.session.onError(UV_ECONNRESET);
    EXPECT_EQ(Host::errors(), (Calls{{-2, UV_EOF}, {-3, UV_EPIPE}, {-2, UV_ECONNRESET}}));
}

TEST_F(ConnectionState, AfterALostConnectionARecordIsReSentAndNoConnectIsMade) {
    connected();
    direct.session.onError(UV_EOF);
    direct.stream.writes.clear();
    EXPECT_TRUE(direct.session.init(Host::record()));
    EXPECT_EQ(direct.stream.packets().size(), 1U);
    EXPECT_EQ(direct.session.handle(), nullptr);
}

TEST_F(ConnectionState, TheErrorCallbackInForceIsTheLatestRecords) {
    connected();
    static int other;
    other = 0;
    AudioServiceParam param = Host::record();
    param.onError = [](int, int) { ++other; };
    direct.session.init(param);
    direct.session.onError(UV_EOF);
    EXPECT_TRUE(Host::errors().empty());
    EXPECT_EQ(other, 1);
}

TEST_F(ConnectionState, AFreshSessionHasNoReportAndNoHandle) {
    EXPECT_EQ(direct.session.getPlayerState(), 4U);
    EXPECT_EQ(direct.session.getPhoneName(), nullptr);
    EXPECT_EQ(direct.session.handle(), nullptr);
    EXPECT_TRUE(direct.stream.writes.empty());
}
