// How long an event takes from the service to the host's callback: measured and drawn, not judged.
#include <algorithm>
#include <chrono>
#include <vector>

#include <uv.h>

#include "support/effort.h"
#include "support/service_fixture.h"

namespace {

using std::chrono::microseconds;

std::int64_t now() {
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<microseconds>(sinceEpoch).count();
}

class CallbackLatency : public support::ServiceTest {
protected:
    /// When the service was about to write each event, by its record.
    std::vector<std::int64_t> timesSent() {
        std::vector<std::int64_t> times;
        for (const support::Json& packet : standin.recorded("packet")) {
            if (packet.at("from").text() == "service") {
                times.push_back(packet.at("at").number());
            }
        }
        return times;
    }
};

TEST_F(CallbackLatency, OfEventsOneAtATime) {
    const auto count = static_cast<std::size_t>(support::rounds(50, 2000));
    std::vector<std::int64_t> arrived; // on the library's thread, until the release
    arrived.reserve(count);
    events.setReaction([&](const support::HostEvent&) { arrived.push_back(now()); });
    uv_os_setenv("SONVIA_STANDIN_RECORD_SENT", "1");
    startAndConfigure(support::kAfterDeviceInformation + ("repeat " + std::to_string(count)) +
                      "\n notify int change-mode $i\n wait 2\nend\n");
    for (std::size_t number = 1; number <= count; ++number) {
        ASSERT_TRUE(events.waitForCount(number));
    }
    stop();
    uv_os_unsetenv("SONVIA_STANDIN_RECORD_SENT");
    const std::vector<std::int64_t> sent = timesSent();
    ASSERT_EQ(sent.size(), count);
    ASSERT_EQ(arrived.size(), count);
    std::vector<microseconds> latencies;
    std::transform(arrived.begin(), arrived.end(), sent.begin(), std::back_inserter(latencies),
                   [](std::int64_t end, std::int64_t start) { return microseconds(end - start); });
    support::durations("callback latencies", "one event at a time", latencies);
    support::tried("callback latencies", static_cast<long long>(count), "events");
}

} // namespace
