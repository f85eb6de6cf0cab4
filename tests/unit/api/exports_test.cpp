// The exported functions on a handle with a session.

#include "SonviaPCAudioDll.h"
#include "oracle/entries.h"
#include "oracle/packets.h"
#include "support/api/api_support.h"
#include "support/log_capture.h"
#include "support/wait.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <utility>

using namespace support;
using oracle::encodeInt;
using oracle::encodeText;

namespace {

class Exports : public testing::Test {
protected:
    AudioServiceHandle* handle() { return direct.handle; }

    Host host;
    DirectHandle direct;
};

std::vector<std::string> textsOf(const std::vector<LogLine>& lines) {
    std::vector<std::string> texts;
    for (const LogLine& line : lines) {
        texts.push_back(std::string(1, line.letter) + " " + line.function + " " + line.text);
    }
    return texts;
}

} // namespace

TEST_F(Exports, GetStateOfAFreshHandleIsFour) {
    LogCapture log;
    EXPECT_EQ(getState(handle()), 4U);
    EXPECT_EQ(textsOf(log.lines()), std::vector<std::string>{"D getState getState!"});
}

TEST_F(Exports, GetStateIsWhatTheServiceReportedLast) {
    direct.receive(encodeInt("player-state", 2));
    EXPECT_EQ(getState(handle()), 2U);
    direct.receive(encodeInt("player-state", -1));
    EXPECT_EQ(getState(handle()), 0xFFFFFFFFU);
}

TEST_F(Exports, GetSourceNameIsPhoneUntilTheServiceNamesOne) {
    LogCapture log;
    EXPECT_STREQ(getSourceName(handle()), "phone");
    EXPECT_EQ(textsOf(log.lines()), std::vector<std::string>{"D getSourceName getSourceName!"});
    direct.receive(encodeText("phone-name", "Handset A"));
    EXPECT_STREQ(getSourceName(handle()), "Handset A");
}

TEST_F(Exports, GetSourceNameIsPhoneAgainAfterAnEmptyName) {
    direct.receive(encodeText("phone-name", "Handset A"));
    direct.receive(encodeText("phone-name", ""));
    EXPECT_STREQ(getSourceName(handle()), "phone");
}

TEST_F(Exports, GetSourceNameIsTheSameTextUntilAnotherNameArrives) {
    direct.receive(encodeText("phone-name", "Handset A"));
    const char* name = getSourceName(handle());
    EXPECT_EQ(getSourceName(handle()), name);
    direct.receive(encodeText("phone-name", "Handset B"));
    EXPECT_STREQ(name, "Handset A"); // not pulled away under a host that reads
    EXPECT_STREQ(getSourceName(handle()), "Handset B");
}

TEST_F(Exports, ExitAudioProjectionSendsItsNotify) {
    LogCapture log;
    EXPECT_TRUE(exitAudioProjection(handle()));
    EXPECT_EQ(textsOf(log.lines()), std::vector<std::string>{"I exitAudioProjection exitAudioProjection"});
    EXPECT_EQ(direct.stream.packets(),
              (std::vector<oracle::Packet>{{0x24, 34, 1, encodeInt("exitAudioProjection", 200005)}}));
}

TEST_F(Exports, ExitAudioProjectionCountsFromOneApartFromTheSession) {
    setAccountID(handle(), "a");
    exitAudioProjection(handle());
    setAccountID(handle(), "b");
    exitAudioProjection(handle());
    exitAudioProjection(handle());
    std::vector<int> numbers;
    for (const oracle::Packet& packet : direct.stream.packets()) {
        numbers.push_back(packet.sequence);
    }
    EXPECT_EQ(numbers, (std::vector<int>{0, 1, 1, 2, 3}));
}

TEST_F(Exports, TheSequenceOfTheExportsWrapsAfterSixteenBits) {
    direct.record->sequence = 65534;
    for (int call = 0; call < 3; ++call) {
        exitAudioProjection(handle());
    }
    EXPECT_EQ(direct.stream.packets().at(0).sequence, 65535);
    EXPECT_EQ(direct.stream.packets().at(1).sequence, 0);
    EXPECT_EQ(direct.stream.packets().at(2).sequence, 1);
}

TEST_F(Exports, SetAccountIDGivesTheSessionsResult) {
    LogCapture log;
    EXPECT_TRUE(setAccountID(handle(), "someone"));
    EXPECT_FALSE(setAccountID(handle(), ""));
    EXPECT_FALSE(setAccountID(handle(), nullptr));
    EXPECT_FALSE(setAccountID(handle(), std::string(256, 'a').c_str()));
    EXPECT_TRUE(setAccountID(handle(), std::string(255, 'a').c_str()));
    EXPECT_EQ(textsOf(log.lines(kApiTag)), std::vector<std::string>(5, "D setAccountID koru setAccountID!"));
    EXPECT_EQ(direct.stream.packets().size(), 2U);
}

TEST_F(Exports, SetParamWithoutACallbackOrContextFailsAndStartsNoThread) {
    for (int missing = 0; missing < 3; ++missing) {
        AudioServiceParam param = Host::record();
        if (missing == 0) {
            param.onEvent = nullptr;
        } else if (missing == 1) {
            param.onError = nullptr;
        } else {
            param.context = nullptr;
        }
        LogCapture log;
        EXPECT_FALSE(setParam(handle(), &param)) << missing;
        EXPECT_EQ(textsOf(log.lines()),
                  (std::vector<std::string>{"D setParam koru setParam!",
                                            "E QuPCAudioMessage::init param error, init failed.",
                                            "E setParam setParam failed!"}));
        EXPECT_EQ(direct.record->loopThread, nullptr);
    }
    EXPECT_TRUE(Host::errors().empty());
}

TEST_F(Exports, SetParamTakesTheWholeRecordBeforeItChecksAnything) {
    LogCapture quiet;
    AudioServiceParam param = Host::record();
    setText(param.pcName, std::string(256, 'n'));
    param.context = nullptr;
    setParam(handle(), &param);
    EXPECT_EQ(std::string(direct.record->params.pcName, 256), std::string(256, 'n'));
    EXPECT_EQ(direct.record->params.context, nullptr);
}

TEST_F(Exports, SetParamSurvivesANullRecord) {
    LogCapture quiet;
    EXPECT_FALSE(setParam(handle(), nullptr));
    EXPECT_EQ(direct.record->loopThread, nullptr);
}

namespace {

/// A handle on a pipe of its own, from setParam to uninitSonviaAudioService.
class LiveHandle : public testing::Test {
protected:
    LiveHandle() {
        record->loop = names.loop;
        record->session = std::make_unique<QuPCAudioMessage>(names.loop);
    }

    ~LiveHandle() override {
        if (!mEnded) {
            end();
        }
    }

    bool end() {
        mEnded = true;
        return uninitSonviaAudioService(handle);
    }

    Host host;
    PipeSession names; ///< for its pipe name, its peer and its loop
    ListedRecord record;
    AudioServiceHandle* const handle = record.handle;

private:
    bool mEnded = false;
};

} // namespace

TEST_F(LiveHandle, SetParamConnectsAndStartsTheThreadOnce) {
    LogCapture quiet;
    names.listen();
    AudioServiceParam param = Host::record();
    ASSERT_TRUE(setParam(handle, &param));
    ASSERT_NE(record->loopThread, nullptr);
    const platform::Thread* thread = record->loopThread.get();
    ASSERT_EQ(names.waitForPackets(1).size(), 1U);
    setText(param.sn, "another");
    ASSERT_TRUE(setParam(handle, &param)); // reported once it is connected
    const std::vector<oracle::Packet> packets = names.waitForPackets(2);
    ASSERT_EQ(packets.size(), 2U);
    EXPECT_EQ(koruInfoOf(packets[1].payload).at(4).second, "another");
    EXPECT_EQ(record->loopThread.get(), thread);
}

TEST_F(LiveHandle, WithoutAServiceSetParamIsTrueAndTheErrorFollows) {
    LogCapture quiet;
    const AudioServiceParam param = Host::record();
    EXPECT_TRUE(setParam(handle, &param));
    ASSERT_TRUE(Host::waitForErrors(1));
    EXPECT_EQ(Host::errors(), (std::vector<Host::Call>{{-2, 0}}));
    EXPECT_EQ(getState(handle), 4U);
    EXPECT_STREQ(getSourceName(handle), "phone");
}

TEST_F(LiveHandle, TheServiceSeesTheProjectionEndAndTheStop) {
    LogCapture quiet;
    names.listen();
    const AudioServiceParam param = Host::record();
    ASSERT_TRUE(setParam(handle, &param));
    ASSERT_EQ(names.waitForPackets(1).size(), 1U);
    EXPECT_TRUE(exitAudioProjection(handle));
    EXPECT_TRUE(end());
    ASSERT_TRUE(names.peer->waitForEnd());
    const std::vector<oracle::Packet> packets = names.waitForPackets(3);
    ASSERT_EQ(packets.size(), 3U);
    EXPECT_EQ(packets[1], (oracle::Packet{0x24, 34, 1, encodeInt("exitAudioProjection", 200005)}));
    EXPECT_EQ(packets[2], (oracle::Packet{0x24, 8193, 2, encodeInt("StopSonviaAudioService", 200004)}));
    EXPECT_TRUE(Host::errors().empty());
}

TEST_F(LiveHandle, EveryOtherFunctionMayBeCalledInsideACallback) {
    LogCapture quiet;
    names.listen();
    const AudioServiceParam param = Host::record();
    ASSERT_TRUE(setParam(handle, &param));
    ASSERT_EQ(names.waitForPackets(1).size(), 1U);
    std::atomic<bool> done{false};
    Host::whenEvent([&](int, int) {
        EXPECT_EQ(getState(handle), 4U);
        EXPECT_STREQ(getSourceName(handle), "phone");
        EXPECT_TRUE(setAccountID(handle, "someone"));
        EXPECT_TRUE(setParam(handle, &param));
        EXPECT_TRUE(exitAudioProjection(handle));
        done = true;
    });
    names.sendToSession(notify(encodeInt("change-mode", 1)));
    EXPECT_TRUE(eventually("the callback has returned", [&done] { return done.load(); }));
    const std::vector<oracle::Packet> packets = names.waitForPackets(4);
    ASSERT_EQ(packets.size(), 4U);
    EXPECT_EQ(accountOf(packets[1].payload), "someoneount");
    EXPECT_EQ(koruInfoOf(packets[2].payload).size(), 6U);
    EXPECT_EQ(packets[3], (oracle::Packet{0x24, 34, 1, encodeInt("exitAudioProjection", 200005)}));
}

TEST_F(LiveHandle, UninitRightAfterSetParamAlwaysEnds) {
    LogCapture quiet;
    const AudioServiceParam param = Host::record();
    for (int round = 0; round < 30; ++round) {
        const ListedRecord own;
        own->loop = std::make_shared<OUVLoop>();
        own->session = std::make_unique<QuPCAudioMessage>(own->loop);
        ASSERT_TRUE(setParam(own.handle, &param));
        ASSERT_TRUE(uninitSonviaAudioService(own.handle));
    }
}

TEST_F(LiveHandle, HostThreadsMayCallEverythingWhileTheLoopRuns) {
    LogCapture quiet;
    names.listen();
    const AudioServiceParam param = Host::record();
    ASSERT_TRUE(setParam(handle, &param));
    ASSERT_EQ(names.waitForPackets(1).size(), 1U);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] {
            for (int round = 0; round < 50; ++round) {
                setParam(handle, &param);
                setAccountID(handle, "someone");
                exitAudioProjection(handle);
                getState(handle);
                getSourceName(handle);
            }
        });
    }
    for (int mode = 0; mode < 200; ++mode) {
        names.sendToSession(
            notify(oracle::join({encodeInt("change-mode", mode), encodeText("phone-name", "x")})));
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(Host::waitForEvents(200));
    EXPECT_TRUE(Host::errors().empty());
}
