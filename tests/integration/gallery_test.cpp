// The ready scenarios of the stand-in, each with a host that sees what the scenario's own comment promises.
#include "support/host_steps.h"
#include "support/process.h"
#include "support/service_fixture.h"

#include <fstream>
#include <iterator>
#include <uv.h>

namespace {

class Gallery : public support::ServiceTest {
protected:
    /// initSonviaAudioService with the service playing that scenario.
    void init(const std::string& name) {
        standin.play("");
        uv_os_setenv("SONVIA_STANDIN_SCENARIO", name.c_str());
        handle = api.init(support::logFolder().c_str(), SONVIA_LOG_WARNING);
        ASSERT_NE(handle, nullptr);
    }

    void setParam() {
        const AudioServiceParam param = support::completeParam();
        ASSERT_TRUE(api.setParam(handle, &param));
    }

    void playToHost(const std::string& name) {
        init(name);
        ASSERT_TRUE(standin.waitForEvent("listen"));
        setParam();
    }

    testing::AssertionResult reachesState(std::uint32_t state) const {
        return support::eventually("state " + std::to_string(state),
                                   [&] { return api.state(handle) == state; });
    }

    std::vector<support::HostEvent> only(int code) const {
        std::vector<support::HostEvent> found;
        for (const support::HostEvent& one : events.all()) {
            if (one.code == code) {
                found.push_back(one);
            }
        }
        return found;
    }
};

using support::error;
using support::event;

TEST_F(Gallery, Happy) {
    playToHost("happy");
    ASSERT_TRUE(events.waitFor(event(SONVIA_EVENT_MODE_CHANGED, 3)));
    EXPECT_EQ(events.all(),
              (std::vector{event(SONVIA_EVENT_BUFFERING_STARTED, 0), event(SONVIA_EVENT_BUFFERING_ENDED, 0),
                           event(SONVIA_EVENT_FIRST_AUDIO, 0), event(SONVIA_EVENT_MODE_CHANGED, 3)}));
    EXPECT_TRUE(reachesState(2));
    EXPECT_STREQ(api.sourceName(handle), "Handset A");
    EXPECT_TRUE(api.exitProjection(handle));
    EXPECT_TRUE(reachesState(0));
}

TEST_F(Gallery, SlowPhone) {
    playToHost("slow-phone");
    ASSERT_TRUE(events.waitFor(event(SONVIA_EVENT_FIRST_AUDIO, 0)));
    EXPECT_TRUE(reachesState(2));
    EXPECT_EQ(only(SONVIA_EVENT_BUFFERING_STARTED).size(), 3U);
    EXPECT_EQ(only(SONVIA_EVENT_BUFFERING_ENDED).size(), 3U);
    EXPECT_EQ(events.count(), 7U);
    EXPECT_STREQ(api.sourceName(handle), "Far away");
}

TEST_F(Gallery, TwoPhones) {
    std::vector<std::string> names; // at each event, on the library's thread
    events.setReaction([&](const support::HostEvent&) { names.emplace_back(api.sourceName(handle)); });
    playToHost("two-phones");
    ASSERT_TRUE(events.waitForCount(3));
    EXPECT_TRUE(reachesState(2));
    stop();
    EXPECT_EQ(events.all(),
              (std::vector{event(SONVIA_EVENT_FIRST_AUDIO, 0), event(SONVIA_EVENT_MODE_CHANGED, 1),
                           event(SONVIA_EVENT_FIRST_AUDIO, 0)}));
    ASSERT_EQ(names.size(), 3U);
    EXPECT_EQ(names.front(), "Handset A");
    EXPECT_EQ(names.back(), "Handset B");
}

TEST_F(Gallery, DroppedLink) {
    playToHost("dropped-link");
    ASSERT_TRUE(events.waitForCount(2));
    const std::vector<support::HostEvent> seen = events.all();
    EXPECT_EQ(seen[0], event(SONVIA_EVENT_FIRST_AUDIO, 0));
    EXPECT_TRUE(seen[1].isError);
    EXPECT_EQ(seen[1].code, SONVIA_ERROR_CONNECTION);
    EXPECT_TRUE(seen[1].value == UV_EOF || seen[1].value == UV_ECONNRESET) << seen[1].value;
    EXPECT_TRUE(only(SONVIA_EVENT_BUFFERING_STARTED).empty());
}

TEST_F(Gallery, LatePipe) {
    init("late-pipe");
    // Each attempt before the pipe is there is reported; the first one after it succeeds.
    std::size_t attempts = 0;
    do {
        setParam();
        ASSERT_TRUE(events.waitForCount(++attempts));
    } while (events.all().back() == error(SONVIA_ERROR_CONNECTION, 0));
    EXPECT_EQ(events.all().back(), event(SONVIA_EVENT_FIRST_AUDIO, 0));
}

TEST_F(Gallery, NoPipe) {
    init("no-pipe");
    setParam();
    ASSERT_TRUE(events.waitForCount(1));
    EXPECT_EQ(events.all().back(), error(SONVIA_ERROR_CONNECTION, 0));
    EXPECT_TRUE(standin.recorded("listen").empty());
}

TEST_F(Gallery, Flood) {
    playToHost("flood");
    ASSERT_TRUE(events.waitFor(event(SONVIA_EVENT_FIRST_AUDIO, 0)));
    const std::vector<support::HostEvent> modes = only(SONVIA_EVENT_MODE_CHANGED);
    ASSERT_EQ(modes.size(), 20000U);
    for (int number = 0; number < 20000; ++number) {
        ASSERT_EQ(modes[static_cast<std::size_t>(number)].value, number);
    }
}

TEST_F(Gallery, Garbage) {
    playToHost("garbage");
    ASSERT_TRUE(events.waitFor(event(SONVIA_EVENT_MODE_CHANGED, 4)));
    // After the last event there is a packet that is passed over; what the host sends still arrives.
    EXPECT_TRUE(api.exitProjection(handle));
    EXPECT_TRUE(standin.waitForPackets(1, support::kNotify, "exitAudioProjection"));
    EXPECT_EQ(events.all(),
              (std::vector{event(SONVIA_EVENT_MODE_CHANGED, 1), event(SONVIA_EVENT_MODE_CHANGED, 2),
                           event(SONVIA_EVENT_MODE_CHANGED, 3), event(SONVIA_EVENT_MODE_CHANGED, 4)}));
}

TEST_F(Gallery, RefusesToDie) {
    playToHost("refuses-to-die");
    ASSERT_TRUE(events.waitFor(event(SONVIA_EVENT_FIRST_AUDIO, 0)));
    const std::int64_t service = standin.pid();
    const std::vector<support::Json> children = standin.recorded("child");
    ASSERT_EQ(children.size(), 2U);
    stop();
    EXPECT_TRUE(support::processEnds(service, "QuPCAudio.exe"));
    for (const support::Json& child : children) {
        EXPECT_TRUE(support::processEnds(child.numberOf("pid"), "standin_child.exe"));
    }
    EXPECT_TRUE(standin.recorded("exit").empty()) << "it ended by itself";
}

TEST_F(Gallery, Silent) {
    playToHost("silent");
    ASSERT_TRUE(standin.waitForPackets(1, support::kNotify, "KORUInfo"));
    EXPECT_TRUE(api.exitProjection(handle));
    EXPECT_TRUE(standin.waitForPackets(1, support::kNotify, "exitAudioProjection"));
    EXPECT_EQ(api.state(handle), 4U);
    EXPECT_STREQ(api.sourceName(handle), "phone");
    EXPECT_EQ(events.count(), 0U);
}

TEST_F(Gallery, TextsOfTheHostAreMaskedUnlessAskedForAndBothSidesAreRecorded) {
    for (const bool secrets : {false, true}) {
        SCOPED_TRACE(secrets);
        standin.play("");
        uv_os_setenv("SONVIA_STANDIN_SCENARIO", "happy");
        uv_os_setenv("SONVIA_STANDIN_SHOW_SECRETS", secrets ? "1" : "0");
        uv_os_setenv("SONVIA_STANDIN_RECORD_SENT", "1");
        uv_os_setenv("SONVIA_STANDIN_SHOW_TO", secrets ? "secrets.txt" : "masked.txt");
        events.reset();
        handle = api.init(support::logFolder().c_str(), SONVIA_LOG_WARNING);
        ASSERT_TRUE(standin.waitForEvent("listen"));
        setParam();
        ASSERT_TRUE(events.waitFor(event(SONVIA_EVENT_MODE_CHANGED, 3)));
        stop();
        std::size_t sent = 0;
        for (const support::Json& packet : standin.recorded("packet")) {
            sent += packet.at("from").text() == "service" ? 1U : 0U;
        }
        EXPECT_EQ(sent, 7U);
        const support::Json identity = standin.packets(support::kNotify, "KORUInfo").at(0);
        const support::Json& texts = entryOf(identity.at("entries").list(), "KORUInfo").at("value");
        EXPECT_EQ(entryOf(texts.list(), "accountID").at("value").text(), secrets ? "account-1" : "xxxxxxxxx");
        std::ifstream file(secrets ? "secrets.txt" : "masked.txt");
        const std::string shown{std::istreambuf_iterator<char>(file), {}};
        EXPECT_EQ(shown.find("account-1") != std::string::npos, secrets) << shown;
        EXPECT_NE(shown.find("KORUInfo {accountID"), std::string::npos) << shown;
    }
    uv_os_unsetenv("SONVIA_STANDIN_RECORD_SENT");
    uv_os_unsetenv("SONVIA_STANDIN_SHOW_TO");
}

/// A scenario that joins the gallery joins this file.
TEST_F(Gallery, IsPlayedWhole) {
    ASSERT_EQ(support::runProgram(support::programFolder() / "QuPCAudio.exe", {"--gallery"}), 0);
    std::ifstream listed("stdout.txt");
    std::string names;
    for (std::string line; std::getline(listed, line);) {
        names += line.substr(0, line.find(' ')) + " ";
    }
    EXPECT_EQ(names, "dropped-link flood garbage happy late-pipe no-pipe refuses-to-die silent slow-phone "
                     "two-phones ");
}

} // namespace
