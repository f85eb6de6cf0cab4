// Four threads of the host call everything while the service sends as fast as it can.
#include <cstdio>
#include <cstring>
#include <thread>

#include "support/service_fixture.h"
#include "support/wait.h"

namespace {

using support::event;
using support::HostEvent;

constexpr int kThreads = 4;
constexpr int kRounds = 800;
constexpr int kRoundsToOneSetParam = 100;
// Wine moves a few hundred packets a second when the machine is busy.
constexpr std::chrono::seconds kFloodTimeout{240};
constexpr int kFlood = 10000;

class HostThreads : public support::ServiceTest {
protected:
    // "t2-0000000017": always of one length, so that no tail of an earlier one remains.
    static std::string account(int thread, int round) {
        char text[32];
        std::snprintf(text, sizeof text, "t%d-%010d", thread, round);
        return text;
    }

    void callEverything(int thread) {
        for (int round = 0; round < kRounds; ++round) {
            api.state(handle);
            // The whole text is read while the loop thread replaces it again and again.
            EXPECT_EQ(std::string(api.sourceName(handle)).substr(0, 5), "Phone");
            EXPECT_TRUE(api.exitProjection(handle));
            EXPECT_TRUE(api.setAccountID(handle, account(thread, round).c_str()));
            EXPECT_EQ(api.version(), 0);
            if (round % kRoundsToOneSetParam == 0) {
                const AudioServiceParam param = support::completeParam();
                EXPECT_TRUE(api.setParam(handle, &param));
            }
        }
    }

    void expectFloodInOrder() {
        const std::vector<HostEvent> all = events.all();
        ASSERT_EQ(all.size(), static_cast<std::size_t>(kFlood) + 1);
        for (int i = 0; i < kFlood; ++i) {
            ASSERT_EQ(all[static_cast<std::size_t>(i) + 1], event(SONVIA_EVENT_MODE_CHANGED, i));
        }
    }

    // Every id that a thread set has arrived, once, after the ones that this thread had set before.
    void expectAccountsInOrderOfEachThread() {
        std::vector<int> next(kThreads, 0);
        for (const support::Json& packet : standin.packets(support::kNotify, "accountID")) {
            const std::string text = entryOf(packet.at("entries").list(), "accountID").at("value").text();
            const int thread = text.at(1) - '0';
            ASSERT_EQ(text, account(thread, next.at(static_cast<std::size_t>(thread))++));
        }
        EXPECT_EQ(next, std::vector<int>(kThreads, kRounds));
    }

    void expectEveryExitRequestOnce() {
        std::vector<int> seen(kThreads * kRounds + 1, 0);
        for (const support::Json& packet : standin.packets(support::kNotify, "exitAudioProjection")) {
            ++seen.at(static_cast<std::size_t>(packet.at("seq").number()));
        }
        EXPECT_EQ(seen.at(0), 0);
        for (std::size_t seq = 1; seq < seen.size(); ++seq) {
            ASSERT_EQ(seen[seq], 1) << "sequence number " << seq;
        }
    }
};

TEST_F(HostThreads, NothingIsLostAndEachThreadsSendsStayInOrder) {
    startAndConfigure(
        "wait packet key KORUInfo\nnotify string phone-name Phone\nnotify int buffering-start 1\n"
        "wait packet key exitAudioProjection guard 120000\n"
        "repeat " +
        std::to_string(kFlood) +
        "\n"
        " packet 34\n  int player-state $i\n  string phone-name \"Phone ${i}\"\n"
        "  int change-mode $i\n end\nend\n"
        "wait packet key exitAudioProjection count " +
        std::to_string(kThreads * kRounds - 1) + " guard 240000\nnote \"all heard\"\nguard 300\n");
    ASSERT_TRUE(events.waitFor(event(SONVIA_EVENT_BUFFERING_STARTED, 0)));

    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([this, thread] { callEverything(thread); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    ASSERT_TRUE(support::reaches(
        kFlood + 1, "events", [this] { return events.count(); }, kFloodTimeout));
    // The state of the last packet is stored after its event has been reported.
    EXPECT_TRUE(support::eventually("the last state is stored", [this] {
        return api.state(handle) == static_cast<std::uint32_t>(kFlood - 1);
    }));
    ASSERT_TRUE(support::eventually(
        "the service has heard all", [this] { return !standin.recorded("note").empty(); }, kFloodTimeout));
    stop();

    expectFloodInOrder();
    expectEveryExitRequestOnce();
    expectAccountsInOrderOfEachThread();
    EXPECT_EQ(standin.packets(support::kNotify, "KORUInfo").size(),
              1U + kThreads * kRounds / kRoundsToOneSetParam);
    EXPECT_TRUE(standin.recorded("malformed").empty());
}

} // namespace
