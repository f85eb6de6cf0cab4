#include "stress/hostile_rounds.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <optional>

#include <uv.h>

#include "support/effort.h"
#include "support/wait.h"

namespace stress {

namespace {

using Clock = std::chrono::steady_clock;

std::chrono::milliseconds since(Clock::time_point begun) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begun);
}

} // namespace

void HostileRounds::repeat(const std::string& what, int times, const std::function<void(int)>& round) {
    static std::optional<support::ProcessSize>
        firstSize; // of the whole program, over all that is hostile in it
    support::ProcessSize before;
    const Clock::time_point begun = Clock::now();
    int done = 0;
    for (; done < times && !HasFailure(); ++done) {
        round(done);
        ASSERT_EQ(handle, nullptr) << "a round ends with its release";
        ASSERT_EQ(events.count(), mEventsAtRelease) << "callback after uninit, round " << done;
        events.reset();
        if (done == 0) {
            before = support::ownSize();
            firstSize = firstSize.value_or(before);
        }
    }
    const support::ProcessSize after = support::ownSize();
    EXPECT_EQ(support::growth(before, after), "") << "since the first round";
    EXPECT_EQ(support::growth(*firstSize, after), "") << "since the first round of all";
    if (!mReleases.empty()) {
        const auto longest = *std::max_element(mReleases.begin(), mReleases.end());
        support::longest("uninit, hostile service",
                         std::chrono::duration_cast<std::chrono::milliseconds>(longest));
        support::durations("release times", "hostile service", mReleases);
    }
    RecordProperty("all rounds, ms", std::to_string(since(begun).count()));
    RecordProperty("size", support::sizes(before, after));
    support::tried("hostile service: " + what, done);
}

void HostileRounds::configure() {
    const AudioServiceParam param = support::completeParam();
    ASSERT_TRUE(api.setParam(handle, &param));
}

void HostileRounds::release(Reported reported, End end, std::chrono::seconds bound) {
    const Clock::time_point begun = Clock::now();
    std::future<bool> returned = std::async(std::launch::async, [this] { return api.uninit(handle); });
    if (returned.wait_for(bound + support::kTimeout) != std::future_status::ready) {
        std::fputs("uninitSonviaAudioService hangs\n", stderr);
        std::_Exit(1); // its thread cannot be ended, and the test cannot go on beside it
    }
    const auto lasted = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begun);
    mReleases.push_back(lasted);
    mEventsAtRelease = events.count();
    handle = nullptr;
    EXPECT_TRUE(returned.get());
    EXPECT_LE(lasted, bound);
    expectReported(reported);
    expectServiceGone(end);
}

void HostileRounds::expectReported(Reported reported) {
    std::vector<support::HostEvent> errors;
    for (const support::HostEvent& each : events.all()) {
        if (each.isError) {
            errors.push_back(each);
        }
    }
    ASSERT_EQ(errors.size(), reported == Reported::kNothing ? 0U : 1U);
    if (reported == Reported::kNeverConnected) {
        EXPECT_EQ(errors[0], support::error(SONVIA_ERROR_CONNECTION, 0));
    } else if (reported == Reported::kStreamError) {
        EXPECT_EQ(errors[0].code, SONVIA_ERROR_STREAM);
        EXPECT_LT(errors[0].value, 0);
    } else if (reported == Reported::kConnectionLost) {
        EXPECT_EQ(errors[0].code, SONVIA_ERROR_CONNECTION);
        EXPECT_TRUE(errors[0].value == UV_EOF || errors[0].value == UV_ECONNRESET) << errors[0].value;
    }
}

void HostileRounds::expectServiceGone(End end) {
    EXPECT_FALSE(standin.running());
    for (const support::Json& child : standin.recorded("child")) {
        const std::int64_t pid = child.at("pid").number();
        EXPECT_TRUE(support::processEnds(pid, "standin_child.exe"));
    }
    const std::size_t orderly = standin.recorded("exit").size() + standin.recorded("crash").size();
    EXPECT_EQ(orderly, end == End::kItself ? 1U : 0U);
}

} // namespace stress
