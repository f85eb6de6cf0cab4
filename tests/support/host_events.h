// What the library reported through its two callbacks, in order.
#pragma once

#include <cstddef>
#include <functional>
#include <iosfwd>
#include <thread>
#include <vector>

#include "SonviaPCAudioDll.h"
#include "support/wait.h"

namespace support {

struct HostEvent {
    bool isError = false;
    int code = 0;
    int value = 0;
    std::thread::id thread;

    bool operator==(const HostEvent& other) const {
        return isError == other.isError && code == other.code && value == other.value;
    }
};

std::ostream& operator<<(std::ostream& out, const HostEvent& event);

inline HostEvent event(int code, int value) {
    return {false, code, value, {}};
}

inline HostEvent error(int code, int value) {
    return {true, code, value, {}};
}

// One for the process, because the callbacks carry no pointer of the host's.
class HostEvents {
public:
    static HostEvents& instance();

    // Forgets everything, the reaction included.
    void reset();
    std::vector<HostEvent> all() const;
    std::size_t count() const;
    // Each waits, at most for the timeout.
    testing::AssertionResult waitForCount(std::size_t count,
                                          std::chrono::milliseconds timeout = kTimeout) const;
    testing::AssertionResult waitFor(const HostEvent& wanted) const;

    // Called inside each callback, on the library's thread, after the event was noted.
    void setReaction(std::function<void(const HostEvent&)> reaction);

    // For AudioServiceParam.
    static void onEvent(int event, int value);
    static void onError(int code, int value);

private:
    void add(const HostEvent& event);
    testing::AssertionResult withEvents(testing::AssertionResult result) const;

    Monitor mMonitor; // of what follows
    std::vector<HostEvent> mEvents;
    std::function<void(const HostEvent&)> mReaction;
};

// A record with both callbacks, a context, and a text of its own in every field.
AudioServiceParam completeParam();

} // namespace support
