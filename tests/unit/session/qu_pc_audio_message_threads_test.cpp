// Host threads and the loop thread at the same time: nothing is lost, nothing is torn.

#include "oracle/entries.h"
#include "oracle/packets.h"
#include "support/log_capture.h"
#include "support/session/session_support.h"
#include "support/wait.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <future>
#include <map>
#include <set>
#include <string>
#include <thread>

using namespace support;
using oracle::Bytes;

namespace {

std::string numbered(int thread, int number) {
    std::string text = std::to_string(100000 + number);
    text[0] = static_cast<char>('a' + thread);
    return text;
}

} // namespace

TEST(SessionThreads, SendsOfEachThreadArriveInTheirOrderAndNoneIsLost) {
    constexpr int kThreads = 4;
    constexpr int kEach = 500;
    Host host;
    PipeSession pipe;
    LogCapture quiet;
    pipe.listen();
    AudioServiceParam param = Host::record();
    setText(param.accountID, "");
    ASSERT_TRUE(pipe.session->init(param));
    pipe.runLoop();
    ASSERT_EQ(pipe.waitForPackets(1).size(), 1U);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&pipe, thread] {
            for (int number = 0; number < kEach; ++number) {
                pipe.session->setAccountID(numbered(thread, number).c_str());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::vector<oracle::Packet> packets = pipe.waitForPackets(1 + kThreads * kEach);
    ASSERT_EQ(packets.size(), 1U + kThreads * kEach);
    std::map<char, int> next;
    std::set<int> numbers;
    for (std::size_t index = 1; index < packets.size(); ++index) {
        const std::string account = accountOf(packets[index].payload);
        ASSERT_FALSE(account.empty());
        const int thread = account[0] - 'a';
        ASSERT_EQ(account, numbered(thread, next[account[0]]++));
        numbers.insert(packets[index].sequence);
    }
    EXPECT_EQ(numbers.size(), 1U * kThreads * kEach); // each sequence number once
    EXPECT_EQ(*numbers.begin(), 1);
    EXPECT_EQ(*numbers.rbegin(), kThreads * kEach);
}

TEST(SessionThreads, ARecordThatRacesWithACompletingConnectNeverBreaksTheConnection) {
    for (int round = 0; round < 40; ++round) {
        Host host;
        PipeSession pipe;
        LogCapture quiet;
        pipe.listen();
        ASSERT_TRUE(pipe.session->init(Host::record()));
        std::thread racer([&pipe] {
            for (int attempt = 0; attempt < 20; ++attempt) {
                pipe.session->init(Host::record()); // false while the connect is under way
            }
        });
        pipe.runLoop();
        racer.join();
        ASSERT_TRUE(pipe.waitForConnects(1));
        ASSERT_TRUE(pipe.session->setAccountID("last"));
        std::vector<oracle::Packet> packets;
        ASSERT_TRUE(eventually("the account arrives last", [&] {
            packets = pipe.waitForPackets(1);
            return !packets.empty() && accountOf(packets.back().payload) != "<none>";
        }));
        std::set<int> numbers;
        for (const oracle::Packet& packet : packets) {
            numbers.insert(packet.sequence);
        }
        EXPECT_EQ(koruInfoOf(packets[0].payload).size(), 6U);
        EXPECT_EQ(numbers.size(), packets.size());
        EXPECT_EQ(*numbers.rbegin(), static_cast<int>(packets.size()) - 1); // none was lost
        EXPECT_TRUE(Host::errors().empty());
    }
}

TEST(SessionThreads, NamesStayReadableWhileThousandsArrive) {
    Host host;
    PipeSession pipe;
    LogCapture quiet;
    pipe.listen();
    ASSERT_TRUE(pipe.session->init(Host::record()));
    pipe.runLoop();
    ASSERT_EQ(pipe.waitForPackets(1).size(), 1U);
    std::atomic<bool> done{false};
    std::atomic<bool> allWell{true};
    std::vector<std::thread> readers;
    for (int reader = 0; reader < 4; ++reader) {
        readers.emplace_back([&] {
            while (!done.load()) {
                const char* name = pipe.session->getPhoneName();
                pipe.session->getPlayerState();
                for (const char* letter = name; letter != nullptr && *letter != 0; ++letter) {
                    if (*letter != *name) {
                        allWell = false;
                    }
                }
            }
        });
    }
    constexpr int kNames = 3000;
    Bytes stream;
    for (int number = 0; number < kNames; ++number) {
        const std::string name(static_cast<std::size_t>(number % 200), static_cast<char>('a' + number % 26));
        const Bytes next = notify(oracle::join(
            {oracle::encodeText("phone-name", name), oracle::encodeInt("player-state", number)}));
        stream.insert(stream.end(), next.begin(), next.end());
    }
    const Bytes end = notify(oracle::encodeInt("change-mode", 1));
    stream.insert(stream.end(), end.begin(), end.end());
    pipe.sendToSession(stream);
    EXPECT_TRUE(Host::waitForEvents(1));
    done = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
    EXPECT_TRUE(allWell.load());
    EXPECT_EQ(pipe.session->getPlayerState(), kNames - 1U);
}

TEST(SessionThreads, EveryCallAtOnceFromFourThreadsWhileNotificationsArrive) {
    Host host;
    PipeSession pipe;
    LogCapture quiet;
    pipe.listen();
    ASSERT_TRUE(pipe.session->init(Host::record()));
    pipe.runLoop();
    // The device information arrives before the connection is complete; until then a record is refused.
    ASSERT_TRUE(pipe.waitForConnects(1));
    ASSERT_EQ(pipe.waitForPackets(1).size(), 1U);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] {
            for (int round = 0; round < 100; ++round) {
                pipe.session->init(Host::record());
                pipe.session->setAccountID("someone");
                pipe.session->getPlayerState();
                pipe.session->getPhoneName();
                pipe.session->endProjection(seriesFrom(5));
            }
        });
    }
    for (int mode = 0; mode < 500; ++mode) {
        pipe.sendToSession(notify(
            oracle::join({oracle::encodeInt("change-mode", mode), oracle::encodeText("phone-name", "x")})));
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    ASSERT_TRUE(Host::waitForEvents(500));
    for (int mode = 0; mode < 500; ++mode) {
        ASSERT_EQ(Host::events()[static_cast<std::size_t>(mode)], (Host::Call{200006, mode}));
    }
    EXPECT_EQ(pipe.waitForPackets(1 + 4 * 100 * 3).size(), 1U + 4 * 100 * 3);
    EXPECT_TRUE(Host::errors().empty());
}

TEST(SessionThreads, EventsOfOneReadAreNotReportedOnceTheServiceHasEnded) {
    Host host;
    DirectSession direct;
    LogCapture quiet;
    direct.session.init(Host::record());
    Host::whenEvent([&](int, int value) {
        if (value == 2) {
            direct.session.serviceHasEnded();
        }
    });
    oracle::Bytes bytes;
    for (int mode = 0; mode < 100; ++mode) {
        bytes = oracle::join({bytes, notify(oracle::encodeInt("change-mode", mode))});
    }
    direct.session.onRead(chainOf(bytes), 0);
    EXPECT_EQ(Host::events(), (std::vector<Host::Call>{{200006, 0}, {200006, 1}, {200006, 2}}));
}
