// The life of one handle as the service sees it: what it is started with and what it is sent, in which order.
#include <cstring>
#include <future>
#include <string>
#include <vector>

#include "support/process.h"
#include "support/service_fixture.h"
#include "support/wait.h"

namespace {

using support::Json;

class Lifecycle : public support::ServiceTest {
protected:
    // Account ids in the order in which the service received them.
    std::vector<std::string> receivedAccounts() {
        std::vector<std::string> accounts;
        for (const Json& packet : standin.packets(support::kNotify, "accountID")) {
            accounts.push_back(entryOf(packet.at("entries").list(), "accountID").at("value").text());
        }
        return accounts;
    }

    std::size_t runningServices() {
        std::size_t running = 0;
        for (const Json& start : standin.recorded("start")) {
            running += support::processRuns(start.at("pid").number(), "QuPCAudio.exe") ? 1U : 0U;
        }
        return running;
    }

    std::vector<std::int64_t> sequencesOf(const std::string& key) {
        std::vector<std::int64_t> sequences;
        for (const Json& packet : standin.packets(support::kNotify, key)) {
            sequences.push_back(packet.at("seq").number());
        }
        return sequences;
    }
};

TEST_F(Lifecycle, FreshHandleKnowsNoStateAndNoName) {
    start("");
    EXPECT_EQ(api.state(handle), 4U);
    EXPECT_STREQ(api.sourceName(handle), "phone");
    EXPECT_EQ(events.count(), 0U);
}

TEST_F(Lifecycle, ServiceIsStartedWithTheLogFolderAndLevel) {
    start("");
    ASSERT_TRUE(standin.waitForEvent("start"));
    std::string words;
    const Json::List argv = standin.recorded("start").at(0).at("argv").list();
    for (std::size_t i = 1; i < argv.size(); ++i) {
        words.append(i == 1 ? "" : " ").append(argv[i].text());
    }
    EXPECT_EQ(words, support::logFolder() + " 3");
}

TEST_F(Lifecycle, DeviceInformationIsTheFirstPacketAndCarriesSequenceZero) {
    startAndConfigure("");
    ASSERT_TRUE(standin.waitForPackets(1, support::kNotify));
    const Json first = standin.recorded("packet").at(0);
    EXPECT_EQ(first.at("seq").number(), 0);
    EXPECT_FALSE(first.has("malformed"));
    ASSERT_EQ(first.at("entries").list().size(), 1U);
    const Json& outer = first.at("entries").list()[0];
    EXPECT_EQ(outer.at("key").text(), "KORUInfo");
    EXPECT_EQ(outer.at("type").number(), 14);

    const std::vector<std::pair<std::string, std::string>> expected = {
        {"accountID", "account-1"}, {"bluetoothMac", "00:11:22:33:44:55"},
        {"deviceID", "device-2"},   {"model", "model-4"},
        {"sn", "serial-3"},         {"pcName", "pc-6"}};
    const Json::List& inner = outer.at("value").list();
    ASSERT_EQ(inner.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(inner[i].at("key").text(), expected[i].first);
        EXPECT_EQ(inner[i].at("type").number(), 20);
        EXPECT_EQ(inner[i].at("value").text(), expected[i].second);
    }
}

TEST_F(Lifecycle, LaterSetParamSendsTheNewDeviceInformationAndStartsNoSecondThread) {
    startAndConfigure("");
    ASSERT_TRUE(standin.waitForPackets(1, support::kNotify, "KORUInfo"));
    const std::size_t threads = support::ownSize().threads;

    AudioServiceParam param = support::completeParam();
    std::strcpy(param.model, "another model");
    ASSERT_TRUE(api.setParam(handle, &param));
    ASSERT_TRUE(standin.waitForPackets(2, support::kNotify, "KORUInfo"));
    const Json again = standin.packets(support::kNotify, "KORUInfo").at(1);
    const Json::List& inner = entryOf(again.at("entries").list(), "KORUInfo").at("value").list();
    EXPECT_EQ(entryOf(inner, "model").at("value").text(), "another model");
    EXPECT_EQ(again.at("seq").number(), 1);
    EXPECT_EQ(support::ownSize().threads, threads);
    EXPECT_EQ(standin.recorded("connect").size(), 1U);
}

TEST_F(Lifecycle, ShorterAccountKeepsTheTailOfALongerOne) {
    start("");
    AudioServiceParam param = support::completeParam();
    std::memset(param.accountID, 0, sizeof param.accountID);
    ASSERT_TRUE(api.setParam(handle, &param));
    ASSERT_TRUE(standin.waitForPackets(1, support::kNotify, "KORUInfo"));
    EXPECT_TRUE(api.setAccountID(handle, "abcdef"));
    EXPECT_TRUE(api.setAccountID(handle, "abc"));
    EXPECT_TRUE(api.setAccountID(handle, "xyz"));
    ASSERT_TRUE(standin.waitForPackets(3, support::kNotify, "accountID"));
    EXPECT_EQ(receivedAccounts(), (std::vector<std::string>{"abcdef", "abcdef", "xyzdef"}));
    EXPECT_EQ(sequencesOf("accountID"), (std::vector<std::int64_t>{1, 2, 3}));
}

TEST_F(Lifecycle, AccountsSetBeforeTheConnectionTakeTheirSequenceNumbers) {
    start("");
    EXPECT_TRUE(api.setAccountID(handle, "early"));
    EXPECT_TRUE(api.setAccountID(handle, "early too"));
    const AudioServiceParam param = support::completeParam();
    ASSERT_TRUE(api.setParam(handle, &param));
    ASSERT_TRUE(standin.waitForPackets(1, support::kNotify, "KORUInfo"));
    EXPECT_EQ(sequencesOf("KORUInfo"), std::vector<std::int64_t>{2});
    EXPECT_TRUE(receivedAccounts().empty());
}

TEST_F(Lifecycle, AccountOf255BytesIsSentAndOthersAreRefused) {
    startAndConfigure("");
    ASSERT_TRUE(standin.waitForPackets(1, support::kNotify, "KORUInfo"));
    EXPECT_FALSE(api.setAccountID(handle, std::string(256, 'z').c_str()));
    EXPECT_FALSE(api.setAccountID(handle, std::string(5000, 'z').c_str()));
    EXPECT_FALSE(api.setAccountID(handle, ""));
    EXPECT_FALSE(api.setAccountID(handle, nullptr));
    EXPECT_TRUE(api.setAccountID(handle, std::string(255, 'a').c_str()));
    ASSERT_TRUE(standin.waitForPackets(1, support::kNotify, "accountID"));
    EXPECT_EQ(receivedAccounts(), std::vector<std::string>{std::string(255, 'a')});
}

TEST_F(Lifecycle, ExitRequestsCountTheirOwnSequence) {
    startAndConfigure("");
    ASSERT_TRUE(standin.waitForPackets(1, support::kNotify, "KORUInfo"));
    EXPECT_TRUE(api.exitProjection(handle));
    EXPECT_TRUE(api.setAccountID(handle, "between"));
    EXPECT_TRUE(api.exitProjection(handle));
    EXPECT_TRUE(api.exitProjection(handle));
    ASSERT_TRUE(standin.waitForPackets(3, support::kNotify, "exitAudioProjection"));
    EXPECT_EQ(sequencesOf("exitAudioProjection"), (std::vector<std::int64_t>{1, 2, 3}));
    const Json packet = standin.packets(support::kNotify, "exitAudioProjection").at(0);
    const Json& entry = entryOf(packet.at("entries").list(), "exitAudioProjection");
    EXPECT_EQ(entry.at("type").number(), 6);
    EXPECT_EQ(entry.at("value").number(), 200005);
}

TEST_F(Lifecycle, StopNotificationGoesOnWithTheSequenceOfTheExitRequests) {
    startAndConfigure("");
    ASSERT_TRUE(standin.waitForPackets(1, support::kNotify, "KORUInfo"));
    EXPECT_TRUE(api.exitProjection(handle));
    stop();
    const std::vector<Json> stops = standin.packets(support::kStop);
    ASSERT_EQ(stops.size(), 1U);
    EXPECT_EQ(stops[0].at("seq").number(), 2);
    const Json& entry = entryOf(stops[0].at("entries").list(), "StopSonviaAudioService");
    EXPECT_EQ(entry.at("type").number(), 6);
    EXPECT_EQ(entry.at("value").number(), 200004);
    ASSERT_EQ(standin.recorded("exit").size(), 1U);
    EXPECT_EQ(standin.recorded("exit").at(0).at("reason").text(), "stop");
    EXPECT_EQ(events.count(), 0U);
}

TEST_F(Lifecycle, HandleThatWasNeverConfiguredIsReleasedAndTheServiceEnded) {
    const std::size_t threads = support::ownSize().threads;
    start("");
    ASSERT_TRUE(standin.waitForEvent("start"));
    EXPECT_TRUE(standin.running());
    EXPECT_TRUE(api.exitProjection(handle));
    stop();
    EXPECT_FALSE(standin.running());
    EXPECT_EQ(events.count(), 0U);
    EXPECT_LE(support::ownSize().threads, threads + 1)
        << "one more: the log's writer, started by the first handle";
}

TEST_F(Lifecycle, RunningServiceIsEndedByTheNextStartWhoeverStartedIt) {
    standin.play("no-pipe\n");
    const std::int64_t stranger = support::startProgram(support::programFolder() / "QuPCAudio.exe");
    ASSERT_TRUE(standin.waitForEvent("start"));
    ASSERT_TRUE(support::processRuns(stranger, "QuPCAudio.exe"));
    start("");
    EXPECT_FALSE(support::processRuns(stranger, "QuPCAudio.exe"));
    ASSERT_TRUE(standin.waitForEvent("start"));
    EXPECT_TRUE(standin.running());
}

// Each start ends the services that run: one that has just been started must not slip through between another start's
// look and its own.
TEST_F(Lifecycle, OfStartsMadeAtOnceOneServiceIsLeft) {
    constexpr std::size_t kStarts = 3;
    standin.play("");
    std::vector<std::future<AudioServiceHandle*>> starts;
    for (std::size_t start = 0; start < kStarts; ++start) {
        starts.push_back(std::async(std::launch::async, [this] {
            return api.init(support::logFolder().c_str(), SONVIA_LOG_WARNING);
        }));
    }
    std::vector<AudioServiceHandle*> handles;
    for (std::future<AudioServiceHandle*>& each : starts) {
        handles.push_back(each.get());
        EXPECT_NE(handles.back(), nullptr);
    }
    EXPECT_TRUE(support::reaches(
        1, "services", [this] { return runningServices(); }, support::kProcessTimeout));
    EXPECT_EQ(runningServices(), 1U);
    for (const Json& start : standin.recorded("start")) { // none of them ever saw a connection
        support::killProcess(start.at("pid").number(), "QuPCAudio.exe");
    }
    for (AudioServiceHandle* each : handles) {
        EXPECT_TRUE(api.uninit(each));
    }
}

TEST_F(Lifecycle, UninitAtOnceAfterSetParamAlwaysEnds) {
    for (int i = 0; i < 5; ++i) {
        startAndConfigure(i % 2 == 0 ? "" : "exit");
        stop();
        EXPECT_FALSE(standin.running());
    }
}

TEST_F(Lifecycle, VersionIsZero) {
    EXPECT_EQ(api.version(), 0);
}

} // namespace
