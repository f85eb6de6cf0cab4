// A service that sends events as fast as the pipe takes them.
#include <chrono>
#include <string>
#include <vector>

#include "stress/hostile_rounds.h"
#include "support/effort.h"
#include "support/wait.h"

namespace {

using support::event;

constexpr int kModeChanged = SONVIA_EVENT_MODE_CHANGED;
constexpr int kEventsOfAWrite = 1000;

// Many events in each write: what the pipe takes is then the only limit.
std::string flood(int count) {
    return support::kAfterDeviceInformation +
           ("repeat " + std::to_string(count / kEventsOfAWrite) + " as write\njoin\nrepeat ") +
           std::to_string(kEventsOfAWrite) + "\n notify int change-mode $i\nend\nend\nend\n";
}

class EventFlood : public stress::HostileRounds {
protected:
    // Looked at now and then: a wait that wakes at each event would slow the flood down.
    void takeInOrder(int count) {
        constexpr std::chrono::minutes kFloodTimeout{10}; // a million of them in the long form
        const auto wanted = static_cast<std::size_t>(count);
        ASSERT_TRUE(support::reaches(
            wanted, "events", [&] { return events.count(); }, kFloodTimeout));
        const std::vector<support::HostEvent> all = events.all();
        ASSERT_EQ(all.size(), wanted);
        for (std::size_t i = 0; i < wanted; ++i) {
            ASSERT_EQ(all[i], event(kModeChanged, static_cast<int>(i) % kEventsOfAWrite));
        }
    }
};

TEST_F(EventFlood, EveryEventArrivesInOrder) {
    const int count = support::processRounds(50'000, 1'000'000);
    long long taken = 0;
    repeat("floods with events as fast as the pipe takes them", support::processRounds(2, 100), [&](int) {
        startAndConfigure(flood(count));
        ASSERT_NO_FATAL_FAILURE(takeInOrder(count));
        release(stress::Reported::kNothing, stress::End::kItself);
        taken += count;
    });
    support::tried("hostile service: events of these floods", taken, "events");
}

} // namespace
