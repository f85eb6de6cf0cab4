#include "support/host_events.h"
#include "support/wait.h"

#include <algorithm>
#include <cstring>
#include <ostream>
#include <sstream>

namespace support {

HostEvents& HostEvents::instance() {
    static auto* const kEvents = new HostEvents;
    return *kEvents;
}

void HostEvents::reset() {
    mMonitor.change([this] {
        // With the room for them, which would otherwise count as memory that the library leaks.
        mEvents = std::vector<HostEvent>();
        mReaction = nullptr;
    });
}

std::vector<HostEvent> HostEvents::all() const {
    return mMonitor.read([this] { return mEvents; });
}

std::size_t HostEvents::count() const {
    return mMonitor.read([this] { return mEvents.size(); });
}

testing::AssertionResult HostEvents::waitForCount(std::size_t count,
                                                  std::chrono::milliseconds timeout) const {
    return withEvents(mMonitor.reaches(
        count, "events", [this] { return mEvents.size(); }, timeout));
}

testing::AssertionResult HostEvents::waitFor(const HostEvent& wanted) const {
    std::ostringstream what;
    what << wanted;
    return withEvents(mMonitor.eventually(
        what.str(), [&] { return std::find(mEvents.begin(), mEvents.end(), wanted) != mEvents.end(); }));
}

void HostEvents::setReaction(std::function<void(const HostEvent&)> reaction) {
    mMonitor.change([&] { mReaction = std::move(reaction); });
}

void HostEvents::onEvent(int event, int value) {
    instance().add({false, event, value, std::this_thread::get_id()});
}

void HostEvents::onError(int code, int value) {
    instance().add({true, code, value, std::this_thread::get_id()});
}

void HostEvents::add(const HostEvent& event) {
    std::function<void(const HostEvent&)> reaction;
    mMonitor.change([&] {
        mEvents.push_back(event);
        reaction = mReaction;
    });
    if (reaction) {
        reaction(event);
    }
}

std::ostream& operator<<(std::ostream& out, const HostEvent& event) {
    return out << (event.isError ? "error " : "event ") << event.code << " with " << event.value;
}

// Adds the last events to what a wait that timed out says.
testing::AssertionResult HostEvents::withEvents(testing::AssertionResult result) const {
    constexpr std::size_t kShown = 10;
    if (!result) {
        const std::vector<HostEvent> events = all();
        result << "; there came " << events.size();
        for (std::size_t i = events.size() - std::min(events.size(), kShown); i < events.size(); ++i) {
            result << ", " << events[i];
        }
    }
    return result;
}

AudioServiceParam completeParam() {
    static int context = 0;
    AudioServiceParam param;
    std::memset(&param, 0, sizeof param);
    param.onEvent = HostEvents::onEvent;
    param.onError = HostEvents::onError;
    param.context = &context;
    std::strcpy(param.accountID, "account-1");
    std::strcpy(param.deviceID, "device-2");
    std::strcpy(param.sn, "serial-3");
    std::strcpy(param.model, "model-4");
    std::strcpy(param.bluetoothMac, "00:11:22:33:44:55");
    std::strcpy(param.pcName, "pc-6");
    return param;
}

} // namespace support
