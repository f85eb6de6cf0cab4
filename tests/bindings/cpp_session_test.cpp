// sonvia::Session from open to close: events, errors, connecting, and what happens inside a handler.
#include <atomic>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bindings/cpp_host.h"

#include "support/wait.h"

namespace {

using sonvia::Failure;
using Lines = std::vector<std::string>;

const std::string kConnected = "wait packet command 34 key KORUInfo\n";

class CppSession : public support::CppHost {};

TEST_F(CppSession, EventsArriveTypedAndInOrder) {
    start(kConnected +
          "notify int player-state 7\nnotify string phone-name \"Handset A\"\n"
          "notify int buffering-start 1\nnotify int buffering-end 1\nnotify int first-audiopcm 1\n"
          "notify int change-mode -3\n");
    ASSERT_TRUE(seen.waitFor(4));
    EXPECT_EQ(seen.lines(),
              (Lines{"bufferingStarted 0", "bufferingEnded 0", "firstAudio 0", "modeChanged -3"}));
    EXPECT_EQ(session.state(), 7U);
    EXPECT_EQ(session.phone(), "Handset A");
    EXPECT_EQ(session.close(), std::error_code());
    EXPECT_EQ(seen.lines().size(), 4U) << "the end of the connection that close causes is no error";
}

// Only the system decides when the library reports a frame in pieces, so the library is a table of functions here.
TEST_F(CppSession, FrameInSeveralPiecesIsNoError) {
    static AudioServiceParam given;
    sonvia::Library library;
    library.init = [](const char*, int) { return reinterpret_cast<AudioServiceHandle*>(&given); };
    library.setParam = [](AudioServiceHandle*, const AudioServiceParam* param) {
        given = *param;
        return true;
    };
    library.uninit = [](AudioServiceHandle*) { return true; };
    ASSERT_EQ(session.open(library, options, handlers()), std::error_code());
    ASSERT_EQ(session.connect(identity), std::error_code());
    given.onError(SONVIA_ERROR_STREAM, 0);
    given.onError(SONVIA_ERROR_STREAM, -4077);
    EXPECT_EQ(seen.lines(), (Lines{"stream -4077"}));
}

TEST_F(CppSession, LostConnectionIsReported) {
    start(kConnected + "exit\n");
    ASSERT_TRUE(seen.waitFor(1));
    EXPECT_EQ(seen.lines().at(0).rfind("connection -", 0), 0U) << seen.lines().at(0);
}

TEST_F(CppSession, ServiceThatIsSlowToOpenItsPipeIsAskedAgain) {
    start("wait 1000\nlisten\n" + kConnected + "notify int first-audiopcm 1\n");
    ASSERT_TRUE(seen.waitFor(1));
    EXPECT_EQ(seen.lines(), (Lines{"firstAudio 0"}));
}

TEST_F(CppSession, ConnectionThatIsNeverMadeIsReportedOnceTheTimeIsUp) {
    options.connectTime = std::chrono::milliseconds(300);
    start("no-pipe\n");
    ASSERT_TRUE(seen.waitFor(1));
    EXPECT_EQ(session.close(), std::error_code());
    EXPECT_EQ(seen.lines(), (Lines{"connection 0"}));
}

TEST_F(CppSession, CloseDoesNotWaitForTheConnectTime) {
    options.connectTime = support::kTimeout * 10;
    start("no-pipe\n");
    EXPECT_EQ(session.close(), std::error_code());
    EXPECT_EQ(seen.lines(), Lines{});
}

TEST_F(CppSession, OpenAndCloseAreRefusedInsideAHandler) {
    std::promise<std::vector<std::error_code>> results;
    sonvia::Handlers chosen;
    chosen.onEvent = [&](const sonvia::Event&) {
        sonvia::Session other;
        results.set_value({session.close(), other.open(library(), options, {})});
    };
    start(kConnected + "notify int first-audiopcm 1\n", chosen);
    EXPECT_EQ(results.get_future().get(),
              (std::vector<std::error_code>{Failure::InsideCallback, Failure::InsideCallback}));
    EXPECT_TRUE(session.isOpen());
    EXPECT_EQ(session.close(), std::error_code());
}

TEST_F(CppSession, EveryOtherCallIsAllowedInsideAHandler) {
    std::promise<std::vector<std::error_code>> results;
    sonvia::Handlers chosen;
    chosen.onEvent = [&](const sonvia::Event&) {
        session.state();
        session.phone();
        results.set_value({session.connect(identity), session.setAccount("other"), session.exitProjection()});
    };
    start(kConnected + "notify int first-audiopcm 1\n", chosen);
    EXPECT_EQ(results.get_future().get(), std::vector<std::error_code>(3));
    EXPECT_TRUE(standin.waitForPackets(1, support::kNotify, "exitAudioProjection"));
}

TEST_F(CppSession, SessionThatIsDestroyedInsideAHandlerIsClosedOnAThreadOfItsOwn) {
    auto owned = std::make_unique<sonvia::Session>();
    std::promise<void> destroyed;
    sonvia::Handlers chosen;
    chosen.onEvent = [&](const sonvia::Event&) {
        owned.reset();
        destroyed.set_value();
    };
    standin.play(kConnected + "notify int first-audiopcm 1\n");
    ASSERT_EQ(owned->open(library(), options, chosen), std::error_code());
    ASSERT_EQ(owned->connect(identity), std::error_code());
    destroyed.get_future().get();
    EXPECT_TRUE(standin.waitForEvent("exit"));
    // The place of the one session is free again once the last one is gone.
    EXPECT_TRUE(
        support::eventually("the place is free", [&] { return !session.open(library(), options, {}); }));
}

TEST_F(CppSession, ExceptionOfAHandlerIsHandedOverAndTheSessionGoesOn) {
    sonvia::Handlers chosen = handlers();
    chosen.onEvent = [](const sonvia::Event& event) {
        if (event.value >= 0) {
            throw std::runtime_error("mode " + std::to_string(event.value));
        }
    };
    const auto keep = chosen.onException;
    chosen.onException = [keep](const std::exception_ptr& thrown) {
        keep(thrown);
        throw std::logic_error("dropped");
    };
    start(kConnected + "notify int change-mode 1\nnotify int change-mode 2\n", chosen);
    ASSERT_TRUE(seen.waitFor(2));
    EXPECT_EQ(seen.lines(), (Lines{"exception: mode 1", "exception: mode 2"}));
}

TEST_F(CppSession, WithoutHandlersEventsAndErrorsAreDropped) {
    start(kConnected + "notify int first-audiopcm 1\nnotify int player-state 9\nexit\n", {});
    EXPECT_TRUE(support::eventually("the state is stored", [&] { return session.state() == 9; }));
    EXPECT_TRUE(standin.waitForEvent("exit"));
}

TEST_F(CppSession, OneSessionAtATime) {
    start("");
    sonvia::Session other;
    EXPECT_EQ(other.open(library(), options, {}), Failure::SessionOpen);
    EXPECT_FALSE(other.isOpen());
    session.close();
    EXPECT_EQ(other.open(library(), options, {}), std::error_code());
}

TEST_F(CppSession, ClosingTwiceAndWithoutOpeningDoesNothing) {
    EXPECT_EQ(session.close(), std::error_code());
    start("");
    EXPECT_EQ(session.close(), std::error_code());
    EXPECT_EQ(session.close(), std::error_code());
    EXPECT_FALSE(session.isOpen());
    EXPECT_EQ(session.connect(identity), Failure::NotOpen);
    EXPECT_EQ(session.exitProjection(), Failure::NotOpen);
    EXPECT_EQ(session.state(), sonvia::kStateUnknown);
    EXPECT_EQ(session.phone(), "phone");
}

TEST_F(CppSession, MovedSessionIsTheSameOne) {
    start("");
    sonvia::Session moved = std::move(session);
    EXPECT_TRUE(moved.isOpen());
    EXPECT_EQ(moved.exitProjection(), std::error_code());
    moved = sonvia::Session();
    EXPECT_TRUE(standin.waitForEvent("exit"));
}

TEST_F(CppSession, HandlersAreFreedByClose) {
    const auto state = std::make_shared<int>(1);
    sonvia::Handlers chosen;
    chosen.onEvent = [state](const sonvia::Event&) {};
    start("", chosen);
    chosen = {};
    session.close();
    EXPECT_EQ(state.use_count(), 1);
}

TEST_F(CppSession, CallsOfOtherThreadsEndWhenItIsClosed) {
    start(kConnected + "repeat forever\n    notify int change-mode $i\n    wait 1\nend\n");
    std::vector<std::thread> threads;
    std::atomic<int> rounds{0};
    std::atomic<int> refused{0};
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            while (session.exitProjection() != Failure::NotOpen) {
                session.state();
                session.phone();
                session.setAccount(std::string(static_cast<std::size_t>(i + 1), 'a'));
                ++rounds;
            }
            ++refused;
        });
    }
    EXPECT_TRUE(support::reaches(20, "rounds", [&] { return rounds.load(); }));
    std::thread closer([&] { session.close(); });
    session.close();
    closer.join();
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(refused, 4);
    EXPECT_FALSE(standin.running());
}

} // namespace
