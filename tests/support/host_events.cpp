#include "support/host_events.h"

#include <algorithm>
#include <cstring>

#include "support/wait.h"

namespace support {

HostEvents& HostEvents::instance() {
    static auto* const kEvents = new HostEvents;
    return *kEvents;
}

void HostEvents::reset() {
    const std::lock_guard<std::mutex> lock(mMutex);
    // With the room for them, which would else count as memory that the library has left behind.
    mEvents = std::vector<HostEvent>();
    mReaction = nullptr;
}

std::vector<HostEvent> HostEvents::all() const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mEvents;
}

std::size_t HostEvents::count() const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mEvents.size();
}

bool HostEvents::waitForCount(std::size_t count) const {
    std::unique_lock<std::mutex> lock(mMutex);
    return mChanged.wait_for(lock, kGuard, [&] { return mEvents.size() >= count; });
}

bool HostEvents::waitFor(const HostEvent& wanted) const {
    std::unique_lock<std::mutex> lock(mMutex);
    return mChanged.wait_for(
        lock, kGuard, [&] { return std::find(mEvents.begin(), mEvents.end(), wanted) != mEvents.end(); });
}

void HostEvents::setReaction(std::function<void(const HostEvent&)> reaction) {
    const std::lock_guard<std::mutex> lock(mMutex);
    mReaction = std::move(reaction);
}

void HostEvents::onEvent(int event, int value) {
    instance().add({false, event, value, std::this_thread::get_id()});
}

void HostEvents::onError(int code, int value) {
    instance().add({true, code, value, std::this_thread::get_id()});
}

void HostEvents::add(const HostEvent& event) {
    std::function<void(const HostEvent&)> reaction;
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mEvents.push_back(event);
        reaction = mReaction;
    }
    mChanged.notify_all();
    if (reaction) {
        reaction(event);
    }
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
